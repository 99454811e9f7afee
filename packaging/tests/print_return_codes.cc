// Prints the program's return-code table, one "code<TAB>message" line per
// record in table order, so that documents can be checked against it.
#include <stdio.h>
#include <string.h>

#include "common/return_code.h"

int main() {
  for (int i = 0; i < kErrorMapSize; ++i) {
    const char* text = asErrorMap[i].pchMessage != nullptr ? asErrorMap[i].pchMessage : "";
    text += strspn(text, "\n ");  // console indentation is not part of the text
    printf("%d\t%s\n", static_cast<int>(asErrorMap[i].eCode), text);
  }
  return 0;
}

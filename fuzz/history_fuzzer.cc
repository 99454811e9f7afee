// Arbitrary bytes as the update history file: every line is parsed, and
// what parses is shown as the table and the XML document -history prints.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "fuzz_support.h"
#include "output/history.h"
#include "output/output.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::TheWorld();
  const std::string text(reinterpret_cast<const char*>(data), size);
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    sHistoryRecordTag record;
    // What parses must come out of the writer as the same line.
    if (ParseHistoryRecord(text.substr(start, end - start), &record)) {
      sHistoryRecordTag again;
      const std::string line = FormatHistoryRecord(record);
      if (!ParseHistoryRecord(line.substr(0, line.size() - 1), &again) ||
          FormatHistoryRecord(again) != line)
        __builtin_trap();
    }
    start = end + 1;
  }
  return 0;
}

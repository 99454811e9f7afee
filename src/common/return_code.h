// The return-code vocabulary: one table of code and message, scanned front
// to back, and the conversion of setter results into option codes.
#ifndef VRX_COMMON_RETURN_CODE_H_
#define VRX_COMMON_RETURN_CODE_H_

#include "types.h"

struct sErrorMapTag {
  int32_t eCode;
  const char* pchMessage;
};

// The 56 records in their order.
extern const sErrorMapTag asErrorMap[];
extern const int kErrorMapSize;

// Message of the first record whose code equals code, or "".
const char* ReturnCodeText(int code);

// Setter result to option return code: 0 -> 0, 9 -> 8, 10 -> 9, other -> 0.
int MapOptionReturnCode(eReturnCodeTag code);

#endif  // VRX_COMMON_RETURN_CODE_H_

// Carries one request to a remote BMC by running ipmitool's "raw" command.
#ifndef VRX_IPMI_LAN_TRANSPORT_H_
#define VRX_IPMI_LAN_TRANSPORT_H_

#include <stdint.h>

#include "types.h"

extern uint8_t G_u8CipherValue;  // 0xFF: no cipher option

int DoIPMILanCommand(unsigned char netFnLun, unsigned char command,
                     sIPMIReqRespTag* record, unsigned char slaveAddress,
                     bool* retryLimitReached);

// The connection parameters of a request, read each time one is sent.
struct sLanTargetTag {
  const char* pchHost;
  const char* pchUser;
  const char* pchPassword;
  const char* pchInterface;
};
// Where they come from: the update object, which keeps what the user gave,
// registers itself here (null: every parameter empty).
void SetLanTargetSource(sLanTargetTag (*source)());
// The parameters as a request would use them now.
sLanTargetTag CurrentLanTarget();

#endif  // VRX_IPMI_LAN_TRANSPORT_H_

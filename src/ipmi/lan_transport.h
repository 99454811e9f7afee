// Carries one request to a remote BMC by running ipmitool's "raw" command.
#ifndef VRX_IPMI_LAN_TRANSPORT_H_
#define VRX_IPMI_LAN_TRANSPORT_H_

#include <stdint.h>

#include "types.h"

extern uint8_t G_u8CipherValue;  // 0xFF: no cipher option

int DoIPMILanCommand(unsigned char netFnLun, unsigned char command,
                     sIPMIReqRespTag* record, unsigned char slaveAddress,
                     bool* retryLimitReached);

#endif  // VRX_IPMI_LAN_TRANSPORT_H_

// One IPMI request with retries and tracing, over KCS (the raw-access
// library) or over the LAN (ipmitool).
#ifndef VRX_IPMI_IPMI_EXEC_H_
#define VRX_IPMI_IPMI_EXEC_H_

#include <stdint.h>

#include "types.h"
// The request trace and DelayMS come with this module for its callers.
#include "ipmi/request_trace.h"

class TalkBMCviaKCS_OSA;

class TKCSDriverAPI {
 public:
  TKCSDriverAPI();
  virtual ~TKCSDriverAPI();
  virtual int DoIPMICommand(unsigned char netFnLun, unsigned char command,
                            sIPMIReqRespTag* record,
                            unsigned char slaveAddress,
                            bool* retryLimitReached);
  virtual void SetCompletionCode(unsigned char code);
  virtual int InitTalkBMC();
  virtual void UinitTalkBMC();
  virtual int SendReqGetResp(unsigned char slaveAddress,
                             unsigned char netFnLun, unsigned char command,
                             sIPMIReqRespTag* record);

 protected:
  uint8_t u8ExpectedCompletionCode = 0;
  TalkBMCviaKCS_OSA* pTalkBMC = nullptr;
};

extern TKCSDriverAPI* G_pKCSDriverAPI;
extern uint8_t G_chBMCAddress;
extern uint8_t G_EnableIPMILan;

// The IPMI command module's singleton pair (no state beyond the globals).
int IPMICommandConstructor();
int IPMICommandDestructor();

int InitKcsDriver();
void UinitKcsDriver();
// Returns only 0, 1 or 256.
int ExecuteCommand(unsigned char slaveAddress, unsigned char netFnLun,
                   unsigned char command, sIPMIReqRespTag* record);
void SetExpectedCompletionCode(unsigned char code);
unsigned char GetBMCSlaveAddress();
void SetBMCSlaveAddress(unsigned char address);


#endif  // VRX_IPMI_IPMI_EXEC_H_

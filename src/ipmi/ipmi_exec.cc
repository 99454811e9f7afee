// One IPMI request with retries and tracing, dispatched to KCS or LAN.
#include "ipmi/ipmi_exec.h"

#include <new>

#include "ipmi/kcs_transport.h"
#include "ipmi/lan_transport.h"
#include "ipmi/request_kind.h"
#include "ipmi/request_record.h"
#include "ipmi/request_trace.h"
#include "output/output.h"
#include "platform/platform.h"

TKCSDriverAPI* G_pKCSDriverAPI = nullptr;
uint8_t G_chBMCAddress = 0;
uint8_t G_EnableIPMILan = 0;

namespace {

const uint8_t kBMCSlaveAddress = 0x20;

}  // namespace

int IPMICommandConstructor() { return 0; }

int IPMICommandDestructor() { return 0; }

TKCSDriverAPI::TKCSDriverAPI()
    : pTalkBMC(new (std::nothrow) TalkBMCviaKCS_OSA()) {}

TKCSDriverAPI::~TKCSDriverAPI() { TKCSDriverAPI::UinitTalkBMC(); }

void TKCSDriverAPI::SetCompletionCode(unsigned char code) {
  u8ExpectedCompletionCode = code;
}

int TKCSDriverAPI::InitTalkBMC() {
  if (pTalkBMC != nullptr && pTalkBMC->Init() != 0) return 0;
  // "Failed to Load Library" stays as it is; the log and the debug trace
  // say which library, where it was looked for and the loader's reason.
  if (pTalkBMC != nullptr && !pTalkBMC->LoadReport().empty() &&
      G_pOutputMessageHandle != nullptr)
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "%s",
                                            pTalkBMC->LoadReport().c_str());
  return RC_LOAD_LIBRARY_FAILED;
}

void TKCSDriverAPI::UinitTalkBMC() {
  delete pTalkBMC;
  pTalkBMC = nullptr;
}

int TKCSDriverAPI::DoIPMICommand(unsigned char netFnLun, unsigned char command,
                                 sIPMIReqRespTag* record,
                                 unsigned char slaveAddress,
                                 bool* retryLimitReached) {
  // The counter is 8 bits wide on purpose: a retry count of 255 wraps it to
  // zero attempts.
  uint8_t u8Counter = static_cast<uint8_t>(record->u8RetryCount + 1);
  record->u8ResponseDataOffset = 0;
  int status = 0;
  const bool signalledAtStart = SignalPending();
  for (;;) {
    --u8Counter;
    if (u8Counter == 0xFF) break;
    int attempt = record->u8RetryCount - u8Counter;
    if (attempt > 0)
      G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "   Retry %d\n",
                                              attempt);
    LogRequestData(slaveAddress, netFnLun, command, record);
    RecordRequestAttempt(slaveAddress, netFnLun, command, record, attempt);
    status = SendReqGetResp(slaveAddress, netFnLun, command, record);
    record->u8CompletionCode =
        pTalkBMC != nullptr ? pTalkBMC->CompletionCode() : 0xFF;
    if (status != 0) {
      RecordNoAnswer(status);
      LogErrorResponseData(status, record);
    } else {
      RecordAnswer(record);
      LogResponseData(record);
      if (record->u8CompletionCode == u8ExpectedCompletionCode ||
          record->u8CompletionCode == 0x00)
        return 0;
      status = 1;
    }
    if (StopRetrying(signalledAtStart)) return status;
    DelayMS(record->u16RetryDelay);
    record->u16ResponseLength = 128;
  }
  if (status != 0) *retryLimitReached = true;
  return status;
}

int TKCSDriverAPI::SendReqGetResp(unsigned char slaveAddress,
                                  unsigned char netFnLun,
                                  unsigned char command,
                                  sIPMIReqRespTag* record) {
  if (pTalkBMC == nullptr) return 1;
  unsigned char lun = netFnLun & 0x03;
  unsigned char netFn = (netFnLun >> 2) & 0x3F;
  // Neither side of the record may be passed beyond its 128 bytes.
  unsigned char length = static_cast<unsigned char>(BoundedLength(
      record->u16RequestDataLength & 0xFF, sizeof(record->au8RequestData)));
  record->u16ResponseLength = static_cast<uint16_t>(
      BoundedLength(record->u16ResponseLength, sizeof(record->au8ResponseData)));
  if (slaveAddress == kBMCSlaveAddress)
    return pTalkBMC->requestBMC(netFn, command, lun, record->au8RequestData,
                                length, record->au8ResponseData,
                                &record->u16ResponseLength);
  return pTalkBMC->requestIPMB(slaveAddress, netFn, command, lun,
                               record->au8RequestData, length,
                               record->au8ResponseData,
                               &record->u16ResponseLength);
}

int InitKcsDriver() {
  UinitKcsDriver();
  G_pKCSDriverAPI = new (std::nothrow) TKCSDriverAPI();
  if (G_pKCSDriverAPI == nullptr) return RC_LOAD_LIBRARY_FAILED;
  int rc = G_pKCSDriverAPI->InitTalkBMC();
  if (rc != 0) return rc;
  SetBMCSlaveAddress(kBMCSlaveAddress);
  return 0;
}

void UinitKcsDriver() {
  if (G_pKCSDriverAPI == nullptr) return;
  delete G_pKCSDriverAPI;
  G_pKCSDriverAPI = nullptr;
}

int ExecuteCommand(unsigned char slaveAddress, unsigned char netFnLun,
                   unsigned char command, sIPMIReqRespTag* record) {
  int result = 1;
  bool retryLimitReached = false;
  const unsigned length =
      BoundedLength(record->u16RequestDataLength, sizeof(record->au8RequestData));
  if (ChangesBmcState(netFnLun, command, record->au8RequestData, length)) {
    // The check promises to change nothing: such a request never leaves.
    if (ReadOnlyChannel()) {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectDebug,
          "\n   Not sent: NetFn 0x%02x command 0x%02x would change the BMC\n",
          netFnLun >> 2, command);
      return RC_FAILED;
    }
    NoteStateChangingRequest();
  }
  if (G_pKCSDriverAPI != nullptr)
    result = G_pKCSDriverAPI->DoIPMICommand(netFnLun, command, record,
                                            slaveAddress, &retryLimitReached);
  if (G_EnableIPMILan == 1)
    result = DoIPMILanCommand(netFnLun, command, record, slaveAddress,
                              &retryLimitReached);
  if (result == 0) return 0;
  return retryLimitReached ? RC_RETRY_LIMIT : RC_FAILED;
}

void SetExpectedCompletionCode(unsigned char code) {
  if (G_pKCSDriverAPI != nullptr) G_pKCSDriverAPI->SetCompletionCode(code);
}

unsigned char GetBMCSlaveAddress() { return G_chBMCAddress; }

void SetBMCSlaveAddress(unsigned char address) { G_chBMCAddress = address; }


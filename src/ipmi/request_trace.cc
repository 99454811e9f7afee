// The trace of one request, its answer or its failure, shared by the KCS
// and the LAN transport, and the pause between two attempts.
#include "ipmi/request_trace.h"

#include "output/output.h"
#include "platform/platform.h"
#include "platform/signals.h"

unsigned BoundedLength(unsigned length, unsigned capacity) {
  return length < capacity ? length : capacity;
}

void LogRequestData(unsigned char slaveAddress, unsigned char netFnLun,
                    unsigned char command, const sIPMIReqRespTag* record) {
  TOutputMessageHandle* out = G_pOutputMessageHandle;
  out->RedirectMessage(eRedirectDebug, "   Request Info:\n");
  out->RedirectMessage(
      eRedirectDebug,
      "   slave addr = 0x%02X  netfcn+lun = 0x%02X  command = 0x%02X\n",
      slaveAddress, netFnLun, command);
  out->RedirectMessage(eRedirectDebug, "   request data length = %d, data =",
                       record->u16RequestDataLength);
  unsigned count =
      BoundedLength(record->u16RequestDataLength, sizeof(record->au8RequestData));
  for (unsigned i = 0; i < count; ++i)
    out->RedirectMessage(eRedirectDebug, " 0x%02X", record->au8RequestData[i]);
  out->RedirectMessage(eRedirectDebug, "\n");
}

void LogResponseData(const sIPMIReqRespTag* record) {
  TOutputMessageHandle* out = G_pOutputMessageHandle;
  out->RedirectMessage(eRedirectDebug, "   Response Info:\n");
  out->RedirectMessage(
      eRedirectDebug, "   Completion Code = 0x%02x  Response Length = 0x%02x\n",
      record->u8CompletionCode, record->u16ResponseLength);
  out->RedirectMessage(eRedirectDebug, "   Response Data:");
  unsigned count =
      BoundedLength(record->u16ResponseLength, sizeof(record->au8ResponseData));
  for (unsigned i = 0; i < count; ++i)
    out->RedirectMessage(eRedirectDebug, " 0x%02x", record->au8ResponseData[i]);
  out->RedirectMessage(eRedirectDebug, "\n");
}

void LogErrorResponseData(int status, const sIPMIReqRespTag* record) {
  TOutputMessageHandle* out = G_pOutputMessageHandle;
  out->RedirectMessage(eRedirectDebug, "   Response Error\n");
  out->RedirectMessage(eRedirectDebug,
                       "   Cmd Status = 0x%02x  IPMI Completion Code = 0x%02x  "
                       "Response Len = 0x%02x\n",
                       status, record->u8CompletionCode,
                       record->u16ResponseLength);
}

int DelayMS(unsigned int ms) {
  platform::GetEnv()->SleepMs(ms);
  return 0;
}

bool SignalPending() { return platform::PendingSignal() != 0; }

bool StopRetrying(bool signalledAtStart) {
  return !signalledAtStart && SignalPending();
}

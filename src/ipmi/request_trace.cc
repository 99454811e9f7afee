// The trace of one request, its answer or its failure, shared by the KCS
// and the LAN transport, and the pause between two attempts.
#include "ipmi/request_trace.h"

#include "output/output.h"
#include "platform/platform.h"
#include "platform/signals.h"

namespace {

const unsigned char kNetFnOEM = 0x30;
const unsigned char kCmdGet = 0x02;
const unsigned char kCmdSet = 0x03;
const unsigned char kCIDRemoteUpdate = 0x10;
const unsigned char kAIDURI = 0x03;

unsigned g_secretBegin = 0;
unsigned g_secretEnd = 0;
// The store offset of the URI bytes the last traced Get asked for, or -1.
int g_uriGetOffset = -1;

bool IsSecret(int storeOffset) {
  return storeOffset >= 0 && static_cast<unsigned>(storeOffset) >= g_secretBegin &&
         static_cast<unsigned>(storeOffset) < g_secretEnd;
}

}  // namespace

unsigned BoundedLength(unsigned length, unsigned capacity) {
  return length < capacity ? length : capacity;
}

bool IsUriItem(unsigned char netFnLun, unsigned char command,
               const unsigned char* data, unsigned length) {
  return (netFnLun >> 2) == kNetFnOEM && (command == kCmdSet || command == kCmdGet) &&
         length >= 3 && data[1] == kCIDRemoteUpdate && data[2] == kAIDURI;
}

void SetSecretUriSpan(unsigned begin, unsigned end) {
  g_secretBegin = begin;
  g_secretEnd = end;
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
  const unsigned char* data = record->au8RequestData;
  const bool uri = IsUriItem(netFnLun, command, data, count);
  const bool uriSet = uri && command == kCmdSet && count >= kUriSetHeaderLength;
  g_uriGetOffset = uri && command == kCmdGet && count >= 6 ? data[4] | (data[5] << 8) : -1;
  const int setOffset = uriSet ? data[4] | (data[5] << 8) : 0;
  for (unsigned i = 0; i < count; ++i) {
    if (uriSet && i >= kUriSetHeaderLength &&
        IsSecret(setOffset + static_cast<int>(i - kUriSetHeaderLength)))
      out->RedirectMessage(eRedirectDebug, " 0x**");
    else
      out->RedirectMessage(eRedirectDebug, " 0x%02X", data[i]);
  }
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
  for (unsigned i = 0; i < count; ++i) {
    if (g_uriGetOffset >= 0 && i >= kUriGetHeaderLength &&
        IsSecret(g_uriGetOffset + static_cast<int>(i - kUriGetHeaderLength)))
      out->RedirectMessage(eRedirectDebug, " 0x**");
    else
      out->RedirectMessage(eRedirectDebug, " 0x%02x", record->au8ResponseData[i]);
  }
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

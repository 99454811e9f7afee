// The trace lines of one request (debug output and log) and the pause
// between attempts, shared by request execution and both transports.
#ifndef VRX_IPMI_REQUEST_TRACE_H_
#define VRX_IPMI_REQUEST_TRACE_H_

#include "types.h"

void LogRequestData(unsigned char slaveAddress, unsigned char netFnLun,
                    unsigned char command, const sIPMIReqRespTag* record);
void LogResponseData(const sIPMIReqRespTag* record);
void LogErrorResponseData(int status, const sIPMIReqRespTag* record);

// Number of bytes of a record field of capacity bytes that length may cover.
unsigned BoundedLength(unsigned length, unsigned capacity);

// The remote-update URI item of the settings store: its Set requests carry
// URI bytes after a 7-byte header, its Get answers after a 4-byte header.
// True for a Get or Set of that item.
constexpr unsigned kUriSetHeaderLength = 7;
constexpr unsigned kUriGetHeaderLength = 4;
bool IsUriItem(unsigned char netFnLun, unsigned char command,
               const unsigned char* data, unsigned length);
// The store offsets [begin, end) of a password in the URI's user part; the
// trace shows those bytes as "0x**". (0, 0): none.
void SetSecretUriSpan(unsigned begin, unsigned end);

// Sleeps through the platform clock, so tests never wait. Returns 0.
int DelayMS(unsigned int ms);

// Whether a stop signal is pending (see platform/signals.h).
bool SignalPending();
// Both transports' retry loops: a signal that arrived while this request
// was being retried ends the retries at once, since the run is stopping;
// a request sent while stopping (the clean-up's) keeps all its retries.
bool StopRetrying(bool signalledAtStart);

#endif  // VRX_IPMI_REQUEST_TRACE_H_

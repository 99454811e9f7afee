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

// Sleeps through the platform clock, so tests never wait. Returns 0.
int DelayMS(unsigned int ms);

// Whether a stop signal is pending (see platform/signals.h).
bool SignalPending();
// Both transports' retry loops: a signal that arrived while this request
// was being retried ends the retries at once, since the run is stopping;
// a request sent while stopping (the clean-up's) keeps all its retries.
bool StopRetrying(bool signalledAtStart);

#endif  // VRX_IPMI_REQUEST_TRACE_H_

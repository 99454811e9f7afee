// libopenraw.so: the raw-access library the utility loads at run time,
// implemented over the Linux IPMI driver's character device (/dev/ipmi0).
// Four C entry points; handles are non-zero, 0 means "not open".
#ifndef VRX_OPENRAW_OPENRAW_H_
#define VRX_OPENRAW_OPENRAW_H_

#include <stdint.h>

#define OPENRAW_EXPORT extern "C" __attribute__((visibility("default")))

// Library statuses (0 is success).
enum {
  kOpenRawBadHandle = 1,  // no such open channel
  kOpenRawSendFailed = 2,   // the driver refused the request
  kOpenRawReceiveFailed = 3,  // no answer in time, or the driver failed
  kOpenRawBadRequest = 4,   // arguments the driver cannot carry
};

OPENRAW_EXPORT uint32_t RawOpen(void);
OPENRAW_EXPORT int RawRequest(uint32_t handle, unsigned char netFnLun,
                              unsigned char command,
                              unsigned char* requestData,
                              unsigned char requestLength,
                              unsigned char* completionCode,
                              unsigned char* responseData,
                              unsigned short* responseLength);
OPENRAW_EXPORT int RawIPMBRequest(uint32_t handle, unsigned char slaveAddress,
                                  unsigned char netFnLun,
                                  unsigned char command,
                                  unsigned char* requestData,
                                  unsigned char requestLength,
                                  unsigned char* completionCode,
                                  unsigned char* responseData,
                                  unsigned short* responseLength);
OPENRAW_EXPORT void RawClose(uint32_t handle);

#endif  // VRX_OPENRAW_OPENRAW_H_

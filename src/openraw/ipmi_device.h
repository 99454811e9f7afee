// The few calls the library makes on the IPMI character device, behind an
// interface so that tests can stand in a scripted device and a virtual
// clock for the kernel.
#ifndef VRX_OPENRAW_IPMI_DEVICE_H_
#define VRX_OPENRAW_IPMI_DEVICE_H_

#include <linux/ipmi.h>
#include <stdint.h>

namespace openraw {

class IpmiDevice {
 public:
  virtual ~IpmiDevice() = default;
  // Each returns what the system call would (-1 with errno on failure).
  virtual int Open(const char* path) = 0;
  virtual int Send(int fd, struct ipmi_req* request) = 0;     // SEND_COMMAND
  virtual int Poll(int fd, int timeoutMs) = 0;  // >0 readable, 0 time-out
  virtual int Receive(int fd, struct ipmi_recv* answer) = 0;  // RECEIVE_MSG_TRUNC
  virtual void Close(int fd) = 0;
  virtual int64_t NowMs() = 0;  // monotonic
};

// The real device. Never null.
IpmiDevice* SystemDevice();

// The device in use; tests install their own (nullptr restores the real one).
IpmiDevice* CurrentDevice();
void SetDeviceForTesting(IpmiDevice* device);

}  // namespace openraw

#endif  // VRX_OPENRAW_IPMI_DEVICE_H_

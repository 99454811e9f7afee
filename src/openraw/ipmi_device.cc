// The real IPMI character device: plain system calls.
#include "openraw/ipmi_device.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

namespace openraw {
namespace {

class LinuxIpmiDevice : public IpmiDevice {
 public:
  int Open(const char* path) override {
    return open(path, O_RDWR | O_CLOEXEC);
  }
  int Send(int fd, struct ipmi_req* request) override {
    int rv;
    do {
      rv = ioctl(fd, IPMICTL_SEND_COMMAND, request);
    } while (rv < 0 && errno == EINTR);
    return rv;
  }
  int Poll(int fd, int timeoutMs) override {
    struct pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, timeoutMs);
  }
  int Receive(int fd, struct ipmi_recv* answer) override {
    return ioctl(fd, IPMICTL_RECEIVE_MSG_TRUNC, answer);
  }
  void Close(int fd) override { close(fd); }
  int64_t NowMs() override {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
  }
};

LinuxIpmiDevice g_system;
IpmiDevice* g_current = nullptr;

}  // namespace

IpmiDevice* SystemDevice() { return &g_system; }

IpmiDevice* CurrentDevice() {
  return g_current != nullptr ? g_current : &g_system;
}

void SetDeviceForTesting(IpmiDevice* device) { g_current = device; }

}  // namespace openraw

// libopenraw.so over the Linux IPMI driver: one request is IPMICTL_SEND_COMMAND
// with a fresh message id, then poll and IPMICTL_RECEIVE_MSG_TRUNC until the
// response with that id arrives or the time limit passes. Anything else
// read meanwhile (events, late answers to requests given up on) is dropped.
#include "openraw/openraw.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <map>

#include "openraw/ipmi_device.h"
#include "openraw/openraw_limits.h"

namespace openraw {
namespace {

struct Channel {
  int fd = -1;
  long lastMsgid = 0;
};

std::map<uint32_t, Channel> g_channels;
uint32_t g_lastHandle = 0;
int g_answerLimitMs = kAnswerLimitMs;

Channel* Find(uint32_t handle) {
  auto it = g_channels.find(handle);
  return it == g_channels.end() ? nullptr : &it->second;
}

// Sends one message to `address` and waits for its response.
int Exchange(uint32_t handle, void* address, unsigned addressLength,
             unsigned char netFnLun, unsigned char command,
             unsigned char* requestData, unsigned char requestLength,
             unsigned char* completionCode, unsigned char* responseData,
             unsigned short* responseLength) {
  Channel* channel = Find(handle);
  if (channel == nullptr) return kOpenRawBadHandle;
  if (completionCode == nullptr || responseLength == nullptr ||
      (requestData == nullptr && requestLength != 0) ||
      (responseData == nullptr && *responseLength != 0))
    return kOpenRawBadRequest;
  IpmiDevice* device = CurrentDevice();

  struct ipmi_req request;
  memset(&request, 0, sizeof(request));
  request.addr = static_cast<unsigned char*>(address);
  request.addr_len = addressLength;
  request.msgid = ++channel->lastMsgid;
  request.msg.netfn = static_cast<unsigned char>(netFnLun >> 2);
  request.msg.cmd = command;
  request.msg.data = requestData;
  request.msg.data_len = requestLength;
  if (device->Send(channel->fd, &request) < 0) return kOpenRawSendFailed;

  const int64_t deadline = device->NowMs() + g_answerLimitMs;
  for (;;) {
    int64_t remaining = deadline - device->NowMs();
    if (remaining <= 0) return kOpenRawReceiveFailed;
    int ready = device->Poll(channel->fd, static_cast<int>(remaining));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return kOpenRawReceiveFailed;

    unsigned char from[sizeof(struct ipmi_addr)];
    unsigned char data[IPMI_MAX_MSG_LENGTH];
    struct ipmi_recv answer;
    memset(&answer, 0, sizeof(answer));
    answer.addr = from;
    answer.addr_len = sizeof(from);
    answer.msg.data = data;
    answer.msg.data_len = sizeof(data);
    // A truncated message still arrives (EMSGSIZE): the head is what counts.
    if (device->Receive(channel->fd, &answer) < 0 && errno != EMSGSIZE) {
      if (errno == EAGAIN || errno == EINTR) continue;
      return kOpenRawReceiveFailed;
    }
    if (answer.recv_type != IPMI_RESPONSE_RECV_TYPE ||
        answer.msgid != request.msgid)
      continue;
    unsigned length = answer.msg.data_len;
    if (length > sizeof(data)) length = sizeof(data);
    if (length < 1) return kOpenRawReceiveFailed;
    *completionCode = data[0];
    unsigned count = length - 1;
    if (count > *responseLength) count = *responseLength;
    if (count > 0) memcpy(responseData, data + 1, count);
    *responseLength = static_cast<unsigned short>(count);
    return 0;
  }
}

}  // namespace

void SetAnswerLimitMsForTesting(int ms) {
  g_answerLimitMs = ms > 0 ? ms : kAnswerLimitMs;
}

}  // namespace openraw

using openraw::CurrentDevice;

OPENRAW_EXPORT uint32_t RawOpen(void) {
  int fd = CurrentDevice()->Open(openraw::kDevicePath);
  if (fd < 0) {
    int error = errno;
    fprintf(stderr,
            "libopenraw: cannot open %s (%s); the IPMI driver needs the "
            "modules ipmi_devintf and ipmi_si (modprobe ipmi_devintf ipmi_si)\n",
            openraw::kDevicePath, strerror(error));
    return 0;
  }
  uint32_t handle = ++openraw::g_lastHandle;
  if (handle == 0) handle = ++openraw::g_lastHandle;
  openraw::g_channels[handle].fd = fd;
  return handle;
}

OPENRAW_EXPORT int RawRequest(uint32_t handle, unsigned char netFnLun,
                              unsigned char command,
                              unsigned char* requestData,
                              unsigned char requestLength,
                              unsigned char* completionCode,
                              unsigned char* responseData,
                              unsigned short* responseLength) {
  struct ipmi_system_interface_addr address;
  memset(&address, 0, sizeof(address));
  address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
  address.channel = IPMI_BMC_CHANNEL;
  address.lun = static_cast<unsigned char>(netFnLun & 3);
  return openraw::Exchange(handle, &address, sizeof(address), netFnLun,
                           command, requestData, requestLength,
                           completionCode, responseData, responseLength);
}

OPENRAW_EXPORT int RawIPMBRequest(uint32_t handle, unsigned char slaveAddress,
                                  unsigned char netFnLun,
                                  unsigned char command,
                                  unsigned char* requestData,
                                  unsigned char requestLength,
                                  unsigned char* completionCode,
                                  unsigned char* responseData,
                                  unsigned short* responseLength) {
  // The driver wraps it in Send Message to the BMC's primary IPMB (channel 0).
  struct ipmi_ipmb_addr address;
  memset(&address, 0, sizeof(address));
  address.addr_type = IPMI_IPMB_ADDR_TYPE;
  address.channel = 0;
  address.slave_addr = slaveAddress;
  address.lun = static_cast<unsigned char>(netFnLun & 3);
  return openraw::Exchange(handle, &address, sizeof(address), netFnLun,
                           command, requestData, requestLength,
                           completionCode, responseData, responseLength);
}

OPENRAW_EXPORT void RawClose(uint32_t handle) {
  auto it = openraw::g_channels.find(handle);
  if (it == openraw::g_channels.end()) return;
  CurrentDevice()->Close(it->second.fd);
  openraw::g_channels.erase(it);
}

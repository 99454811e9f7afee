// Test build of the raw-access library: instead of the host's KCS driver it
// talks to the simulated BMC's system-interface socket (ipmi_sim "serial ...
// codec VM"), so the real program in KCS mode reaches the same BMC.
//   VRX_KCS_SIM_PORT        TCP port on 127.0.0.1 (required)
//   VRX_KCS_SIM_TIMEOUT_MS  wait for one response, default 5000
//   VRX_KCS_SIM_TRACE       file that receives a line per request
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <vector>

#include "ipmi/kcs_transport.h"

namespace {

constexpr uint8_t kMsgChar = 0xA0;
constexpr uint8_t kCmdChar = 0xA1;
constexpr uint8_t kEscapeChar = 0xAA;
constexpr uint32_t kHandle = 0x5157;

// Library status codes, as the program's error table names them.
constexpr int kStatusFailed = 1;
constexpr int kStatusSend = 2;
constexpr int kStatusReceive = 3;
constexpr int kStatusRejected = 4;

int g_fd = -1;
uint8_t g_seq = 0;
std::vector<uint8_t> g_input;    // received bytes not yet decoded
std::vector<uint8_t> g_pending;  // decoded bytes of the frame being read
bool g_escaped = false;

long long NowMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec * 1000LL + ts.tv_nsec / 1000000;
}

int TimeoutMs() {
  const char* text = std::getenv("VRX_KCS_SIM_TIMEOUT_MS");
  int value = text ? std::atoi(text) : 0;
  return value > 0 ? value : 5000;
}

void Trace(const char* what, const uint8_t* data, size_t len) {
  const char* path = std::getenv("VRX_KCS_SIM_TRACE");
  if (path == nullptr || *path == '\0') return;
  FILE* f = std::fopen(path, "a");
  if (f == nullptr) return;
  std::fprintf(f, "%lld %s", NowMs(), what);
  for (size_t i = 0; i < len; ++i) std::fprintf(f, " %02x", data[i]);
  std::fputc('\n', f);
  std::fclose(f);
}

bool Connect() {
  const char* text = std::getenv("VRX_KCS_SIM_PORT");
  int port = text ? std::atoi(text) : 0;
  if (port <= 0 || port > 65535) return false;
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  struct sockaddr_in addr;
  std::memset(&addr, 0, sizeof(addr));
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
    close(fd);
    return false;
  }
  g_fd = fd;
  g_input.clear();
  g_pending.clear();
  g_escaped = false;
  return true;
}

void Disconnect() {
  if (g_fd >= 0) close(g_fd);
  g_fd = -1;
  g_input.clear();
  g_pending.clear();
  g_escaped = false;
}

void AppendEscaped(std::vector<uint8_t>* out, uint8_t b) {
  if (b == kMsgChar || b == kCmdChar || b == kEscapeChar) {
    out->push_back(kEscapeChar);
    out->push_back(static_cast<uint8_t>(b | 0x10));
  } else {
    out->push_back(b);
  }
}

bool SendFrame(const std::vector<uint8_t>& message) {
  std::vector<uint8_t> wire;
  uint8_t sum = 0;
  for (uint8_t b : message) {
    AppendEscaped(&wire, b);
    sum = static_cast<uint8_t>(sum + b);
  }
  AppendEscaped(&wire, static_cast<uint8_t>(-sum));
  wire.push_back(kMsgChar);
  size_t done = 0;
  while (done < wire.size()) {
    ssize_t n = send(g_fd, wire.data() + done, wire.size() - done, MSG_NOSIGNAL);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Reads until one complete IPMI message frame arrives; control frames
// (ended by 0xA1) are skipped. false on time-out or a closed socket.
bool ReadFrame(long long deadline, std::vector<uint8_t>* frame) {
  for (;;) {
    while (!g_input.empty()) {
      uint8_t b = g_input.front();
      g_input.erase(g_input.begin());
      if (g_escaped) {
        g_pending.push_back(static_cast<uint8_t>(b & ~0x10));
        g_escaped = false;
      } else if (b == kEscapeChar) {
        g_escaped = true;
      } else if (b == kCmdChar) {
        g_pending.clear();
      } else if (b == kMsgChar) {
        *frame = g_pending;
        g_pending.clear();
        return true;
      } else if (g_pending.size() < 1024) {
        g_pending.push_back(b);
      }
    }
    long long left = deadline - NowMs();
    if (left <= 0) return false;
    struct pollfd p = {g_fd, POLLIN, 0};
    if (poll(&p, 1, static_cast<int>(left)) <= 0) return false;
    uint8_t buffer[512];
    ssize_t n = recv(g_fd, buffer, sizeof(buffer), 0);
    if (n <= 0) {
      Disconnect();
      return false;
    }
    g_input.insert(g_input.end(), buffer, buffer + n);
  }
}

int Transact(uint8_t netFnLun, uint8_t command, const uint8_t* data,
             uint8_t length, uint8_t* completionCode, uint8_t* response,
             unsigned short* responseLength) {
  if (g_fd < 0 && !Connect()) return kStatusFailed;
  g_seq = static_cast<uint8_t>(g_seq + 1);
  if (g_seq == 0) g_seq = 1;
  std::vector<uint8_t> message = {g_seq, netFnLun, command};
  if (data != nullptr) message.insert(message.end(), data, data + length);
  Trace("req", message.data(), message.size());
  if (!SendFrame(message)) {
    Disconnect();
    return kStatusSend;
  }
  long long deadline = NowMs() + TimeoutMs();
  std::vector<uint8_t> frame;
  while (ReadFrame(deadline, &frame)) {
    uint8_t sum = 0;
    for (uint8_t b : frame) sum = static_cast<uint8_t>(sum + b);
    // seq, netfn/lun, cmd, completion code, checksum at least.
    if (frame.size() < 5 || sum != 0 || frame[0] != g_seq) continue;
    if ((frame[1] >> 2) != ((netFnLun >> 2) | 1) || frame[2] != command)
      return kStatusRejected;
    Trace("rsp", frame.data(), frame.size());
    *completionCode = frame[3];
    size_t count = frame.size() - 5;
    size_t capacity = *responseLength;
    if (count > capacity) count = capacity;
    if (count > 0) std::memcpy(response, frame.data() + 4, count);
    *responseLength = static_cast<unsigned short>(count);
    return 0;
  }
  Trace("timeout", message.data(), message.size());
  return kStatusReceive;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) uint32_t RawOpen() {
  if (g_fd >= 0 || Connect()) return kHandle;
  return 0;
}

__attribute__((visibility("default"))) int RawRequest(
    uint32_t handle, unsigned char netFnLun, unsigned char command,
    unsigned char* requestData, unsigned char requestLength,
    unsigned char* completionCode, unsigned char* responseData,
    unsigned short* responseLength) {
  if (handle != kHandle || completionCode == nullptr ||
      responseLength == nullptr || (responseData == nullptr && *responseLength))
    return kStatusFailed;
  return Transact(netFnLun, command, requestData, requestLength,
                  completionCode, responseData, responseLength);
}

// The simulator holds one controller, the BMC itself at 0x20.
__attribute__((visibility("default"))) int RawIPMBRequest(
    uint32_t handle, unsigned char slaveAddress, unsigned char netFnLun,
    unsigned char command, unsigned char* requestData,
    unsigned char requestLength, unsigned char* completionCode,
    unsigned char* responseData, unsigned short* responseLength) {
  if (slaveAddress != 0x20) return kStatusFailed;
  return RawRequest(handle, netFnLun, command, requestData, requestLength,
                    completionCode, responseData, responseLength);
}

__attribute__((visibility("default"))) void RawClose(uint32_t handle) {
  if (handle == kHandle) Disconnect();
}

}  // extern "C"

// The program loads these by name; keep them exactly its function types.
static_assert(std::is_same<decltype(&RawOpen), RawOpenFn>::value, "RawOpen");
static_assert(std::is_same<decltype(&RawRequest), RawRequestFn>::value,
              "RawRequest");
static_assert(std::is_same<decltype(&RawIPMBRequest), RawIPMBRequestFn>::value,
              "RawIPMBRequest");
static_assert(std::is_same<decltype(&RawClose), RawCloseFn>::value, "RawClose");

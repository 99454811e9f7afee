// The open libopenraw.so against a scripted IPMI device on a virtual clock:
// what it hands the driver, how it matches answers to requests, and how it
// fails.
#include "openraw/openraw.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <deque>
#include <string>
#include <vector>

#include "openraw/ipmi_device.h"
#include "openraw/openraw_limits.h"

namespace {

struct Sent {
  int addrType = 0;
  short channel = 0;
  unsigned char slave = 0;
  unsigned char lun = 0;
  long msgid = 0;
  unsigned char netfn = 0;
  unsigned char cmd = 0;
  std::vector<unsigned char> data;
};

// One message the driver hands back: at `atMs` on the virtual clock.
struct Incoming {
  int64_t atMs = 0;
  int recvType = IPMI_RESPONSE_RECV_TYPE;
  long msgid = 0;  // 0: the id of the last request sent
  std::vector<unsigned char> data;  // completion code first
};

class FakeDevice : public openraw::IpmiDevice {
 public:
  int Open(const char* path) override {
    opened = path;
    if (openErrno != 0) {
      errno = openErrno;
      return -1;
    }
    return 7;
  }
  int Send(int fd, struct ipmi_req* request) override {
    EXPECT_EQ(7, fd);
    if (sendErrno != 0) {
      errno = sendErrno;
      return -1;
    }
    Sent s;
    int type;
    memcpy(&type, request->addr, sizeof(type));
    s.addrType = type;
    if (type == IPMI_SYSTEM_INTERFACE_ADDR_TYPE) {
      EXPECT_EQ(sizeof(struct ipmi_system_interface_addr), request->addr_len);
      auto* a = reinterpret_cast<struct ipmi_system_interface_addr*>(request->addr);
      s.channel = a->channel;
      s.lun = a->lun;
    } else {
      EXPECT_EQ(sizeof(struct ipmi_ipmb_addr), request->addr_len);
      auto* a = reinterpret_cast<struct ipmi_ipmb_addr*>(request->addr);
      s.channel = a->channel;
      s.slave = a->slave_addr;
      s.lun = a->lun;
    }
    s.msgid = request->msgid;
    s.netfn = request->msg.netfn;
    s.cmd = request->msg.cmd;
    s.data.assign(request->msg.data, request->msg.data + request->msg.data_len);
    sent.push_back(s);
    return 0;
  }
  int Poll(int, int timeoutMs) override {
    polls.push_back(timeoutMs);
    if (pollErrno != 0) {
      errno = pollErrno;
      pollErrno = 0;
      return -1;
    }
    if (!incoming.empty() && incoming.front().atMs <= now + timeoutMs) {
      if (incoming.front().atMs > now) now = incoming.front().atMs;
      return 1;
    }
    now += timeoutMs;
    return 0;
  }
  int Receive(int, struct ipmi_recv* answer) override {
    if (incoming.empty()) {
      errno = EAGAIN;
      return -1;
    }
    Incoming in = incoming.front();
    incoming.pop_front();
    answer->recv_type = in.recvType;
    answer->msgid = in.msgid != 0 ? in.msgid : sent.back().msgid;
    unsigned capacity = answer->msg.data_len;
    unsigned n = static_cast<unsigned>(in.data.size());
    bool truncated = n > capacity;
    if (truncated) n = capacity;
    if (n > 0) memcpy(answer->msg.data, in.data.data(), n);  // data() may be null when empty
    answer->msg.data_len = static_cast<unsigned short>(n);
    if (truncated) {
      errno = EMSGSIZE;
      return -1;
    }
    return 0;
  }
  void Close(int fd) override { closed.push_back(fd); }
  int64_t NowMs() override { return now; }

  std::string opened;
  int openErrno = 0, sendErrno = 0, pollErrno = 0;
  int64_t now = 1000;
  std::vector<Sent> sent;
  std::vector<int> polls;
  std::vector<int> closed;
  std::deque<Incoming> incoming;
};

class OpenRawTest : public ::testing::Test {
 protected:
  void SetUp() override { openraw::SetDeviceForTesting(&dev); }
  void TearDown() override {
    if (handle != 0) RawClose(handle);
    openraw::SetDeviceForTesting(nullptr);
    openraw::SetAnswerLimitMsForTesting(0);
  }
  void Answer(std::vector<unsigned char> data, int64_t atMs = 0) {
    Incoming in;
    in.atMs = atMs;
    in.data = std::move(data);
    dev.incoming.push_back(in);
  }
  int Request(unsigned char netFnLun, unsigned char cmd,
              std::vector<unsigned char> data, unsigned short capacity = 128) {
    length = capacity;
    cc = 0xEE;
    return RawRequest(handle, netFnLun, cmd, data.empty() ? nullptr : data.data(),
                      static_cast<unsigned char>(data.size()), &cc, response,
                      &length);
  }

  FakeDevice dev;
  uint32_t handle = 0;
  unsigned char cc = 0;
  unsigned char response[128] = {};
  unsigned short length = 0;
};

TEST_F(OpenRawTest, OpensTheDriversDevice) {
  handle = RawOpen();
  EXPECT_NE(0u, handle);
  EXPECT_EQ("/dev/ipmi0", dev.opened);
}

TEST_F(OpenRawTest, MissingDeviceIsAnOpenFailureWithOneLine) {
  dev.openErrno = ENOENT;
  testing::internal::CaptureStderr();
  EXPECT_EQ(0u, RawOpen());
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(
      "libopenraw: cannot open /dev/ipmi0 (No such file or directory); the IPMI "
      "driver needs the modules ipmi_devintf and ipmi_si (modprobe "
      "ipmi_devintf ipmi_si)\n",
      err);
}

TEST_F(OpenRawTest, SystemInterfaceRequestAndItsResponse) {
  handle = RawOpen();
  Answer({0x00, 0x20, 0x01, 0x01, 0x50}, 1002);
  // NetFn 0x06 (App), LUN 0: Get Device ID.
  ASSERT_EQ(0, Request(0x06 << 2, 0x01, {}));
  ASSERT_EQ(1u, dev.sent.size());
  EXPECT_EQ(IPMI_SYSTEM_INTERFACE_ADDR_TYPE, dev.sent[0].addrType);
  EXPECT_EQ(IPMI_BMC_CHANNEL, dev.sent[0].channel);
  EXPECT_EQ(0, dev.sent[0].lun);
  EXPECT_EQ(0x06, dev.sent[0].netfn);
  EXPECT_EQ(0x01, dev.sent[0].cmd);
  EXPECT_TRUE(dev.sent[0].data.empty());
  EXPECT_EQ(0x00, cc);
  ASSERT_EQ(4, length);
  EXPECT_EQ(0x20, response[0]);
  EXPECT_EQ(0x50, response[3]);
}

TEST_F(OpenRawTest, RequestBytesAndLunReachTheDriver) {
  handle = RawOpen();
  Answer({0xC1});
  ASSERT_EQ(0, Request((0x30 << 2) | 2, 0x21, {0x01, 0xAA, 0xFF}));
  EXPECT_EQ(0x30, dev.sent[0].netfn);
  EXPECT_EQ(2, dev.sent[0].lun);
  EXPECT_EQ((std::vector<unsigned char>{0x01, 0xAA, 0xFF}), dev.sent[0].data);
  EXPECT_EQ(0xC1, cc);  // a completion code is an answer, not a failure
  EXPECT_EQ(0, length);
}

TEST_F(OpenRawTest, IpmbRequestUsesTheIpmbAddress) {
  handle = RawOpen();
  Answer({0x00, 0x12});
  unsigned short len = 16;
  unsigned char code = 0;
  unsigned char data[1] = {0x05};
  ASSERT_EQ(0, RawIPMBRequest(handle, 0x2C, (0x06 << 2) | 1, 0x01, data, 1,
                              &code, response, &len));
  EXPECT_EQ(IPMI_IPMB_ADDR_TYPE, dev.sent[0].addrType);
  EXPECT_EQ(0, dev.sent[0].channel);
  EXPECT_EQ(0x2C, dev.sent[0].slave);
  EXPECT_EQ(1, dev.sent[0].lun);
  EXPECT_EQ(0x06, dev.sent[0].netfn);
  EXPECT_EQ(1u, dev.sent[0].data.size());
  EXPECT_EQ(1, len);
  EXPECT_EQ(0x12, response[0]);
}

TEST_F(OpenRawTest, EveryRequestHasItsOwnMessageId) {
  handle = RawOpen();
  Answer({0x00});
  ASSERT_EQ(0, Request(0x06 << 2, 0x01, {}));
  Answer({0x00});
  ASSERT_EQ(0, Request(0x06 << 2, 0x01, {}));
  EXPECT_NE(dev.sent[0].msgid, dev.sent[1].msgid);
}

TEST_F(OpenRawTest, LateAnswersAndEventsAreSkipped) {
  handle = RawOpen();
  Incoming late;
  late.msgid = 999;  // the answer to a request already given up on
  late.data = {0x00, 0x66};
  dev.incoming.push_back(late);
  Incoming event;
  event.recvType = IPMI_ASYNC_EVENT_RECV_TYPE;
  event.data = {0x01, 0x02};
  dev.incoming.push_back(event);
  Answer({0x00, 0x42});
  ASSERT_EQ(0, Request(0x08 << 2, 0x02, {0x01}));
  EXPECT_EQ(1, length);
  EXPECT_EQ(0x42, response[0]);
  EXPECT_TRUE(dev.incoming.empty());
}

TEST_F(OpenRawTest, NoAnswerWithinTheLimitIsAReceiveFailure) {
  handle = RawOpen();
  ASSERT_EQ(kOpenRawReceiveFailed, Request(0x06 << 2, 0x01, {}));
  EXPECT_EQ(1000 + openraw::kAnswerLimitMs, dev.now);
  EXPECT_EQ(0xEE, cc);  // untouched
  EXPECT_EQ(128, length);
}

TEST_F(OpenRawTest, TheLimitCountsFromTheSendAcrossSkippedMessages) {
  handle = RawOpen();
  openraw::SetAnswerLimitMsForTesting(5000);
  Incoming late;
  late.atMs = 4000;
  late.msgid = 999;
  dev.incoming.push_back(late);
  ASSERT_EQ(kOpenRawReceiveFailed, Request(0x06 << 2, 0x01, {}));
  EXPECT_EQ((std::vector<int>{5000, 2000}), dev.polls);
  EXPECT_EQ(6000, dev.now);
}

TEST_F(OpenRawTest, AnInterruptedPollWaitsOn) {
  handle = RawOpen();
  dev.pollErrno = EINTR;
  Answer({0x00, 0x01});
  ASSERT_EQ(0, Request(0x06 << 2, 0x01, {}));
  EXPECT_EQ(2u, dev.polls.size());
}

TEST_F(OpenRawTest, DriverRefusingTheRequestIsASendFailure) {
  handle = RawOpen();
  dev.sendErrno = EINVAL;
  EXPECT_EQ(kOpenRawSendFailed, Request(0x06 << 2, 0x01, {}));
  EXPECT_TRUE(dev.polls.empty());
}

TEST_F(OpenRawTest, PollErrorIsAReceiveFailure) {
  handle = RawOpen();
  dev.pollErrno = EBADF;
  EXPECT_EQ(kOpenRawReceiveFailed, Request(0x06 << 2, 0x01, {}));
}

TEST_F(OpenRawTest, EmptyMessageIsAReceiveFailure) {
  handle = RawOpen();
  Answer({});
  EXPECT_EQ(kOpenRawReceiveFailed, Request(0x06 << 2, 0x01, {}));
}

TEST_F(OpenRawTest, ResponseLongerThanTheCallersBufferIsCut) {
  handle = RawOpen();
  Answer({0x00, 1, 2, 3, 4, 5, 6});
  ASSERT_EQ(0, Request(0x06 << 2, 0x01, {}, 4));
  EXPECT_EQ(4, length);
  EXPECT_EQ(4, response[3]);
  EXPECT_EQ(0, response[4]);
}

TEST_F(OpenRawTest, ResponseLongerThanTheDriverMaximumIsCutByTheDriver) {
  handle = RawOpen();
  Answer(std::vector<unsigned char>(IPMI_MAX_MSG_LENGTH + 10, 0x00));
  ASSERT_EQ(0, Request(0x06 << 2, 0x01, {}));
  EXPECT_EQ(128, length);
}

TEST_F(OpenRawTest, UnknownOrClosedHandleIsRefused) {
  EXPECT_EQ(kOpenRawBadHandle, Request(0x06 << 2, 0x01, {}));
  handle = RawOpen();
  uint32_t h = handle;
  RawClose(h);
  handle = 0;
  EXPECT_EQ((std::vector<int>{7}), dev.closed);
  length = 16;
  EXPECT_EQ(kOpenRawBadHandle,
            RawRequest(h, 0x06 << 2, 0x01, nullptr, 0, &cc, response, &length));
  EXPECT_TRUE(dev.sent.empty());
  RawClose(h);  // a second close is harmless
  EXPECT_EQ(1u, dev.closed.size());
}

TEST_F(OpenRawTest, MissingPointersAreABadRequest) {
  handle = RawOpen();
  length = 16;
  EXPECT_EQ(kOpenRawBadRequest,
            RawRequest(handle, 0x06 << 2, 0x01, nullptr, 0, nullptr, response,
                       &length));
  EXPECT_EQ(kOpenRawBadRequest,
            RawRequest(handle, 0x06 << 2, 0x01, nullptr, 3, &cc, response,
                       &length));
  EXPECT_TRUE(dev.sent.empty());
}

TEST_F(OpenRawTest, HandlesAreDistinctAndNeverZero) {
  handle = RawOpen();
  uint32_t second = RawOpen();
  EXPECT_NE(0u, second);
  EXPECT_NE(handle, second);
  RawClose(second);
}

}  // namespace

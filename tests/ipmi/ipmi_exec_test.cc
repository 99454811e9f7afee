// The request layer: retries with their numbering, the expected completion
// code, the traces, the KCS/IPMB choice and the driver's lifecycle.
#include "ipmi/ipmi_exec.h"

#include <gtest/gtest.h>
#include <signal.h>

#include "ipmi/request_kind.h"
#include "platform/signals.h"
#include "ipmi_fixture.h"

namespace ipmi_testing {
namespace {

using ExecuteCommandTest = IpmiTest;

TEST_F(ExecuteCommandTest, SuccessTracesRequestAndResponse) {
  sIPMIReqRespTag record = NewRecord(2, {0xAB});
  bmc.On(0x08, 0x13, {BmcAnswer::Reply({0x01, 0x02})});
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x08 << 2, 0x13, &record));
  EXPECT_EQ(RequestTrace(0x20, 0x20, 0x13, {0xAB}) +
                ResponseTrace(0x00, {0x01, 0x02}),
            Log());
  EXPECT_EQ(std::vector<std::string>{"08 13 ab"}, Requests());
  EXPECT_EQ(0x00, record.u8CompletionCode);
  EXPECT_EQ(2, record.u16ResponseLength);
  EXPECT_EQ(0, record.u8ResponseDataOffset);
  EXPECT_TRUE(env.sleeps.empty());
  EXPECT_EQ("", cap.Out());
  EXPECT_EQ("", cap.Err());
}

TEST_F(ExecuteCommandTest, TraceIsExactText) {
  sIPMIReqRespTag record = NewRecord(0, {0x01, 0xFE});
  bmc.On(0x06, 0x01, {BmcAnswer::Reply({0x0a, 0xff})});
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x18, 0x01, &record));
  EXPECT_EQ(
      "   Request Info:\n"
      "   slave addr = 0x20  netfcn+lun = 0x18  command = 0x01\n"
      "   request data length = 2, data = 0x01 0xFE\n"
      "   Response Info:\n"
      "   Completion Code = 0x00  Response Length = 0x02\n"
      "   Response Data: 0x0a 0xff\n",
      Log());
}

TEST_F(ExecuteCommandTest, RetryCountTwoThreeFailuresNumbersRetries) {
  sIPMIReqRespTag record = NewRecord(2);
  bmc.On(0x08, 0x11, {BmcAnswer::Code(0xC1)});
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x20, 0x11, &record));
  std::string attempt =
      RequestTrace(0x20, 0x20, 0x11, {}) + ResponseTrace(0xC1, {});
  EXPECT_EQ(attempt + "   Retry 1\n" + attempt + "   Retry 2\n" + attempt,
            Log());
  EXPECT_EQ(3u, Requests().size());
  EXPECT_EQ(0xC1, record.u8CompletionCode);
  // The delay follows every failed attempt, the last one included.
  EXPECT_EQ((std::vector<unsigned>{1000, 1000, 1000}), env.sleeps);
  EXPECT_EQ(128, record.u16ResponseLength);
}

TEST_F(ExecuteCommandTest, RetryCountZeroMakesOneAttemptAndStillWaits) {
  sIPMIReqRespTag record = NewRecord(0);
  bmc.On(0x08, 0x11, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x20, 0x11, &record));
  EXPECT_EQ(1u, Requests().size());
  EXPECT_EQ(std::vector<unsigned>{1000}, env.sleeps);
  EXPECT_EQ(std::string::npos, Log().find("Retry"));
}

TEST_F(ExecuteCommandTest, RetryCount255WrapsToNoAttemptAndSuccess) {
  sIPMIReqRespTag record = NewRecord(255, {0x01});
  record.au8ResponseData[0] = 0x77;
  record.u8CompletionCode = 0x55;
  bmc.On(0x08, 0x11, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x20, 0x11, &record));
  EXPECT_TRUE(Requests().empty());
  EXPECT_TRUE(env.sleeps.empty());
  EXPECT_EQ("", Log());
  EXPECT_EQ(0x77, record.au8ResponseData[0]);
  EXPECT_EQ(0x55, record.u8CompletionCode);
  EXPECT_EQ(128, record.u16ResponseLength);
}

TEST_F(ExecuteCommandTest, RecoversOnASecondAttempt) {
  sIPMIReqRespTag record = NewRecord(3);
  bmc.On(0x08, 0x12, {BmcAnswer::Code(0xC3), BmcAnswer::Reply({0x05})});
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x20, 0x12, &record));
  EXPECT_EQ(2u, Requests().size());
  EXPECT_EQ(std::vector<unsigned>{1000}, env.sleeps);
  EXPECT_EQ(RequestTrace(0x20, 0x20, 0x12, {}) + ResponseTrace(0xC3, {}) +
                "   Retry 1\n" + RequestTrace(0x20, 0x20, 0x12, {}) +
                ResponseTrace(0x00, {0x05}),
            Log());
}

TEST_F(ExecuteCommandTest, ExpectedCompletionCodeCountsAsSuccess) {
  sIPMIReqRespTag record = NewRecord(2);
  bmc.On(0x30, 0x02, {BmcAnswer::Reply({0x10}, 0x01)});
  SetExpectedCompletionCode(0x01);
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x30 << 2, 0x02, &record));
  EXPECT_EQ(1u, Requests().size());
  EXPECT_EQ(0x01, record.u8CompletionCode);
}

TEST_F(ExecuteCommandTest, CompletionCodeOneIsAFailureUnlessExpected) {
  sIPMIReqRespTag record = NewRecord(1);
  bmc.On(0x30, 0x02, {BmcAnswer::Reply({0x10}, 0x01)});
  SetExpectedCompletionCode(0x00);
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x30 << 2, 0x02, &record));
  EXPECT_EQ(2u, Requests().size());
}

TEST_F(ExecuteCommandTest, UnexpectedCodeIsRetriedAndKeptInTheRecord) {
  sIPMIReqRespTag record = NewRecord(4);
  bmc.On(0x08, 0x01, {BmcAnswer::Code(0xC1)});
  SetExpectedCompletionCode(0x01);
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x20, 0x01, &record));
  EXPECT_EQ(5u, Requests().size());
  EXPECT_EQ(0xC1, record.u8CompletionCode);
}

TEST_F(ExecuteCommandTest, TransportFailureIsTracedAndRetried) {
  sIPMIReqRespTag record = NewRecord(1);
  bmc.On(0x06, 0x01, {BmcAnswer::Failure(2)});
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x18, 0x01, &record));
  std::string attempt =
      RequestTrace(0x20, 0x18, 0x01, {}) + ErrorTrace(2, 0xFF, 0x80);
  EXPECT_EQ(attempt + "   Retry 1\n" + attempt, Log());
  EXPECT_EQ(0xFF, record.u8CompletionCode);
  EXPECT_EQ(128, record.u16ResponseLength);
}

TEST_F(ExecuteCommandTest, NoAnswerIsTheLibraryReceiveError) {
  sIPMIReqRespTag record = NewRecord(0);
  bmc.On(0x06, 0x01, {BmcAnswer::Silent()});
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x18, 0x01, &record));
  EXPECT_NE(std::string::npos, Log().find(ErrorTrace(3, 0xFF, 0x80)));
}

TEST_F(ExecuteCommandTest, OtherSlaveAddressGoesOverIPMB) {
  sIPMIReqRespTag record = NewRecord(0, {0x07});
  EXPECT_EQ(0, ExecuteCommand(0x2C, 0x18, 0x01, &record));
  ASSERT_EQ(1u, bmc.requests().size());
  EXPECT_EQ(0x2C, bmc.requests()[0].slave);
  EXPECT_EQ("ipmb 2c 06 01 07", Requests()[0]);
  EXPECT_EQ(15, record.u16ResponseLength);
  EXPECT_EQ(0, Log().find(RequestTrace(0x2C, 0x18, 0x01, {0x07})));
}

TEST_F(ExecuteCommandTest, BMCAddressGoesDirect) {
  sIPMIReqRespTag record = NewRecord(0);
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x18, 0x01, &record));
  ASSERT_EQ(1u, bmc.requests().size());
  EXPECT_EQ(0x20, bmc.requests()[0].slave);
  EXPECT_EQ("06 01", Requests()[0]);
}

TEST_F(ExecuteCommandTest, LunTravelsInTheNetFnByte) {
  sIPMIReqRespTag record = NewRecord(0);
  EXPECT_EQ(0, ExecuteCommand(0x20, (0x06 << 2) | 0x02, 0x01, &record));
  ASSERT_EQ(1u, bmc.requests().size());
  EXPECT_EQ(0x06, bmc.requests()[0].netfn);
  EXPECT_EQ(0x02, bmc.requests()[0].lun);
}

TEST_F(ExecuteCommandTest, OnlyTheLowByteOfTheRequestLengthIsSent) {
  sIPMIReqRespTag record = NewRecord(0, {0x01, 0x02, 0x03});
  record.u16RequestDataLength = 0x0102;
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x18, 0x01, &record));
  EXPECT_EQ("06 01 01 02", Requests()[0]);
}

TEST_F(ExecuteCommandTest, NeitherTransportFails) {
  UinitKcsDriver();
  sIPMIReqRespTag record = NewRecord(2);
  EXPECT_EQ(1, ExecuteCommand(0x20, 0x18, 0x01, &record));
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ("", Log());
}

TEST_F(ExecuteCommandTest, ExpectedCodeWithoutDriverIsIgnored) {
  UinitKcsDriver();
  SetExpectedCompletionCode(0x01);  // nothing to set, nothing happens
  EXPECT_EQ(nullptr, G_pKCSDriverAPI);
}

TEST_F(ExecuteCommandTest, ClosedChannelEndsInRetryLimit) {
  UinitKcsDriver();
  bmc.open_fails = true;
  EXPECT_EQ(12, InitKcsDriver());
  ASSERT_NE(nullptr, G_pKCSDriverAPI);  // the object stays
  sIPMIReqRespTag record = NewRecord(1);
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x18, 0x01, &record));
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ(0xFF, record.u8CompletionCode);
  std::string attempt =
      RequestTrace(0x20, 0x18, 0x01, {}) + ErrorTrace(1, 0xFF, 0x80);
  // The failed open is traced first, naming the library and the reason.
  EXPECT_EQ("   libopenraw.so: RawOpen returned no handle\n" + attempt +
                "   Retry 1\n" + attempt,
            Log());
}

TEST_F(ExecuteCommandTest, LanReplacesTheKcsResult) {
  // Both paths run when both are set; the LAN result is the one returned.
  G_EnableIPMILan = 1;
  FwUpdateConstructor();
  env.Script("ipmitool -I lan -U  -E -H  raw 0x06 0x01", " 01\n");
  sIPMIReqRespTag record = NewRecord(0);
  bmc.On(0x06, 0x01, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x18, 0x01, &record));
  EXPECT_EQ(1u, Requests().size());  // the KCS attempt happened and failed
  EXPECT_EQ(1u, env.commands.size());
  EXPECT_EQ(std::vector<uint8_t>{0x01}, Bytes(record));
}

TEST_F(ExecuteCommandTest, ReadOnlyChannelNeverSendsAChange) {
  SetReadOnlyChannel(true);
  ResetStateChangeNote();
  sIPMIReqRespTag reset = NewRecord(2);
  EXPECT_EQ(1, ExecuteCommand(0x20, 0x06 << 2, 0x02, &reset));
  sIPMIReqRespTag read = NewRecord(2);
  bmc.On(0x06, 0x01, {BmcAnswer::Reply({0x20})});
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x06 << 2, 0x01, &read));
  SetReadOnlyChannel(false);
  EXPECT_EQ(std::vector<std::string>{"06 01"}, Requests());
  EXPECT_FALSE(StateChangingRequestSent());
  EXPECT_NE(std::string::npos,
            Log().find("   Not sent: NetFn 0x06 command 0x02 would change the BMC\n"));
}

TEST_F(ExecuteCommandTest, AChangeSentIsNoted) {
  ResetStateChangeNote();
  sIPMIReqRespTag read = NewRecord(2);
  bmc.On(0x06, 0x01, {BmcAnswer::Reply({0x20})});
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x06 << 2, 0x01, &read));
  EXPECT_FALSE(StateChangingRequestSent());
  sIPMIReqRespTag reset = NewRecord(2);
  bmc.On(0x06, 0x02, {BmcAnswer::Reply({})});
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x06 << 2, 0x02, &reset));
  EXPECT_TRUE(StateChangingRequestSent());
  ResetStateChangeNote();
}

TEST_F(ExecuteCommandTest, ASignalDuringTheRetriesEndsThemAtOnce) {
  sIPMIReqRespTag record = NewRecord(5);
  bmc.On(0x06, 0x01, {BmcAnswer::Code(0xC0)});
  env.on_sleep = [](unsigned) { platform::RecordSignalForTest(SIGTERM); };
  EXPECT_EQ(RC_FAILED, ExecuteCommand(0x20, 0x06 << 2, 0x01, &record));
  platform::ClearSignalForTest();
  EXPECT_EQ(2u, Requests().size());
}

TEST_F(ExecuteCommandTest, TheCleanUpAfterASignalKeepsItsRetries) {
  platform::RecordSignalForTest(SIGINT);
  sIPMIReqRespTag record = NewRecord(3);
  bmc.On(0x06, 0x01, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x06 << 2, 0x01, &record));
  platform::ClearSignalForTest();
  EXPECT_EQ(4u, Requests().size());
}

class DriverLifecycleTest : public IpmiTest {};

TEST_F(DriverLifecycleTest, InitSetsTheBMCAddress) {
  EXPECT_EQ(0x20, GetBMCSlaveAddress());
  SetBMCSlaveAddress(0x24);
  EXPECT_EQ(0x24, G_chBMCAddress);
  EXPECT_EQ(0x24, GetBMCSlaveAddress());
}

TEST_F(DriverLifecycleTest, UinitDeletesAndClears) {
  ASSERT_NE(nullptr, G_pKCSDriverAPI);
  UinitKcsDriver();
  EXPECT_EQ(nullptr, G_pKCSDriverAPI);
  UinitKcsDriver();  // a second call is harmless
  EXPECT_EQ(nullptr, G_pKCSDriverAPI);
}

TEST_F(DriverLifecycleTest, OpenFailureKeepsAddressZero) {
  UinitKcsDriver();
  G_chBMCAddress = 0;
  bmc.open_fails = true;
  EXPECT_EQ(12, InitKcsDriver());
  EXPECT_EQ(0, GetBMCSlaveAddress());
}

TEST_F(DriverLifecycleTest, InitTalkBMCWithoutTransportFails) {
  G_pKCSDriverAPI->UinitTalkBMC();
  EXPECT_EQ(12, G_pKCSDriverAPI->InitTalkBMC());
  sIPMIReqRespTag record = NewRecord(0);
  EXPECT_EQ(1, G_pKCSDriverAPI->SendReqGetResp(0x20, 0x18, 0x01, &record));
}

TEST_F(DriverLifecycleTest, DelayGoesThroughTheClock) {
  time_t before = env.now;
  EXPECT_EQ(0, DelayMS(3000));
  EXPECT_EQ(std::vector<unsigned>{3000}, env.sleeps);
  EXPECT_EQ(before + 3, env.now);
}

// A driver whose transport answers as a test wants.
class StubDriver : public TKCSDriverAPI {
 public:
  int DoIPMICommand(unsigned char, unsigned char, sIPMIReqRespTag* record,
                    unsigned char, bool* retryLimitReached) override {
    record->u8CompletionCode = cc;
    *retryLimitReached = limit;
    return status;
  }
  int status = 0;
  bool limit = false;
  uint8_t cc = 0;
};

TEST_F(DriverLifecycleTest, ResultIsOnlyZeroOneOr256) {
  UinitKcsDriver();
  StubDriver* stub = new StubDriver();
  G_pKCSDriverAPI = stub;
  sIPMIReqRespTag record = NewRecord(0);
  stub->status = 7;
  EXPECT_EQ(1, ExecuteCommand(0x20, 0x18, 0x01, &record));
  stub->limit = true;
  EXPECT_EQ(RC_RETRY_LIMIT, ExecuteCommand(0x20, 0x18, 0x01, &record));
  stub->status = 0;
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x18, 0x01, &record));
}

}  // namespace
}  // namespace ipmi_testing

// The four polls that watch the BMC after the image has reached it.
#include <gtest/gtest.h>

#include "update/firmware_update.h"
#include "update_fixture.h"

namespace update_testing {
namespace {

BmcAnswer Reply(std::vector<uint8_t> data) { return BmcAnswer::Reply(std::move(data)); }

class StatusPollTest : public UpdateTest {
 protected:
  void SetUp() override {
    UpdateTest::SetUp();
    Fu().SetFwUpdateSettings(&Settings());
  }
  TFirmwareUpdate& Fu() { return *G_pFirmwareUpdate; }
  void SetWaitingTimes(uint16_t update, uint16_t phaseOne) {
    Settings().u16FwUpdateWaitingTime = update;
    Settings().u16PhaseOneWaitingTime = phaseOne;
    Fu().SetFwUpdateSettings(&Settings());
  }
  std::string StatusTrace(uint8_t task, std::vector<uint8_t> answer) {
    return Trace("\nGet Update Status Command\n", 0x08, 0x02, {task}, 0, answer);
  }
  std::string UsbTimes(long elapsed) {
    char line[64];
    snprintf(line, sizeof(line), "\tElapsed time = %2ld seconds\n", elapsed);
    return "\tStart getting firmware update status at " + At(start) +
           "\tStop getting firmware update status at " + At(start + elapsed) + line;
  }
  std::string Times(long elapsed) {
    char line[64];
    snprintf(line, sizeof(line), "   Elapsed time = %2ld seconds\n", elapsed);
    return "   Start getting firmware update status at " + At(start) +
           "   Stop getting firmware update status at " + At(start + elapsed) + line;
  }
};

// --- percent poll after the three-phase update ---

TEST_F(StatusPollTest, PercentPollEndsAtExactly100) {
  bmc.On(0x08, 0x12, {Reply({30}), Reply({60}), Reply({100})});
  EXPECT_EQ(0, Fu().DoGetFwUpdateStatus());
  EXPECT_EQ("\n   Get Firmware Update Status "
            "\r   Firmware update status: 30 percent"
            "\r   Firmware update status: 60 percent"
            "\r   Firmware update status: 100 percent\n",
            Out());
  const std::string trace = "\nGet Firmware Update Status Command\n";
  EXPECT_EQ("\n   Get Firmware Update Status " +
                Trace(trace, 0x08, 0x12, {1}, 0, {30}) +
                Trace(trace, 0x08, 0x12, {1}, 0, {60}) +
                Trace(trace, 0x08, 0x12, {1}, 0, {100}) + Times(3) +
                "   Get Firmware Update Status OK\n",
            Log());
  EXPECT_EQ(std::vector<std::string>(3, "08 12 01"), Requests());
  EXPECT_EQ(std::vector<unsigned>(3, 1000), env.sleeps);
  EXPECT_EQ("", Err());
}

TEST_F(StatusPollTest, PercentThatNeverReaches100TimesOut) {
  SetWaitingTimes(5, 30);
  bmc.On(0x08, 0x12, {Reply({99})});
  EXPECT_EQ(0x200 + 20, Fu().DoGetFwUpdateStatus());
  std::string out = "\n   Get Firmware Update Status ";
  for (int i = 0; i < 6; ++i) out += "\r   Firmware update status: 99 percent";
  out += "\r   Firmware update status: Timeout     ";
  EXPECT_EQ(out, Out());
  EXPECT_EQ(6u, Requests().size());
  EXPECT_EQ(6, Clock());
  EXPECT_TRUE(InOrder(Log(), {Times(6), "   Firmware update status timeout\n"}));
}

TEST_F(StatusPollTest, PercentPollCommandFailureEndsWithItsCode) {
  bmc.On(0x08, 0x12, {BmcAnswer::Code(0x86)});
  EXPECT_EQ(RC_UPDATE_NOT_INITIATED + RC_RETRY_LIMIT, Fu().DoGetFwUpdateStatus());
  EXPECT_EQ("\n   Get Firmware Update Status "
            "\n   Get Firmware Update Status Failed\n",
            Out());
  EXPECT_EQ(std::vector<std::string>{"08 12 01"}, Requests());
  // The poll's second and the failed attempt's retry delay.
  EXPECT_EQ(2, Clock());
  EXPECT_TRUE(InOrder(Log(), {Times(2), "\n   Get Firmware Update Status Failed\n"}));
}

TEST_F(StatusPollTest, WaitingTimeZeroStillPollsOnce) {
  SetWaitingTimes(0, 0);
  bmc.On(0x08, 0x12, {Reply({10})});
  bmc.On(0x08, 0x02, {Reply({0x00})});
  bmc.On(0x30, 0x05, {Reply({0x00})});
  EXPECT_EQ(532, Fu().DoGetFwUpdateStatus());
  EXPECT_EQ(532, Fu().DoUSBGetFwUpdateStatus(1));
  EXPECT_EQ(532, Fu().DoGetRemoteFwUpdateStatus(1));
  EXPECT_EQ(532, Fu().WaitResetToDefDone(1));
  EXPECT_EQ((std::vector<std::string>{"08 12 01", "08 02 01", "08 02 01", "30 05 01"}),
            Requests());
  EXPECT_EQ(4, Clock());
}

// --- task poll after the virtual-media update ---

TEST_F(StatusPollTest, UsbPollShowsEveryStateAndWaitsLongerWhileProgramming) {
  bmc.On(0x08, 0x02, {Reply({0x00}), Reply({0x01}), Reply({0x02}), Reply({0xFF})});
  EXPECT_EQ(0, Fu().DoUSBGetFwUpdateStatus(7));
  EXPECT_EQ("\n   Get Firmware Update Status" + kClearLine +
                "\r   Firmware Update Status: Connecting to Server and Transmitting Image" +
                kClearLine + "\r   Firmware Update Status: Validating Image" +
                kClearLine + "\r   Firmware Update Status: Programming" + kClearLine +
                "\r   Firmware Update Status: Completed" + "\n",
            Out());
  EXPECT_EQ((std::vector<unsigned>{1000, 1000, 1000, 10000, 1000}), env.sleeps);
  EXPECT_EQ(std::vector<std::string>(4, "08 02 07"), Requests());
  EXPECT_EQ("\n   Get Firmware Update Status" + StatusTrace(7, {0x00}) +
                StatusTrace(7, {0x01}) + StatusTrace(7, {0x02}) +
                StatusTrace(7, {0xFF}) + UsbTimes(14) + "\n",
            Log());
}

TEST_F(StatusPollTest, UsbPollKeepsThePercentFormOnceAPercentCame) {
  bmc.On(0x08, 0x02, {Reply({0x00, 10}), Reply({0x02}), Reply({0xFF, 100})});
  EXPECT_EQ(0, Fu().DoUSBGetFwUpdateStatus(7));
  EXPECT_EQ("\n   Get Firmware Update Status" + kClearLine +
                "\r\tFirmware Update Status: Connecting to Server and Transmitting "
                "Image 10 percent" +
                kClearLine + "\r\tFirmware Update Status: Programming 10 percent" +
                kClearLine + "\r\tFirmware Update Status: Completed 100 percent" + "\n",
            Out());
  // No extra wait for "Programming" in the percent form.
  EXPECT_EQ(std::vector<unsigned>(3, 1000), env.sleeps);
}

TEST_F(StatusPollTest, UsbPollCompletedAtOnceTakesOneSecond) {
  bmc.On(0x08, 0x02, {Reply({0xFF})});
  EXPECT_EQ(0, Fu().DoUSBGetFwUpdateStatus(1));
  EXPECT_TRUE(InOrder(Log(), {UsbTimes(1)}));
  EXPECT_EQ(1, Clock());
}

TEST_F(StatusPollTest, UsbPollUnknownCodeFailsAtOnce) {
  bmc.On(0x08, 0x02, {Reply({0x00}), Reply({0x42}), Reply({0xFF})});
  EXPECT_EQ(20, Fu().DoUSBGetFwUpdateStatus(3));
  EXPECT_EQ("\n   Get Firmware Update Status" + kClearLine +
                "\r   Firmware Update Status: Connecting to Server and Transmitting Image" +
                kClearLine + "\r\tUnrecognized status code: 0x42\n" + "\n",
            Out());
  EXPECT_EQ("\n   Get Firmware Update Status" + StatusTrace(3, {0x00}) +
                StatusTrace(3, {0x42}) + "\tUnrecognized status code: 0x42\n" +
                UsbTimes(2) + "\n",
            Log());
  EXPECT_EQ(2u, Requests().size());
}

TEST_F(StatusPollTest, UsbPollEveryFailureReasonFailsTheUpdate) {
  const char* reasons[] = {"General Error",        "Cannot Establish Connection",
                           "Path Not Found",       "Transmission Abort",
                           "Checksum Error",       "Incorrect Platform",
                           "Memory Error",         "Detach Error",
                           "BIOS Timeout",         "Incorrect Image Type",
                           "Host Reboot failed"};
  for (int code = 0x80; code <= 0x8A; ++code) {
    SCOPED_TRACE(code);
    bmc.handler = [code](const BmcRequest& r, BmcAnswer* a) {
      if (r.netfn != 0x08 || r.cmd != 0x02) return false;
      *a = BmcAnswer::Reply({static_cast<uint8_t>(code)});
      return true;
    };
    cap.Clear();
    bmc.ClearRequests();
    EXPECT_EQ(20, Fu().DoUSBGetFwUpdateStatus(2));
    EXPECT_EQ("\n   Get Firmware Update Status" + kClearLine +
                  "\r   Firmware Update Status: " + reasons[code - 0x80] + "\n",
              Out());
    EXPECT_EQ(1u, Requests().size());
    EXPECT_EQ(std::string::npos, Log().find("timeout"));
  }
}

TEST_F(StatusPollTest, UsbPollTimesOut) {
  SetWaitingTimes(3, 30);
  bmc.On(0x08, 0x02, {Reply({0x01})});
  EXPECT_EQ(532, Fu().DoUSBGetFwUpdateStatus(1));
  std::string out = "\n   Get Firmware Update Status";
  for (int i = 0; i < 4; ++i) out += kClearLine + "\r   Firmware Update Status: Validating Image";
  out += kClearLine + "\r\tFirmware update status: Timeout" + "\n";
  EXPECT_EQ(out, Out());
  EXPECT_TRUE(InOrder(Log(), {UsbTimes(4), "\tFirmware update status timeout\n", "\n"}));
  EXPECT_EQ(4u, Requests().size());
}

TEST_F(StatusPollTest, UsbPollCommandFailureEndsTheLoop) {
  bmc.On(0x08, 0x02, {BmcAnswer::Code(0xC1)});
  EXPECT_EQ(RC_GET_UPDATE_STATUS_FAILED + RC_RETRY_LIMIT, Fu().DoUSBGetFwUpdateStatus(1));
  EXPECT_EQ("\n   Get Firmware Update Status\n", Out());
  EXPECT_EQ(1u, Requests().size());
}

// --- task poll after the remote update ---

TEST_F(StatusPollTest, RemotePollGivesUpAfterSixteenFailedCommands) {
  bmc.On(0x08, 0x02, {BmcAnswer::Code(0xC1)});
  EXPECT_EQ(RC_GET_UPDATE_STATUS_FAILED + RC_RETRY_LIMIT, Fu().DoGetRemoteFwUpdateStatus(5));
  EXPECT_EQ(std::vector<std::string>(16, "08 02 05"), Requests());
  EXPECT_EQ("\n   Get Firmware Update Status Failed, Retry = 16\n", Err());
  EXPECT_EQ("\n   Get Firmware Update Status \n", Out());
  EXPECT_EQ(32, Clock());
  char elapsed[64];
  snprintf(elapsed, sizeof(elapsed), "   Wait Time Setting %d   Elapsed time = 32 seconds\n",
           Settings().u16FwUpdateWaitingTime);
  EXPECT_TRUE(InOrder(Log(), {"\n   Get Firmware Update Status Failed, Retry = 16\n",
                              Times(32).substr(0, Times(32).find("   Elapsed")),
                              elapsed}));
}

TEST_F(StatusPollTest, RemotePollToleratesFifteenFailuresThenFinishes) {
  std::vector<BmcAnswer> answers(15, BmcAnswer::Code(0xC1));
  answers.push_back(Reply({0xFF}));
  bmc.On(0x08, 0x02, answers);
  EXPECT_EQ(0, Fu().DoGetRemoteFwUpdateStatus(5));
  EXPECT_EQ(16u, Requests().size());
  EXPECT_EQ("\n   Get Firmware Update Status Failed, Retry = 15\n", Err());
  EXPECT_EQ("\n   Get Firmware Update Status " + kClearLine +
                "\r   Firmware Update Status: Completed\n",
            Out());
}

TEST_F(StatusPollTest, RemotePollUnknownCodeIsReplacedByTheNextAnswer) {
  bmc.On(0x08, 0x02, {Reply({0x42}), Reply({0x00, 50}), Reply({0xFF, 100})});
  EXPECT_EQ(0, Fu().DoGetRemoteFwUpdateStatus(9));
  EXPECT_EQ("\n   Get Firmware Update Status " + kClearLine +
                "\r   Unrecognized status code: 0x42\n" + kClearLine +
                "\r   Firmware Update Status: Connecting to Server and Transmitting "
                "Image 50 percent" +
                kClearLine + "\r   Firmware Update Status: Completed 100 percent" + "\n",
            Out());
  EXPECT_TRUE(InOrder(Log(), {"   Unrecognized status code: 0x42\n",
                              "Retry limited, u8FirmwareRetry = 0\n"}));
  EXPECT_EQ("", Err());
}

TEST_F(StatusPollTest, RemotePollUnknownCodeAsLastAnswerFailsThePoll) {
  SetWaitingTimes(2, 30);
  bmc.On(0x08, 0x02, {Reply({0x01}), Reply({0x42})});
  EXPECT_EQ(20, Fu().DoGetRemoteFwUpdateStatus(9));
  EXPECT_EQ(3u, Requests().size());
  EXPECT_EQ(std::string::npos, Log().find("timeout"));
  EXPECT_EQ(std::string::npos, Out().find("Timeout"));
}

TEST_F(StatusPollTest, RemotePollTimesOut) {
  SetWaitingTimes(2, 30);
  bmc.On(0x08, 0x02, {Reply({0x05})});
  EXPECT_EQ(532, Fu().DoGetRemoteFwUpdateStatus(9));
  std::string out = "\n   Get Firmware Update Status ";
  for (int i = 0; i < 3; ++i) out += kClearLine + "\r   Firmware Update Status: Connect to Server";
  out += kClearLine + "\r   Firmware update status: Timeout" + "\n";
  EXPECT_EQ(out, Out());
  std::string times = Times(3);
  EXPECT_TRUE(InOrder(Log(), {times.substr(0, times.find("   Elapsed")),
                              "   Wait Time Setting 2   Elapsed time =  3 seconds\n",
                              "   Firmware update status timeout\n", "\n"}));
}

TEST_F(StatusPollTest, RemotePollWaitsFifteenSecondsWhileProgramming) {
  bmc.On(0x08, 0x02, {Reply({0x02}), Reply({0xFF})});
  EXPECT_EQ(0, Fu().DoGetRemoteFwUpdateStatus(1));
  EXPECT_EQ((std::vector<unsigned>{1000, 15000, 1000}), env.sleeps);
}

TEST_F(StatusPollTest, RemotePollFailureVerdictStops) {
  bmc.On(0x08, 0x02, {Reply({0x85}), Reply({0xFF})});
  EXPECT_EQ(20, Fu().DoGetRemoteFwUpdateStatus(1));
  EXPECT_EQ("\n   Get Firmware Update Status " + kClearLine +
                "\r   Firmware Update Status: Incorrect Platform\n",
            Out());
  EXPECT_EQ(1u, Requests().size());
}

// --- reset to defaults ---

TEST_F(StatusPollTest, ResetToDefaultsDone) {
  bmc.On(0x30, 0x05, {Reply({0}), Reply({0}), Reply({1})});
  EXPECT_EQ(0, Fu().WaitResetToDefDone(7));
  EXPECT_EQ("Done\n", Out());
  const std::string title = "\nGet Reset To Default Status Command\n";
  EXPECT_EQ("\n   Wait Reset To Default Done " + Trace(title, 0x30, 0x05, {7}, 0, {0}) +
                Trace(title, 0x30, 0x05, {7}, 0, {0}) +
                Trace(title, 0x30, 0x05, {7}, 0, {1}) + "Done" + Times(3) + "\n",
            Log());
  EXPECT_EQ(std::vector<std::string>(3, "30 05 07"), Requests());
}

TEST_F(StatusPollTest, ResetToDefaultsTimesOutOnThePhaseOneWaitingTime) {
  SetWaitingTimes(1200, 2);
  bmc.On(0x30, 0x05, {Reply({0})});
  EXPECT_EQ(532, Fu().WaitResetToDefDone(7));
  EXPECT_EQ("", Out());
  EXPECT_EQ("   Timeout\n", Err());
  EXPECT_EQ(3u, Requests().size());
  EXPECT_TRUE(InOrder(Log(), {Times(3), "   Timeout\n"}));
}

TEST_F(StatusPollTest, ResetToDefaultsCommandFailure) {
  bmc.On(0x30, 0x05, {BmcAnswer::Code(0xFF)});
  EXPECT_EQ(RC_RESET_TO_DEFAULT_FAILED + RC_RETRY_LIMIT, Fu().WaitResetToDefDone(7));
  EXPECT_EQ("", Out());
  EXPECT_EQ("", Err());
}

}  // namespace
}  // namespace update_testing

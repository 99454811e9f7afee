// Restarting the BMC and waiting for it: the first-attempt delays, the
// seven-second spacing, the version read and the cold reset retries.
#include <gtest/gtest.h>

#include <string.h>

#include "driver/driver.h"
#include "update/firmware_update.h"
#include "update_fixture.h"

namespace update_testing {
namespace {

const std::string kChecking = "  Checking new firmware version ...  ";
const std::string kBlankLine = "\r" + std::string(40, ' ') + "\r";

class ResetWaitTest : public UpdateTest {
 protected:
  void SetUp() override {
    UpdateTest::SetUp();
    SetRebootWaitingTime(90);
  }
  TFirmwareUpdate& Fu() { return *G_pFirmwareUpdate; }
  void SetRebootWaitingTime(uint16_t seconds) {
    Settings().u16FwRebootWaitingTime = seconds;
    Fu().SetFwUpdateSettings(&Settings());
  }
  // Seconds at which requests of this NetFn/command arrived.
  void RecordTimes(uint8_t netfn, uint8_t cmd, std::vector<long>* times) {
    bmc.handler = [this, netfn, cmd, times](const BmcRequest& r, BmcAnswer*) {
      if (r.netfn == netfn && r.cmd == cmd) times->push_back(Clock());
      return false;
    };
  }
  // Spinner steps for `passes` passes of a wait.
  std::string Spinner(int passes) {
    std::string text;
    for (int i = 0; i < passes; ++i) text += Spin(32767 - i, kChecking);
    return text;
  }
  std::string Elapsed(long seconds) {
    char line[64];
    snprintf(line, sizeof(line), "   Elapsed time = %2ld seconds\n", seconds);
    return line;
  }
  // A version answer one byte short: the read fails without a retry delay.
  void VersionFailsAtOnce() { bmc.On(0x08, 0x13, {0x00}, {BmcAnswer::Reply({0x01})}); }
  void VersionText(const std::string& text) {
    std::vector<uint8_t> data{static_cast<uint8_t>(text.size())};
    data.insert(data.end(), text.begin(), text.end());
    bmc.On(0x08, 0x01, {0xAA, 0x02}, {BmcAnswer::Reply(data)});
  }
};

TEST_F(ResetWaitTest, ShortRebootTimeTriesAfterFourSecondsThenEverySecond) {
  SetRebootWaitingTime(5);
  VersionFailsAtOnce();
  std::vector<long> times;
  RecordTimes(0x08, 0x13, &times);
  sBMCInformationTag record{};
  EXPECT_EQ(0x200 + 28, Fu().WaitForiBMCComeUp(&record));
  EXPECT_EQ((std::vector<long>{4, 5}), times);
  EXPECT_EQ(6, Clock());
  EXPECT_EQ(Spinner(6) + "\r   Checking new firmware version timeout  " +
                "\n   Get FW Version failed\n",
            Out());
  EXPECT_TRUE(InOrder(Log(), {"   Get FW Version Failed\n", "   Get FW Version Failed\n",
                              "   Set iBMC Graceful Reset Command at " + At(start),
                              "   Stop waiting for iBMC comes up at " + At(start + 6),
                              Elapsed(6), "   Checking new firmware version timeout\n"}));
  EXPECT_EQ("", Err());
}

TEST_F(ResetWaitTest, LongRebootTimeGracefulWaitStartsAtFiftyAndSpacesBySeven) {
  SetRebootWaitingTime(120);
  VersionFailsAtOnce();
  std::vector<long> times;
  RecordTimes(0x08, 0x13, &times);
  sBMCInformationTag record{};
  EXPECT_EQ(540, Fu().WaitForiBMCComeUp(&record));
  EXPECT_EQ((std::vector<long>{50, 57, 64, 71, 78, 85, 92, 99, 106, 113, 120}), times);
  EXPECT_EQ(121, Clock());
}

TEST_F(ResetWaitTest, LongRebootTimeColdWaitStartsAtTen) {
  SetRebootWaitingTime(120);
  bmc.On(0x06, 0x01, {BmcAnswer::Code(0xC0)});
  std::vector<long> times;
  RecordTimes(0x06, 0x01, &times);
  sBMCInformationTag current{}, fill{};
  EXPECT_EQ(540, Fu().WaitForColdResetDone(&current, &fill));
  // A failed Get Device ID costs its retry delay of one second, so seven
  // seconds after a failure are eight after the attempt began.
  std::vector<long> expected;
  for (long t = 10; t <= 120; t += 8) expected.push_back(t);
  EXPECT_EQ(expected, times);
  const std::string tail = "\r   Checking new firmware version timeout  ";
  // One pass per second that no attempt used.
  EXPECT_EQ(121, Clock());
  EXPECT_EQ(Spinner(121 - static_cast<int>(times.size())) + tail, Out());
}

TEST_F(ResetWaitTest, RebootTimeZeroTriesOnceAtOnce) {
  SetRebootWaitingTime(0);
  VersionFailsAtOnce();
  std::vector<long> times;
  RecordTimes(0x08, 0x13, &times);
  sBMCInformationTag record{};
  EXPECT_EQ(540, Fu().WaitForiBMCComeUp(&record));
  EXPECT_EQ(std::vector<long>{0}, times);
  EXPECT_EQ(1, Clock());
  EXPECT_TRUE(InOrder(Log(), {Elapsed(1)}));
}

TEST_F(ResetWaitTest, GracefulWaitReadsVersionAndBootLoader) {
  bmc.On(0x08, 0x13, {0x00}, {BmcAnswer::Reply({2, 10, 0x12, 0x34})});
  bmc.On(0x08, 0x13, {0x01}, {BmcAnswer::Reply({1, 2, 3, 4, 5, 6, 7, 8})});
  sBMCInformationTag record{};
  EXPECT_EQ(0, Fu().WaitForiBMCComeUp(&record));
  EXPECT_EQ((std::vector<std::string>{"08 13 00", "08 13 01"}), Requests());
  const uint8_t revision[4] = {2, 10, 0x12, 0x34};
  EXPECT_EQ(0, memcmp(revision, record.au8FwRevision, 4));
  EXPECT_EQ(1, record.u8HasBootloader);
  const uint8_t info[4] = {1, 2, 3, 4}, version[4] = {5, 6, 7, 8};
  EXPECT_EQ(0, memcmp(info, record.au8BootloaderInfo, 4));
  EXPECT_EQ(0, memcmp(version, record.au8BootloaderVersion, 4));
  // Reboot time 90: the first attempt after 50 seconds answers.
  EXPECT_EQ(50, Clock());
  EXPECT_EQ(Spinner(51) + kBlankLine, Out());
  const std::string title = "\nGet Firmware Version Command\n";
  EXPECT_EQ(Trace(title, 0x08, 0x13, {0}, 0, {2, 10, 0x12, 0x34}) +
                "   Get FW Version OK\n" + "   Set iBMC Graceful Reset Command at " +
                At(start) + "   Stop waiting for iBMC comes up at " + At(start + 50) +
                Elapsed(50) + Trace(title, 0x08, 0x13, {1}, 0, {1, 2, 3, 4, 5, 6, 7, 8}),
            Log());
}

TEST_F(ResetWaitTest, MissingBootLoaderVersionIsNoFailure) {
  bmc.On(0x08, 0x13, {0x00}, {BmcAnswer::Reply({2, 10, 0, 1})});
  bmc.On(0x08, 0x13, {0x01}, {BmcAnswer::Code(0xC1)});
  sBMCInformationTag record{};
  record.u8HasBootloader = 1;
  EXPECT_EQ(0, Fu().WaitForiBMCComeUp(&record));
  EXPECT_EQ(0, record.u8HasBootloader);
  EXPECT_TRUE(InOrder(Log(), {"\n   Get u-boot version failed!\n"}));
}

TEST_F(ResetWaitTest, ColdResetThenVersionLineForEveryEntity) {
  const char* names[] = {"BMC Firmware ", "BIOS Firmware ", "FCB ",
                         "PDB ",          "SDR ",           "Customer Def "};
  VersionText("2.10.3");
  for (int entity = 0; entity <= 6; ++entity) {
    SCOPED_TRACE(entity);
    G_u8EntityID = static_cast<uint8_t>(entity == 6 ? 9 : entity);
    cap.Clear();
    bmc.ClearRequests();
    const long before = Clock();
    sBMCInformationTag current{}, fill{};
    EXPECT_EQ(0, Fu().DoRebootBMCAndWaitForItComesUp(&current, &fill));
    const std::string line = entity == 6
                                 ? std::string("   Firmware Version: 2.10.3 \n")
                                 : std::string("   ") + names[entity] + "Version: 2.10.3 \n";
    EXPECT_EQ(Spin(32767, "  Reset BMC ...") + Spinner(11) + kBlankLine + line, Out());
    EXPECT_EQ((std::vector<std::string>{"06 02", "06 01", "08 01 aa 02"}), Requests());
    EXPECT_EQ(10, Clock() - before);
    EXPECT_TRUE(InOrder(Log(), {"\n   Reset BMC", "   Cold Reset OK\n",
                                "   Get FW Version OK\n", line,
                                "   Cold Reset Command at " + At(start + before),
                                "   BMC comes up from Cold Reset at " +
                                    At(start + before + 10),
                                Elapsed(10)}));
  }
}

TEST_F(ResetWaitTest, VersionTextFailureIsATimeout) {
  bmc.On(0x08, 0x01, {0xAA, 0x02}, {BmcAnswer::Code(0xC1)});
  sBMCInformationTag current{}, fill{};
  EXPECT_EQ(540, Fu().DoRebootBMCAndWaitForItComesUp(&current, &fill));
  EXPECT_EQ(Spin(32767, "  Reset BMC ...") + Spinner(11) + kBlankLine +
                "\r   Checking new firmware version timeout  "
                "\r   Checking new firmware version timeout  ",
            Out());
  EXPECT_TRUE(InOrder(Log(), {"   Get FW Version OK\n",
                              "   Checking new firmware version timeout\n",
                              "   Cold Reset Command at ",
                              "   Checking new firmware version timeout\n", "\n"}));
  EXPECT_EQ("", Err());
}

TEST_F(ResetWaitTest, BmcThatNeverComesBackTimesOut) {
  bmc.On(0x06, 0x01, {BmcAnswer::Silent()});
  sBMCInformationTag current{}, fill{};
  EXPECT_EQ(540, Fu().DoRebootBMCAndWaitForItComesUp(&current, &fill));
  EXPECT_GT(Clock(), 90);
  EXPECT_LE(Clock(), 92);
  EXPECT_EQ("06 02", Requests().front());
  for (size_t i = 1; i < Requests().size(); ++i) EXPECT_EQ("06 01", Requests()[i]);
}

TEST_F(ResetWaitTest, ResetRetry255MakesNoAttempt) {
  Settings().u8ResetBMCRetry = 255;
  Fu().SetFwUpdateSettings(&Settings());
  sBMCInformationTag current{}, fill{};
  EXPECT_EQ(1, Fu().DoRebootBMCAndWaitForItComesUp(&current, &fill));
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ("\n", Log());
  EXPECT_EQ("", Out());
}

TEST_F(ResetWaitTest, EveryColdResetFailing) {
  Settings().u8ResetBMCRetry = 2;
  Fu().SetFwUpdateSettings(&Settings());
  bmc.On(0x06, 0x02, {BmcAnswer::Code(0xC1)});
  sBMCInformationTag current{}, fill{};
  EXPECT_EQ(RC_COLD_RESET_FAILED + RC_RETRY_LIMIT, Fu().DoRebootBMCAndWaitForItComesUp(&current, &fill));
  EXPECT_EQ(std::vector<std::string>(3, "06 02"), Requests());
  EXPECT_EQ(Spin(32767, "  Reset BMC ...") + Spin(32766, "  Reset BMC ...") +
                Spin(32765, "  Reset BMC ..."),
            Out());
  EXPECT_TRUE(InOrder(Log(), {"\n   Reset BMC", "\n   Reset BMC", "\n   Reset BMC", "\n"}));
}

TEST_F(ResetWaitTest, ColdResetSucceedsOnItsThirdAttempt) {
  bmc.On(0x06, 0x02, {BmcAnswer::Code(0xC1), BmcAnswer::Code(0xC1), BmcAnswer::Reply({})});
  VersionText("1.2");
  sBMCInformationTag current{}, fill{};
  EXPECT_EQ(0, Fu().DoRebootBMCAndWaitForItComesUp(&current, &fill));
  EXPECT_EQ((std::vector<std::string>{"06 02", "06 02", "06 02", "06 01", "08 01 aa 02"}),
            Requests());
}

}  // namespace
}  // namespace update_testing

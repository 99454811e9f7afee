// The status-code table, the final line of the procedures and the interrupt
// bookkeeping: the parts of the update procedures that need no BMC.
#include <signal.h>

#include <gtest/gtest.h>

#include <string>

#include "support/capture.h"
#include "update/firmware_update.h"
#include "update/update_steps.h"

namespace {

using testing_support::CapturedOutput;

struct StatusRow {
  int code;
  const char* text;
  int verdict;
};

const StatusRow kRows[] = {
    {0x00, "Connecting to Server and Transmitting Image", 0},
    {0x01, "Validating Image", 0},
    {0x02, "Programming", 0},
    {0x03, "Ready to Accept Image", 0},
    {0x04, "At USB Init Stage", 0},
    {0x05, "Connect to Server", 0},
    {0x06, "Host Rebooting", 0},
    {0x80, "General Error", 1},
    {0x81, "Cannot Establish Connection", 1},
    {0x82, "Path Not Found", 1},
    {0x83, "Transmission Abort", 1},
    {0x84, "Checksum Error", 1},
    {0x85, "Incorrect Platform", 1},
    {0x86, "Memory Error", 1},
    {0x87, "Detach Error", 1},
    {0x88, "BIOS Timeout", 1},
    {0x89, "Incorrect Image Type", 1},
    {0x8A, "Host Reboot failed", 1},
    {0xFF, "Completed", 0},
};

TEST(CheckStatusCode, EveryKnownCodeHasItsTextAndVerdict) {
  TFirmwareUpdate update;
  for (const StatusRow& row : kRows) {
    char text[64];
    memset(text, 'x', sizeof(text));
    SCOPED_TRACE(row.code);
    EXPECT_EQ(row.verdict, update.CheckStatusCode(static_cast<uint8_t>(row.code), text));
    EXPECT_EQ(std::string(row.text), text);
  }
}

TEST(CheckStatusCode, EveryOtherCodeIsUnknownWithEmptyText) {
  TFirmwareUpdate update;
  int unknown = 0;
  for (int code = 0; code < 256; ++code) {
    bool known = false;
    for (const StatusRow& row : kRows) known = known || row.code == code;
    if (known) continue;
    char text[64] = "leftover";
    EXPECT_EQ(42, update.CheckStatusCode(static_cast<uint8_t>(code), text)) << code;
    EXPECT_EQ(std::string(), text);
    ++unknown;
  }
  EXPECT_EQ(256 - 19, unknown);
}

TEST(ReportFinalResult, SuccessLineOnBothPaths) {
  CapturedOutput cap;
  cap.OpenLog();
  EXPECT_EQ(0, update_steps::ReportFinalResult(0, update_steps::eFinalVirtualMedia));
  EXPECT_EQ(0, update_steps::ReportFinalResult(0, update_steps::eFinalRemote));
  EXPECT_EQ("   Firmware Update Successfully\n   Firmware Update Successfully\n",
            cap.Out());
  EXPECT_EQ(cap.Out(), cap.Log());
  EXPECT_EQ("", cap.Err());
}

// No command of the program returns 57; it passes through the polls and
// means that the host restarts for a BIOS update, which is success.
TEST(ReportFinalResult, BiosRestartBecomesSuccess) {
  CapturedOutput cap;
  EXPECT_EQ(0, update_steps::ReportFinalResult(57, update_steps::eFinalVirtualMedia));
  EXPECT_EQ("   System restart for BIOS update.", cap.Out());
  cap.Clear();
  EXPECT_EQ(0, update_steps::ReportFinalResult(57, update_steps::eFinalRemote));
  EXPECT_EQ("\n   System restart for BIOS update.", cap.Out());
}

TEST(ReportFinalResult, FailuresPassUnchangedAndSilently) {
  CapturedOutput cap;
  EXPECT_EQ(532, update_steps::ReportFinalResult(532, update_steps::eFinalVirtualMedia));
  EXPECT_EQ(20, update_steps::ReportFinalResult(20, update_steps::eFinalRemote));
  EXPECT_EQ(0x139, update_steps::ReportFinalResult(0x139, update_steps::eFinalRemote));
  EXPECT_EQ("", cap.Out());
}


}  // namespace

namespace {

TEST(UpdateSettings, HostIPOfSixteenCharactersIsRefusedAndLeavesTheFieldEmpty) {
  TFirmwareUpdate update;
  EXPECT_EQ(0, update.SetHostIP("192.168.100.200"));
  EXPECT_STREQ("192.168.100.200", update.GetHostIP());
  EXPECT_EQ(-1, update.SetHostIP("192.168.100.2000"));
  EXPECT_STREQ("", update.GetHostIP());
}

TEST(UpdateSettings, MinimumDeviceSizeRoundsUpToWholeMiB) {
  TFirmwareUpdate update;
  sImageHeaderTag image{};
  image.u32ImageSize = 3u << 20;
  update.SetUSBDeviceMinSize(&image);
  EXPECT_EQ(3, update.GetUSBDeviceMinSize());
  image.u32ImageSize = (3u << 20) + 1;
  update.SetUSBDeviceMinSize(&image);
  EXPECT_EQ(4, update.GetUSBDeviceMinSize());
}

TEST(UpdateSettings, RetriesAreCopiedEachFromItsOwnField) {
  TFirmwareUpdate update;
  sProgramSettingsTag s{};
  s.u16PhaseOneWaitingTime = 31;
  s.u16PhaseTwoWaitingTime = 181;
  s.u16FwUpdateWaitingTime = 1201;
  s.u16FwRebootWaitingTime = 91;
  s.u8USBDeviceSearchingRetry = 16;
  s.u8ConnectionRetryInterval = 2;
  s.u8DelayTime = 30;
  s.u8ConfigurationRetry = 5;
  s.u8ConnectionRetry = 12;
  s.u8ResetBMCRetry = 3;
  s.u8EntityID = 4;
  update.SetFwUpdateSettings(&s);
  EXPECT_EQ(31, update.PhaseOneWaitingTime());
  EXPECT_EQ(181, update.PhaseTwoWaitingTime());
  EXPECT_EQ(1201, update.FwUpdateWaitingTime());
  EXPECT_EQ(91, update.FwRebootWaitingTime());
  EXPECT_EQ(16, update.USBSearchingRetry());
  EXPECT_EQ(2, update.RetryInterval());
  EXPECT_EQ(30, update.DelayTime());
  EXPECT_EQ(5, update.ConfigurationRetry());
  EXPECT_EQ(12, update.ConnectionRetry());
  EXPECT_EQ(3, update.ResetRetry());
  EXPECT_EQ(4, update.UpdateTarget());
}

}  // namespace

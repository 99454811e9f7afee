#include "update_fixture.h"

#include <stdio.h>
#include <string.h>

#include "driver/config.h"
#include "driver/driver.h"
#include "driver/options.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/update_package.h"
#include "platform/platform.h"
#include "platform/signals.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

namespace update_testing {

const std::string kClearLine = "\r" + std::string(74, ' ') + "\r";

std::string Spin(int count, const std::string& text) {
  if (count < 1) return kClearLine;
  static const char kMarks[] = {'-', '/', '|', '\\'};
  return "\r " + text + " " + kMarks[count % 4];
}

std::string At(time_t t) { return platform::CTime(t); }

std::vector<std::string> Times(int count, const std::string& line) {
  return std::vector<std::string>(static_cast<size_t>(count), line);
}

std::vector<std::string> Join(
    std::initializer_list<std::vector<std::string>> parts) {
  std::vector<std::string> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

::testing::AssertionResult InOrder(const std::string& text,
                                   const std::vector<std::string>& pieces) {
  size_t pos = 0;
  for (size_t i = 0; i < pieces.size(); ++i) {
    size_t found = text.find(pieces[i], pos);
    if (found == std::string::npos) {
      return ::testing::AssertionFailure()
             << "piece " << i << " \"" << pieces[i] << "\" not found after "
             << "offset " << pos << " in:\n" << text;
    }
    pos = found + pieces[i].size();
  }
  return ::testing::AssertionSuccess();
}

// " 0x%02X" style pieces of the trace, upper or lower case.
static std::string Hex(const char* format, unsigned value) {
  const bool upper = format[strlen(format) - 1] == 'X';
  const bool lead = format[0] == ' ';
  char buf[16];
  snprintf(buf, sizeof(buf), upper ? "0x%02X" : "0x%02x", value);
  return std::string(lead ? " " : "") + buf;
}

std::string Trace(const std::string& title, uint8_t netfn, uint8_t cmd,
                  const std::vector<uint8_t>& request, uint8_t cc,
                  const std::vector<uint8_t>& response) {
  std::string t = title;
  t += "   Request Info:\n";
  t += "   slave addr = 0x20  netfcn+lun = " + Hex("0x%02X", netfn << 2u) +
       "  command = " + Hex("0x%02X", cmd) + "\n";
  t += "   request data length = " + std::to_string(request.size()) + ", data =";
  for (uint8_t b : request) t += Hex(" 0x%02X", b);
  t += "\n";
  t += "   Response Info:\n";
  t += "   Completion Code = " + Hex("0x%02x", cc) +
       "  Response Length = " + Hex("0x%02x", static_cast<unsigned>(response.size())) +
       "\n";
  t += "   Response Data:";
  for (uint8_t b : response) t += Hex(" 0x%02x", b);
  t += "\n";
  return t;
}

void UpdateTest::SetUp() {
  cap.OpenLog();
  ASSERT_EQ(0, ConfigConstructor());
  // One attempt per command keeps the request lists readable; suites that
  // test the retries set it themselves.
  Settings().u8IPMICommandRetry = 0;
  ASSERT_EQ(0, FwUpdateConstructor());
  ASSERT_EQ(0, WriteFirmwareConstructor());
  ResetMountFlagsForTest();
  G_astrDiskList.clear();
  G_astrPartitionList.clear();
  G_EnableIPMILan = 0;
  G_u8EntityID = 0;
  G_u8BMCNeedReboot = 0;
  G_u8HostNeedRebootFlag = 0;
  G_RetryCountFlag = 0;
  G_RetryIntervalFlag = 0;
  G_DelayTimeFlag = 0;
  // The program's own policy, so that a signal raised inside a fake is
  // recorded as it would be in the real process.
  platform::InstallSignalPolicy();
  COrvoUpdatePackage::SetRevisionReader(GetDeviceID);
  platform::ClearSignalForTest();
  installed_.reset(new testing_support::InstalledBmc(&bmc));
  ASSERT_EQ(0, InitKcsDriver());
  bmc.ClearRequests();
  cap.Clear();
  env.sleeps.clear();
  start = env.now;
}

void UpdateTest::TearDown() {
  UinitKcsDriver();
  installed_.reset();
  WriteFirmwareDestructor();
  FwUpdateDestructor();
  ConfigDestructor();
  ResetMountFlagsForTest();
  G_astrDiskList.clear();
  G_astrPartitionList.clear();
  G_EnableIPMILan = 0;
  G_u8EntityID = 0;
  G_u8BMCNeedReboot = 0;
  G_RetryCountFlag = 0;
  G_RetryIntervalFlag = 0;
  G_DelayTimeFlag = 0;
  platform::ClearSignalForTest();
}

sProgramSettingsTag& UpdateTest::Settings() {
  return *G_pConfigHandle->GetSettings();
}

}  // namespace update_testing

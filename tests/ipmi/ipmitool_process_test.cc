// The LAN transport through a real shell and the fake `ipmitool` put first
// on PATH: quoting as the shell undoes it, and BMC state that lives across
// the tool's processes.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>

#include "driver/config.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "ipmi/lan_transport.h"
#include "support/capture.h"
#include "support/fake_env.h"
#include "update/firmware_update.h"

namespace {

using testing_support::ReadFile;

// The virtual clock, but child processes run for real.
class RealShellEnv : public testing_support::FakeEnv {
 public:
  platform::ProcessResult RunProcess(const platform::ProcessSpec& spec) override {
    commands.push_back(platform::CommandText(spec));
    return platform::RealEnv()->RunProcess(spec);
  }
};

class IpmitoolProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/vrxipmitoolXXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    dir_ = dir;
    const char* path = getenv("PATH");
    old_path_ = path != nullptr ? path : "";
    setenv("PATH", (std::string(VRX_FAKE_IPMITOOL_DIR) + ":" + old_path_).c_str(),
           1);
    setenv("VRX_SCRIPTED_BMC", (dir_ + "/bmc.script").c_str(), 1);
    setenv("VRX_SCRIPTED_BMC_LOG", (dir_ + "/requests.log").c_str(), 1);
    setenv("VRX_FAKE_IPMITOOL_ARGV", (dir_ + "/argv.log").c_str(), 1);
    setenv("VRX_FAKE_IPMITOOL_PASSWORD", (dir_ + "/password.log").c_str(), 1);
    Script("");
    ASSERT_EQ(0, ConfigConstructor());
    G_pConfigHandle->GetSettings()->u8IPMICommandRetry = 2;
    FwUpdateConstructor();
    G_pFirmwareUpdate->SetHostIP("10.0.0.5");
    G_pFirmwareUpdate->SetUserName("admin");
    G_pFirmwareUpdate->SetPassWord("secret");
    G_pFirmwareUpdate->SetLanIF("lanplus");
    G_EnableIPMILan = 1;
  }
  void TearDown() override {
    G_EnableIPMILan = 0;
    G_u8CipherValue = 0xFF;
    FwUpdateDestructor();
    ConfigDestructor();
    setenv("PATH", old_path_.c_str(), 1);
    unsetenv("VRX_SCRIPTED_BMC");
    unsetenv("VRX_SCRIPTED_BMC_LOG");
    unsetenv("VRX_FAKE_IPMITOOL_ARGV");
    unsetenv("VRX_FAKE_IPMITOOL_PASSWORD");
    for (const char* name : {"bmc.script", "bmc.script.state", "requests.log",
                             "argv.log", "password.log"})
      unlink((dir_ + "/" + name).c_str());
    rmdir(dir_.c_str());
  }
  void Script(const std::string& text) {
    std::ofstream(dir_ + "/bmc.script") << text;
  }
  std::string Requests() { return ReadFile(dir_ + "/requests.log"); }
  std::string Argv() { return ReadFile(dir_ + "/argv.log"); }

  RealShellEnv env;
  testing_support::CapturedOutput cap;
  std::string dir_, old_path_;
};

TEST_F(IpmitoolProcessTest, GetDeviceIdThroughTheTool) {
  Script("firmware 82 31\n");
  unsigned char revision[2] = {0, 0};
  EXPECT_EQ(0, GetDeviceID(revision));
  EXPECT_EQ(0x02, revision[0]);
  EXPECT_EQ(0x31, revision[1]);
  EXPECT_EQ("06 01\n", Requests());
  EXPECT_EQ("-I\nlanplus\n-U\nadmin\n-E\n-H\n10.0.0.5\nraw\n0x06\n0x01\n--\n",
            Argv());
  EXPECT_EQ(std::vector<std::string>{"ipmitool -I lanplus -U admin -E -H "
                                     "10.0.0.5 raw 0x06 0x01"},
            env.commands);
}

TEST_F(IpmitoolProcessTest, ShellSpecialValuesArriveIntact) {
  G_u8CipherValue = 3;
  G_pFirmwareUpdate->SetPassWord("p w$HOME'\"`x`;");
  G_pFirmwareUpdate->SetUserName("a b");
  unsigned char revision[2];
  EXPECT_EQ(0, GetDeviceID(revision));
  EXPECT_EQ("-C\n3\n-I\nlanplus\n-U\na b\n-E\n-H\n10.0.0.5\n"
            "raw\n0x06\n0x01\n--\n",
            Argv());
  EXPECT_EQ("p w$HOME'\"`x`;\n", ReadFile(dir_ + "/password.log"));
}

TEST_F(IpmitoolProcessTest, StatusSequenceAcrossProcesses) {
  Script("08 01 04 = 00 07\n08 02 07 = 00 04 | 00 03 | 00 02 32 | 00 ff\n");
  unsigned char task = 0;
  ASSERT_EQ(0, UpdateFirmware(0x04, 0x00, &task));
  EXPECT_EQ(7, task);
  std::vector<int> seen;
  for (int i = 0; i < 5; ++i) {
    unsigned char status = 0, percent = 0;
    bool valid = false;
    ASSERT_EQ(0, GetUpdateStatus(task, &status, &percent, &valid));
    seen.push_back(status);
    if (i == 2) {
      EXPECT_TRUE(valid);
      EXPECT_EQ(0x32, percent);
    }
  }
  EXPECT_EQ((std::vector<int>{4, 3, 2, 0xff, 0xff}), seen);
}

TEST_F(IpmitoolProcessTest, UriWrittenAndReadBackAcrossProcesses) {
  std::string uri = "tftp://10.1.2.3/images/firmware-2.10.bin";
  std::vector<char> set(256, 0), read(256, 0);
  set[0] = static_cast<char>(uri.size());
  uri.copy(set.data() + 1, uri.size());
  ASSERT_EQ(0, SetURIConfig(set.data()));
  ASSERT_EQ(0, GetURIConfig(read.data()));
  EXPECT_EQ(set, read);
  ASSERT_EQ(0, SetDelayTimeConfig(42));
  unsigned char delay = 0;
  ASSERT_EQ(0, GetDelayTimeConfig(&delay));
  EXPECT_EQ(42, delay);
}

TEST_F(IpmitoolProcessTest, CompletionCodeIsShownAndFailsOnce) {
  Script("08 10 = c0\n");
  EXPECT_EQ(24, FwUpdatePhase1(0));
  EXPECT_EQ(
      "\n   Unable to send RAW command (channel=0x0 netfn=0x8 lun=0x0 cmd=0x10 "
      "rsp=0xc0): Node busy\n",
      cap.Err());
  EXPECT_EQ("08 10 00\n", Requests());
  EXPECT_TRUE(env.sleeps.empty());
}

TEST_F(IpmitoolProcessTest, UnreachableBMC) {
  Script("06 01 = fail 1\n");
  unsigned char revision[2];
  EXPECT_EQ(31, GetDeviceID(revision));
  EXPECT_EQ("\n   Error: Unable to establish IPMI v2 / RMCP+ session\n",
            cap.Err());
}

TEST_F(IpmitoolProcessTest, ColdResetThenSilenceAcrossProcesses) {
  Script("down-after 06 02 2\n");
  EXPECT_EQ(0, ColdReset());
  unsigned char revision[2];
  EXPECT_EQ(31, GetDeviceID(revision));  // no answer: the tool gives up
  EXPECT_EQ(31, GetDeviceID(revision));
  EXPECT_EQ(0, GetDeviceID(revision));
  EXPECT_EQ("06 02\n06 01\n06 01\n06 01\n", Requests());
}

}  // namespace

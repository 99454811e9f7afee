// Loading libopenraw.so for real: through the loader's search path, from
// the executable's own directory, and the failures when it or one of its
// entry points is missing. Each group runs in its own process with its own
// environment (see CMakeLists.txt).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>

#include "driver/config.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "support/capture.h"
#include "support/fake_env.h"

namespace {

class LoadingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/vrxopenrawXXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    dir_ = dir;
    script_ = dir_ + "/bmc.script";
    log_ = dir_ + "/requests.log";
    setenv("VRX_SCRIPTED_BMC", script_.c_str(), 1);
    setenv("VRX_SCRIPTED_BMC_LOG", log_.c_str(), 1);
    ASSERT_EQ(0, ConfigConstructor());
    G_pConfigHandle->GetSettings()->u8IPMICommandRetry = 0;
  }
  void TearDown() override {
    UinitKcsDriver();
    ConfigDestructor();
    unsetenv("VRX_SCRIPTED_BMC");
    unsetenv("VRX_SCRIPTED_BMC_LOG");
    unlink(script_.c_str());
    unlink(log_.c_str());
    rmdir(dir_.c_str());
  }
  void Script(const std::string& text) { std::ofstream(script_) << text; }
  std::string RequestLog() { return testing_support::ReadFile(log_); }

  testing_support::FakeEnv env;  // retries wait on the virtual clock
  testing_support::CapturedOutput cap;
  std::string dir_, script_, log_;
};

using LibraryPath = LoadingTest;

TEST_F(LibraryPath, RequestsReachTheScriptedLibrary) {
  Script("firmware 04 17\n08 13 00 = 00 04 17 00 05\n");
  ASSERT_EQ(0, InitKcsDriver());
  EXPECT_EQ(0x20, GetBMCSlaveAddress());
  unsigned char revision[2] = {0, 0};
  EXPECT_EQ(0, GetDeviceID(revision));
  EXPECT_EQ(0x04, revision[0]);
  EXPECT_EQ(0x17, revision[1]);
  unsigned char version[4] = {0};
  EXPECT_EQ(0, GetFwImageVersion(0, version));
  EXPECT_EQ(0x05, version[3]);
  sIPMIReqRespTag record;
  memset(&record, 0, sizeof(record));
  record.u16ResponseLength = 128;
  EXPECT_EQ(0, ExecuteCommand(0x2C, 0x06 << 2, 0x01, &record));  // IPMB
  EXPECT_EQ("06 01\n08 13 00\nipmb 2c 06 01\n", RequestLog());
}

TEST_F(LibraryPath, LibraryFailuresAreRetriedToTheLimit) {
  Script("08 12 = silent | fail 2 | 00 09\n");
  G_pConfigHandle->GetSettings()->u8IPMICommandRetry = 1;
  ASSERT_EQ(0, InitKcsDriver());
  unsigned char status = 0;
  // The last attempt failed in the library: the record keeps 0xFF.
  EXPECT_EQ(RC_INTERNAL_UPDATE_ERROR + RC_RETRY_LIMIT, GetFwUpdateStatus(&status));
  EXPECT_EQ(0, GetFwUpdateStatus(&status));
  EXPECT_EQ(0x09, status);
  EXPECT_EQ((std::vector<unsigned>{1000, 1000}), env.sleeps);
}

TEST_F(LibraryPath, OpenFailureIsALoadFailure) {
  Script("open-fails\n");
  EXPECT_EQ(12, InitKcsDriver());
}

using MissingLibrary = LoadingTest;

// Runs with no library on the search path, beside the executable or in
// the current directory (which does hold one and must not be searched).
TEST_F(MissingLibrary, InitFailsWithLoadError) {
  Script("");
  EXPECT_EQ(12, InitKcsDriver());
  EXPECT_EQ(0, GetBMCSlaveAddress());
  unsigned char revision[2];
  EXPECT_EQ(RC_GET_DEVICE_ID_FAILED + RC_RETRY_LIMIT, GetDeviceID(revision));
  EXPECT_EQ("", RequestLog());
}

// The message stays "Failed to Load Library"; the log names the library,
// every place tried, in order, and the loader's reason for each.
TEST_F(MissingLibrary, LogNamesEachPathTriedAndTheReason) {
  cap.OpenLog();
  EXPECT_EQ(12, InitKcsDriver());
  std::string log = cap.Log();
  EXPECT_EQ(0u, log.find("   libopenraw.so could not be loaded; tried, in order:\n"
                         "     the loader's search path: libopenraw.so: "
                         "cannot open shared object file"))
      << log;
  // Beside the program first, the private directory last.
  size_t beside = log.find("/libopenraw.so: cannot open");
  size_t privateDir = log.find("/../lib/vrxfwul/libopenraw.so: cannot open");
  EXPECT_NE(std::string::npos, privateDir) << log;
  EXPECT_LT(beside, privateDir) << log;
  EXPECT_EQ("", cap.Out());  // a trace line, not console text
}

using MissingSymbol = MissingLibrary;

TEST_F(MissingSymbol, InitFailsWithLoadError) {
  EXPECT_EQ(12, InitKcsDriver());
}

TEST_F(MissingSymbol, LogNamesTheMissingEntryPoint) {
  cap.OpenLog();
  EXPECT_EQ(12, InitKcsDriver());
  std::string log = cap.Log();
  EXPECT_EQ(0u, log.find("   libopenraw.so loaded from libopenraw.so lacks an "
                         "entry point:\n     "))
      << log;
  EXPECT_NE(std::string::npos, log.find("undefined symbol: RawIPMBRequest\n"))
      << log;
}

}  // namespace

#include "driver/config.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "output/output.h"
#include "support/capture.h"
#include "support/fake_env.h"

namespace {

using testing_support::CapturedOutput;

class ConfigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env_.fs = &fs_;
    fs_.AddDirectory("/etc/vrx");
    ASSERT_EQ(0, ConfigConstructor());
  }
  void TearDown() override { ConfigDestructor(); }

  sProgramSettingsTag* S() { return G_pConfigHandle->GetSettings(); }

  // Writes bytes to a fresh file and returns its path.
  std::string TempFile(const std::string& bytes) {
    std::string name = "/etc/vrx/settings" + std::to_string(++files_) + ".cfg";
    fs_.AddFile(name, bytes);
    return name;
  }

  int Read(const std::string& bytes) {
    return G_pConfigHandle->ReadConfigFile(TempFile(bytes).c_str());
  }

  testing_support::FakeEnv env_;
  testing_support::FakeFiles fs_;
  int files_ = 0;
};

TEST_F(ConfigTest, DefaultsAsTabled) {
  const sProgramSettingsTag* s = S();
  EXPECT_EQ(30, s->u16PhaseOneWaitingTime);
  EXPECT_EQ(180, s->u16PhaseTwoWaitingTime);
  EXPECT_EQ(1200, s->u16FwUpdateWaitingTime);
  EXPECT_EQ(90, s->u16FwRebootWaitingTime);
  EXPECT_EQ(15, s->u8IPMICommandRetry);
  EXPECT_EQ(15, s->u8USBDeviceSearchingRetry);
  EXPECT_EQ(30, s->u16RemoteStatusEnableWaitingTime);
  EXPECT_EQ(1, s->u8ConnectionRetryInterval);
  EXPECT_EQ(255, s->u8DelayTime);
  EXPECT_EQ(4, s->u8ConfigurationRetry);
  EXPECT_EQ(12, s->u8ConnectionRetry);
  EXPECT_EQ(4, s->u8ResetBMCRetry);
  EXPECT_EQ(0, s->u8EntityID);
  EXPECT_EQ(255, s->u8CipherValue);
}

TEST_F(ConfigTest, ConstructorStoresHandleAndDestructorClearsIt) {
  EXPECT_NE(nullptr, G_pConfigHandle);
  EXPECT_TRUE(G_pConfigHandle->HasSettings());
  ConfigDestructor();
  EXPECT_EQ(nullptr, G_pConfigHandle);
  ASSERT_EQ(0, ConfigConstructor());
}

TEST(StringToInteger, Decimal) {
  int v = -1;
  EXPECT_EQ(0, StringToInteger("0", &v));
  EXPECT_EQ(0, v);
  EXPECT_EQ(0, StringToInteger("255", &v));
  EXPECT_EQ(255, v);
  EXPECT_EQ(0, StringToInteger("007", &v));
  EXPECT_EQ(7, v);
}

TEST(StringToInteger, Hexadecimal) {
  int v = -1;
  EXPECT_EQ(0, StringToInteger("0x0A", &v));
  EXPECT_EQ(10, v);
  EXPECT_EQ(0, StringToInteger("0XfF", &v));
  EXPECT_EQ(255, v);
  EXPECT_EQ(0, StringToInteger("0x0", &v));
  EXPECT_EQ(0, v);
}

TEST(StringToInteger, Refusals) {
  int v = 42;
  EXPECT_EQ(1, StringToInteger(nullptr, &v));
  EXPECT_EQ(9, StringToInteger("", &v));
  EXPECT_EQ(9, StringToInteger("-1", &v));
  EXPECT_EQ(9, StringToInteger("+1", &v));
  EXPECT_EQ(9, StringToInteger("1x", &v));
  EXPECT_EQ(9, StringToInteger(" 1", &v));
  EXPECT_EQ(9, StringToInteger("0x", &v));
  EXPECT_EQ(9, StringToInteger("0X", &v));
  EXPECT_EQ(9, StringToInteger("0xg", &v));
  EXPECT_EQ(9, StringToInteger("0x1 ", &v));
  EXPECT_EQ(9, StringToInteger("1\r", &v));
  EXPECT_EQ(42, v);
}

TEST(StringToInteger, HugeNumbersSaturateInsteadOfOverflowing) {
  int v = 0;
  EXPECT_EQ(0, StringToInteger("99999999999999999999999999", &v));
  EXPECT_EQ(2147483647, v);
  EXPECT_EQ(0, StringToInteger("0xFFFFFFFFFFFFFFFFFFFFFFFF", &v));
  EXPECT_EQ(2147483647, v);
}

TEST(IsZero, OnlyZeroWithOptionalCarriageReturn) {
  EXPECT_TRUE(IsZero("0"));
  EXPECT_TRUE(IsZero("0\r"));
  EXPECT_FALSE(IsZero("00"));
  EXPECT_FALSE(IsZero("0\r\r"));
  EXPECT_FALSE(IsZero("0 "));
  EXPECT_FALSE(IsZero(""));
  EXPECT_FALSE(IsZero("0x0"));
  EXPECT_FALSE(IsZero(nullptr));
}

TEST_F(ConfigTest, ConnectionRetryCount) {
  EXPECT_EQ(0, G_pConfigHandle->SaveConnectionRetryCount("0"));
  EXPECT_EQ(0, S()->u8ConnectionRetry);
  EXPECT_EQ(0, G_pConfigHandle->SaveConnectionRetryCount("255"));
  EXPECT_EQ(255, S()->u8ConnectionRetry);
  EXPECT_EQ(10, G_pConfigHandle->SaveConnectionRetryCount("256"));
  EXPECT_EQ(9, G_pConfigHandle->SaveConnectionRetryCount("x"));
  EXPECT_EQ(1, G_pConfigHandle->SaveConnectionRetryCount(nullptr));
  EXPECT_EQ(255, S()->u8ConnectionRetry);
}

TEST_F(ConfigTest, ConnectionRetryIntervalIsMultipleOfFive) {
  EXPECT_EQ(0, G_pConfigHandle->SaveConnectionRetryInterval("0"));
  EXPECT_EQ(0, S()->u8ConnectionRetryInterval);
  EXPECT_EQ(0, G_pConfigHandle->SaveConnectionRetryInterval("10"));
  EXPECT_EQ(2, S()->u8ConnectionRetryInterval);
  EXPECT_EQ(0, G_pConfigHandle->SaveConnectionRetryInterval("0x0A"));
  EXPECT_EQ(2, S()->u8ConnectionRetryInterval);
  EXPECT_EQ(0, G_pConfigHandle->SaveConnectionRetryInterval("250"));
  EXPECT_EQ(50, S()->u8ConnectionRetryInterval);
  // 255 is 51 times 5, so the rule accepts it.
  EXPECT_EQ(0, G_pConfigHandle->SaveConnectionRetryInterval("255"));
  EXPECT_EQ(51, S()->u8ConnectionRetryInterval);
  EXPECT_EQ(0, G_pConfigHandle->SaveConnectionRetryInterval("250"));
  EXPECT_EQ(10, G_pConfigHandle->SaveConnectionRetryInterval("7"));
  EXPECT_EQ(10, G_pConfigHandle->SaveConnectionRetryInterval("254"));
  EXPECT_EQ(10, G_pConfigHandle->SaveConnectionRetryInterval("260"));
  EXPECT_EQ(9, G_pConfigHandle->SaveConnectionRetryInterval(""));
  EXPECT_EQ(50, S()->u8ConnectionRetryInterval);
}

TEST_F(ConfigTest, DelayTime) {
  EXPECT_EQ(10, G_pConfigHandle->SaveDelayTime("256"));
  EXPECT_EQ(255, S()->u8DelayTime);
  EXPECT_EQ(0, G_pConfigHandle->SaveDelayTime("0"));
  EXPECT_EQ(0, S()->u8DelayTime);
  EXPECT_EQ(0, G_pConfigHandle->SaveDelayTime("0xFF"));
  EXPECT_EQ(255, S()->u8DelayTime);
}

TEST_F(ConfigTest, EntityIdAcceptsZeroToFifteen) {
  EXPECT_EQ(0, G_pConfigHandle->SaveEntityID("15"));
  EXPECT_EQ(15, S()->u8EntityID);
  EXPECT_EQ(0, G_pConfigHandle->SaveEntityID("5"));
  EXPECT_EQ(5, S()->u8EntityID);
  EXPECT_EQ(10, G_pConfigHandle->SaveEntityID("16"));
  EXPECT_EQ(9, G_pConfigHandle->SaveEntityID(""));
  EXPECT_EQ(9, G_pConfigHandle->SaveEntityID("1x"));
  EXPECT_EQ(5, S()->u8EntityID);
}

TEST_F(ConfigTest, CipherValueAcceptsZeroToFifteen) {
  EXPECT_EQ(0, G_pConfigHandle->SaveCipherValue("3"));
  EXPECT_EQ(3, S()->u8CipherValue);
  EXPECT_EQ(0, G_pConfigHandle->SaveCipherValue("0xf"));
  EXPECT_EQ(15, S()->u8CipherValue);
  EXPECT_EQ(10, G_pConfigHandle->SaveCipherValue("16"));
  EXPECT_EQ(15, S()->u8CipherValue);
}

TEST_F(ConfigTest, FileChangesWaitingTimesAndRetries) {
  EXPECT_EQ(0, Read("PhaseTwoWaitingTime = 200\n"
                    "FwUpdateWaitingTime=600\n"
                    "FwRebootWaitingTime 120\n"
                    "IPMICommandRetry = 3\n"
                    "USBDeviceSearchingRetry = 7\n"
                    "PhaseOneWaitingTime = 45\n"));
  EXPECT_EQ(45, S()->u16PhaseOneWaitingTime);
  EXPECT_EQ(200, S()->u16PhaseTwoWaitingTime);
  EXPECT_EQ(600, S()->u16FwUpdateWaitingTime);
  EXPECT_EQ(120, S()->u16FwRebootWaitingTime);
  EXPECT_EQ(3, S()->u8IPMICommandRetry);
  EXPECT_EQ(7, S()->u8USBDeviceSearchingRetry);
}

TEST_F(ConfigTest, FileSetsConnectionValuesThroughSetters) {
  EXPECT_EQ(0, Read("R=3\nI = 10\nD=0x20\n"));
  EXPECT_EQ(3, S()->u8ConnectionRetry);
  EXPECT_EQ(2, S()->u8ConnectionRetryInterval);
  EXPECT_EQ(32, S()->u8DelayTime);
}

TEST_F(ConfigTest, FileBadConnectionValuesAreIgnoredSilently) {
  CapturedOutput cap;
  cap.OpenLog();
  EXPECT_EQ(0, Read("R=256\nI=7\nD=x\n"));
  EXPECT_EQ(12, S()->u8ConnectionRetry);
  EXPECT_EQ(1, S()->u8ConnectionRetryInterval);
  EXPECT_EQ(255, S()->u8DelayTime);
  EXPECT_EQ("", cap.Out());
  EXPECT_EQ("", cap.Log());
}

TEST_F(ConfigTest, FileZeroOnlyWhenWrittenAsZero) {
  EXPECT_EQ(0, Read("FwUpdateWaitingTime = 0\n"));
  EXPECT_EQ(0, S()->u16FwUpdateWaitingTime);
  EXPECT_EQ(0, Read("FwRebootWaitingTime = zero\n"
                    "IPMICommandRetry = 0x10\n"
                    "USBDeviceSearchingRetry = 00\n"
                    "PhaseTwoWaitingTime = -5\n"));
  EXPECT_EQ(90, S()->u16FwRebootWaitingTime);
  EXPECT_EQ(15, S()->u8IPMICommandRetry);
  EXPECT_EQ(15, S()->u8USBDeviceSearchingRetry);
  EXPECT_EQ(180, S()->u16PhaseTwoWaitingTime);
}

TEST_F(ConfigTest, FileTrailingCharactersAfterNumberIgnored) {
  EXPECT_EQ(0, Read("FwRebootWaitingTime = 77seconds\nIPMICommandRetry = 0\r\n"));
  EXPECT_EQ(77, S()->u16FwRebootWaitingTime);
  EXPECT_EQ(0, S()->u8IPMICommandRetry);
}

TEST_F(ConfigTest, FilePhaseWaitingTimesKeepLowByte) {
  EXPECT_EQ(0, Read("PhaseOneWaitingTime = 256\nPhaseTwoWaitingTime = 300\n"));
  EXPECT_EQ(0, S()->u16PhaseOneWaitingTime);
  EXPECT_EQ(44, S()->u16PhaseTwoWaitingTime);
}

TEST_F(ConfigTest, FileRetryCountsKeepLowByteAndWideFieldsSixteenBits) {
  EXPECT_EQ(0, Read("IPMICommandRetry = 258\n"
                    "FwUpdateWaitingTime = 70000\n"
                    "FwRebootWaitingTime = 99999999999999999999999\n"));
  EXPECT_EQ(2, S()->u8IPMICommandRetry);
  EXPECT_EQ(70000 & 0xFFFF, S()->u16FwUpdateWaitingTime);
  // No overflow on absurd lengths: the low 16 bits of the number.
  EXPECT_EQ(static_cast<uint16_t>(65535), S()->u16FwRebootWaitingTime);
}

TEST_F(ConfigTest, FileCommentsBlankLinesAndKeysWithoutValue) {
  EXPECT_EQ(0, Read("# a comment\n"
                    "\n"
                    "\n"
                    "PhaseTwoWaitingTime # = 5\n"
                    "FwUpdateWaitingTime = 500 # half an hour is too long\n"
                    "IPMICommandRetry\n"
                    "=\n"
                    "   \t  \n"
                    "#R=1\n"));
  EXPECT_EQ(180, S()->u16PhaseTwoWaitingTime);
  EXPECT_EQ(500, S()->u16FwUpdateWaitingTime);
  EXPECT_EQ(15, S()->u8IPMICommandRetry);
  EXPECT_EQ(12, S()->u8ConnectionRetry);
}

TEST_F(ConfigTest, FileKeysAreCaseSensitiveAndUnknownKeysIgnored) {
  EXPECT_EQ(0, Read("phaseonewaitingtime = 5\nr=1\nColor = blue\n"));
  EXPECT_EQ(30, S()->u16PhaseOneWaitingTime);
  EXPECT_EQ(12, S()->u8ConnectionRetry);
}

TEST_F(ConfigTest, FileWithCrLfLines) {
  EXPECT_EQ(0, Read("PhaseOneWaitingTime = 40\r\n"
                    "R=3\r\n"
                    "I=15\r\n"
                    "D=9\r\n"
                    "FwUpdateWaitingTime = 0\r\n"
                    "# note\r\n"
                    "\r\n"));
  EXPECT_EQ(40, S()->u16PhaseOneWaitingTime);
  EXPECT_EQ(3, S()->u8ConnectionRetry);
  EXPECT_EQ(3, S()->u8ConnectionRetryInterval);
  EXPECT_EQ(9, S()->u8DelayTime);
  EXPECT_EQ(0, S()->u16FwUpdateWaitingTime);
}

TEST_F(ConfigTest, FileLastLineWithoutLineFeed) {
  EXPECT_EQ(0, Read("R=5"));
  EXPECT_EQ(5, S()->u8ConnectionRetry);
}

TEST_F(ConfigTest, FileWithBinaryJunkAndNulBytes) {
  std::string junk;
  for (int i = 0; i < 4096; ++i) junk += static_cast<char>((i * 37 + 11) & 0xFF);
  std::string bytes = junk + "\nR=7\n" + std::string("D=1\0" "23\n", 7) +
                      std::string("\0\0\0", 3) + "\nI=20\n" + junk;
  EXPECT_EQ(0, Read(bytes));
  EXPECT_EQ(7, S()->u8ConnectionRetry);
  // A NUL byte ends the line's text.
  EXPECT_EQ(1, S()->u8DelayTime);
  EXPECT_EQ(4, S()->u8ConnectionRetryInterval);
}

TEST_F(ConfigTest, EmptyFileChangesNothing) {
  EXPECT_EQ(0, Read(""));
  EXPECT_EQ(12, S()->u8ConnectionRetry);
}

TEST_F(ConfigTest, MissingFileIsReportedInDebugModeAndLeavesDefaults) {
  CapturedOutput cap;
  cap.OpenLog();
  EXPECT_EQ(1, G_pConfigHandle->ReadConfigFile("/nonexistent/dir/bmcfwu.cfg"));
  EXPECT_EQ("", cap.Out());
  EXPECT_EQ("\n   Cannot find /nonexistent/dir/bmcfwu.cfg\n", cap.Log());
  cap.Clear();
  G_pOutputMessageHandle->SetOutputMode(eOutputDebug);
  EXPECT_EQ(1, G_pConfigHandle->ReadConfigFile("/nonexistent/dir/bmcfwu.cfg"));
  EXPECT_EQ("\n   Cannot find /nonexistent/dir/bmcfwu.cfg\n", cap.Out());
  EXPECT_EQ(12, S()->u8ConnectionRetry);
}

TEST_F(ConfigTest, DirectoryInPlaceOfFileIsRefused) {
  CapturedOutput cap;
  cap.OpenLog();
  fs_.AddDirectory("/tmp");
  EXPECT_EQ(4, G_pConfigHandle->ReadConfigFile("/tmp"));
  EXPECT_EQ("   /tmp: is not a regular file\n", cap.Err());
  EXPECT_EQ("   /tmp: is not a regular file\n", cap.Log());
}

// A FIFO or a device by the settings' name is refused, never read (nor
// waited on).
TEST_F(ConfigTest, FifoAndDeviceInPlaceOfFileAreRefused) {
  CapturedOutput cap;
  fs_.AddFifo("/etc/vrx/fifo.cfg");
  fs_.AddNode("/etc/vrx/tty.cfg", platform::FileType::kCharDevice);
  EXPECT_EQ(4, G_pConfigHandle->ReadConfigFile("/etc/vrx/fifo.cfg"));
  EXPECT_EQ(4, G_pConfigHandle->ReadConfigFile("/etc/vrx/tty.cfg"));
  EXPECT_EQ("   /etc/vrx/fifo.cfg: is not a regular file\n"
            "   /etc/vrx/tty.cfg: is not a regular file\n",
            cap.Err());
}

// A file that cannot be read is reported as missing.
TEST_F(ConfigTest, UnreadableFileIsReportedAsNotFound) {
  CapturedOutput cap;
  cap.OpenLog();
  fs_.AddFile("/etc/vrx/locked.cfg", "R=9\n")->unreadable = true;
  EXPECT_EQ(1, G_pConfigHandle->ReadConfigFile("/etc/vrx/locked.cfg"));
  EXPECT_EQ("\n   Cannot find /etc/vrx/locked.cfg\n", cap.Log());
  EXPECT_EQ(12, S()->u8ConnectionRetry);
}

TEST_F(ConfigTest, HugeFileIsRefusedWithoutReading) {
  CapturedOutput cap;
  cap.OpenLog();
  std::string big = "R=9\n" + std::string(1024 * 1024, '#');
  std::string path = TempFile(big);
  EXPECT_EQ(1, G_pConfigHandle->ReadConfigFile(path.c_str()));
  EXPECT_EQ(12, S()->u8ConnectionRetry);
  EXPECT_EQ("\n   Reading " + path +
                " error. (read length=0, file size=1048580)\n",
            cap.Log());
}

TEST_F(ConfigTest, FileOfExactlyTheLimitIsRead) {
  std::string text = "R=9\n";
  text += std::string(1024 * 1024 - text.size(), '#');
  EXPECT_EQ(0, Read(text));
  EXPECT_EQ(9, S()->u8ConnectionRetry);
}

TEST_F(ConfigTest, DefaultNameIsReadFromCurrentDirectory) {
  fs_.cwd = "/opt/vrx";
  fs_.AddFile("/opt/vrx/bmcfwu.cfg", "FwUpdateWaitingTime = 300\n");
  EXPECT_EQ(0, G_pConfigHandle->ReadConfigFile());
  ASSERT_TRUE(fs_.RemoveFile("/opt/vrx/bmcfwu.cfg"));
  EXPECT_EQ(1, G_pConfigHandle->ReadConfigFile());
  EXPECT_EQ(300, S()->u16FwUpdateWaitingTime);
}

}  // namespace

// The LAN transport through the shell seam: the ipmitool command line, the
// parsing of what the tool prints (outputs recorded from the real tool),
// its error texts and garbage.
#include "ipmi/lan_transport.h"

#include <gtest/gtest.h>
#include <signal.h>

#include "ipmi/commands.h"
#include "ipmi_fixture.h"

namespace ipmi_testing {
namespace {

using testing_support::CommandResult;
using testing_support::ReadFile;

std::string Recording(const std::string& name) {
  return ReadFile(std::string(VRX_IPMI_RECORDINGS) + "/" + name + ".txt");
}

const char kGetDeviceIdLine[] =
    "ipmitool -I lanplus -U admin -E -H 10.0.0.5 raw 0x06 0x01 ";

class LanTest : public IpmiTest {
 protected:
  void SetUp() override {
    IpmiTest::SetUp();
    UseLan();
    env.handler = nullptr;  // every tool output below is scripted
  }
  // The words as run, joined: the traced line without its last blank.
  static std::string Run(const std::string& line) {
    return line.substr(0, line.size() - 1);
  }
  int Send(uint8_t netfn, uint8_t cmd, const std::vector<uint8_t>& data,
           sIPMIReqRespTag* record, uint8_t retries = 2) {
    *record = NewRecord(retries, data);
    return ExecuteCommand(0x00, static_cast<uint8_t>(netfn << 2), cmd, record);
  }
};

TEST_F(LanTest, CommandLineWithoutCipher) {
  env.Script(Run(kGetDeviceIdLine), " 20 01\n");
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  ASSERT_EQ(1u, env.commands.size());
  EXPECT_EQ(
      "ipmitool -I lanplus -U admin -E -H 10.0.0.5 raw 0x06 0x01",
      env.commands[0]);
  // The password travels in the child's environment only.
  ASSERT_EQ(1u, env.processes.size());
  EXPECT_EQ(std::vector<std::string>{"IPMI_PASSWORD=secret"},
            env.processes[0].env);
  for (const std::string& word : env.processes[0].argv)
    EXPECT_EQ(std::string::npos, word.find("secret"));
}

TEST_F(LanTest, CommandLineCarriesEveryDataByte) {
  env.Script(Run("ipmitool -I lanplus -U admin -E -H 10.0.0.5 raw "
                 "0x2e 0xcc 0x5e 0x2b 0x00 0x06 0x43 0xff "),
             "\n");
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x2E, 0xCC, {0x5E, 0x2B, 0x00, 0x06, 0x43, 0xFF}, &record));
  EXPECT_EQ(1u, env.commands.size());
  EXPECT_EQ(0, env.RunCount("no such line"));
  EXPECT_EQ(1, env.RunCount(env.commands[0]));
  EXPECT_EQ(0, record.u16ResponseLength);
}

TEST_F(LanTest, CipherGoesRightAfterTheToolName) {
  G_u8CipherValue = 3;
  env.Script(Run("ipmitool -C 3 -I lanplus -U admin -E -H 10.0.0.5 raw "
                 "0x06 0x01 "),
             " 20\n");
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(std::vector<uint8_t>{0x20}, Bytes(record));
}

TEST_F(LanTest, CipherZeroIsGiven) {
  G_u8CipherValue = 0;
  sIPMIReqRespTag record;
  Send(0x06, 0x01, {}, &record, 0);
  ASSERT_EQ(1u, env.commands.size());
  EXPECT_EQ(0u, env.commands[0].find("ipmitool -C 0 -I lanplus "));
}

TEST_F(LanTest, LunIsDroppedFromTheNetFn) {
  sIPMIReqRespTag record = NewRecord(0);
  ExecuteCommand(0x20, (0x06 << 2) | 0x03, 0x01, &record);
  ASSERT_EQ(1u, env.commands.size());
  EXPECT_NE(std::string::npos, env.commands[0].find(" raw 0x06 0x01"));
}

TEST_F(LanTest, ValuesReachTheToolAsWordsAndAreQuotedInTheTrace) {
  G_pFirmwareUpdate->SetPassWord("p w$x'y");
  G_pFirmwareUpdate->SetUserName("root;ls");
  G_pFirmwareUpdate->SetHostIP("h`id`");
  G_pFirmwareUpdate->SetLanIF("lan|x");
  sIPMIReqRespTag record;
  Send(0x06, 0x01, {}, &record, 0);
  ASSERT_EQ(1u, env.processes.size());
  EXPECT_EQ((std::vector<std::string>{"ipmitool", "-I", "lan|x", "-U", "root;ls",
                                      "-E", "-H", "h`id`", "raw", "0x06", "0x01"}),
            env.processes[0].argv);
  EXPECT_EQ(std::vector<std::string>{"IPMI_PASSWORD=p w$x'y"},
            env.processes[0].env);
  EXPECT_NE(std::string::npos,
            Log().find("   excute cmd: ipmitool -I 'lan|x' -U 'root;ls' -E -H "
                       "'h`id`' raw 0x06 0x01 \n"));
}

TEST_F(LanTest, TraceShowsRequestCommandLineTokensAndResponse) {
  env.Script(Run(kGetDeviceIdLine), " 14 02 00\n");
  G_chBMCAddress = 0;  // LAN mode never sets it; the trace says 0x20 anyway
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(RequestTrace(0x20, 0x18, 0x01, {}) +
                "   excute cmd: " + kGetDeviceIdLine + "\n"
                "   fpBuff =  14 02 00\n\n"
                "   ptr = 14\n"
                "   ptr = 02\n"
                "   ptr = 00\n\n" +
                ResponseTrace(0x00, {0x14, 0x02, 0x00}),
            Log());
  EXPECT_EQ("", cap.Out());
  EXPECT_EQ("", cap.Err());
}

TEST_F(LanTest, LineFeedStaysOnTheLastTokenAndIsIgnored) {
  env.Script(Run(kGetDeviceIdLine), " 14 02 00\n");
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ((std::vector<uint8_t>{0x14, 0x02, 0x00}), Bytes(record));
  EXPECT_EQ(0, record.u8CompletionCode);
  EXPECT_EQ(0, record.u8ResponseDataOffset);
}

// FakeEnv answers one command line from its queue in order, so each test
// scripts every output before the first request.
TEST_F(LanTest, RecordedGetDeviceIdDecodes) {
  env.Script(Run(kGetDeviceIdLine), Recording("get_device_id_lanplus"));
  env.Script(Run(kGetDeviceIdLine), Recording("get_device_id_lan"));
  for (int i = 0; i < 2; ++i) {
    unsigned char revision[2] = {0, 0};
    EXPECT_EQ(0, GetDeviceID(revision)) << i;
    EXPECT_EQ(0x01, revision[0]);
    EXPECT_EQ(0x02, revision[1]);
  }
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ((std::vector<uint8_t>{0x20, 0x01, 0x01, 0x02, 0x02, 0x9f, 0x91,
                                  0x12, 0x00, 0x02, 0x0f, 0x00, 0x00, 0x00,
                                  0x00}),
            Bytes(record));
}

TEST_F(LanTest, RecordedSixteenAndSeventeenBytes) {
  env.Script(Run(kGetDeviceIdLine), Recording("user_name_16_bytes"));
  env.Script(Run(kGetDeviceIdLine), Recording("cipher_suites_17_bytes"));
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ((std::vector<uint8_t>{0x61, 0x64, 0x6d, 0x69, 0x6e, 0, 0, 0, 0, 0,
                                  0, 0, 0, 0, 0, 0}),
            Bytes(record));
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ((std::vector<uint8_t>{0x01, 0xc0, 0x00, 0x00, 0x40, 0x80, 0xc0,
                                  0x01, 0x01, 0x40, 0x80, 0xc0, 0x02, 0x01,
                                  0x41, 0x80, 0xc0}),
            Bytes(record));
}

TEST_F(LanTest, RecordedNoDataIsAnEmptyResponse) {
  env.Script(Run(kGetDeviceIdLine), Recording("reset_watchdog_no_data"));
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(0, record.u16ResponseLength);
}

TEST_F(LanTest, EmptyOutputIsSuccessWithoutData) {
  env.Script(Run(kGetDeviceIdLine), "");
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(0, record.u16ResponseLength);
  EXPECT_EQ(0, record.u8CompletionCode);
  EXPECT_EQ(RequestTrace(0x20, 0x18, 0x01, {}) + "   excute cmd: " +
                kGetDeviceIdLine + "\n" + ResponseTrace(0x00, {}),
            Log());
}

TEST_F(LanTest, RecordedCompletionCodeErrorIsShownAndNotRetried) {
  env.Script(Run(kGetDeviceIdLine), Recording("invalid_data_field"));
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(1u, env.commands.size());
  EXPECT_TRUE(env.sleeps.empty());
  EXPECT_EQ(
      "\n   Unable to send RAW command (channel=0x0 netfn=0x0 lun=0x0 cmd=0x2 "
      "rsp=0xcc): Invalid data field in request\n",
      cap.Err());
  EXPECT_EQ("", cap.Out());
  EXPECT_EQ(RequestTrace(0x20, 0x18, 0x01, {}) + "   excute cmd: " +
                kGetDeviceIdLine + "\n" +
                "\n   Unable to send RAW command (channel=0x0 netfn=0x0 "
                "lun=0x0 cmd=0x2 rsp=0xcc): Invalid data field in request\n",
            Log());
}

TEST_F(LanTest, FailedExitIsAToolErrorNotResponseBytes) {
  // Read as bytes, "1:" and "found" would become 0x01 0x0f.
  env.Script(Run(kGetDeviceIdLine), "sh: 1: ipmitool: not found\n", 127 << 8);
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(1u, env.commands.size());
  EXPECT_TRUE(env.sleeps.empty());
  // Nothing was parsed: the record still holds its capacity and no bytes.
  EXPECT_EQ(128u, record.u16ResponseLength);
  EXPECT_EQ(0, record.au8ResponseData[0]);
  EXPECT_EQ(0, record.au8ResponseData[1]);
  EXPECT_EQ("\n   sh: 1: ipmitool: not found\n", cap.Err());
}

TEST_F(LanTest, OnlyASuccessfulRunIsParsed) {
  env.Script(Run(kGetDeviceIdLine), " 14 02 00\n", 1 << 8);
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(128u, record.u16ResponseLength);
  EXPECT_EQ("\n    14 02 00\n", cap.Err());
}

TEST_F(LanTest, ToolRefusalsWithoutErrorWordsAreToolErrors) {
  // Texts the tool prints with a failing exit that hold none of the error
  // words: once they read as version 0.00.
  env.Script(Run(kGetDeviceIdLine), "Username is too long (> 16 bytes)\n", 1 << 8);
  env.Script(Run(kGetDeviceIdLine), "Could not open socket!\n", 1 << 8);
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ("\n   Username is too long (> 16 bytes)\n", cap.Err());
  cap.Clear();
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ("\n   Could not open socket!\n", cap.Err());
  EXPECT_EQ(2u, env.commands.size());
  EXPECT_TRUE(env.sleeps.empty());
}

TEST_F(LanTest, ToolMeetingItsTimeLimitIsNamedAndNotRetried) {
  CommandResult hung;
  hung.timed_out = true;
  hung.status = SIGKILL;
  env.Script(Run(kGetDeviceIdLine), hung);
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(1u, env.commands.size());
  EXPECT_EQ(120000u, env.processes.at(0).timeout_ms);
  EXPECT_EQ("\n   Command timed out after 120 s: ipmitool -I lanplus -U admin "
            "-E -H 10.0.0.5 raw 0x06 0x01\n",
            cap.Err());
}

TEST_F(LanTest, RecordedUnreachableHostShowsTheFirstLine) {
  env.Script(Run(kGetDeviceIdLine), Recording("unreachable_lan"));
  env.Script(Run(kGetDeviceIdLine), Recording("unreachable_lanplus"));
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ("\n   Error: Unable to establish LAN session\n", cap.Err());
  cap.Clear();
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ("\n   Error: Unable to establish IPMI v2 / RMCP+ session\n",
            cap.Err());
}

TEST_F(LanTest, ErrorsOfCommandTwoAreOnlyLogged) {
  const std::string line =
      "ipmitool -I lanplus -U admin -E -H 10.0.0.5 raw 0x06 0x02 ";
  env.Script(Run(line),
             "Unable to send RAW command (channel=0x0 netfn=0x6 lun=0x0 "
             "cmd=0x2)\n");
  EXPECT_EQ(32, ColdReset());  // "Failed" becomes the command's own code
  EXPECT_EQ("", cap.Err());
  EXPECT_EQ("", cap.Out());
  EXPECT_NE(std::string::npos,
            Log().find("\n   Unable to send RAW command (channel=0x0 "
                       "netfn=0x6 lun=0x0 cmd=0x2)\n"));
  EXPECT_EQ(1u, env.commands.size());
}

TEST_F(LanTest, RecordedErrorOfAnotherCommandTwoIsOnlyLogged) {
  const std::string line =
      "ipmitool -I lanplus -U admin -E -H 10.0.0.5 raw 0x08 0x02 0x05 ";
  env.Script(Run(line), Recording("invalid_command"));
  unsigned char status = 0, percent = 0;
  bool valid = false;
  EXPECT_EQ(34, GetUpdateStatus(0x05, &status, &percent, &valid));
  EXPECT_EQ("", cap.Err());
}

TEST_F(LanTest, ErrorWordsAnywhereInTheOutput) {
  const char* outputs[] = {" 01 02\nsomething failed\n", "Error\n",
                           "x Unable to y"};
  for (const char* output : outputs) env.Script(Run(kGetDeviceIdLine), output);
  env.Script(Run(kGetDeviceIdLine), " 01 error FAILED unable to\n");
  for (const char* output : outputs) {
    cap.Clear();
    sIPMIReqRespTag record;
    EXPECT_EQ(1, Send(0x06, 0x01, {}, &record)) << output;
    EXPECT_NE("", cap.Err()) << output;
  }
  // The check is case-sensitive: these words are no error words, but they
  // are no bytes either.
  cap.Clear();
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ("\n    01 error FAILED unable to\n", cap.Err());
}

TEST_F(LanTest, ErrorTextStartsAtItsFirstNonEmptyLine) {
  env.Script(Run(kGetDeviceIdLine), "\n\nError: one\nError: two\n");
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ("\n   Error: one\n", cap.Err());
}

TEST_F(LanTest, ToolThatCannotStartIsRetriedToTheLimit) {
  CommandResult cannot;
  cannot.start_fails = true;
  env.Script(Run(kGetDeviceIdLine), cannot);
  sIPMIReqRespTag record;
  EXPECT_EQ(RC_RETRY_LIMIT, Send(0x06, 0x01, {}, &record, 1));
  EXPECT_EQ(2u, env.commands.size());
  EXPECT_EQ((std::vector<unsigned>{1000, 1000}), env.sleeps);
  std::string attempt = RequestTrace(0x20, 0x18, 0x01, {}) + "   excute cmd: " +
                        kGetDeviceIdLine + "\n" +
                        "   Error to execute command\n";
  const std::string why =
      "\n   Cannot run ipmitool: is it installed and on the search path?\n";
  const std::string failed = ErrorTrace(1, 0x00, 0x80);
  EXPECT_EQ(attempt + failed + "   Retry 1\n" + attempt + why + failed, Log());
  EXPECT_EQ(why, cap.Err());
  EXPECT_EQ(128, record.u16ResponseLength);
}

TEST_F(LanTest, ToolStartingOnTheSecondAttempt) {
  CommandResult cannot;
  cannot.start_fails = true;
  env.Script(Run(kGetDeviceIdLine), cannot);
  env.Script(Run(kGetDeviceIdLine), " 07\n");
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record, 3));
  EXPECT_EQ(std::vector<uint8_t>{0x07}, Bytes(record));
  EXPECT_EQ(2u, env.commands.size());
}

TEST_F(LanTest, RetryCount255MakesNoAttempt) {
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record, 255));
  EXPECT_TRUE(env.commands.empty());
}

TEST_F(LanTest, NonHexTokenMakesTheAnswerAToolError) {
  env.Script(Run(kGetDeviceIdLine), " zz 12 q\n");
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ(1u, env.commands.size());
  EXPECT_EQ("\n    zz 12 q\n", cap.Err());
}

TEST_F(LanTest, WideTokensKeepTheirLowByte) {
  env.Script(Run(kGetDeviceIdLine), " 1ff 0x10 abc\n");
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ((std::vector<uint8_t>{0xff, 0x10, 0xbc}), Bytes(record));
}

TEST_F(LanTest, NoTrailingLineFeed) {
  env.Script(Run(kGetDeviceIdLine), " 14 02 00");
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  EXPECT_EQ((std::vector<uint8_t>{0x14, 0x02, 0x00}), Bytes(record));
}

TEST_F(LanTest, BinaryBytesAreAToolError) {
  env.Script(Run(kGetDeviceIdLine), std::string("\x01\xfe 12 \x80\x00 34 56\n", 13));
  sIPMIReqRespTag record;
  EXPECT_EQ(1, Send(0x06, 0x01, {}, &record));
}

TEST_F(LanTest, OnlyTheFirst256BytesAreRead) {
  std::string output;
  for (int i = 0; i < 100; ++i) {
    char token[8];
    snprintf(token, sizeof(token), " %02x", i);
    output += token;
  }
  ASSERT_EQ(300u, output.size());
  env.Script(Run(kGetDeviceIdLine), output);
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  // 256 bytes hold 85 tokens of three characters and one blank.
  ASSERT_EQ(85, record.u16ResponseLength);
  for (int i = 0; i < 85; ++i) EXPECT_EQ(i, record.au8ResponseData[i]);
  EXPECT_NE(std::string::npos,
            Log().find("   fpBuff = " + output.substr(0, 256) + "\n"));
}

TEST_F(LanTest, AtMostHundredTokens) {
  std::string output;
  for (int i = 0; i < 120; ++i) output += " " + std::to_string(i % 10);
  env.Script(Run(kGetDeviceIdLine), output);
  sIPMIReqRespTag record;
  EXPECT_EQ(0, Send(0x06, 0x01, {}, &record));
  ASSERT_EQ(100, record.u16ResponseLength);
  EXPECT_EQ(9, record.au8ResponseData[99]);
}

TEST_F(LanTest, ScriptedBmcThroughTheFakeTool) {
  env.handler = nullptr;
  bmc.ServeIpmitool(&env);
  bmc.On(0x08, 0x02, {0x07}, {BmcAnswer::Reply({0x04, 0x32})});
  unsigned char status = 0, percent = 0;
  bool valid = false;
  EXPECT_EQ(0, GetUpdateStatus(0x07, &status, &percent, &valid));
  EXPECT_EQ(0x04, status);
  EXPECT_TRUE(valid);
  EXPECT_EQ(0x32, percent);
  EXPECT_EQ(std::vector<std::string>{"08 02 07"}, Requests());
}

}  // namespace
}  // namespace ipmi_testing

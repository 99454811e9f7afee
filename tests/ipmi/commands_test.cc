// The firmware update commands: their bytes, titles, decoding and failure
// codes, with and without the retry-limit bit.
#include "ipmi/commands.h"

#include <gtest/gtest.h>

#include <functional>

#include "ipmi_fixture.h"

namespace ipmi_testing {
namespace {

struct Row {
  const char* name;
  std::function<int()> call;
  const char* title;
  uint8_t netfn, cmd;
  std::vector<uint8_t> request;
  int failCode;  // for a result of 1; -1: the result passes through
};

unsigned char g_byte;
unsigned char g_version[8];
unsigned char g_status[2] = {0x11, 0x22};
char g_text[256];
bool g_valid;

std::vector<Row> Rows() {
  return {
      {"FwUpdatePhase1", [] { return FwUpdatePhase1(0x03); },
       "\nFirmware Update Phase 1 Command\n", 0x08, 0x10, {0x03}, 24},
      {"FwUpdatePhase2", [] { return FwUpdatePhase2(); },
       "\nFirmware Update Phase 2 Command\n", 0x08, 0x11, {}, 25},
      {"FwUpdatePhase3", [] { return FwUpdatePhase3(); },
       "\nFirmware Update Phase 3 Command\n", 0x08, 0x21, {}, 26},
      {"USBFwUpdatePhase1", [] { return USBFwUpdatePhase1(0x02); },
       "\nFirmware Update Phase 1 Command\n", 0x08, 0x04, {0x02, 0x00}, 24},
      {"USBFwUpdatePhase2", [] { return USBFwUpdatePhase2(0x02); },
       "\nFirmware Update Phase 2 Command\n", 0x08, 0x04, {0x02, 0x01}, 24},
      {"GetFwUpdateStatus", [] { return GetFwUpdateStatus(&g_byte); },
       "\nGet Firmware Update Status Command\n", 0x08, 0x12, {0x01}, 20},
      {"GetFwImageVersion", [] { return GetFwImageVersion(0, g_version); },
       "\nGet Firmware Version Command\n", 0x08, 0x13, {0x00}, 28},
      {"GetFwImageVersion1", [] { return GetFwImageVersion(1, g_version); },
       "\nGet Firmware Version Command\n", 0x08, 0x13, {0x01}, 28},
      {"SetFwImageStatus", [] { return SetFwImageStatus(g_status); },
       "\nSet Firmware Image Status Command\n", 0x08, 0x16, {0x11, 0x22}, 30},
      {"UpdateFirmware", [] { return UpdateFirmware(0x04, 0x01, &g_byte); },
       "\nUpdate Firmware Command\n", 0x08, 0x01, {0x04, 0x01}, 33},
      {"GetUpdateStatus",
       [] { return GetUpdateStatus(0x09, &g_byte, &g_byte, &g_valid); },
       "\nGet Update Status Command\n", 0x08, 0x02, {0x09}, 34},
      {"GetCurrTaskID", [] { return GetCurrTaskID(&g_byte); },
       "\nGet Task ID\n", 0x08, 0x01, {0xAA, 0x03}, -1},
      {"GetVRXFirmwareVersion", [] { return GetVRXFirmwareVersion(g_text); },
       "\nGet VRX Firmware Version Command\n", 0x08, 0x01, {0xAA, 0x02}, -1},
      {"IBMCGracefulReset", [] { return IBMCGracefulReset(0x01); },
       "\niBMC Graceful Reset Command\n", 0x2E, 0xCC,
       {0x5E, 0x2B, 0x00, 0x06, 0x43, 0x01}, 29},
      {"GetDeviceID", [] { return GetDeviceID(g_version); },
       "\nGet Device ID Command\n", 0x06, 0x01, {}, 31},
      {"ColdReset", [] { return ColdReset(); }, "\nCold Reset Command\n", 0x06,
       0x02, {}, 32},
      {"ChassisHostReset", [] { return ChassisHostReset(); },
       "\n Chassis Host Reset\n", 0x00, 0x02, {0x03}, -1},
      {"ChassisHostResetWithReason", [] { return ChassisHostResetWithReason(); },
       "\n Chassis Host Reset with reason \n", 0x30, 0x21, {0x05}, -1},
      {"SetResetToDef", [] { return SetResetToDef(&g_byte); },
       "\nReset To Default Command\n", 0x30, 0x04, {0xFF}, 58},
      {"GetResetToDefStatus", [] { return GetResetToDefStatus(0x06, &g_byte); },
       "\nGet Reset To Default Status Command\n", 0x30, 0x05, {0x06}, 58},
  };
}

std::string Line(const Row& row) {
  BmcRequest r;
  r.netfn = row.netfn;
  r.cmd = row.cmd;
  r.data = row.request;
  return r.ToString();
}

using CommandsTest = IpmiTest;

TEST_F(CommandsTest, EveryCommandSendsItsBytesUnderItsTitle) {
  for (const Row& row : Rows()) {
    SCOPED_TRACE(row.name);
    bmc.ClearRequests();
    bmc.On(row.netfn, row.cmd,
           {BmcAnswer::Reply({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08})});
    cap.Clear();
    EXPECT_EQ(0, row.call());
    EXPECT_EQ(std::vector<std::string>{Line(row)}, Requests());
    std::string log = Log();
    EXPECT_EQ(0u, log.find(std::string(row.title) +
                           RequestTrace(0x20, row.netfn << 2, row.cmd,
                                        row.request)));
    EXPECT_TRUE(env.sleeps.empty());
  }
}

TEST_F(CommandsTest, RetryLimitAddsTheBitToTheFailCode) {
  for (const Row& row : Rows()) {
    SCOPED_TRACE(row.name);
    bmc.ClearRequests();
    bmc.On(row.netfn, row.cmd, {BmcAnswer::Code(0xC0)});
    int expected = row.failCode < 0 ? RC_RETRY_LIMIT : row.failCode + RC_RETRY_LIMIT;
    EXPECT_EQ(expected, row.call());
    EXPECT_EQ(3u, Requests().size());  // retry count 2 from the settings
  }
}

// A driver whose transport gives up with a code but without the retry
// limit, as the LAN tool's error path does.
class StubDriver : public TKCSDriverAPI {
 public:
  int DoIPMICommand(unsigned char, unsigned char, sIPMIReqRespTag* record,
                    unsigned char, bool* retryLimitReached) override {
    record->u8CompletionCode = cc;
    *retryLimitReached = limit;
    return 1;
  }
  uint8_t cc = 0xC0;
  bool limit = false;
};

class StubbedCommandsTest : public IpmiTest {
 protected:
  void SetUp() override {
    IpmiTest::SetUp();
    UinitKcsDriver();
    stub = new StubDriver();
    G_pKCSDriverAPI = stub;
  }
  StubDriver* stub = nullptr;
};

TEST_F(StubbedCommandsTest, FailCodeWithoutTheRetryBit) {
  for (const Row& row : Rows()) {
    SCOPED_TRACE(row.name);
    int expected = row.failCode < 0 ? 1 : row.failCode;
    EXPECT_EQ(expected, row.call());
  }
}

TEST_F(StubbedCommandsTest, CompletionCodeMapA) {
  struct {
    uint8_t cc;
    int code;
  } map[] = {{0x81, 13}, {0x82, 14}, {0x83, 15}, {0x84, 0}, {0xC0, 0},
             {0x00, 0},  {0xFF, 0}};
  struct {
    std::function<int()> call;
    int defaultCode;
  } phases[] = {{[] { return FwUpdatePhase1(0); }, 24},
                {[] { return FwUpdatePhase2(); }, 25},
                {[] { return FwUpdatePhase3(); }, 26},
                {[] { return USBFwUpdatePhase1(0); }, 24},
                {[] { return USBFwUpdatePhase2(0); }, 24}};
  for (auto& phase : phases) {
    for (auto& m : map) {
      int code = m.code != 0 ? m.code : phase.defaultCode;
      stub->cc = m.cc;
      stub->limit = false;
      EXPECT_EQ(code, phase.call()) << std::hex << int(m.cc);
      stub->limit = true;
      EXPECT_EQ(code + RC_RETRY_LIMIT, phase.call()) << std::hex << int(m.cc);
    }
  }
}

TEST_F(StubbedCommandsTest, CompletionCodeMapB) {
  struct {
    uint8_t cc;
    int code;
  } map[] = {{0x82, 14}, {0x83, 15}, {0x84, 17}, {0x85, 27}, {0x86, 18},
             {0xFF, 19}, {0x81, 20}, {0x87, 20}, {0xC1, 20}, {0x00, 20}};
  for (auto& m : map) {
    unsigned char status = 0x5A;
    stub->cc = m.cc;
    stub->limit = false;
    EXPECT_EQ(m.code, GetFwUpdateStatus(&status)) << std::hex << int(m.cc);
    stub->limit = true;
    EXPECT_EQ(m.code + RC_RETRY_LIMIT, GetFwUpdateStatus(&status)) << std::hex << int(m.cc);
    EXPECT_EQ(0x5A, status);
  }
}

TEST_F(CommandsTest, Phase2ExhaustedWithInsufficientMemory) {
  bmc.On(0x08, 0x11, {BmcAnswer::Code(0x82)});
  EXPECT_EQ(270, FwUpdatePhase2());
  EXPECT_EQ(3u, Requests().size());
}

TEST_F(CommandsTest, StatusWithCode81IsUpdateFailedNotInProgress) {
  bmc.On(0x08, 0x12, {BmcAnswer::Code(0x81)});
  unsigned char status = 0;
  EXPECT_EQ(RC_FW_UPDATE_FAILED + RC_RETRY_LIMIT, GetFwUpdateStatus(&status));
  bmc.On(0x08, 0x10, {BmcAnswer::Code(0x81)});
  EXPECT_EQ(RC_UPDATE_IN_PROGRESS + RC_RETRY_LIMIT, FwUpdatePhase1(0));
}

TEST_F(CommandsTest, RetryCountComesFromTheSettings) {
  Settings().u8IPMICommandRetry = 5;
  bmc.On(0x06, 0x02, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(RC_COLD_RESET_FAILED + RC_RETRY_LIMIT, ColdReset());
  EXPECT_EQ(6u, Requests().size());
  EXPECT_EQ(std::vector<unsigned>(6, 1000), env.sleeps);
  Settings().u8IPMICommandRetry = 0;
  bmc.ClearRequests();
  EXPECT_EQ(RC_COLD_RESET_FAILED + RC_RETRY_LIMIT, ColdReset());
  EXPECT_EQ(1u, Requests().size());
}

TEST_F(CommandsTest, ExpectedCodeIsResetToZeroForEveryCommand) {
  // The extended configuration commands accept 0x01; the next command
  // must not inherit that.
  unsigned char value = 0;
  EXPECT_EQ(0, GetRemoteUpdateEnableConfig(&value));
  bmc.On(0x08, 0x11, {BmcAnswer::Code(0x01)});
  EXPECT_EQ(RC_PHASE2_FAILED + RC_RETRY_LIMIT, FwUpdatePhase2());
}

TEST_F(CommandsTest, GetFwUpdateStatusReadsByteZero) {
  bmc.On(0x08, 0x12, {BmcAnswer::Reply({0x42, 0x99})});
  unsigned char status = 0;
  EXPECT_EQ(0, GetFwUpdateStatus(&status));
  EXPECT_EQ(0x42, status);
}

TEST_F(CommandsTest, GetFwImageVersionCopiesFourOrEightBytes) {
  bmc.On(0x08, 0x13, {0x00}, {BmcAnswer::Reply({1, 2, 3, 4, 5})});
  bmc.On(0x08, 0x13, {0x01}, {BmcAnswer::Reply({1, 2, 3, 4, 5, 6, 7, 8, 9})});
  unsigned char version[9];
  memset(version, 0xEE, sizeof(version));
  EXPECT_EQ(0, GetFwImageVersion(0, version));
  EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 0xEE}),
            std::vector<uint8_t>(version, version + 5));
  memset(version, 0xEE, sizeof(version));
  EXPECT_EQ(0, GetFwImageVersion(1, version));
  EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 0xEE}),
            std::vector<uint8_t>(version, version + 9));
}

TEST_F(CommandsTest, GetFwImageVersionShortResponse) {
  bmc.On(0x08, 0x13, {0x01}, {BmcAnswer::Reply({1, 2, 3, 4, 5, 6})});
  bmc.On(0x08, 0x13, {0x00}, {BmcAnswer::Reply({1, 2, 3})});
  unsigned char version[8];
  memset(version, 0xEE, sizeof(version));
  EXPECT_EQ(28, GetFwImageVersion(1, version));
  EXPECT_NE(std::string::npos,
            Log().find(ResponseTrace(0, {1, 2, 3, 4, 5, 6}) +
                       "   Response data length is less than 8\n"));
  EXPECT_EQ(28, GetFwImageVersion(0, version));
  EXPECT_NE(std::string::npos,
            Log().find("   Response data length is less than 4\n"));
  EXPECT_EQ(std::vector<uint8_t>(8, 0xEE),
            std::vector<uint8_t>(version, version + 8));
  EXPECT_EQ(2u, Requests().size());  // a short answer is not retried
}

TEST_F(CommandsTest, UpdateFirmwareGivesTheTaskId) {
  bmc.On(0x08, 0x01, {0x04}, {BmcAnswer::Reply({0x07})});
  unsigned char task = 0;
  EXPECT_EQ(0, UpdateFirmware(0x04, 0x00, &task));
  EXPECT_EQ(0x07, task);
  EXPECT_EQ(std::vector<std::string>{"08 01 04 00"}, Requests());
}

TEST_F(CommandsTest, GetUpdateStatusWithPercent) {
  bmc.On(0x08, 0x02, {BmcAnswer::Reply({0x03, 0x3C})});
  unsigned char status = 0, percent = 0;
  bool valid = false;
  EXPECT_EQ(0, GetUpdateStatus(0x01, &status, &percent, &valid));
  EXPECT_EQ(0x03, status);
  EXPECT_EQ(0x3C, percent);
  EXPECT_TRUE(valid);
}

TEST_F(CommandsTest, GetUpdateStatusOneByteLeavesPercentAlone) {
  bmc.On(0x08, 0x02, {BmcAnswer::Reply({0x04})});
  unsigned char status = 0, percent = 0x99;
  bool valid = false;
  EXPECT_EQ(0, GetUpdateStatus(0x01, &status, &percent, &valid));
  EXPECT_EQ(0x04, status);
  EXPECT_EQ(0x99, percent);
  EXPECT_FALSE(valid);
}

TEST_F(CommandsTest, GetUpdateStatusThreeBytesIgnoresPercent) {
  bmc.On(0x08, 0x02, {BmcAnswer::Reply({0x02, 0x10, 0x20})});
  unsigned char status = 0, percent = 0x99;
  bool valid = false;
  EXPECT_EQ(0, GetUpdateStatus(0x01, &status, &percent, &valid));
  EXPECT_EQ(0x02, status);
  EXPECT_FALSE(valid);
}

TEST_F(CommandsTest, GetUpdateStatusFailureWritesNothing) {
  bmc.On(0x08, 0x02, {BmcAnswer::Code(0xC0)});
  unsigned char status = 0x77, percent = 0x99;
  bool valid = false;
  EXPECT_EQ(RC_GET_UPDATE_STATUS_FAILED + RC_RETRY_LIMIT, GetUpdateStatus(0x01, &status, &percent, &valid));
  EXPECT_EQ(0x77, status);
  EXPECT_EQ(0x99, percent);
  EXPECT_FALSE(valid);
}

TEST_F(CommandsTest, GetCurrTaskID) {
  bmc.On(0x08, 0x01, {0xAA, 0x03}, {BmcAnswer::Reply({0x0B})});
  unsigned char id = 0;
  EXPECT_EQ(0, GetCurrTaskID(&id));
  EXPECT_EQ(0x0B, id);
}

TEST_F(CommandsTest, GetVRXFirmwareVersionCopiesTheCountedText) {
  std::string text = "2.10.0042";
  std::vector<uint8_t> data = {static_cast<uint8_t>(text.size())};
  data.insert(data.end(), text.begin(), text.end());
  bmc.On(0x08, 0x01, {0xAA, 0x02}, {BmcAnswer::Reply(data)});
  char out[256];
  memset(out, 'x', sizeof(out));
  EXPECT_EQ(0, GetVRXFirmwareVersion(out));
  EXPECT_STREQ("2.10.0042", out);
}

TEST_F(CommandsTest, GetVRXFirmwareVersionEmptyTextClearsFourBytes) {
  bmc.On(0x08, 0x01, {0xAA, 0x02}, {BmcAnswer::Reply({0x00})});
  char out[256];
  memset(out, 'x', sizeof(out));
  EXPECT_EQ(0, GetVRXFirmwareVersion(out));
  EXPECT_EQ(std::string(4, '\0'), std::string(out, 4));
  EXPECT_EQ('x', out[4]);
}

TEST_F(CommandsTest, GetVRXFirmwareVersionCountBeyondTheAnswer) {
  // A count byte of 255 with three characters: only what arrived is copied.
  bmc.On(0x08, 0x01, {0xAA, 0x02}, {BmcAnswer::Reply({0xFF, 'a', 'b', 'c'})});
  char out[256];
  memset(out, 'x', sizeof(out));
  EXPECT_EQ(0, GetVRXFirmwareVersion(out));
  EXPECT_STREQ("abc", out);
}

TEST_F(CommandsTest, GetVRXFirmwareVersionFullRecordStaysInside) {
  std::vector<uint8_t> data(128, 'v');
  data[0] = 0xFF;
  bmc.On(0x08, 0x01, {0xAA, 0x02}, {BmcAnswer::Reply(data)});
  char out[256];
  memset(out, 'x', sizeof(out));
  EXPECT_EQ(0, GetVRXFirmwareVersion(out));
  EXPECT_EQ(std::string(127, 'v'), std::string(out));
}

TEST_F(CommandsTest, GetVRXFirmwareVersionFailureLeavesTheBuffer) {
  bmc.On(0x08, 0x01, {0xAA, 0x02}, {BmcAnswer::Code(0xC1)});
  char out[8] = "keep";
  EXPECT_EQ(RC_RETRY_LIMIT, GetVRXFirmwareVersion(out));
  EXPECT_STREQ("keep", out);
}

TEST_F(CommandsTest, GracefulResetMessages) {
  bmc.On(0x2E, 0xCC, {BmcAnswer::Reply({0x5E, 0x2B, 0x00})});
  EXPECT_EQ(0, IBMCGracefulReset(0x02));
  EXPECT_NE(std::string::npos, Log().find("   iBMC Graceful Reset OK\n"));
  EXPECT_EQ("", cap.Out());
  cap.Clear();
  bmc.On(0x2E, 0xCC, {0x5E}, {BmcAnswer::Code(0xD5)});
  EXPECT_EQ(RC_IBMC_RESET_FAILED + RC_RETRY_LIMIT, IBMCGracefulReset(0x02));
  EXPECT_EQ("   iBMC Graceful Reset Failed\n", cap.Out());
  EXPECT_NE(std::string::npos, Log().find("   iBMC Graceful Reset Failed\n"));
  EXPECT_EQ(std::string::npos, Log().find("Reset OK"));
}

TEST_F(CommandsTest, GetDeviceIDDecodesMajorAndMinor) {
  bmc.SetDeviceId({0x20, 0x01, 0x81, 0x23, 0x02});
  unsigned char revision[2] = {0, 0};
  EXPECT_EQ(0, GetDeviceID(revision));
  EXPECT_EQ(0x01, revision[0]);
  EXPECT_EQ(0x23, revision[1]);
}

TEST_F(CommandsTest, GetDeviceIDFailureLeavesTheRevision) {
  bmc.On(0x06, 0x01, {BmcAnswer::Silent()});
  unsigned char revision[2] = {7, 7};
  EXPECT_EQ(RC_GET_DEVICE_ID_FAILED + RC_RETRY_LIMIT, GetDeviceID(revision));
  EXPECT_EQ(7, revision[0]);
}

TEST_F(CommandsTest, ColdResetTracesOk) {
  EXPECT_EQ(0, ColdReset());
  EXPECT_EQ(Exchange("\nCold Reset Command\n", 0x06, 0x02, {}, 0, {}) +
                "   Cold Reset OK\n",
            Log());
}

TEST_F(CommandsTest, ResetToDefault) {
  bmc.On(0x30, 0x04, {BmcAnswer::Reply({0x0C})});
  bmc.On(0x30, 0x05, {0x0C}, {BmcAnswer::Reply({0x01})});
  unsigned char task = 0, status = 0;
  EXPECT_EQ(0, SetResetToDef(&task));
  EXPECT_EQ(0x0C, task);
  EXPECT_EQ(0, GetResetToDefStatus(task, &status));
  EXPECT_EQ(0x01, status);
  bmc.On(0x30, 0x05, {0x0D}, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(314, GetResetToDefStatus(0x0D, &status));
}

TEST_F(CommandsTest, ChassisResetsPassTheResult) {
  EXPECT_EQ(0, ChassisHostReset());
  bmc.On(0x30, 0x21, {BmcAnswer::Reply({})});
  EXPECT_EQ(0, ChassisHostResetWithReason());
  EXPECT_EQ((std::vector<std::string>{"00 02 03", "30 21 05"}), Requests());
}

TEST_F(CommandsTest, WholeTraceOfOneCommand) {
  bmc.On(0x08, 0x12, {BmcAnswer::Reply({0x05})});
  unsigned char status = 0;
  EXPECT_EQ(0, GetFwUpdateStatus(&status));
  EXPECT_EQ(Exchange("\nGet Firmware Update Status Command\n", 0x08, 0x12,
                     {0x01}, 0x00, {0x05}),
            Log());
}

}  // namespace
}  // namespace ipmi_testing

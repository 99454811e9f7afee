// The scripted BMC itself: its script format, its model, its persisted
// state, and that its ipmitool front end prints what the real tool printed
// in the recordings.
#include "support/scripted_bmc.h"

#include <gtest/gtest.h>

#include "support/capture.h"

namespace {

using testing_support::BmcAnswer;
using testing_support::BmcRequest;
using testing_support::ScriptedBmc;

std::string Recording(const std::string& name) {
  return testing_support::ReadFile(std::string(VRX_IPMI_RECORDINGS) + "/" +
                                   name + ".txt");
}

BmcRequest Req(uint8_t netfn, uint8_t cmd, std::vector<uint8_t> data = {}) {
  BmcRequest r;
  r.netfn = netfn;
  r.cmd = cmd;
  r.data = std::move(data);
  return r;
}

// Exit code and merged output of one ipmitool run.
std::string Tool(ScriptedBmc* bmc, const std::vector<std::string>& args,
                 int* code = nullptr) {
  std::string out, err;
  int rc = bmc->RunIpmitool(args, &out, &err);
  if (code != nullptr) *code = rc;
  return err + out;
}

std::vector<std::string> Raw(const std::vector<std::string>& bytes,
                             const char* interface = "lanplus") {
  std::vector<std::string> args = {"-I", interface, "-C", "3", "-U", "admin",
                                   "-P", "secret", "-H", "127.0.0.1", "raw"};
  args.insert(args.end(), bytes.begin(), bytes.end());
  return args;
}

TEST(ScriptedBmcScript, RulesQueueAndRepeatTheLast) {
  ScriptedBmc bmc;
  std::string error;
  ASSERT_TRUE(bmc.Load("# status of task 7\n"
                       "08 02 07 = 00 04 | 00 03 | 0x00 0x02 | 00 ff\n",
                       &error))
      << error;
  std::vector<uint8_t> seen;
  for (int i = 0; i < 6; ++i) seen.push_back(bmc.Handle(Req(8, 2, {7})).data[0]);
  EXPECT_EQ((std::vector<uint8_t>{4, 3, 2, 0xff, 0xff, 0xff}), seen);
  EXPECT_EQ(0xC1, bmc.Handle(Req(8, 2, {8})).completion_code);
  std::vector<std::string> lines = bmc.RequestLines();
  lines.resize(6);
  EXPECT_EQ(std::vector<std::string>(6, "08 02 07"), lines);
}

TEST(ScriptedBmcScript, AnswerKindsAndRepeatCounts) {
  ScriptedBmc bmc;
  std::string error;
  ASSERT_TRUE(bmc.Load("06 01 = silent*2 | fail 4 | c0 | model\n", &error))
      << error;
  EXPECT_EQ(BmcAnswer::kNoAnswer, bmc.Handle(Req(6, 1)).kind);
  EXPECT_EQ(BmcAnswer::kNoAnswer, bmc.Handle(Req(6, 1)).kind);
  BmcAnswer failure = bmc.Handle(Req(6, 1));
  EXPECT_EQ(BmcAnswer::kTransportFailure, failure.kind);
  EXPECT_EQ(4, failure.status);
  EXPECT_EQ(BmcAnswer::Code(0xC0), bmc.Handle(Req(6, 1)));
  BmcAnswer model = bmc.Handle(Req(6, 1));
  EXPECT_EQ(BmcAnswer::kReply, model.kind);
  EXPECT_EQ(15u, model.data.size());
}

TEST(ScriptedBmcScript, LongestPrefixWinsAndLinesAppend) {
  ScriptedBmc bmc;
  std::string error;
  ASSERT_TRUE(bmc.Load("08 01 = 00 01\n"
                       "08 01 aa 02 = 00 05 41\n"
                       "08 01 = 00 02\n",
                       &error))
      << error;
  EXPECT_EQ(std::vector<uint8_t>{1}, bmc.Handle(Req(8, 1, {4, 0})).data);
  EXPECT_EQ((std::vector<uint8_t>{5, 0x41}),
            bmc.Handle(Req(8, 1, {0xAA, 2})).data);
  EXPECT_EQ(std::vector<uint8_t>{2}, bmc.Handle(Req(8, 1, {0xAA, 3})).data);
}

TEST(ScriptedBmcScript, DeviceIdFirmwareAndFru) {
  ScriptedBmc bmc;
  std::string error;
  ASSERT_TRUE(bmc.Load("firmware 03 25\nfru-product Other\n", &error)) << error;
  std::vector<uint8_t> id = bmc.Handle(Req(6, 1)).data;
  EXPECT_EQ(0x03, id[2]);
  EXPECT_EQ(0x25, id[3]);
  std::vector<uint8_t> fru = ScriptedBmc::MakeFru("Other");
  BmcAnswer head = bmc.Handle(Req(0x0A, 0x11, {0, 0, 0, 8}));
  EXPECT_EQ(8, head.data[0]);
  EXPECT_EQ(std::vector<uint8_t>(fru.begin(), fru.begin() + 8),
            std::vector<uint8_t>(head.data.begin() + 1, head.data.end()));
  ASSERT_TRUE(bmc.Load("device-id 20 01 81 23\nfru 01 02\nfru 03\n", &error));
  EXPECT_EQ((std::vector<uint8_t>{0x20, 0x01, 0x81, 0x23}),
            bmc.Handle(Req(6, 1)).data);
  EXPECT_EQ((std::vector<uint8_t>{3, 1, 2, 3}),
            bmc.Handle(Req(0x0A, 0x11, {0, 0, 0, 8})).data);
  EXPECT_EQ((std::vector<uint8_t>{3, 0, 0}),
            bmc.Handle(Req(0x0A, 0x10, {0})).data);
}

TEST(ScriptedBmcScript, ConfigItemsAndOpenFails) {
  ScriptedBmc bmc;
  std::string error;
  ASSERT_TRUE(bmc.Load("config 10 03 00 = 03 61 62 63\nopen-fails\n", &error))
      << error;
  EXPECT_TRUE(bmc.open_fails);
  EXPECT_EQ((std::vector<uint8_t>{3, 'a', 'b', 'c'}), bmc.ConfigItem(0x10, 3, 0));
}

TEST(ScriptedBmcScript, DownAfterColdReset) {
  ScriptedBmc bmc;
  std::string error;
  ASSERT_TRUE(bmc.Load("down-after 06 02 3\n", &error)) << error;
  EXPECT_EQ(BmcAnswer::kReply, bmc.Handle(Req(6, 1)).kind);
  EXPECT_EQ(BmcAnswer::Code(0), bmc.Handle(Req(6, 2)));
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(BmcAnswer::kNoAnswer, bmc.Handle(Req(6, 1)).kind) << i;
  EXPECT_EQ(BmcAnswer::kReply, bmc.Handle(Req(6, 1)).kind);
}

TEST(ScriptedBmcScript, ErrorsNameTheLine) {
  ScriptedBmc bmc;
  std::string error;
  EXPECT_FALSE(bmc.Load("06 01 = 00\n06 01 zz = 00\n", &error));
  EXPECT_EQ("line 2: not a hex byte: zz", error);
  EXPECT_FALSE(bmc.Load("06 = 00\n", &error));
  EXPECT_FALSE(bmc.Load("06 01 00\n", &error));
  EXPECT_FALSE(bmc.Load("06 01 = fail\n", &error));
  EXPECT_FALSE(bmc.Load("06 01 = 00*0\n", &error));
  EXPECT_FALSE(bmc.Load("firmware 01\n", &error));
  EXPECT_FALSE(bmc.LoadFile("/nonexistent/script", &error));
}

TEST(ScriptedBmcModel, ExtendedConfigurationEchoesWrites) {
  ScriptedBmc bmc;
  uint8_t res = bmc.Handle(Req(0x30, 0x01)).data[0];
  EXPECT_EQ(std::vector<uint8_t>{3},
            bmc.Handle(Req(0x30, 0x03, {res, 0x10, 3, 0, 0, 0, 0, 2, 'a', 'b'}))
                .data);
  EXPECT_EQ(std::vector<uint8_t>{1},
            bmc.Handle(Req(0x30, 0x03, {res, 0x10, 3, 0, 3, 0, 1, 'c'})).data);
  EXPECT_EQ((std::vector<uint8_t>{0x10, 3, 0, 3, 'a', 'b', 'c'}),
            bmc.Handle(Req(0x30, 0x02, {res, 0x10, 3, 0, 1, 0, 10})).data);
  // A stale reservation is refused.
  EXPECT_EQ(BmcAnswer::Code(0xC5),
            bmc.Handle(Req(0x30, 0x02, {static_cast<uint8_t>(res + 1), 0x10, 3, 0, 1, 0, 10})));
  EXPECT_EQ(BmcAnswer::Code(0xCB),
            bmc.Handle(Req(0x30, 0x02, {res, 0x10, 9, 0, 0, 0, 1})));
  EXPECT_EQ(BmcAnswer::Code(0xC7), bmc.Handle(Req(0x30, 0x02, {res})));
}

TEST(ScriptedBmcModel, HandlerComesFirst) {
  ScriptedBmc bmc;
  int polls = 0;
  bmc.handler = [&polls](const BmcRequest& r, BmcAnswer* a) {
    if (r.netfn != 0x08 || r.cmd != 0x02) return false;
    *a = BmcAnswer::Reply({static_cast<uint8_t>(++polls < 3 ? 0x04 : 0x02)});
    return true;
  };
  bmc.On(0x08, 0x02, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(std::vector<uint8_t>{4}, bmc.Handle(Req(8, 2, {1})).data);
  EXPECT_EQ(std::vector<uint8_t>{4}, bmc.Handle(Req(8, 2, {1})).data);
  EXPECT_EQ(std::vector<uint8_t>{2}, bmc.Handle(Req(8, 2, {1})).data);
  EXPECT_EQ(15u, bmc.Handle(Req(6, 1)).data.size());
}

TEST(ScriptedBmcState, RoundTrip) {
  const char kScript[] =
      "08 02 07 = 00 04 | 00 03 | 00 02\ndown-after 06 02 2\n";
  ScriptedBmc first;
  ASSERT_TRUE(first.Load(kScript, nullptr));
  first.Handle(Req(8, 2, {7}));
  first.Handle(Req(6, 2));
  EXPECT_EQ(BmcAnswer::kNoAnswer, first.Handle(Req(0x30, 0x01)).kind);
  EXPECT_EQ(BmcAnswer::kNoAnswer, first.Handle(Req(0x30, 0x01)).kind);
  uint8_t res = first.Handle(Req(0x30, 0x01)).data.at(0);
  first.Handle(Req(0x30, 0x03, {res, 0x10, 1, 0, 0, 0, 1, 0x09}));
  std::string state = first.SaveState();

  ScriptedBmc second;
  ASSERT_TRUE(second.Load(kScript, nullptr));
  ASSERT_TRUE(second.LoadState(state));
  EXPECT_EQ(std::vector<uint8_t>{3}, second.Handle(Req(8, 2, {7})).data);
  EXPECT_EQ(std::vector<uint8_t>{9}, second.ConfigItem(0x10, 1, 0));
  EXPECT_EQ((std::vector<uint8_t>{0x10, 1, 0, 1, 9}),
            second.Handle(Req(0x30, 0x02, {res, 0x10, 1, 0, 0, 0, 1})).data);
}

TEST(ScriptedBmcTool, PrintsLikeTheRecordedTool) {
  ScriptedBmc bmc;
  bmc.SetDeviceId({0x20, 0x01, 0x01, 0x02, 0x02, 0x9f, 0x91, 0x12, 0x00, 0x02,
                   0x0f, 0x00, 0x00, 0x00, 0x00});
  bmc.On(0x06, 0x46, {BmcAnswer::Reply({0x61, 0x64, 0x6d, 0x69, 0x6e, 0, 0, 0,
                                        0, 0, 0, 0, 0, 0, 0, 0})});
  bmc.On(0x06, 0x54, {BmcAnswer::Reply({0x01, 0xc0, 0x00, 0x00, 0x40, 0x80,
                                        0xc0, 0x01, 0x01, 0x40, 0x80, 0xc0,
                                        0x02, 0x01, 0x41, 0x80, 0xc0})});
  bmc.On(0x06, 0x22, {BmcAnswer::Code(0x80), BmcAnswer::Reply({})});
  bmc.On(0x08, 0x02, {BmcAnswer::Code(0xC1)});
  bmc.On(0x00, 0x02, {BmcAnswer::Code(0xCC)});
  int code = -1;
  EXPECT_EQ(Recording("get_device_id_lanplus"),
            Tool(&bmc, Raw({"0x06", "0x01"}), &code));
  EXPECT_EQ(0, code);
  EXPECT_EQ(Recording("get_device_id_lan"),
            Tool(&bmc, {"-I", "lan", "-U", "admin", "-P", "secret", "-H",
                        "127.0.0.1", "raw", "0x06", "0x01"}));
  EXPECT_EQ(Recording("user_name_16_bytes"),
            Tool(&bmc, Raw({"0x06", "0x46", "0x02"})));
  EXPECT_EQ(Recording("cipher_suites_17_bytes"),
            Tool(&bmc, Raw({"0x06", "0x54", "0x0e", "0x00", "0x80"})));
  EXPECT_EQ(Recording("unknown_completion_code"),
            Tool(&bmc, Raw({"0x06", "0x22"}), &code));
  EXPECT_EQ(1, code);
  EXPECT_EQ(Recording("reset_watchdog_no_data"),
            Tool(&bmc, Raw({"0x06", "0x22"}), &code));
  EXPECT_EQ(0, code);
  EXPECT_EQ(Recording("invalid_command"),
            Tool(&bmc, Raw({"0x08", "0x02", "0x01"}), &code));
  EXPECT_EQ(1, code);
  EXPECT_EQ(Recording("invalid_data_field"),
            Tool(&bmc, Raw({"0x00", "0x02", "0x03"})));
}

TEST(ScriptedBmcTool, SessionFailuresLikeTheRecordedTool) {
  ScriptedBmc bmc;
  bmc.On(0x06, 0x01, {BmcAnswer::Failure(1)});
  int code = -1;
  EXPECT_EQ(Recording("unreachable_lanplus"),
            Tool(&bmc, Raw({"0x06", "0x01"}), &code));
  EXPECT_EQ(1, code);
  EXPECT_EQ(Recording("unreachable_lan"),
            Tool(&bmc, Raw({"0x06", "0x01"}, "lan")));
}

TEST(ScriptedBmcTool, NoAnswerText) {
  ScriptedBmc bmc;
  bmc.On(0x08, 0x02, {BmcAnswer::Silent()});
  EXPECT_EQ("Unable to send RAW command (channel=0x0 netfn=0x8 lun=0x0 cmd=0x2)\n",
            Tool(&bmc, Raw({"8", "2", "1"})));
  EXPECT_EQ("08 02 01", bmc.RequestLines().back());
}

TEST(ScriptedBmcTool, UnknownCodeTextIsUpperCaseHex) {
  ScriptedBmc bmc;
  bmc.On(0x08, 0x10, {BmcAnswer::Code(0x8A)});
  EXPECT_EQ("Unable to send RAW command (channel=0x0 netfn=0x8 lun=0x0 cmd=0x10 "
            "rsp=0x8a): Unknown (0x8A)\n",
            Tool(&bmc, Raw({"0x08", "0x10", "0x00"})));
}

TEST(ScriptedBmcTool, BadCommandLines) {
  ScriptedBmc bmc;
  int code = 0;
  Tool(&bmc, {"-I", "lanplus", "-H", "x", "raw", "0x06"}, &code);
  EXPECT_EQ(1, code);
  Tool(&bmc, {"-I", "lanplus", "-H", "x", "raw", "0x06", "0x100"}, &code);
  EXPECT_EQ(1, code);
  Tool(&bmc, {"-I", "lanplus", "-H", "x", "mc", "info"}, &code);
  EXPECT_EQ(1, code);
  Tool(&bmc, {"raw", "6", "1"}, &code);  // no host: the local device
  EXPECT_EQ(1, code);
  EXPECT_TRUE(bmc.requests().empty());
}

TEST(ScriptedBmcTool, ShellCommandLine) {
  ScriptedBmc bmc;
  std::string output;
  int status = 0;
  EXPECT_TRUE(bmc.AnswerIpmitoolCommandLine(
      "ipmitool -I lanplus -U 'a b' -P 'it'\\''s' -H h raw 0x06 0x01  2>&1",
      &output, &status));
  EXPECT_EQ(0, status);
  EXPECT_EQ(" 20 01 02 10 02 9f 5e 2b 00 01 0f 00 00 00 00\n", output);
  EXPECT_FALSE(bmc.AnswerIpmitoolCommandLine("/sbin/fdisk -l", &output, &status));
  bmc.On(0x06, 0x02, {BmcAnswer::Code(0xC0)});
  EXPECT_TRUE(bmc.AnswerIpmitoolCommandLine(
      "/usr/bin/ipmitool -H h raw 6 2 2>&1", &output, &status));
  EXPECT_EQ(1 << 8, status);
}

}  // namespace

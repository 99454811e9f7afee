// The remote update: the configuration steps with their read-back, the
// counted URI in its three length ranges, the optional settings, and the
// whole procedure against the scripted BMC's configuration store.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>

#include "driver/driver.h"
#include "driver/options.h"
#include "ipmi/ipmi_exec.h"
#include "output/update_package.h"
#include "update/firmware_update.h"
#include "update_fixture.h"

namespace update_testing {
namespace {

std::string H(unsigned v) {
  char buf[4];
  snprintf(buf, sizeof(buf), "%02x", v & 0xFF);
  return buf;
}

// The request lines that the configuration commands send, with the
// reservation numbers that the scripted BMC hands out (1, 2, ...).
class ConfigRequests {
 public:
  std::vector<std::string> lines;
  void SetByte(uint8_t aid, uint8_t value) {
    Reserve();
    lines.push_back("30 03 " + H(r_) + " 10 " + H(aid) + " 00 00 00 01 " + H(value));
  }
  void GetByte(uint8_t aid) {
    Reserve();
    lines.push_back("30 02 " + H(r_) + " 10 " + H(aid) + " 00 00 00 01");
  }
  void AssignByte(uint8_t aid, uint8_t value) {
    SetByte(aid, value);
    GetByte(aid);
  }
  // Writes of the counted URI in chunks of 10, length byte included.
  void SetURI(const std::string& uri) {
    Reserve();
    std::string counted(1, static_cast<char>(uri.size()));
    counted += uri;
    counted.resize(256, '\0');  // the 256-byte buffer, zero-filled
    const unsigned total = static_cast<uint16_t>(static_cast<int8_t>(counted[0]) + 1);
    for (unsigned done = 0; done < total;) {
      unsigned chunk = done + 10 >= total ? total - done : 10;
      if (done + chunk > 256) break;
      std::string line = "30 03 " + H(r_) + " 10 03 00 " + H(done) + " " + H(done >> 8) +
                         " " + H(done + chunk >= total ? 1 : 0);
      for (unsigned i = 0; i < chunk; ++i) line += " " + H(static_cast<uint8_t>(counted[done + i]));
      lines.push_back(line);
      done += chunk;
    }
  }
  void GetURI(unsigned stored) {
    Reserve();
    lines.push_back("30 02 " + H(r_) + " 10 03 00 00 00 01");
    for (unsigned done = 0; done < stored;) {
      unsigned chunk = done + 10 >= stored ? stored - done : 10;
      lines.push_back("30 02 " + H(r_) + " 10 03 00 " + H(done + 1) + " " +
                      H((done + 1) >> 8) + " " + H(chunk));
      done += chunk;
    }
  }
  void Add(const std::string& line) { lines.push_back(line); }

 private:
  void Reserve() {
    r_ = r_ == 255 ? 1 : r_ + 1;
    lines.push_back("30 01");
  }
  unsigned r_ = 0;
};

const std::string kEnableSpin = "  Remote Update Enable ...";
const std::string kUriSpin = "  Assign Remote Update URI ...";

class RemoteUpdateTest : public UpdateTest {
 protected:
  void SetUp() override {
    UpdateTest::SetUp();
    Fu().SetURI(kUri.c_str());
    // The network update task and its status.
    bmc.On(0x08, 0x01, {0x01}, {BmcAnswer::Reply({0x05})});
    bmc.On(0x08, 0x02, {0x05}, {BmcAnswer::Reply({0xFF})});
  }
  TFirmwareUpdate& Fu() { return *G_pFirmwareUpdate; }
  void ApplySettings() { Fu().SetFwUpdateSettings(&Settings()); }
  std::string Counted(const std::string& uri) {
    std::string c(256, '\0');
    c[0] = static_cast<char>(uri.size());
    c.replace(1, uri.size(), uri);
    return c;
  }
  // The first `times` Gets of this AID (every one by default) answer
  // `value` instead of the stored one.
  void ReadBackOf(uint8_t aid, uint8_t value, int times = -1) {
    bmc.handler = [aid, value, times](const BmcRequest& r, BmcAnswer* a) mutable {
      if (r.netfn != 0x30 || r.cmd != 0x02 || r.data.size() < 7 || r.data[2] != aid)
        return false;
      if (times == 0) return false;
      if (times > 0) --times;
      *a = BmcAnswer::Reply({0x10, aid, 0x00, 0x01, value}, 0x00);
      return true;
    };
  }
  const std::string kUri = "http://fw.example/images/bmc-2.10.bin";
};

TEST_F(RemoteUpdateTest, WholeProcedureWithoutOptionsSendsOnlyEnableAndURI) {
  sBMCInformationTag bmcInfo{};
  snprintf(bmcInfo.achPlatformName, sizeof(bmcInfo.achPlatformName), "Stratovex");
  EXPECT_EQ(0, Fu().DoRemoteFwUpdate(&bmcInfo));

  ConfigRequests expected;
  expected.AssignByte(0x01, 1);
  expected.SetURI(kUri);
  expected.GetURI(static_cast<unsigned>(kUri.size()));
  expected.Add("08 01 01 80");
  expected.Add("08 02 05");
  EXPECT_EQ(expected.lines, Requests());

  EXPECT_EQ(kClearLine + "\n" + Spin(32767, kEnableSpin) + kClearLine +
                "\r   Remote Update Enable OK\n" + Spin(32767, kUriSpin) + kClearLine +
                "\r   Assign Remote Update URI OK\n" + "\n   Get Firmware Update Status " +
                kClearLine + "\r   Firmware Update Status: Completed" + "\n" +
                "   Firmware Update Successfully\n",
            Out());
  EXPECT_EQ("", Err());
  const std::string counted = std::string(1, static_cast<char>(kUri.size())) + kUri;
  EXPECT_TRUE(InOrder(Log(), {"\n   Remote Update Enable : ", "\n",
                              "   Start checking whether remote update is enabled at " + At(start),
                              "   Stop checking whether remote update is enabled at " + At(start + 1),
                              "   Elapsed time =  1 seconds\n", "   Remote Update Enable OK\n",
                              "\n   Assign Remote Update URI : ",
                              "pai8SetBuffer = " + counted + "\n",
                              "pai8SetBuffer = " + counted + "\n",
                              "   Assign Remote Update URI OK\n", "\n   Update Firmware : ",
                              "\n   Get Firmware Update Status ",
                              "   Firmware Update Successfully\n"}));
  EXPECT_EQ(2, Clock());
}

TEST_F(RemoteUpdateTest, OptionsAddTheirStepsAndClearTheirFlags) {
  Settings().u8ConnectionRetry = 3;
  Settings().u8ConnectionRetryInterval = 2;
  Settings().u8DelayTime = 30;
  G_RetryCountFlag = 1;
  G_RetryIntervalFlag = 1;
  G_DelayTimeFlag = 1;
  sBMCInformationTag bmcInfo{};
  EXPECT_EQ(0, Fu().DoRemoteFwUpdate(&bmcInfo));
  ConfigRequests expected;
  expected.AssignByte(0x01, 1);
  expected.SetURI(kUri);
  expected.GetURI(static_cast<unsigned>(kUri.size()));
  expected.AssignByte(0x04, 3);
  expected.AssignByte(0x05, 2);
  expected.AssignByte(0x06, 30);
  expected.Add("08 01 01 80");
  expected.Add("08 02 05");
  EXPECT_EQ(expected.lines, Requests());
  EXPECT_EQ(0, G_RetryCountFlag);
  EXPECT_EQ(0, G_RetryIntervalFlag);
  EXPECT_EQ(0, G_DelayTimeFlag);
  EXPECT_TRUE(InOrder(Out(), {"\r   Assign Remote Update URI OK\n",
                              Spin(32767, "  Assign Connection Retry ...") + kClearLine +
                                  "\r   Assign Connection Retry OK\n",
                              Spin(32767, "  Assign Connection Retry Interval ...") +
                                  kClearLine + "\r   Assign Connection Retry Interval OK\n",
                              Spin(32767, "  Assign Remote Update Delay Time ...") +
                                  kClearLine + "\r   Assign Remote Update Delay Time OK\n"}));
}

TEST_F(RemoteUpdateTest, OnlyTheIntervalOption) {
  Settings().u8ConnectionRetryInterval = 4;
  G_RetryIntervalFlag = 1;
  sBMCInformationTag bmcInfo{};
  EXPECT_EQ(0, Fu().DoRemoteFwUpdate(&bmcInfo));
  ConfigRequests expected;
  expected.AssignByte(0x01, 1);
  expected.SetURI(kUri);
  expected.GetURI(static_cast<unsigned>(kUri.size()));
  expected.AssignByte(0x05, 4);
  expected.Add("08 01 01 80");
  expected.Add("08 02 05");
  EXPECT_EQ(expected.lines, Requests());
}

TEST_F(RemoteUpdateTest, AnEarlierFailureLeavesTheOptionFlagsSet) {
  G_RetryCountFlag = 1;
  G_DelayTimeFlag = 1;
  bmc.handler = [](const BmcRequest& r, BmcAnswer* a) {
    if (r.netfn == 0x30 && r.cmd == 0x03 && r.data.size() > 2 && r.data[2] == 0x03) {
      *a = BmcAnswer::Code(0xC1);
      return true;
    }
    return false;
  };
  sBMCInformationTag bmcInfo{};
  EXPECT_EQ(RC_ASSIGN_URI_FAILED + RC_RETRY_LIMIT, Fu().DoRemoteFwUpdate(&bmcInfo));
  EXPECT_EQ(1, G_RetryCountFlag);
  EXPECT_EQ(1, G_DelayTimeFlag);
  // Default configuration retry 4: five attempts, each a reservation and the
  // refused first chunk; no task is started and no reset is sent.
  EXPECT_EQ(4 + 10, static_cast<int>(Requests().size()));
  EXPECT_EQ("30 01", Requests()[4]);
  EXPECT_EQ("30 01", Requests()[12]);
  for (const std::string& line : Requests()) EXPECT_NE("08", line.substr(0, 2));
  EXPECT_TRUE(InOrder(Out(), {"\r   Remote Update Enable OK\n",
                              Spin(32767, kUriSpin) + Spin(32766, kUriSpin) +
                                  Spin(32765, kUriSpin) + Spin(32764, kUriSpin) +
                                  Spin(32763, kUriSpin) + "\n"}));
}

TEST_F(RemoteUpdateTest, UriOf127CharactersIsSetAndVerified) {
  ApplySettings();
  const std::string uri(127, 'a');
  const std::string counted = Counted(uri);
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateURI(counted.data()));
  ConfigRequests expected;
  expected.SetURI(uri);
  expected.GetURI(127);
  EXPECT_EQ(expected.lines, Requests());
  EXPECT_EQ(13u + 1u + 1u + 1u + 13u, Requests().size());
  const std::string shown = std::string(1, '\x7f') + uri;
  EXPECT_TRUE(InOrder(Log(), {"pai8SetBuffer = " + shown + "\n", "pai8SetBuffer = " + shown + "\n",
                              "   Assign Remote Update URI OK\n"}));
}

TEST_F(RemoteUpdateTest, UriOf128CharactersFailsAfterAllItsAttempts) {
  Settings().u8ConfigurationRetry = 0;
  ApplySettings();
  const std::string uri(128, 'b');
  const std::string counted = Counted(uri);
  EXPECT_EQ(RC_ASSIGN_URI_FAILED + RC_RETRY_LIMIT, Fu().AssignFirmwareUpdateURI(counted.data()));
  // The signed length makes a count past the buffer: the write stops before
  // it would read beyond it, and nothing is read back.
  ConfigRequests expected;
  expected.SetURI(uri);
  EXPECT_EQ(expected.lines, Requests());
  EXPECT_EQ(26u, Requests().size());
  EXPECT_EQ(Spin(32767, kUriSpin) + "\n", Out());

  Settings().u8ConfigurationRetry = 4;
  ApplySettings();
  bmc.ClearRequests();
  EXPECT_EQ(RC_ASSIGN_URI_FAILED + RC_RETRY_LIMIT, Fu().AssignFirmwareUpdateURI(counted.data()));
  EXPECT_EQ(5u * 26u, Requests().size());
}

TEST_F(RemoteUpdateTest, UriOf255CharactersPassesUnverified) {
  ApplySettings();
  const std::string uri(255, 'c');
  std::string counted = Counted(uri);
  ASSERT_EQ(256u, counted.size());
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateURI(counted.data()));
  // Nothing is written (the count is 0) and the store still holds the empty
  // URI, yet the step passes.
  EXPECT_EQ((std::vector<std::string>{"30 01", "30 01", "30 02 02 10 03 00 00 00 01"}),
            Requests());
  EXPECT_TRUE(InOrder(Log(), {"pai8SetBuffer = " + counted + "\n", "pai8SetBuffer = \n",
                              "   Assign Remote Update URI OK\n"}));
  EXPECT_EQ(Spin(32767, kUriSpin) + kClearLine + "\r   Assign Remote Update URI OK\n", Out());
}

TEST_F(RemoteUpdateTest, UriSetThroughTheUpdateObject) {
  ApplySettings();
  Fu().SetURI(std::string(255, 'd').c_str());
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateURI(Fu().GetURI()));
  Fu().SetURI(std::string(128, 'e').c_str());
  EXPECT_EQ(RC_ASSIGN_URI_FAILED + RC_RETRY_LIMIT, Fu().AssignFirmwareUpdateURI(Fu().GetURI()));
  Fu().SetURI("tftp://fw.example/x");
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateURI(Fu().GetURI()));
}

TEST_F(RemoteUpdateTest, ReadBackMismatchOfEveryByteSetting) {
  struct Row {
    uint8_t aid;
    int (TFirmwareUpdate::*member)(uint8_t);
    const char* mismatch;
    const char* spinner;
    int code;
  };
  const Row rows[] = {
      {0x02, &TFirmwareUpdate::AssignFirmwareUpdateProtocol,
       "\n   Returned protocol does not equal to the set one",
       "  Assign Remote Update Protocol ...", 36},
      {0x04, &TFirmwareUpdate::AssignFirmwareUpdateConnectionRetry,
       "\n   Returned connection retry does not equal to the set one",
       "  Assign Connection Retry ...", 38},
      {0x05, &TFirmwareUpdate::AssignFirmwareUpdateRetryInterval,
       "\n   Returned retry interval does not equal to the set one",
       "  Assign Connection Retry Interval ...", 39},
      {0x06, &TFirmwareUpdate::AssignFirmwareUpdateDelayTime,
       "\n   Returned delay time does not equal to the set one",
       "  Assign Remote Update Delay Time ...", 40},
  };
  Settings().u8ConfigurationRetry = 0;
  ApplySettings();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.code);
    ReadBackOf(row.aid, 9);
    cap.Clear();
    bmc.ClearRequests();
    EXPECT_EQ(256 + row.code, (Fu().*row.member)(7));
    EXPECT_EQ(4u, Requests().size());  // exactly one attempt
    EXPECT_EQ(Spin(32767, row.spinner) + "\n", Out());
    EXPECT_TRUE(InOrder(Log(), {row.mismatch, "\n"}));
  }
}

TEST_F(RemoteUpdateTest, EveryByteSettingSucceedsAgainstTheStore) {
  ApplySettings();
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateProtocol(2));
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateConnectionRetry(12));
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateRetryInterval(1));
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateDelayTime(255));
  ConfigRequests expected;
  expected.AssignByte(0x02, 2);
  expected.AssignByte(0x04, 12);
  expected.AssignByte(0x05, 1);
  expected.AssignByte(0x06, 255);
  EXPECT_EQ(expected.lines, Requests());
  EXPECT_EQ(Spin(32767, "  Assign Remote Update Protocol ...") + kClearLine +
                "\r   Assign Remote Update Protocol OK\n" +
                Spin(32767, "  Assign Connection Retry ...") + kClearLine +
                "\r   Assign Connection Retry OK\n" +
                Spin(32767, "  Assign Connection Retry Interval ...") + kClearLine +
                "\r   Assign Connection Retry Interval OK\n" +
                Spin(32767, "  Assign Remote Update Delay Time ...") + kClearLine +
                "\r   Assign Remote Update Delay Time OK\n",
            Out());
}

TEST_F(RemoteUpdateTest, MismatchThenMatchOnTheSecondAttempt) {
  ApplySettings();
  ReadBackOf(0x06, 0, 1);
  EXPECT_EQ(0, Fu().AssignFirmwareUpdateDelayTime(60));
  EXPECT_EQ(8u, Requests().size());
  EXPECT_EQ(Spin(32767, "  Assign Remote Update Delay Time ...") +
                Spin(32766, "  Assign Remote Update Delay Time ...") + kClearLine +
                "\r   Assign Remote Update Delay Time OK\n",
            Out());
}

TEST_F(RemoteUpdateTest, ConfigurationRetry255MakesNoAttempt) {
  Settings().u8ConfigurationRetry = 255;
  sBMCInformationTag bmcInfo{};
  EXPECT_EQ(RC_ASSIGN_URI_FAILED + RC_RETRY_LIMIT, Fu().DoRemoteFwUpdate(&bmcInfo));
  ConfigRequests expected;
  expected.AssignByte(0x01, 1);
  EXPECT_EQ(expected.lines, Requests());
  EXPECT_EQ(kClearLine + "\n" + Spin(32767, kEnableSpin) + kClearLine +
                "\r   Remote Update Enable OK\n" + "\n",
            Out());
}

TEST_F(RemoteUpdateTest, EnableLoopRunsThePhaseOneTimeOnABmcAnsweringZero) {
  Settings().u16PhaseOneWaitingTime = 30;
  ReadBackOf(0x01, 0);
  sBMCInformationTag bmcInfo{};
  EXPECT_EQ(0x200 + 35, Fu().DoRemoteFwUpdate(&bmcInfo));
  std::string spins;
  for (int i = 0; i < 31; ++i) spins += Spin(32767 - i, kEnableSpin);
  EXPECT_EQ(kClearLine + "\n" + spins + "\n", Out());
  EXPECT_EQ(31 * 4u, Requests().size());
  EXPECT_EQ(31, Clock());
  std::vector<std::string> pieces(31, "\n   Returned remote update enable status does not equal to the set one");
  pieces.push_back("   Elapsed time = 31 seconds\n");
  pieces.push_back("   Remote Update Enable timeout\n");
  pieces.push_back("\n");
  EXPECT_TRUE(InOrder(Log(), pieces));
}

TEST_F(RemoteUpdateTest, EnableSucceedsWhenTheBmcComesRound) {
  ApplySettings();
  ReadBackOf(0x01, 0, 3);
  EXPECT_EQ(0, Fu().EnableRemoteFirmwareUpdate(1));
  EXPECT_EQ(4, Clock());
  EXPECT_EQ(16u, Requests().size());
}

TEST_F(RemoteUpdateTest, CustomerDefaultsResetToDefaultsOnceThenColdReset) {
  G_u8EntityID = 5;
  Settings().u8EntityID = 5;
  G_u8BMCNeedReboot = 1;
  bmc.On(0x08, 0x01, {0x01, 0x85}, {BmcAnswer::Reply({0x05})});
  bmc.On(0x30, 0x04, {BmcAnswer::Reply({0x09})});
  bmc.On(0x30, 0x05, {BmcAnswer::Reply({0x01})});
  bmc.On(0x08, 0x01, {0xAA, 0x02}, {BmcAnswer::Reply({3, '5', '.', '1'})});
  sBMCInformationTag bmcInfo{};
  EXPECT_EQ(0, Fu().DoRemoteFwUpdate(&bmcInfo));
  EXPECT_EQ(1u, bmc.RequestsFor(0x30, 0x04).size());
  const std::vector<std::string> all = Requests();
  std::vector<std::string> tail(all.end() - 6, all.end());
  EXPECT_EQ((std::vector<std::string>{"08 02 05", "30 04 ff", "30 05 09", "06 02", "06 01",
                                      "08 01 aa 02"}),
            tail);
  EXPECT_TRUE(InOrder(Out(), {"   Reset To Default : Done\n",
                              "   Customer Def Version: 5.1 \n",
                              "   Firmware Update Successfully\n"}));
}

TEST_F(RemoteUpdateTest, BmcThatStopsAnsweringDuringTheTask) {
  G_u8BMCNeedReboot = 1;
  int polls = 0;
  bmc.handler = [&polls](const BmcRequest& r, BmcAnswer* a) {
    if (r.netfn != 0x08 || r.cmd != 0x02) return false;
    *a = ++polls == 1 ? BmcAnswer::Reply({0x00, 20}) : BmcAnswer::Silent();
    return true;
  };
  sBMCInformationTag bmcInfo{};
  EXPECT_EQ(RC_GET_UPDATE_STATUS_FAILED + RC_RETRY_LIMIT, Fu().DoRemoteFwUpdate(&bmcInfo));
  EXPECT_EQ(17u, bmc.RequestsFor(0x08, 0x02).size());
  EXPECT_TRUE(bmc.RequestsFor(0x06, 0x02).empty());
  EXPECT_EQ("\n   Get Firmware Update Status Failed, Retry = 16\n", Err());
}

TEST_F(RemoteUpdateTest, OverLanTheColdResetFollowsTheReportWithoutWaiting) {
  UinitKcsDriver();
  G_EnableIPMILan = 1;
  G_u8BMCNeedReboot = 1;
  Fu().SetHostIP("127.0.0.1");
  Fu().SetUserName("admin");
  Fu().SetPassWord("secret");
  bmc.ServeIpmitool(&env);
  COrvoUpdatePackage::ResetForTest();
  COrvoUpdatePackage* report = COrvoUpdatePackage::NewOUP();
  report->SetXmlReturnCode(true);
  char* xml = nullptr;
  size_t xmlSize = 0;
  FILE* stream = open_memstream(&xml, &xmlSize);
  COrvoUpdatePackage::SetStreamForTest(stream);

  sBMCInformationTag bmcInfo{};
  const int rc = Fu().DoRemoteFwUpdate(&bmcInfo);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);  // the driver's ending
  fflush(stream);
  const std::string document(xml, xmlSize);
  COrvoUpdatePackage::SetStreamForTest(nullptr);
  COrvoUpdatePackage::ResetForTest();
  fclose(stream);
  free(xml);

  EXPECT_EQ(0, rc);
  EXPECT_TRUE(InOrder(Out(), {"\n   Get Firmware Update Status ",
                              "   Cold Reset : Done\n   Firmware Update Successfully\n"}));
  // Printed once, before the reset, while the BMC still answered.
  EXPECT_TRUE(InOrder(document, {"<SVMExecution lang=\"en\">", "<SPStatus result=\"true\">"}));
  EXPECT_EQ(std::string::npos, document.find("<SVMExecution", document.find("<SVMExecution") + 1));
  const std::vector<std::string> requests = Requests();
  ASSERT_GE(requests.size(), 2u);
  EXPECT_EQ("06 02", requests.back());
  EXPECT_EQ("06 01", requests[requests.size() - 2]);  // the report's version read
  EXPECT_TRUE(bmc.RequestsFor(0x08, 0x13).empty());
  for (const std::string& command : env.commands) {
    EXPECT_EQ(0u, command.find("ipmitool")) << command;
  }
}

TEST_F(RemoteUpdateTest, OverLanAFailedColdResetIsShownButKeepsTheResult) {
  UinitKcsDriver();
  G_EnableIPMILan = 1;
  G_u8BMCNeedReboot = 1;
  Fu().SetHostIP("127.0.0.1");
  Fu().SetUserName("admin");
  Fu().SetPassWord("secret");
  bmc.ServeIpmitool(&env);
  bmc.On(0x06, 0x02, {BmcAnswer::Code(0xC1)});
  sBMCInformationTag bmcInfo{};
  // The task completed and the report is out; a reset that drops the
  // session is shown, and the update still succeeded.
  EXPECT_EQ(0, Fu().DoRemoteFwUpdate(&bmcInfo));
  EXPECT_TRUE(InOrder(Out(), {"   Cold Reset : Failed\n",
                              "   Firmware Update Successfully\n"}));
  EXPECT_EQ("06 02", Requests().back());
}

}  // namespace
}  // namespace update_testing

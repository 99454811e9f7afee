#include <gtest/gtest.h>

#include <string>

#include "bmc/bmc_handle.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "support/capture.h"
#include "support/fake_env.h"
#include "support/scripted_bmc.h"
#include "update/firmware_update.h"

namespace {

using testing_support::BmcAnswer;
using testing_support::CapturedOutput;
using testing_support::FakeEnv;
using testing_support::InstalledBmc;
using testing_support::ScriptedBmc;

const std::string kSearching =
    "\n   Searching For Devices \r" + std::string(74, ' ') + "\r";
const std::string kRefusal =
    "\n\n   Stratovex version 1.41 does not support firmware update via VRXFWU "
    "utility,\n   please use SOCFLASH utility to update firmware.\n";

class BMCSearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    BMCHandlerConstructor();
    ASSERT_NE(nullptr, G_pBMCHandle);
  }
  void TearDown() override {
    UinitKcsDriver();
    G_EnableIPMILan = 0;
    FwUpdateDestructor();
    BMCHandlerDestructor();
  }
  void UseKcs() {
    if (!installed_) installed_.reset(new InstalledBmc(&bmc_));
    ASSERT_EQ(0, InitKcsDriver());
  }
  void UseLan() {
    ASSERT_EQ(0, FwUpdateConstructor());
    G_pFirmwareUpdate->SetLanIF("lanplus");
    G_pFirmwareUpdate->SetHostIP("192.0.2.10");
    G_pFirmwareUpdate->SetUserName("admin");
    G_pFirmwareUpdate->SetPassWord("secret");
    bmc_.ServeIpmitool(&env_);
    G_EnableIPMILan = 1;
  }
  sBMCInformationTag* Record() { return G_pBMCHandle->GetCurrBMCInfo(); }
  size_t FruReads() { return bmc_.RequestsFor(0x0A, 0x11).size(); }

  FakeEnv env_;
  CapturedOutput cap_;
  ScriptedBmc bmc_;
  std::unique_ptr<InstalledBmc> installed_;
};

TEST_F(BMCSearchTest, OtherFirmwareIsAcceptedWithoutFruRead) {
  bmc_.SetFirmware(2, 0x10);
  UseKcs();
  EXPECT_EQ(0, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected), Record()->u32Status);
  EXPECT_EQ(2, Record()->au8FwRevision[0]);
  EXPECT_EQ(0x10, Record()->au8FwRevision[1]);
  EXPECT_EQ(0, Record()->au8FwRevision[2]);
  EXPECT_STREQ("Stratovex", Record()->achPlatformName);
  EXPECT_EQ(0u, FruReads());
  EXPECT_EQ(1u, bmc_.RequestsFor(0x06, 0x01).size());
  EXPECT_EQ(kSearching, cap_.Out());
  EXPECT_EQ("", cap_.Err());
}

TEST_F(BMCSearchTest, NeighbourVersionsOfTheRuleAreNotChecked) {
  const uint8_t versions[][2] = {{1, 0x40}, {1, 0x42}, {2, 0x41}, {0, 0x41}};
  for (const auto& v : versions) {
    bmc_.SetFirmware(v[0], v[1]);
    bmc_.SetFru(ScriptedBmc::MakeFru("Stratovex Z3100"));
    bmc_.ClearRequests();
    UseKcs();
    EXPECT_EQ(0, G_pBMCHandle->SearchBMCDevices()) << int(v[0]) << "." << int(v[1]);
    EXPECT_EQ(0u, FruReads());
  }
  EXPECT_EQ("", cap_.Err());
}

TEST_F(BMCSearchTest, Z3100AnywhereInTheNameIsRefused) {
  bmc_.SetFirmware(1, 0x41);
  bmc_.SetFru(ScriptedBmc::MakeFru("Stratovex Server Z3100"));
  UseKcs();
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(static_cast<uint32_t>(eBMCNotFound), Record()->u32Status);
  EXPECT_EQ(1, Record()->au8FwRevision[0]);
  EXPECT_EQ(0x41, Record()->au8FwRevision[1]);
  EXPECT_GT(FruReads(), 0u);
  EXPECT_EQ(kRefusal, cap_.Err());
  EXPECT_EQ(kSearching, cap_.Out());
}

TEST_F(BMCSearchTest, Z3200IsRefusedToo) {
  bmc_.SetFirmware(1, 0x41);
  bmc_.SetFru(ScriptedBmc::MakeFru("Z3200-R"));
  UseKcs();
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(kRefusal, cap_.Err());
}

TEST_F(BMCSearchTest, OtherProductNamesAreAccepted) {
  for (const char* name : {"Stratovex Z3000", "z3100", "Z310", "Stratovex"}) {
    bmc_.SetFirmware(1, 0x41);
    bmc_.SetFru(ScriptedBmc::MakeFru(name));
    bmc_.ClearRequests();
    UseKcs();
    EXPECT_EQ(0, G_pBMCHandle->SearchBMCDevices()) << name;
    EXPECT_EQ(static_cast<uint32_t>(eBMCDetected), Record()->u32Status);
    EXPECT_GT(FruReads(), 0u) << name;
  }
  EXPECT_EQ("", cap_.Err());
}

TEST_F(BMCSearchTest, FailedFruReadOnTheRuleVersionIsRefused) {
  bmc_.SetFirmware(1, 0x41);
  bmc_.SetFru({0x01, 0x02, 0x03});  // no valid common header
  UseKcs();
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(static_cast<uint32_t>(eBMCNotFound), Record()->u32Status);
  EXPECT_EQ(kRefusal, cap_.Err());
}

TEST_F(BMCSearchTest, FruReadRunningOutOfRetriesKeepsTheFlag) {
  bmc_.SetFirmware(1, 0x41);
  bmc_.On(0x0A, 0x11, {BmcAnswer::Failure(1)});
  UseKcs();
  EXPECT_EQ(RC_RETRY_LIMIT | RC_DEVICE_NOT_FOUND,
            G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(kRefusal, cap_.Err());
}

TEST_F(BMCSearchTest, SilentBmcRunsOutOfRetries) {
  bmc_.On(0x06, 0x01, {BmcAnswer::Failure(1)});
  UseKcs();
  EXPECT_EQ(0x106, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(static_cast<uint32_t>(eBMCNotFound), Record()->u32Status);
  // The record keeps its initial version: the search wrote nothing.
  EXPECT_EQ(0, Record()->au8FwRevision[0]);
  EXPECT_GT(bmc_.RequestsFor(0x06, 0x01).size(), 1u);
  EXPECT_EQ("", cap_.Err());
  EXPECT_EQ(kSearching, cap_.Out());
}

TEST_F(BMCSearchTest, BusyBmcRunsOutOfRetries) {
  bmc_.On(0x06, 0x01, {BmcAnswer::Code(0xC0)});
  UseKcs();
  EXPECT_EQ(0x106, G_pBMCHandle->SearchBMCDevices());
}

TEST_F(BMCSearchTest, FailureWithoutRetryFlagIsDeviceNotFound) {
  // Over the LAN, an ipmitool error ends the request at once.
  bmc_.On(0x06, 0x01, {BmcAnswer::Failure(1)});
  UseLan();
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(static_cast<uint32_t>(eBMCNotFound), Record()->u32Status);
  EXPECT_EQ(1u, bmc_.RequestsFor(0x06, 0x01).size());
}

TEST_F(BMCSearchTest, NoTransportAtAllIsDeviceNotFound) {
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(static_cast<uint32_t>(eBMCNotFound), Record()->u32Status);
}

TEST_F(BMCSearchTest, AnswerOverTheLan) {
  bmc_.SetFirmware(1, 0x41);
  bmc_.SetFru(ScriptedBmc::MakeFru("Stratovex Z3100"));
  UseLan();
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(kRefusal, cap_.Err());
}

TEST_F(BMCSearchTest, SearchResetsTheRecordFirst) {
  bmc_.SetFirmware(3, 0x02);
  UseKcs();
  Record()->u8HasBootloader = 1;
  Record()->au8FwRevision[3] = 9;
  snprintf(Record()->achPlatformName, sizeof(Record()->achPlatformName), "X");
  EXPECT_EQ(0, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ(0, Record()->u8HasBootloader);
  EXPECT_EQ(0, Record()->au8FwRevision[3]);
  EXPECT_STREQ("Stratovex", Record()->achPlatformName);
}

TEST_F(BMCSearchTest, QuietModeShowsOnlyTheRefusal) {
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  bmc_.SetFirmware(1, 0x41);
  bmc_.SetFru(ScriptedBmc::MakeFru("Z3100"));
  UseKcs();
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, G_pBMCHandle->SearchBMCDevices());
  EXPECT_EQ("", cap_.Out());
  EXPECT_EQ(kRefusal, cap_.Err());
}

}  // namespace

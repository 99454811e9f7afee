#include <gtest/gtest.h>
#include <string.h>

#include "bmc/bmc_handle.h"
#include "output/output.h"
#include "support/capture.h"

namespace {

class BMCHandleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    BMCHandlerConstructor();
    ASSERT_NE(nullptr, G_pBMCHandle);
  }
  void TearDown() override { BMCHandlerDestructor(); }
  sBMCInformationTag* Bmc() { return G_pBMCHandle->GetCurrBMCInfo(); }
};

TEST_F(BMCHandleTest, RecordStartsAtItsInitialValues) {
  const sBMCInformationTag* bmc = Bmc();
  ASSERT_NE(nullptr, bmc);
  EXPECT_EQ(0x20, bmc->u8SlaveAddress);
  EXPECT_EQ(0u, bmc->u32ImageIndex);
  EXPECT_EQ(0xAEu, bmc->u32DeviceType);
  EXPECT_EQ(0u, bmc->u32Status);
  EXPECT_STREQ("Stratovex", bmc->achPlatformName);
  const uint8_t zero[4] = {0, 0, 0, 0};
  EXPECT_EQ(0, memcmp(zero, bmc->au8FwRevision, 4));
  EXPECT_EQ(0, bmc->u8HasBootloader);
  EXPECT_EQ(0, memcmp(zero, bmc->au8BootloaderInfo, 4));
  EXPECT_EQ(0, memcmp(zero, bmc->au8BootloaderVersion, 4));
  EXPECT_EQ(eFwUpdateModeNormal, G_pBMCHandle->GetFwUpdateMode());
}

TEST_F(BMCHandleTest, InitBMCInfoListResetsTheRecord) {
  sBMCInformationTag* bmc = Bmc();
  bmc->u32Status = eBMCUpdate;
  bmc->au8FwRevision[0] = 7;
  bmc->u8HasBootloader = 1;
  snprintf(bmc->achPlatformName, sizeof(bmc->achPlatformName), "Other");
  G_pBMCHandle->InitBMCInfoList();
  EXPECT_EQ(bmc, Bmc());
  EXPECT_EQ(0u, bmc->u32Status);
  EXPECT_EQ(0, bmc->au8FwRevision[0]);
  EXPECT_EQ(0, bmc->u8HasBootloader);
  EXPECT_STREQ("Stratovex", bmc->achPlatformName);
}

TEST_F(BMCHandleTest, UpdateModeIgnoresValuesAboveFour) {
  G_pBMCHandle->SetFwUpdateMode(eFwUpdateModeForce);
  EXPECT_EQ(eFwUpdateModeForce, G_pBMCHandle->GetFwUpdateMode());
  G_pBMCHandle->SetFwUpdateMode(static_cast<eFwUpdateModeTag>(5));
  EXPECT_EQ(eFwUpdateModeForce, G_pBMCHandle->GetFwUpdateMode());
  G_pBMCHandle->SetFwUpdateMode(static_cast<eFwUpdateModeTag>(-1));
  EXPECT_EQ(eFwUpdateModeForce, G_pBMCHandle->GetFwUpdateMode());
  G_pBMCHandle->SetFwUpdateMode(eFwUpdateModeRemote);
  EXPECT_EQ(eFwUpdateModeRemote, G_pBMCHandle->GetFwUpdateMode());
}

TEST_F(BMCHandleTest, IsFwUpdateOnlyForUpdateStatus) {
  for (uint32_t status = 0; status <= 7; ++status) {
    Bmc()->u32Status = status;
    EXPECT_EQ(status == eBMCUpdate ? 1 : 0, G_pBMCHandle->IsFwUpdate())
        << status;
  }
}

TEST_F(BMCHandleTest, SkipCodes) {
  Bmc()->u32Status = eBMCSameVersion;
  EXPECT_EQ(RC_SAME_VERSION, G_pBMCHandle->GetSkipCode(RC_SUCCESS));
  Bmc()->u32Status = eBMCDetected;
  EXPECT_EQ(RC_OLDER_VERSION, G_pBMCHandle->GetSkipCode(RC_SUCCESS));
  // An image newer than the BMC in downgrade mode reads as "older" too.
  Bmc()->u32Status = eBMCImageNewer;
  EXPECT_EQ(RC_OLDER_VERSION, G_pBMCHandle->GetSkipCode(RC_SUCCESS));
  for (uint32_t status : {0u, 1u, 3u, 4u, 5u}) {
    Bmc()->u32Status = status;
    EXPECT_EQ(RC_FILE_ERROR, G_pBMCHandle->GetSkipCode(RC_FILE_ERROR)) << status;
  }
}

TEST_F(BMCHandleTest, SelectingTheOneRecord) {
  sBMCInformationTag* first = Bmc();
  G_pBMCHandle->SetCurrBMCInfo(0);
  EXPECT_EQ(first, Bmc());
}

TEST_F(BMCHandleTest, UinitForgetsTheList) {
  G_pBMCHandle->UinitBMCInfoList();
  EXPECT_EQ(nullptr, Bmc());
  EXPECT_EQ(0, G_pBMCHandle->IsFwUpdate());
  G_pBMCHandle->UinitBMCInfoList();  // twice is harmless
}

TEST_F(BMCHandleTest, TableShowsTheFamilyNameBeforeAnySearch) {
  testing_support::CapturedOutput cap;
  G_pOutputMessageHandle->OutputFirmwareRevisions(Bmc(), nullptr);
  std::string name = "    Stratovex " + std::string(22, '.') + " Firmware Version";
  EXPECT_NE(std::string::npos, cap.Out().find(name)) << cap.Out();
}

TEST(BMCHandler, DestructorClearsThePointer) {
  BMCHandlerConstructor();
  EXPECT_NE(nullptr, G_pBMCHandle);
  BMCHandlerDestructor();
  EXPECT_EQ(nullptr, G_pBMCHandle);
  BMCHandlerDestructor();
  EXPECT_EQ(nullptr, G_pBMCHandle);
}

}  // namespace

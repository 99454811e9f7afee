#include <gtest/gtest.h>
#include <string.h>

#include "bmc/bmc_handle.h"
#include "output/output.h"
#include "support/capture.h"
#include "support/fake_env.h"

namespace {

using testing_support::CapturedOutput;
using testing_support::FakeEnv;

void SetVersion(uint8_t* fw, uint8_t major, uint8_t minor, uint16_t revision) {
  fw[0] = major;
  fw[1] = minor;
  fw[2] = static_cast<uint8_t>(revision >> 8);
  fw[3] = static_cast<uint8_t>(revision & 0xFF);
}

class VersionPolicyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cap_.OpenLog();
    memset(&bmc_, 0, sizeof(bmc_));
    memset(&image_, 0, sizeof(image_));
    bmc_.u8SlaveAddress = 0x20;
    bmc_.u32DeviceType = 0xAE;
    bmc_.u32Status = eBMCImageMatched;
    snprintf(bmc_.achPlatformName, sizeof(bmc_.achPlatformName), "Stratovex");
  }

  uint32_t Decide(eFwUpdateModeTag mode) {
    bmc_.u32Status = eBMCImageMatched;
    CompareRevisions(&bmc_, &image_, mode);
    return bmc_.u32Status;
  }

  FakeEnv env_;
  CapturedOutput cap_;
  sBMCInformationTag bmc_;
  sImageHeaderTag image_;
};

const eFwUpdateModeTag kAllModes[] = {
    eFwUpdateModeNormal, eFwUpdateModeForce, eFwUpdateModeDowngrade,
    eFwUpdateModeUpgradeOnly, eFwUpdateModeRemote};

TEST_F(VersionPolicyTest, ImageTypeAssignsTheFirstImage) {
  bmc_.u32Status = eBMCDetected;
  bmc_.u32ImageIndex = 9;
  sImageHeaderTag list[2] = {};
  EXPECT_EQ(0, CompareImageType(&bmc_, list, 2));
  EXPECT_EQ(static_cast<uint32_t>(eBMCImageMatched), bmc_.u32Status);
  EXPECT_EQ(0u, bmc_.u32ImageIndex);
  EXPECT_EQ("   Process device : OK\n", cap_.Log());
  EXPECT_EQ("", cap_.Out());
  EXPECT_EQ("", cap_.Err());
}

TEST_F(VersionPolicyTest, ImageTypeWithoutImages) {
  bmc_.u32Status = eBMCDetected;
  sImageHeaderTag list[1] = {};
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, CompareImageType(&bmc_, list, 0));
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected), bmc_.u32Status);
  EXPECT_EQ("\r   invalid current image type !! \n", cap_.Err());
  EXPECT_EQ("   Process device : \r   invalid current image type !! \n",
            cap_.Log());
}

TEST_F(VersionPolicyTest, ImageTypeWithoutDevice) {
  bmc_.u32Status = eBMCNotFound;
  bmc_.u32ImageIndex = 4;
  sImageHeaderTag list[1] = {};
  EXPECT_EQ(RC_DEVICE_NOT_FOUND, CompareImageType(&bmc_, list, 1));
  EXPECT_EQ(static_cast<uint32_t>(eBMCNotFound), bmc_.u32Status);
  EXPECT_EQ(4u, bmc_.u32ImageIndex);
  EXPECT_EQ("\r   invalid current image type !! \n", cap_.Err());
}

TEST_F(VersionPolicyTest, SameVersionInEveryModeButForce) {
  SetVersion(bmc_.au8FwRevision, 1, 20, 5);
  SetVersion(image_.au8FwRevision, 1, 20, 5);
  for (eFwUpdateModeTag mode : kAllModes) {
    uint32_t expect = mode == eFwUpdateModeForce ? eBMCUpdate : eBMCSameVersion;
    EXPECT_EQ(expect, Decide(mode)) << mode;
  }
  EXPECT_EQ("\r   Force firmware update ...\n", cap_.Out());
}

TEST_F(VersionPolicyTest, ForceUpdatesWhateverTheVersions) {
  SetVersion(bmc_.au8FwRevision, 9, 0, 0);
  SetVersion(image_.au8FwRevision, 1, 0, 0);
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeForce));
  EXPECT_EQ("\r   Force firmware update ...\n", cap_.Out());
  EXPECT_EQ("\r   Force firmware update ...\n", cap_.Log());
}

TEST_F(VersionPolicyTest, MajorDecidesAndTheQuestionShowsBothVersions) {
  SetVersion(bmc_.au8FwRevision, 2, 0, 0);
  SetVersion(image_.au8FwRevision, 1, 99, 65535);
  env_.input = "y\n";
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeNormal));
  EXPECT_EQ("   Downgrade Stratovex from 2.0.0 to 1.99.65535 (Y/N)?", cap_.Out());
}

TEST_F(VersionPolicyTest, DowngradeRefusedByTheUser) {
  SetVersion(bmc_.au8FwRevision, 2, 0, 0);
  SetVersion(image_.au8FwRevision, 1, 99, 65535);
  env_.input = "n\n";
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected), Decide(eFwUpdateModeNormal));
}

TEST_F(VersionPolicyTest, QuestionRepeatsUntilOneLetterAnswer) {
  SetVersion(bmc_.au8FwRevision, 1, 5, 300);
  SetVersion(image_.au8FwRevision, 1, 5, 299);
  env_.input = "yes\n\nY\n";
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeRemote));
  std::string q = "   Downgrade Stratovex from 1.5.300 to 1.5.299 (Y/N)?";
  EXPECT_EQ(q + q + q, cap_.Out());
}

TEST_F(VersionPolicyTest, QuietModeRefusesTheDowngradeWithoutAsking) {
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  SetVersion(bmc_.au8FwRevision, 1, 5, 300);
  SetVersion(image_.au8FwRevision, 1, 5, 299);
  env_.input = "y\n";
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected), Decide(eFwUpdateModeNormal));
  EXPECT_EQ("", cap_.Out());
  EXPECT_EQ("", cap_.Log());
  EXPECT_EQ(0u, env_.input_pos);
}

TEST_F(VersionPolicyTest, RevisionComparedAsSixteenBits) {
  // 0x0100 against 0x00FF: the high byte decides.
  SetVersion(bmc_.au8FwRevision, 1, 5, 0x0100);
  SetVersion(image_.au8FwRevision, 1, 5, 0x00FF);
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected),
            Decide(eFwUpdateModeUpgradeOnly));
  SetVersion(bmc_.au8FwRevision, 1, 5, 0x00FF);
  SetVersion(image_.au8FwRevision, 1, 5, 0x0100);
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate),
            Decide(eFwUpdateModeUpgradeOnly));
}

TEST_F(VersionPolicyTest, MinorDecidesBeforeRevision) {
  SetVersion(bmc_.au8FwRevision, 1, 6, 0);
  SetVersion(image_.au8FwRevision, 1, 5, 65535);
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected),
            Decide(eFwUpdateModeUpgradeOnly));
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeDowngrade));
}

TEST_F(VersionPolicyTest, OlderImageByMode) {
  SetVersion(bmc_.au8FwRevision, 1, 20, 5);
  SetVersion(image_.au8FwRevision, 1, 20, 4);
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeForce));
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeDowngrade));
  cap_.Clear();
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected),
            Decide(eFwUpdateModeUpgradeOnly));
  EXPECT_EQ("", cap_.Out());  // no question in upgrade-only mode
  env_.input = "N\n";
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected), Decide(eFwUpdateModeNormal));
  env_.input = "Y\n";
  env_.input_pos = 0;
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeRemote));
}

TEST_F(VersionPolicyTest, NewerImageByMode) {
  SetVersion(bmc_.au8FwRevision, 1, 20, 5);
  SetVersion(image_.au8FwRevision, 1, 21, 0);
  EXPECT_EQ(static_cast<uint32_t>(eBMCImageNewer),
            Decide(eFwUpdateModeDowngrade));
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeNormal));
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeForce));
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate),
            Decide(eFwUpdateModeUpgradeOnly));
  EXPECT_EQ(static_cast<uint32_t>(eBMCUpdate), Decide(eFwUpdateModeRemote));
  EXPECT_EQ("\r   Force firmware update ...\n", cap_.Out());
}

TEST_F(VersionPolicyTest, OnlyAMatchedRecordIsDecided) {
  SetVersion(bmc_.au8FwRevision, 1, 0, 0);
  SetVersion(image_.au8FwRevision, 2, 0, 0);
  for (uint32_t status : {0u, 1u, 2u, 4u, 5u, 6u, 7u}) {
    bmc_.u32Status = status;
    CompareRevisions(&bmc_, &image_, eFwUpdateModeForce);
    EXPECT_EQ(status, bmc_.u32Status);
  }
  EXPECT_EQ("", cap_.Out());
  // A second call keeps the first verdict.
  bmc_.u32Status = eBMCImageMatched;
  CompareRevisions(&bmc_, &image_, eFwUpdateModeDowngrade);
  EXPECT_EQ(static_cast<uint32_t>(eBMCImageNewer), bmc_.u32Status);
  CompareRevisions(&bmc_, &image_, eFwUpdateModeForce);
  EXPECT_EQ(static_cast<uint32_t>(eBMCImageNewer), bmc_.u32Status);
}

TEST_F(VersionPolicyTest, LongPlatformNameInTheQuestion) {
  memset(bmc_.achPlatformName, 'P', sizeof(bmc_.achPlatformName));  // unterminated
  SetVersion(bmc_.au8FwRevision, 3, 1, 2);
  SetVersion(image_.au8FwRevision, 3, 1, 1);
  env_.input = "n\n";
  EXPECT_EQ(static_cast<uint32_t>(eBMCDetected), Decide(eFwUpdateModeNormal));
  EXPECT_EQ("   Downgrade " + std::string(40, 'P') + " from 3.1.2 to 3.1.1 (Y/N)?",
            cap_.Out());
}

TEST_F(VersionPolicyTest, AfterUpdateEqualVersions) {
  SetVersion(bmc_.au8FwRevision, 1, 2, 0x0304);
  SetVersion(image_.au8FwRevision, 1, 2, 0x0304);
  EXPECT_EQ(0, CompareFwVersionAfterFwUpdate(&bmc_, &image_));
  EXPECT_EQ("\n   Check new firmware version\n", cap_.Out());
  EXPECT_EQ("\n   Check new firmware version\n", cap_.Log());
}

TEST_F(VersionPolicyTest, AfterUpdateAnyFirmwareByteDiffers) {
  for (int i = 0; i < 4; ++i) {
    SetVersion(bmc_.au8FwRevision, 1, 2, 0x0304);
    SetVersion(image_.au8FwRevision, 1, 2, 0x0304);
    image_.au8FwRevision[i] ^= 0x10;
    EXPECT_EQ(1, CompareFwVersionAfterFwUpdate(&bmc_, &image_)) << i;
  }
}

TEST_F(VersionPolicyTest, AfterUpdateBootloaderComparedOnlyWhenBothHaveOne) {
  SetVersion(bmc_.au8FwRevision, 1, 2, 3);
  SetVersion(image_.au8FwRevision, 1, 2, 3);
  const uint8_t info[4] = {1, 2, 3, 4};
  const uint8_t version[4] = {5, 6, 7, 8};
  memcpy(bmc_.au8BootloaderInfo, info, 4);
  memcpy(bmc_.au8BootloaderVersion, version, 4);
  memcpy(image_.au8BootloaderInfo, info, 4);
  memcpy(image_.au8BootloaderVersion, version, 4);
  bmc_.u8HasBootloader = 1;
  image_.u8HasBootloader = 1;
  EXPECT_EQ(0, CompareFwVersionAfterFwUpdate(&bmc_, &image_));

  // The fourth byte of each is not compared.
  image_.au8BootloaderInfo[3] = 0x99;
  image_.au8BootloaderVersion[3] = 0x99;
  EXPECT_EQ(0, CompareFwVersionAfterFwUpdate(&bmc_, &image_));

  for (int i = 0; i < 3; ++i) {
    memcpy(image_.au8BootloaderInfo, info, 4);
    memcpy(image_.au8BootloaderVersion, version, 4);
    image_.au8BootloaderInfo[i] ^= 1;
    EXPECT_EQ(1, CompareFwVersionAfterFwUpdate(&bmc_, &image_)) << i;
    memcpy(image_.au8BootloaderInfo, info, 4);
    image_.au8BootloaderVersion[i] ^= 1;
    EXPECT_EQ(1, CompareFwVersionAfterFwUpdate(&bmc_, &image_)) << i;
  }

  // A BMC that reports no bootloader matches whatever the image holds.
  bmc_.u8HasBootloader = 0;
  EXPECT_EQ(0, CompareFwVersionAfterFwUpdate(&bmc_, &image_));
  bmc_.u8HasBootloader = 1;
  image_.u8HasBootloader = 0;
  EXPECT_EQ(0, CompareFwVersionAfterFwUpdate(&bmc_, &image_));
}

}  // namespace

#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "output/output.h"
#include "support/capture.h"

namespace {

using testing_support::CapturedOutput;

std::string Pad(const std::string& text, size_t width) {
  return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string Row4(size_t w1, size_t w2, size_t w3, size_t w4,
                 const std::string& a, const std::string& b,
                 const std::string& c, const std::string& d) {
  return "   " + Pad(a, w1) + Pad(b, w2) + Pad(c, w3) + Pad(d, w4) + "\n";
}

std::string Wide(const std::string& a, const std::string& b,
                 const std::string& c, const std::string& d) {
  return Row4(34, 20, 10, 10, a, b, c, d);
}

std::string Narrow(const std::string& a, const std::string& b,
                   const std::string& c, const std::string& d) {
  return Row4(28, 22, 13, 13, a, b, c, d);
}

std::string Row3(size_t w, const std::string& a, const std::string& b,
                 const std::string& c) {
  return "   " + Pad(a, w) + Pad(b, w) + Pad(c, w) + "\n";
}

class RevisionTablesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cap_.OpenLog();
    memset(&bmc_, 0, sizeof(bmc_));
    memset(&image_, 0, sizeof(image_));
    bmc_.u8SlaveAddress = 0x20;
    bmc_.u32DeviceType = 0xAE;
    snprintf(bmc_.achPlatformName, sizeof(bmc_.achPlatformName), "Stratovex");
    // 1.20 revision 0x1234, image 1.21 revision 5.
    const uint8_t current[4] = {1, 20, 0x12, 0x34};
    const uint8_t offered[4] = {1, 21, 0x00, 0x05};
    memcpy(bmc_.au8FwRevision, current, 4);
    memcpy(image_.au8FwRevision, offered, 4);
  }

  void GiveBmcBootloader() {
    bmc_.u8HasBootloader = 1;
    const uint8_t version[4] = {1, 0x0A, 0x1F, 0x77};
    memcpy(bmc_.au8BootloaderVersion, version, 4);
  }

  void GiveImageBootloader() {
    image_.u8HasBootloader = 1;
    const uint8_t version[4] = {2, 0x0B, 0x00, 0x66};
    memcpy(image_.au8BootloaderVersion, version, 4);
  }

  CapturedOutput cap_;
  sBMCInformationTag bmc_;
  sImageHeaderTag image_;
};

TEST_F(RevisionTablesTest, WideLayoutWithoutBootloader) {
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  // Written out once in full, so the column widths are visible.
  std::string expect =
      "\n"
      "   Firmware Version                                      Current   Image     \n"
      "    Stratovex ...................... Firmware Version    1.20      1.21      \n"
      "                                     Firmware Revision   4660      5         \n"
      "\n";
  EXPECT_EQ(expect, cap_.Out());
  EXPECT_EQ(expect, cap_.Log());
  EXPECT_EQ("", cap_.Err());
}

TEST_F(RevisionTablesTest, NarrowLayoutWithBootloaders) {
  GiveBmcBootloader();
  GiveImageBootloader();
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  std::string name = " Stratovex " + std::string(16, '.') + " ";
  ASSERT_EQ(28u, name.size());
  EXPECT_EQ("\n" + Narrow("Firmware Version", "", "Current", "Image") +
                Narrow(name, "Firmware Version", "1.20", "1.21") +
                Narrow("", "Firmware Revision", "4660", "5") +
                Narrow("", "Bootloader version", "1.A.1F", "2.B.0") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, ImageWithoutBootloaderShowsNA) {
  GiveBmcBootloader();
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  std::string name = " Stratovex " + std::string(16, '.') + " ";
  EXPECT_EQ("\n" + Narrow("Firmware Version", "", "Current", "Image") +
                Narrow(name, "Firmware Version", "1.20", "1.21") +
                Narrow("", "Firmware Revision", "4660", "5") +
                Narrow("", "Bootloader version", "1.A.1F", " N/A") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, BmcWithoutBootloaderIgnoresTheImageBootloader) {
  GiveImageBootloader();
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  std::string name = " Stratovex " + std::string(22, '.') + " ";
  EXPECT_EQ("\n" + Wide("Firmware Version", "", "Current", "Image") +
                Wide(name, "Firmware Version", "1.20", "1.21") +
                Wide("", "Firmware Revision", "4660", "5") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, NoImage) {
  GiveBmcBootloader();
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, nullptr);
  std::string name = " Stratovex " + std::string(16, '.') + " ";
  EXPECT_EQ("\n" + Narrow("Firmware Version", "", "Current", "Image") +
                Narrow(name, "Firmware Version", "1.20", " N/A") +
                Narrow("", "Firmware Revision", "4660", " N/A") +
                Narrow("", "Bootloader version", "1.A.1F", " N/A") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, AllZeroImageHeader) {
  GiveBmcBootloader();
  memset(&image_, 0, sizeof(image_));
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  std::string name = " Stratovex " + std::string(16, '.') + " ";
  EXPECT_EQ("\n" + Narrow("Firmware Version", "", "Current", "Image") +
                Narrow(name, "Firmware Version", "1.20", "0.0") +
                Narrow("", "Firmware Revision", "4660", "0") +
                Narrow("", "Bootloader version", "1.A.1F", " N/A") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, FortyCharacterNameGetsNoDots) {
  memset(bmc_.achPlatformName, 'N', sizeof(bmc_.achPlatformName));
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  std::string name = " " + std::string(40, 'N') + "  ";
  EXPECT_EQ("\n" + Wide("Firmware Version", "", "Current", "Image") + "   " +
                name + Pad("Firmware Version", 20) + Pad("1.20", 10) +
                Pad("1.21", 10) + "\n" +
                Wide("", "Firmware Revision", "4660", "5") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, NameJustLongEnoughGetsOnlyTheBlank) {
  // " name " of 33 characters is already one less than the column of 34.
  std::string name(31, 'a');
  snprintf(bmc_.achPlatformName, sizeof(bmc_.achPlatformName), "%s",
           name.c_str());
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  EXPECT_NE(std::string::npos,
            cap_.Out().find("\n    " + name + "  Firmware Version"));
}

TEST_F(RevisionTablesTest, OtherDeviceTypeShowsOnlyTheHeading) {
  bmc_.u32DeviceType = 0x20;
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  EXPECT_EQ("\n" + Wide("Firmware Version", "", "Current", "Image") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, NameBeforeTheSearchIsTheFamilyName) {
  memset(bmc_.au8FwRevision, 0, 4);
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, nullptr);
  EXPECT_NE(std::string::npos,
            cap_.Out().find("    Stratovex ......................"));
}

TEST_F(RevisionTablesTest, QuietModeWritesOnlyTheLog) {
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  EXPECT_EQ("", cap_.Out());
  EXPECT_NE("", cap_.Log());
}

TEST_F(RevisionTablesTest, NamePercentSignsAreText) {
  snprintf(bmc_.achPlatformName, sizeof(bmc_.achPlatformName), "%s", "%s%n%d");
  G_pOutputMessageHandle->OutputFirmwareRevisions(&bmc_, &image_);
  EXPECT_NE(std::string::npos, cap_.Out().find(" %s%n%d ......"));
}

TEST_F(RevisionTablesTest, AfterUpdateWithoutBootloader) {
  GiveImageBootloader();
  G_pOutputMessageHandle->OutputFirmwareRevisionsAfterFwUpdate(&image_, &bmc_);
  EXPECT_EQ(Row3(20, "", "Stratovex", "Image") +
                Row3(20, "Firmware Version", "  1.20", "1.21") +
                Row3(20, "Firmware Revision", "  4660", "5"),
            cap_.Out());
}

TEST_F(RevisionTablesTest, AfterUpdateWithBootloaders) {
  GiveBmcBootloader();
  GiveImageBootloader();
  G_pOutputMessageHandle->OutputFirmwareRevisionsAfterFwUpdate(&image_, &bmc_);
  EXPECT_EQ(Row3(24, "", "Stratovex", "Image") +
                Row3(24, "Firmware Version", "  1.20", "1.21") +
                Row3(24, "Firmware Revision", "  4660", "5") +
                Row3(24, "Bootloader version", "  1.A.1F", "2.B.0"),
            cap_.Out());
}

TEST_F(RevisionTablesTest, AfterUpdateImageWithoutBootloader) {
  GiveBmcBootloader();
  bmc_.u32DeviceType = 0x20;  // not tested by this table
  G_pOutputMessageHandle->OutputFirmwareRevisionsAfterFwUpdate(&image_, &bmc_);
  EXPECT_EQ(Row3(24, "", "Stratovex", "Image") +
                Row3(24, "Firmware Version", "  1.20", "1.21") +
                Row3(24, "Firmware Revision", "  4660", "5") +
                Row3(24, "Bootloader version", "  1.A.1F", "N/A"),
            cap_.Out());
}

TEST_F(RevisionTablesTest, BmcMajorAndMinor) {
  bmc_.au8FwRevision[0] = 1;
  bmc_.au8FwRevision[1] = 0x4A;
  GiveBmcBootloader();  // no effect on this layout
  G_pOutputMessageHandle->OutputBMCFirmwareRevisions(&bmc_);
  std::string name = " Stratovex " + std::string(22, '.') + " ";
  EXPECT_EQ("\n" + Wide("Firmware Version", "", "", "") +
                Wide(name, "Major Revision", "0x01", "") +
                Wide("", "Minor Revision", "0x4A", "") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, BmcTableOtherDeviceType) {
  bmc_.u32DeviceType = 0;
  G_pOutputMessageHandle->OutputBMCFirmwareRevisions(&bmc_);
  EXPECT_EQ("\n" + Wide("Firmware Version", "", "", "") + "\n", cap_.Out());
}

TEST_F(RevisionTablesTest, BmcOldAndNewAfterRemoteUpdate) {
  sBMCInformationTag newer = bmc_;
  bmc_.au8FwRevision[0] = 1;
  bmc_.au8FwRevision[1] = 0x41;
  newer.au8FwRevision[0] = 0x12;
  newer.au8FwRevision[1] = 0x05;
  newer.u32DeviceType = 0;  // the old record decides
  snprintf(newer.achPlatformName, sizeof(newer.achPlatformName), "Other");
  G_pOutputMessageHandle->OutputBMCFirmwareRevisionsAfterRemoteFwUpdate(&bmc_,
                                                                        &newer);
  std::string name = " Stratovex " + std::string(22, '.') + " ";
  EXPECT_EQ("\n" + Wide("Firmware Version", "", "Old", "New") +
                Wide(name, "Major Revision", "0x01", "0x12") +
                Wide("", "Minor Revision", "0x41", "0x05") + "\n",
            cap_.Out());
}

TEST_F(RevisionTablesTest, RemoteTableOtherDeviceType) {
  sBMCInformationTag newer = bmc_;
  bmc_.u32DeviceType = 0;
  G_pOutputMessageHandle->OutputBMCFirmwareRevisionsAfterRemoteFwUpdate(&bmc_,
                                                                        &newer);
  EXPECT_EQ("\n" + Wide("Firmware Version", "", "Old", "New") + "\n",
            cap_.Out());
}

}  // namespace

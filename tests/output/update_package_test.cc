#include "output/update_package.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "ipmi/kcs_transport.h"
#include "output/output.h"
#include "support/capture.h"
#include "support/fake_env.h"

namespace {

using testing_support::CapturedOutput;
using testing_support::FakeEnv;

// A BMC on the system interface that answers Get Device ID only.
struct DeviceIdBmc {
  bool answers = true;
  unsigned char major = 1;
  unsigned char minor = 0x41;
  int requests = 0;
};
DeviceIdBmc g_bmc;

uint32_t FakeOpen() { return 1; }
void FakeClose(uint32_t) {}
int FakeRequest(uint32_t, unsigned char netFnLun, unsigned char command,
                unsigned char*, unsigned char, unsigned char* completionCode,
                unsigned char* data, unsigned short* length) {
  ++g_bmc.requests;
  if (!g_bmc.answers) return 1;
  if (netFnLun != (0x06 << 2) || command != 0x01) {
    *completionCode = 0xC1;
    *length = 0;
    return 0;
  }
  const unsigned char answer[] = {0x20, 0x01, g_bmc.major, g_bmc.minor,
                                  0x02, 0x9F, 0x00, 0x00, 0x00, 0x00, 0x00};
  for (size_t i = 0; i < sizeof(answer) && i < *length; ++i) data[i] = answer[i];
  *length = sizeof(answer);
  *completionCode = 0;
  return 0;
}
int FakeIPMBRequest(uint32_t, unsigned char, unsigned char, unsigned char,
                    unsigned char*, unsigned char, unsigned char*,
                    unsigned char*, unsigned short*) {
  return 1;
}

const char kXmlHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";

std::string Inventory(const std::string& version) {
  return std::string(kXmlHead) +
         "<SVMInventory lang=\"en\">\n"
         "   <Device componentID=\"5814\" display=\"BMC Firmware\">\n"
         "      <Application componentType=\"FRMW\" version=\"" +
         version +
         "\" display=\"BMC Firmware\" />\n"
         "   </Device>\n"
         "</SVMInventory>\n";
}

const std::string kEmptyInventory =
    std::string(kXmlHead) + "<SVMInventory lang=\"en\"/>\n";

std::string Success(const std::string& version) {
  return std::string(kXmlHead) +
         "<SVMExecution lang=\"en\">\n"
         "   <Device componentID=\"5814\" display=\"BMC Firmware\">\n"
         "      <Application componentType=\"FRMW\" version=\"" +
         version +
         "\" display=\"BMC Firmware\">\n"
         "         <SPStatus result=\"true\">\n"
         "            <Message id=\"0\" >Update Successful.</Message>\n"
         "         </SPStatus>\n"
         "      </Application>\n"
         "   </Device>\n"
         "</SVMExecution>\n";
}

const std::string kFailure =
    std::string(kXmlHead) +
    "<SVMExecution lang=\"en\">\n"
    "   <SPStatus result=\"false\">\n"
    "      <Message id=\"33\" >Update Firmware Failed</Message>\n"
    "   </SPStatus>\n"
    "</SVMExecution>\n";

class UpdatePackageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // As the driver does: the documents read the revision with Get Device ID.
    COrvoUpdatePackage::SetRevisionReader(GetDeviceID);
    g_bmc = DeviceIdBmc();
    RawEntryPoints entries = {FakeOpen, FakeRequest, FakeIPMBRequest,
                              FakeClose};
    TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(&entries);
    ASSERT_EQ(0, InitKcsDriver());
    doc_ = open_memstream(&doc_buf_, &doc_size_);
    COrvoUpdatePackage::ResetForTest();
    COrvoUpdatePackage::SetStreamForTest(doc_);
  }
  void TearDown() override {
    COrvoUpdatePackage::ResetForTest();
    UinitKcsDriver();
    TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(nullptr);
    fclose(doc_);
    free(doc_buf_);
  }
  std::string Doc() {
    fflush(doc_);
    return std::string(doc_buf_, doc_size_);
  }

  FakeEnv env_;
  CapturedOutput cap_;
  FILE* doc_ = nullptr;
  char* doc_buf_ = nullptr;
  size_t doc_size_ = 0;
};

TEST_F(UpdatePackageTest, WithoutTheSingletonNothingHappens) {
  EXPECT_EQ(nullptr, COrvoUpdatePackage::Instance());
  EXPECT_FALSE(COrvoUpdatePackage::XmlInventoryMode());
  COrvoUpdatePackage::FlashStatus(1);
  COrvoUpdatePackage::SetDisplay(true);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ(0, COrvoUpdatePackage::SetPayloadVersion(1, 2));
  char name[] = "BMC Firmware";
  EXPECT_EQ(0, COrvoUpdatePackage::AddDevice(5814, name, 1, 2));
  EXPECT_EQ("", Doc());
  EXPECT_EQ(0, g_bmc.requests);
  EXPECT_EQ("", cap_.Out());
}

TEST_F(UpdatePackageTest, OneSingleton) {
  COrvoUpdatePackage* first = COrvoUpdatePackage::NewOUP();
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, COrvoUpdatePackage::NewOUP());
  EXPECT_EQ(first, COrvoUpdatePackage::Instance());
  EXPECT_TRUE(first->GetDisplay());
  EXPECT_FALSE(first->GetXmlReturnCodeMode());
  EXPECT_FALSE(COrvoUpdatePackage::XmlInventoryMode());
  first->SetXmlInventoryMode(true);
  EXPECT_TRUE(COrvoUpdatePackage::XmlInventoryMode());
}

TEST_F(UpdatePackageTest, InventoryOfAnsweringBmc) {
  COrvoUpdatePackage::NewOUP()->SetXmlInventoryMode(true);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ(Inventory("1.41"), Doc());
  EXPECT_EQ("", cap_.Out());
  EXPECT_EQ("", cap_.Err());
}

TEST_F(UpdatePackageTest, VersionIsHexWithTwoMinorDigits) {
  g_bmc.major = 0x12;
  g_bmc.minor = 0x05;
  COrvoUpdatePackage::NewOUP()->SetXmlInventoryMode(true);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ(Inventory("12.05"), Doc());
}

TEST_F(UpdatePackageTest, InventoryAfterAFailureIsEmpty) {
  COrvoUpdatePackage::NewOUP()->SetXmlInventoryMode(true);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_DEVICE_NOT_FOUND);
  EXPECT_EQ(kEmptyInventory, Doc());
}

TEST_F(UpdatePackageTest, SilentBmcStillGetsADocument) {
  g_bmc.answers = false;
  COrvoUpdatePackage::NewOUP()->SetXmlInventoryMode(true);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ(Inventory("0.00"), Doc());
}

TEST_F(UpdatePackageTest, ResultAfterASuccessfulFlash) {
  g_bmc.minor = 0x52;
  COrvoUpdatePackage::NewOUP()->SetXmlReturnCode(true);
  COrvoUpdatePackage::FlashStatus(1);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ(Success("1.52"), Doc());
}

TEST_F(UpdatePackageTest, FailureDocumentAlwaysCarriesMessage33) {
  COrvoUpdatePackage* oup = COrvoUpdatePackage::NewOUP();
  oup->SetXmlReturnCode(true);
  COrvoUpdatePackage::FlashStatus(1);
  oup->Print(static_cast<eReturnCodeTag>(RC_FW_UPDATE_FAILED | RC_RETRY_LIMIT));
  EXPECT_EQ(kFailure, Doc());
}

TEST_F(UpdatePackageTest, NoFlashMeansFailureEvenWithSuccess) {
  COrvoUpdatePackage* oup = COrvoUpdatePackage::NewOUP();
  oup->SetXmlReturnCode(true);
  COrvoUpdatePackage::FlashStatus(1);
  COrvoUpdatePackage::FlashStatus(0);
  oup->Print(RC_SUCCESS);
  EXPECT_EQ(kFailure, Doc());
}

TEST_F(UpdatePackageTest, ReturnCodeModeWinsOverInventory) {
  COrvoUpdatePackage* oup = COrvoUpdatePackage::NewOUP();
  oup->SetXmlInventoryMode(true);
  oup->SetXmlReturnCode(true);
  oup->Print(RC_DEVICE_NOT_FOUND);
  EXPECT_EQ(kFailure, Doc());
}

TEST_F(UpdatePackageTest, DisplayOffPrintsNothing) {
  COrvoUpdatePackage::NewOUP()->SetXmlReturnCode(true);
  COrvoUpdatePackage::FlashStatus(1);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  COrvoUpdatePackage::SetDisplay(false);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ(Success("1.41"), Doc());
  EXPECT_FALSE(COrvoUpdatePackage::Instance()->GetDisplay());
}

TEST_F(UpdatePackageTest, SecondComponentIsRefused) {
  COrvoUpdatePackage::NewOUP();
  COrvoUpdatePackage::SetDisplay(false);
  char first[] = "BMC Firmware";
  char second[] = "Other";
  EXPECT_EQ(0, COrvoUpdatePackage::AddDevice(5814, first, 1, 41));
  EXPECT_TRUE(COrvoUpdatePackage::Instance()->GetDisplay());
  EXPECT_EQ(4102, COrvoUpdatePackage::AddDevice(1, second, 9, 9));
  EXPECT_EQ(4102, COrvoUpdatePackage::Instance()->AddComponent(1, second, 9, 9));
  COrvoUpdatePackage::Instance()->PrintInventory();
  EXPECT_EQ("\n   Firmware Versions                                 Current     Image\n"
            "    BMC Firmware ................................."
            "   1.41         N/A   \n",
            Doc());
}

TEST_F(UpdatePackageTest, PlainInventoryWithImageVersion) {
  COrvoUpdatePackage::NewOUP();
  char name[] = "BMC Firmware";
  COrvoUpdatePackage::AddDevice(5814, name, 1, 5);
  EXPECT_EQ(0, COrvoUpdatePackage::SetPayloadVersion(2, 7));
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ("\n   Firmware Versions                                 Current     Image\n"
            "    BMC Firmware ................................."
            "   1.05       2.07    \n",
            Doc());
  EXPECT_EQ(0, g_bmc.requests);  // no XML, no question to the BMC
}

TEST_F(UpdatePackageTest, PlainInventoryWithoutComponents) {
  COrvoUpdatePackage::NewOUP();
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ("\n   Firmware Versions                                 Current     Image\n",
            Doc());
}

TEST_F(UpdatePackageTest, DocumentsBypassTheMessageOutput) {
  G_pOutputMessageHandle->SetOutputMode(eOutputXml);
  COrvoUpdatePackage::NewOUP()->SetXmlInventoryMode(true);
  COrvoUpdatePackage::ToOutputIfNecessary(RC_SUCCESS);
  EXPECT_EQ(Inventory("1.41"), Doc());
  EXPECT_EQ("", cap_.Out());
  EXPECT_EQ("", cap_.Err());
}

}  // namespace

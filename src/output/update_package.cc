// The XML report for a server-update packaging framework. Documents are
// printed straight to standard output: in XML output mode the message
// output keeps the console silent.
#include "output/update_package.h"

#include <stdio.h>
#include <string.h>

#include <new>
#include <string>

COrvoUpdatePackage* COrvoUpdatePackage::s_OrvoUpdatePackage = nullptr;
bool COrvoUpdatePackage::m_IsBMC = false;
FILE* COrvoUpdatePackage::s_pStream = nullptr;

namespace {

// Answer to a second component: the report has room for one.
constexpr int kTooManyComponents = 4102;

}  // namespace

COrvoUpdatePackage::~COrvoUpdatePackage() = default;

COrvoUpdatePackage* COrvoUpdatePackage::NewOUP() {
  if (s_OrvoUpdatePackage == nullptr)
    s_OrvoUpdatePackage = new (std::nothrow) COrvoUpdatePackage();
  return s_OrvoUpdatePackage;
}

bool COrvoUpdatePackage::XmlInventoryMode() {
  return s_OrvoUpdatePackage != nullptr &&
         s_OrvoUpdatePackage->u8XmlInventoryMode != 0;
}

void COrvoUpdatePackage::FlashStatus(int ok) {
  if (s_OrvoUpdatePackage == nullptr) return;
  s_OrvoUpdatePackage->sComponent.u8FlashStatus = ok != 0 ? 1 : 0;
}

void COrvoUpdatePackage::SetDisplay(bool display) {
  if (s_OrvoUpdatePackage == nullptr) return;
  s_OrvoUpdatePackage->u8Display = display ? 1 : 0;
}

void COrvoUpdatePackage::ToOutputIfNecessary(eReturnCodeTag rc) {
  if (s_OrvoUpdatePackage == nullptr) return;
  if (s_OrvoUpdatePackage->u8Display == 0) return;
  s_OrvoUpdatePackage->Print(rc);
}

int COrvoUpdatePackage::SetPayloadVersion(unsigned char major,
                                          unsigned char minor) {
  if (s_OrvoUpdatePackage == nullptr) return 0;
  return s_OrvoUpdatePackage->SetImageVersion(major, minor);
}

int COrvoUpdatePackage::SetImageVersion(unsigned char major,
                                        unsigned char minor) {
  u8ImageVersionMajor = major;
  u8ImageVersionMinor = minor;
  return 0;
}

int COrvoUpdatePackage::AddDevice(int id, char* name, unsigned char major,
                                  unsigned char minor) {
  if (s_OrvoUpdatePackage == nullptr) return 0;
  return s_OrvoUpdatePackage->AddComponent(id, name, major, minor);
}

int COrvoUpdatePackage::AddComponent(int id, char* name, unsigned char major,
                                     unsigned char minor) {
  // There is room for one component only.
  if (i32ComponentCount >= 1) return kTooManyComponents;
  sComponent.i32ComponentId = id;
  sComponent.pchDisplayName = name;
  sComponent.u8VersionMajor = major;
  sComponent.u8VersionMinor = minor;
  sComponent.u8FlashStatus = 0;
  u8Display = 1;
  ++i32ComponentCount;
  return 0;
}

void COrvoUpdatePackage::ResetForTest() {
  delete s_OrvoUpdatePackage;
  s_OrvoUpdatePackage = nullptr;
  m_IsBMC = false;
  s_pStream = nullptr;
}

void COrvoUpdatePackage::SetStreamForTest(FILE* stream) { s_pStream = stream; }

void COrvoUpdatePackage::Print(eReturnCodeTag rc) {
  if (u8XmlReturnCode != 0) {
    PrintXmlReturnCode(rc);
  } else if (u8XmlInventoryMode != 0) {
    PrintXmlInventory(rc);
  } else {
    PrintInventory();
  }
}

void COrvoUpdatePackage::PrintXmlInventory(eReturnCodeTag rc) {
  (void)rc;
}

void COrvoUpdatePackage::PrintXmlReturnCode(eReturnCodeTag rc) {
  (void)rc;
}

void COrvoUpdatePackage::PrintInventory() {}

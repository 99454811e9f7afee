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
COrvoUpdatePackage::RevisionReader COrvoUpdatePackage::s_pfnReadRevision = nullptr;

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

namespace {

FILE* Stream(FILE* chosen) { return chosen != nullptr ? chosen : stdout; }

}  // namespace

// The BMC's firmware revision as the documents show it. A failed read
// leaves the zeroes: the document is printed anyway.
void COrvoUpdatePackage::ReadBMCRevision(unsigned char* major, unsigned char* minor) {
  unsigned char revision[16] = {0};
  if (s_pfnReadRevision != nullptr) s_pfnReadRevision(revision);
  *major = revision[0];
  *minor = revision[1];
}

void COrvoUpdatePackage::PrintXmlInventory(eReturnCodeTag rc) {
  FILE* out = Stream(s_pStream);
  unsigned char major = 0, minor = 0;
  ReadBMCRevision(&major, &minor);
  fprintf(out, "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n");
  if (rc == RC_SUCCESS) {
    fprintf(out, "<SVMInventory lang=\"en\">\n");
    fprintf(out,
            "   <Device componentID=\"5814\" display=\"BMC Firmware\">\n");
    fprintf(out,
            "      <Application componentType=\"FRMW\" version=\"%x.%02x\" "
            "display=\"BMC Firmware\" />\n",
            major, minor);
    fprintf(out, "   </Device>\n");
    fprintf(out, "</SVMInventory>\n");
  } else {
    fprintf(out, "<SVMInventory lang=\"en\"/>\n");
  }
  fflush(out);
}

void COrvoUpdatePackage::PrintXmlReturnCode(eReturnCodeTag rc) {
  FILE* out = Stream(s_pStream);
  unsigned char major = 0, minor = 0;
  ReadBMCRevision(&major, &minor);
  fprintf(out, "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n");
  fprintf(out, "<SVMExecution lang=\"en\">\n");
  if (sComponent.u8FlashStatus == 1 && rc == RC_SUCCESS) {
    fprintf(out,
            "   <Device componentID=\"5814\" display=\"BMC Firmware\">\n");
    fprintf(out,
            "      <Application componentType=\"FRMW\" version=\"%x.%02x\" "
            "display=\"BMC Firmware\">\n",
            major, minor);
    fprintf(out, "         <SPStatus result=\"true\">\n");
    fprintf(out,
            "            <Message id=\"0\" >Update Successful.</Message>\n");
    fprintf(out, "         </SPStatus>\n");
    fprintf(out, "      </Application>\n");
    fprintf(out, "   </Device>\n");
    fprintf(out, "</SVMExecution>\n");
  } else {
    // Always message 33: the framework expects this one failure answer.
    fprintf(out, "   <SPStatus result=\"false\">\n");
    fprintf(out,
            "      <Message id=\"33\" >Update Firmware Failed</Message>\n");
    fprintf(out, "   </SPStatus>\n");
    fprintf(out, "</SVMExecution>\n");
  }
  fflush(out);
}

void COrvoUpdatePackage::PrintInventory() {
  FILE* out = Stream(s_pStream);
  fprintf(out,
          "\n   Firmware Versions                                 Current     "
          "Image\n");
  for (int i = 0; i < i32ComponentCount && i < 1; ++i) {
    const char* name =
        sComponent.pchDisplayName != nullptr ? sComponent.pchDisplayName : "";
    std::string cell = std::string("    ") + name + " ";
    while (cell.size() < 50) cell += '.';
    fprintf(out, "%s", cell.c_str());
    if (u8ImageVersionMajor != 0 || u8ImageVersionMinor != 0) {
      fprintf(out, "   %u.%02u       %u.%02u    ", sComponent.u8VersionMajor,
              sComponent.u8VersionMinor, u8ImageVersionMajor,
              u8ImageVersionMinor);
    } else {
      fprintf(out, "   %u.%02u         N/A   ", sComponent.u8VersionMajor,
              sComponent.u8VersionMinor);
    }
    fprintf(out, "\n");
  }
  fflush(out);
}

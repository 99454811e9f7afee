// The XML report for a server-update packaging framework: "-xml" asks for
// the firmware inventory, "-fml" for the result of a flash. Printed once,
// straight to standard output.
#ifndef VRX_OUTPUT_UPDATE_PACKAGE_H_
#define VRX_OUTPUT_UPDATE_PACKAGE_H_

#include <stdint.h>
#include <stdio.h>

#include "types.h"

class COrvoUpdatePackage {
 public:
  virtual ~COrvoUpdatePackage();

  static COrvoUpdatePackage* NewOUP();
  static COrvoUpdatePackage* Instance() { return s_OrvoUpdatePackage; }
  static void IsBMC(bool isBmc) { m_IsBMC = isBmc; }
  static bool XmlInventoryMode();
  static void FlashStatus(int ok);
  static void SetDisplay(bool display);
  static void ToOutputIfNecessary(eReturnCodeTag rc);
  static int SetPayloadVersion(unsigned char major, unsigned char minor);
  static int AddDevice(int id, char* name, unsigned char major,
                       unsigned char minor);

  void SetXmlInventoryMode(bool on) { u8XmlInventoryMode = on ? 1 : 0; }
  void SetXmlReturnCode(bool on) { u8XmlReturnCode = on ? 1 : 0; }
  bool GetXmlReturnCodeMode() const { return u8XmlReturnCode != 0; }
  bool GetDisplay() const { return u8Display != 0; }

  void Print(eReturnCodeTag rc);
  void PrintXmlInventory(eReturnCodeTag rc);
  void PrintXmlReturnCode(eReturnCodeTag rc);
  void PrintInventory();
  int SetImageVersion(unsigned char major, unsigned char minor);
  int AddComponent(int id, char* name, unsigned char major,
                   unsigned char minor);

  // How the documents read the BMC's firmware revision (two bytes, major and
  // minor); the driver installs the IPMI command. Without one they show 0.0.
  typedef int (*RevisionReader)(unsigned char* revision);
  static void SetRevisionReader(RevisionReader reader) { s_pfnReadRevision = reader; }

  // Tests only: forget the singleton (it is otherwise never deleted).
  static void ResetForTest();
  // Tests only: where the documents go; nullptr restores stdout.
  static void SetStreamForTest(FILE* stream);

 private:
  COrvoUpdatePackage() = default;
  static void ReadBMCRevision(unsigned char* major, unsigned char* minor);

  struct sComponentTag {
    int32_t i32ComponentId;
    const char* pchDisplayName;
    uint8_t u8VersionMajor;
    uint8_t u8VersionMinor;
    uint8_t u8FlashStatus;
  };

  uint8_t u8XmlInventoryMode = 0;
  uint8_t u8XmlReturnCode = 0;
  uint8_t u8Display = 1;
  int32_t i32ComponentCount = 0;
  sComponentTag sComponent = {0, nullptr, 0, 0, 0};
  uint8_t u8ImageVersionMajor = 0;
  uint8_t u8ImageVersionMinor = 0;

  static COrvoUpdatePackage* s_OrvoUpdatePackage;
  static bool m_IsBMC;
  static FILE* s_pStream;  // null: stdout
  static RevisionReader s_pfnReadRevision;
};

#endif  // VRX_OUTPUT_UPDATE_PACKAGE_H_

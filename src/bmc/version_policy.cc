// Which image belongs to the BMC, whether its firmware is to be written
// under the chosen update mode, and whether the BMC runs it afterwards.
#include <stdio.h>
#include <string.h>

#include <string>

#include "bmc/bmc_handle.h"
#include "output/output.h"

namespace {

unsigned Revision16(const uint8_t* fwRevision) {
  return fwRevision[2] * 256u + fwRevision[3];
}

// True when version a is newer than version b: major, then minor, then the
// 16-bit revision.
bool IsNewer(const uint8_t* a, const uint8_t* b) {
  if (a[0] != b[0]) return a[0] > b[0];
  if (a[1] != b[1]) return a[1] > b[1];
  return Revision16(a) > Revision16(b);
}

// The platform name is not trusted to be terminated.
std::string PlatformName(const sBMCInformationTag* bmc) {
  return std::string(bmc->achPlatformName,
                     strnlen(bmc->achPlatformName,
                             sizeof(bmc->achPlatformName)));
}

}  // namespace

int CompareImageType(sBMCInformationTag* bmc, sImageHeaderTag* list,
                     int count) {
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                          "   Process device : ");
  int result = RC_DEVICE_NOT_FOUND;
  // Any image is taken for a detected BMC; the type is not compared.
  if (bmc != nullptr && list != nullptr && bmc->u32Status == eBMCDetected &&
      count > 0) {
    bmc->u32Status = eBMCImageMatched;
    bmc->u32ImageIndex = 0;
    result = RC_SUCCESS;
  }
  if (result == RC_SUCCESS) {
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "OK\n");
  } else {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectError, "\r   invalid current image type !! \n");
  }
  return result;
}

void CompareRevisions(sBMCInformationTag* bmc, const sImageHeaderTag* image,
                      eFwUpdateModeTag mode) {
  if (bmc == nullptr || image == nullptr) return;
  if (bmc->u32Status != eBMCImageMatched) return;
  if (mode == eFwUpdateModeForce) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectNormal, "\r   Force firmware update ...\n");
    bmc->u32Status = eBMCUpdate;
    return;
  }
  const uint8_t* current = bmc->au8FwRevision;
  const uint8_t* offered = image->au8FwRevision;
  if (memcmp(current, offered, 4) == 0) {
    bmc->u32Status = eBMCSameVersion;
    return;
  }
  if (!IsNewer(current, offered)) {
    bmc->u32Status =
        mode == eFwUpdateModeDowngrade ? eBMCImageNewer : eBMCUpdate;
    return;
  }
  // The image would downgrade the BMC.
  if (mode == eFwUpdateModeDowngrade) {
    bmc->u32Status = eBMCUpdate;
    return;
  }
  if (mode == eFwUpdateModeUpgradeOnly) {
    bmc->u32Status = eBMCDetected;
    return;
  }
  std::string name = PlatformName(bmc);
  char question[160];
  snprintf(question, sizeof(question),
           "   Downgrade %s from %u.%u.%u to %u.%u.%u (Y/N)?", name.c_str(),
           current[0], current[1], Revision16(current), offered[0], offered[1],
           Revision16(offered));
  int answer = G_pOutputMessageHandle->PromptUser(eRedirectNormal, question);
  bmc->u32Status = answer == 0 ? eBMCUpdate : eBMCDetected;
}

int CompareFwVersionAfterFwUpdate(const sBMCInformationTag* bmc,
                                  const sImageHeaderTag* image) {
  G_pOutputMessageHandle->RedirectMessage(eRedirectNormal,
                                          "\n   Check new firmware version\n");
  if (bmc == nullptr || image == nullptr) return 1;
  for (int i = 0; i < 4; ++i) {
    if (bmc->au8FwRevision[i] != image->au8FwRevision[i]) return 1;
  }
  if (bmc->u8HasBootloader == 1 && image->u8HasBootloader == 1) {
    // The fourth byte of each descriptor is not part of the version.
    if (memcmp(image->au8BootloaderInfo, bmc->au8BootloaderInfo, 3) != 0)
      return 1;
    if (memcmp(image->au8BootloaderVersion, bmc->au8BootloaderVersion, 3) != 0)
      return 1;
  }
  return 0;
}

// Version tables: the BMC's current firmware against an image.
#include "output/output.h"

void TOutputMessageHandle::OutputFirmwareRevisions(
    const sBMCInformationTag* bmc, const sImageHeaderTag* image) {
  (void)bmc;
  (void)image;
}

void TOutputMessageHandle::OutputFirmwareRevisionsAfterFwUpdate(
    const sImageHeaderTag* image, const sBMCInformationTag* bmc) {
  (void)image;
  (void)bmc;
}

void TOutputMessageHandle::OutputBMCFirmwareRevisions(
    const sBMCInformationTag* bmc) {
  (void)bmc;
}

void TOutputMessageHandle::OutputBMCFirmwareRevisionsAfterRemoteFwUpdate(
    const sBMCInformationTag* oldInfo, const sBMCInformationTag* newInfo) {
  (void)oldInfo;
  (void)newInfo;
}

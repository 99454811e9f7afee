// The BMC record and the update mode chosen on the command line.
#include "bmc/bmc_handle.h"

#include <stdio.h>
#include <string.h>

#include <new>

TBMCHandle* G_pBMCHandle = nullptr;

void BMCHandlerConstructor() {
  G_pBMCHandle = new (std::nothrow) TBMCHandle();
  if (G_pBMCHandle != nullptr) G_pBMCHandle->SetFwUpdateMode(eFwUpdateModeNormal);
}

void BMCHandlerDestructor() {
  if (G_pBMCHandle == nullptr) return;
  delete G_pBMCHandle;
  G_pBMCHandle = nullptr;
}

TBMCHandle::TBMCHandle() {
  // The list always holds exactly one BMC.
  psBMCInfoList = new (std::nothrow) sBMCInformationTag[1];
  InitBMCInfoList();
}

TBMCHandle::~TBMCHandle() { UinitBMCInfoList(); }

void TBMCHandle::InitOneBMCInfo() {
  sBMCInformationTag* bmc = psCurrBMCInfo;
  if (bmc == nullptr) return;
  memset(bmc, 0, sizeof(*bmc));
  bmc->u8SlaveAddress = 0x20;
  bmc->u32ImageIndex = 0;
  bmc->u32DeviceType = 0xAE;
  bmc->u32Status = 0;
  snprintf(bmc->achPlatformName, sizeof(bmc->achPlatformName), "%s",
           VRX_FAMILY_NAME);
}

void TBMCHandle::InitBMCInfoList() {
  if (psBMCInfoList == nullptr) return;
  for (int i = 0; i < 1; ++i) {
    SetCurrBMCInfo(i);
    InitOneBMCInfo();
  }
}

void TBMCHandle::UinitBMCInfoList() {
  if (psBMCInfoList == nullptr) return;
  delete[] psBMCInfoList;
  psBMCInfoList = nullptr;
  psCurrBMCInfo = nullptr;
}

void TBMCHandle::SetCurrBMCInfo(int index) {
  if (psBMCInfoList == nullptr) return;
  psCurrBMCInfo = &psBMCInfoList[index];
}

void TBMCHandle::SetFwUpdateMode(eFwUpdateModeTag mode) {
  if (static_cast<int>(mode) < 0 || static_cast<int>(mode) > 4) return;
  eFwUpdateMode = mode;
}

int TBMCHandle::IsFwUpdate() {
  if (psCurrBMCInfo == nullptr) return 0;
  return psCurrBMCInfo->u32Status == eBMCUpdate ? 1 : 0;
}

int TBMCHandle::GetSkipCode(int code) {
  if (psCurrBMCInfo == nullptr) return code;
  switch (psCurrBMCInfo->u32Status) {
    case eBMCSameVersion:
      return RC_SAME_VERSION;
    case eBMCDetected:
    case eBMCImageNewer:
      // An image newer than the BMC in downgrade mode reads as "older" too.
      return RC_OLDER_VERSION;
    default:
      return code;
  }
}

// What the utility knows about the BMC it updates, the device search, and
// the version policy that decides whether an image may be applied.
#ifndef VRX_BMC_BMC_HANDLE_H_
#define VRX_BMC_BMC_HANDLE_H_

#include "types.h"

class TBMCHandle {
 public:
  TBMCHandle();
  ~TBMCHandle();
  TBMCHandle(const TBMCHandle&) = delete;
  TBMCHandle& operator=(const TBMCHandle&) = delete;

  void InitOneBMCInfo();
  void InitBMCInfoList();
  void UinitBMCInfoList();
  void SetCurrBMCInfo(int index);
  sBMCInformationTag* GetCurrBMCInfo() { return psCurrBMCInfo; }
  void SetFwUpdateMode(eFwUpdateModeTag mode);
  eFwUpdateModeTag GetFwUpdateMode() const { return eFwUpdateMode; }
  int IsFwUpdate();
  int GetSkipCode(int code);
  int SearchBMCDevices();
  int CheckOneBMCDevice();

 private:
  sBMCInformationTag* psBMCInfoList = nullptr;
  sBMCInformationTag* psCurrBMCInfo = nullptr;
  eFwUpdateModeTag eFwUpdateMode = eFwUpdateModeNormal;
};

extern TBMCHandle* G_pBMCHandle;
void BMCHandlerConstructor();
void BMCHandlerDestructor();

// Version policy.
int CompareImageType(sBMCInformationTag* bmc, sImageHeaderTag* list,
                     int count);
void CompareRevisions(sBMCInformationTag* bmc, const sImageHeaderTag* image,
                      eFwUpdateModeTag mode);
int CompareFwVersionAfterFwUpdate(const sBMCInformationTag* bmc,
                                  const sImageHeaderTag* image);

#endif  // VRX_BMC_BMC_HANDLE_H_

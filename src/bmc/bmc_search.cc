// The device search: Get Device ID, and for firmware 1.41 the FRU product
// name, since that firmware on some platforms must not be updated by us.
#include <string.h>

#include "bmc/bmc_handle.h"
#include "ipmi/commands.h"
#include "output/output.h"

namespace {

bool IsRefusedPlatform(const char* productName) {
  return strstr(productName, "Z3100") != nullptr ||
         strstr(productName, "Z3200") != nullptr;
}

void PrintRefusal() {
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectError, "\n\n   %s",
      VRX_FAMILY_NAME
      " version 1.41 does not support firmware update via VRXFWU utility,");
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectError, "\n   %s\n",
      "please use SOCFLASH utility to update firmware.");
}

}  // namespace

int TBMCHandle::SearchBMCDevices() {
  InitBMCInfoList();
  G_pOutputMessageHandle->RedirectMessage(eRedirectPrompt,
                                          "\n   Searching For Devices ");
  int found = 0;
  int result = RC_SUCCESS;
  for (int i = 0; i < 1; ++i) {
    SetCurrBMCInfo(i);
    sBMCInformationTag* bmc = GetCurrBMCInfo();
    if (bmc == nullptr) return RC_DEVICE_NOT_FOUND;
    bmc->u32Status = eBMCSearching;
    result = bmc->u32DeviceType == 0xAE ? CheckOneBMCDevice() : RC_FAILED;
    if (result == RC_SUCCESS) {
      bmc->u32Status = eBMCDetected;
      ++found;
    } else {
      bmc->u32Status = eBMCNotFound;
      result = ((result >> 8) & 0xFF) == 0x01
                   ? (RC_RETRY_LIMIT | RC_DEVICE_NOT_FOUND)
                   : RC_DEVICE_NOT_FOUND;
    }
  }
  G_pOutputMessageHandle->ClearOneLine(eRedirectProgress);
  return found > 0 ? RC_SUCCESS : result;
}

int TBMCHandle::CheckOneBMCDevice() {
  sBMCInformationTag* bmc = GetCurrBMCInfo();
  if (bmc == nullptr) return RC_DEVICE_NOT_FOUND;
  unsigned char revision[16] = {0};
  int rc = GetDeviceID(revision);
  if (rc != RC_SUCCESS) return rc;
  bmc->au8FwRevision[0] = revision[0];
  bmc->au8FwRevision[1] = revision[1];
  if (revision[0] != 1 || revision[1] != 0x41) return RC_SUCCESS;

  unsigned char productName[32] = {0};
  rc = GetFRUProductName(productName);
  if (rc != RC_SUCCESS) {
    PrintRefusal();
    return rc;
  }
  productName[sizeof(productName) - 1] = '\0';
  if (IsRefusedPlatform(reinterpret_cast<const char*>(productName))) {
    PrintRefusal();
    return RC_FAILED;
  }
  return RC_SUCCESS;
}

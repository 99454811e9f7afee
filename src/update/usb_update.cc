// The virtual-media update: the BMC runs an update task whose image source
// is a virtual USB device that the host fills.
#include <string.h>

#include "common/run_state.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "update/firmware_update.h"
#include "update/update_steps.h"
#include "usb/write_firmware.h"

namespace {

constexpr unsigned char kSourceVirtualUSB = 3;
constexpr uint8_t kStatusReadyToAcceptImage = 0x03;
// The BMC needs this many polls before its device can be trusted to be
// ready, even when it reports readiness earlier.
constexpr uint8_t kMinimumReadyPolls = 16;

void PrintOkOrFailed(int rc) {
  if (rc == 0) {
    Out().RedirectMessage(eRedirectPrompt, " OK\n");
  } else {
    Out().RedirectMessage(eRedirectPrompt, " FAILED\n");
  }
}

}  // namespace

int TFirmwareUpdate::RequestUSBFwUpdateInit(uint8_t* taskId, uint8_t target) {
  Out().RedirectMessage(eRedirectPrompt,
                        "\n   Initiate Update Firmware Command : ");
  const int rc = UpdateFirmware(kSourceVirtualUSB,
                                static_cast<unsigned char>(0x80 | (target & 0x0F)),
                                taskId);
  PrintOkOrFailed(rc);
  return rc;
}

int TFirmwareUpdate::RequestUSBFwUpdatePhaseOne(uint8_t taskId) {
  Out().RedirectMessage(eRedirectPrompt,
                        "\r   Issue USB Firmware Update Command Phase 1 : ");
  const int rc = USBFwUpdatePhase1(taskId);
  PrintOkOrFailed(rc);
  return rc;
}

int TFirmwareUpdate::RequestUSBFwUpdatePhaseTwo(uint8_t taskId) {
  Out().RedirectMessage(eRedirectPrompt,
                        "\r   Issue USB Firmware Update Command Phase 2 : ");
  const int rc = USBFwUpdatePhase2(taskId);
  PrintOkOrFailed(rc);
  return rc;
}

int TFirmwareUpdate::RequestUSBFwUpdateGetStatus(uint8_t taskId,
                                                 uint8_t* status) {
  Out().RedirectMessage(eRedirectDebug, "\r   Get Firmware update Status : ");
  unsigned char percent = 0;
  bool percentValid = false;
  const int rc = GetUpdateStatus(taskId, status, &percent, &percentValid);
  if (rc == 0) Out().RedirectMessage(eRedirectDebug, "   Status = 0x%X\n", *status);
  return rc;
}

int TFirmwareUpdate::DoUSBFwUpdate(const sBMCInformationTag* bmc,
                                   const sImageHeaderTag* image) {
  int result = 0;
  bool unmountOnFailure = true;
  uint8_t taskId = 0;
  sBMCInformationTag local;
  memset(&local, 0, sizeof(local));
  update_steps::CopyDeviceName(&local, bmc != nullptr ? bmc->achPlatformName : "");

  if (image == nullptr || image->achFileName[0] == '\0') {
    result = RC_FILE_NOT_FOUND;
  }
  if (CurrentSettings() != nullptr) {
    SetFwUpdateSettings(CurrentSettings());
  }

  if (result == 0) {
    result = RequestUSBFwUpdateInit(&taskId, u8UpdateTarget);
    if (result == 0) update_steps::NoteUpdateStarted();
    // The pause lets the BMC settle; a stopping run does not need it.
    if (!update_steps::Interrupted()) DelayMS(1000);
  }
  result = update_steps::Checkpoint(result);
  if (result == 0) {
    result = update_steps::TakeDiskListBeforePhaseOne();
    if (result != 0) {
      unmountOnFailure = false;
    }
  }
  result = update_steps::Checkpoint(result);
  if (result == 0) {
    result = RequestUSBFwUpdatePhaseOne(taskId);
    DelayMS(1000);
  }
  result = update_steps::Checkpoint(result);
  if (result == 0) {
    // No upper bound: the BMC decides when its device is ready.
    uint8_t status = 0;
    uint8_t polls = 0;
    do {
      result = RequestUSBFwUpdateGetStatus(taskId, &status);
      if (polls < 0xFF) ++polls;
      DelayMS(1000);
      // The one wait without a bound ends when the user asks it to.
      if (update_steps::Interrupted()) break;
    } while (status != kStatusReadyToAcceptImage || polls < kMinimumReadyPolls);
  }

  result = update_steps::RunMountedWindow(
      this, update_steps::Checkpoint(result), unmountOnFailure,
      update_steps::eDetectVirtualMedia,
      image != nullptr ? image->achFileName : nullptr, nullptr);

  result = update_steps::Checkpoint(result);
  if (result == 0) {
    DelayMS(2000);
    result = RequestUSBFwUpdatePhaseTwo(taskId);
  }
  result = update_steps::Checkpoint(result);
  if (result == 0) result = DoUSBGetFwUpdateStatus(taskId);
  result = update_steps::Checkpoint(result);
  result = update_steps::FinishAfterTask(this, bmc, &local, result);
  result = update_steps::ReportFinalResult(result,
                                           update_steps::eFinalVirtualMedia);
  return update_steps::ReportIfInterrupted(result);
}

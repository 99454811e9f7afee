// The three-phase update over the system interface: the BMC attaches a
// virtual USB device on request, the host fills it, and the BMC programs
// the image and is restarted gracefully.
#include <string.h>

#include "bmc/bmc_handle.h"
#include "common/run_state.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "platform/platform.h"
#include "update/firmware_update.h"
#include "update/update_steps.h"
#include "usb/write_firmware.h"

namespace {

int ClearPrivateStorageStep(TFirmwareUpdate* update) {
  return update->GetClearPsMode() ? update->ClearPrivateStorage() : 0;
}

}  // namespace

int TFirmwareUpdate::DoFwUpdate(const char* deviceName,
                                const sImageHeaderTag* image) {
  int result = 0;
  bool resetOnFailure = true;
  bool unmountOnFailure = true;
  sBMCInformationTag local;
  memset(&local, 0, sizeof(local));
  update_steps::CopyDeviceName(&local, deviceName);

  if (image == nullptr || image->achFileName[0] == '\0') {
    result = RC_FILE_NOT_FOUND;
  }
  if (const sProgramSettingsTag* settings = CurrentSettings()) {
    SetFwUpdateSettings(settings);
  }
  if (image != nullptr) SetUSBDeviceMinSize(image);

  if (result == 0) {
    result = CheckFwUpdateStatus();
    // A refused start neither resets the BMC nor touches the mount.
    if (result == RC_UPDATE_IN_PROGRESS) {
      resetOnFailure = false;
      unmountOnFailure = false;
    }
  }
  if (result == 0) {
    result = update_steps::TakeDiskListBeforePhaseOne();
    if (result != 0) {
      resetOnFailure = false;
      unmountOnFailure = false;
    }
  }
  result = update_steps::Checkpoint(result);
  if (result == 0) {
    update_steps::NoteUpdateStarted();
    result = RequestAFwUpdate(static_cast<uint8_t>(GetUSBDeviceMinSize() + 1));
  }
  result = update_steps::Checkpoint(result);
  if (result == 0) result = AskBMCIfUSBIsReady();

  result = update_steps::RunMountedWindow(
      this, update_steps::Checkpoint(result), unmountOnFailure,
      update_steps::eDetectThreePhase,
      image != nullptr ? image->achFileName : nullptr, ClearPrivateStorageStep);

  result = update_steps::Checkpoint(result);
  if (result == 0) result = TransferringFwImageFileIsDone();
  result = update_steps::Checkpoint(result);
  if (result == 0) {
    DelayMS(5000);
    result = DoGetFwUpdateStatus();
  }
  result = update_steps::Checkpoint(result);
  if (result == 0) {
    DelayMS(3000);
    result = IBMCGracefulReset(0);
  }
  if (result == 0) result = WaitForiBMCComeUp(&local);
  if (result == 0) {
    result = CompareFwVersionAfterFwUpdate(&local, image);
    Out().OutputFirmwareRevisionsAfterFwUpdate(image, &local);
    if (result == RC_FAILED) {
      Out().RedirectMessage(eRedirectNormal,
                            "   Current Firmware version and Image Firmware "
                            "version are not the same!!\n");
    }
  }

  if (result == 0) {
    Out().RedirectMessage(eRedirectNormal, "\n   Firmware update successfully\n");
  } else if (resetOnFailure) {
    // Leaves the BMC's update mode whatever went wrong.
    IBMCGracefulReset(0);
    update_steps::NoteBmcReset();
  }
  return update_steps::ReportIfInterrupted(result);
}

int TFirmwareUpdate::CheckFwUpdateStatus() {
  unsigned char percent = 0;
  const int rc = GetFwUpdateStatus(&percent);
  if ((rc & 0xFF) == RC_UPDATE_NOT_INITIATED) return 0;
  return RC_UPDATE_IN_PROGRESS;
}

int TFirmwareUpdate::RequestAFwUpdate(uint8_t sizeMiB) {
  Out().RedirectMessage(eRedirectDebug, "\n   FW Update Phase 1 : ");
  int rc = FwUpdatePhase1(sizeMiB);
  if (rc != 0) return rc;

  Out().RedirectMessage(eRedirectDebug, "\n   Check whether Phase 1 is ready : ");
  update_steps::PollClock clock;
  bool ready = false;
  do {
    DelayMS(1000);
    rc = FwUpdatePhase1(sizeMiB);
    clock.Tick();
    // The BMC refuses a second start once it is in phase 1.
    if ((rc & 0xFF) == RC_UPDATE_IN_PROGRESS) ready = true;
  } while (!ready && clock.Seconds() <= u16PhaseOneWaitingTime &&
           !update_steps::Interrupted());

  clock.PrintTimes("   ", "Start checking where Phase 1 is ready",
                   "Stop checking where Phase 1 is ready");
  clock.PrintElapsed("   ");
  if (ready) {
    Out().RedirectMessage(eRedirectDebug, "   FW Update Phase 1 OK\n");
    return 0;
  }
  Out().RedirectMessage(eRedirectDebug, "   FW Update Phase 1 timeout\n");
  Out().RedirectMessage(eRedirectProgress, "\r   FW Update Phase 1: Timeout\n");
  return RC_TIMEOUT_LIMIT + RC_PHASE1_FAILED;
}

int TFirmwareUpdate::AskBMCIfUSBIsReady() {
  Out().RedirectMessage(eRedirectDebug, "\n   FW Update Phase 2 : ");
  update_steps::PollClock clock;
  int rc = 0;
  do {
    DelayMS(1000);
    rc = FwUpdatePhase2();
    clock.Tick();
  } while (rc != 0 && clock.Seconds() <= u16PhaseTwoWaitingTime &&
           !update_steps::Interrupted());

  clock.PrintTimes("   ", "Start FW Update Phase 2",
                   "Stop FW Update Phase 2 is ready");
  clock.PrintElapsed("   ");
  if (rc == 0) {
    Out().RedirectMessage(eRedirectDebug, "   FW Update Phase 2 OK\n");
    return 0;
  }
  Out().RedirectMessage(eRedirectDebug, "   FW Update Phase 2 timeout\n");
  Out().RedirectMessage(eRedirectProgress, "\r   FW Update Phase 2: Timeout\n");
  return RC_TIMEOUT_LIMIT + RC_PHASE2_FAILED;
}

int TFirmwareUpdate::DetectUSBDevice() {
  int rc = 1;
  int counter = update_steps::kSpinnerStart;
  const uint16_t attempts = static_cast<uint16_t>(u16USBSearchingRetry + 1);
  for (uint16_t i = 0; i < attempts; ++i) {
    Out().RedirectMessage(eRedirectDebug, "\n   Detecting USB Device");
    Out().BeautifyDelayPrintout(counter--, "  Detecting USB Device ...");
    DelayMS(1000);
    rc = G_pWriteFirmware->GetVirtualUSBDevInfo();
    if (rc == 0) break;
    // An interrupted run goes straight to the clean-up.
    if (update_steps::Interrupted()) break;
  }
  return rc;
}

int TFirmwareUpdate::CopyFwImageFile(const char* path) {
  Out().RedirectMessage(eRedirectNormal, "\n   Uploading Firmware Image ... ");
  int rc = 1;
  for (int attempt = 0; attempt < 6; ++attempt) {
    if (attempt > 0) {
      Out().RedirectMessage(eRedirectNormal,
                            "\n   Uploading Firmware Image ... retry %d", attempt);
      Out().RedirectMessage(eRedirectProgress, "\n");
    }
    rc = G_pWriteFirmware->WriteFileToUSBKey(path);
    if (rc == 0) break;
    // No further attempt once the user asked to stop.
    if (update_steps::Interrupted()) return rc;
  }
  if (rc != 0) {
    Out().RedirectMessage(eRedirectError, "\n   Uploading Firmware Image Failed!\n");
    return RC_COPY_IMAGE_FAILED;
  }
  Out().RedirectMessage(eRedirectNormal, "\n   Uploading Firmware Image OK!\n");
  return 0;
}

int TFirmwareUpdate::ClearPrivateStorage() {
  Out().RedirectMessage(eRedirectDebug, "\n   Set Firmware Image Status : ");
  unsigned char status[2] = {1, 0};
  const int rc = SetFwImageStatus(status);
  if (rc == 0) {
    Out().RedirectMessage(eRedirectDebug, "   Set Firmware Image Status OK\n");
  }
  return rc;
}

int TFirmwareUpdate::TransferringFwImageFileIsDone() {
  Out().RedirectMessage(eRedirectDebug, "\n   FW Update Phase 3 : ");
  if (FwUpdatePhase3() != 0) {
    Out().RedirectMessage(eRedirectDebug, "   FW Update Phase 3 Failed\n");
    Out().RedirectMessage(eRedirectProgress, "\r   FW Update Phase 3: Failed\n");
    // Reported with the time-out flag although nothing timed out.
    return RC_TIMEOUT_LIMIT + RC_PHASE3_FAILED;
  }
  Out().RedirectMessage(eRedirectDebug, "   FW Update Phase 3 OK\n");
  return 0;
}

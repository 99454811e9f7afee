// Steps that the three-phase, the virtual-media and the remote update share.
#include "update/update_steps.h"

#include <stdio.h>

#include "driver/driver.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "output/update_package.h"
#include "platform/platform.h"
#include "update/firmware_update.h"
#include "update/interrupt_guard.h"
#include "usb/write_firmware.h"

namespace update_steps {
namespace {

TOutputMessageHandle& Out() { return *G_pOutputMessageHandle; }

bool Interrupted() { return update_interrupt::PendingSignal() != 0; }

}  // namespace

double Elapsed(time_t later, time_t earlier) {
  return platform::DiffTime(later, earlier);
}

void CopyDeviceName(sBMCInformationTag* record, const char* name) {
  snprintf(record->achPlatformName, sizeof(record->achPlatformName), "%s",
           name != nullptr ? name : "");
}

int DetectOrMountUSBDevice(TFirmwareUpdate* update, eDetectStyleTag style) {
  int rc = update->DetectUSBDevice();
  const bool foundAtOnce = rc == 0;
  if (rc != 0 && !Interrupted()) rc = G_pWriteFirmware->ManuallyMountUSBDevice();
  if (rc != 0) {
    // An interrupt is reported by the clean-up instead.
    if (Interrupted()) return rc;
    Out().RedirectMessage(eRedirectProgress,
                          "\r   Detecting USB Device retry limit is reached\n");
    Out().RedirectMessage(eRedirectDebug,
                          "   Detecting USB Device retry limit is reached\n");
    Out().RedirectMessage(eRedirectError, "   USB Device is not found\n");
  }
  if (foundAtOnce) Out().RedirectMessage(eRedirectDebug, "\n   USB Device is found\n");
  if (rc != 0) return RC_RETRY_LIMIT + RC_DETECT_USB_FAILED;
  if (style == eDetectThreePhase) {
    Out().RedirectMessage(eRedirectProgress, "\r   Detecting USB Device ... OK \n");
  } else {
    Out().RedirectMessage(eRedirectProgress, "\r   Detecting USB Device :  OK");
  }
  return 0;
}

int UnmountAfterCopy(int result, bool unmountOnFailure) {
  if (result != 0) {
    if (unmountOnFailure) G_pWriteFirmware->ManuallyUnmountUSBDevice(0);
    return result;
  }
  if (G_pWriteFirmware->ManuallyUnmountUSBDevice(1) != 0) {
    return RC_VMEDIA_DETACH_FAILED;
  }
  return 0;
}

int ReleaseAfterInterrupt() {
  const int sig = update_interrupt::PendingSignal();
  Out().RedirectMessage(eRedirectError,
                        "\n   Interrupted by %s: releasing the virtual USB "
                        "device\n",
                        update_interrupt::SignalName(sig));
  const int rc = G_pWriteFirmware->ManuallyUnmountUSBDevice(0);
  if (rc != 0) {
    Out().RedirectMessage(eRedirectError,
                          "   The virtual USB device could not be released\n");
  } else {
    Out().RedirectMessage(eRedirectError,
                          "   Update stopped, the virtual USB device was "
                          "released\n");
  }
  update_interrupt::ClearPendingSignal();
  return update_interrupt::ExitCodeForSignal(sig);
}

int RunMountedWindow(TFirmwareUpdate* update, int result,
                     bool unmountOnFailure, eDetectStyleTag style,
                     const char* imagePath, MountedStep afterCopy,
                     bool* interrupted) {
  update_interrupt::TMountedWindowGuard guard;
  *interrupted = false;
  if (result == 0) result = DetectOrMountUSBDevice(update, style);
  if (result == 0 && !Interrupted()) result = update->CopyFwImageFile(imagePath);
  if (result == 0 && !Interrupted() && afterCopy != nullptr) {
    result = afterCopy(update);
  }
  if (!Interrupted()) result = UnmountAfterCopy(result, unmountOnFailure);
  // Also a signal during the unmount itself: nothing may stay behind.
  if (Interrupted()) {
    *interrupted = true;
    return ReleaseAfterInterrupt();
  }
  return result;
}

namespace {

// Reset to defaults as a task of its own, waited for to its end.
int ResetToDefaults(TFirmwareUpdate* update, const char* startedText,
                    const char* failedText) {
  unsigned char task = 0;
  int rc = SetResetToDef(&task);
  if (rc != 0) {
    if (failedText != nullptr) Out().RedirectMessage(eRedirectPrompt, "%s", failedText);
    return rc;
  }
  Out().RedirectMessage(eRedirectPrompt, "%s", startedText);
  return update->WaitResetToDefDone(task);
}

}  // namespace

int FinishAfterTask(TFirmwareUpdate* update, const sBMCInformationTag* bmc,
                    sBMCInformationTag* local, int result) {
  if (result == 0 && update->GetClearPsMode()) {
    result = ResetToDefaults(update, "   Clear Private Storage : ",
                             "   Clear Private Storage Failed \n");
  }
  if (result != 0 || G_u8BMCNeedReboot != 1) return result;
  // Customer defaults take effect only after a reset to defaults; clear-PS
  // mode has done that already.
  if (G_u8EntityID == 5 && !update->GetClearPsMode()) {
    result = ResetToDefaults(update, "   Reset To Default : ", nullptr);
    if (result != 0) return result;
  }
  if (G_EnableIPMILan == 1) {
    // The BMC goes away with the reset: report while it still answers.
    COrvoUpdatePackage::FlashStatus(1);
    COrvoUpdatePackage::ToOutputIfNecessary(static_cast<eReturnCodeTag>(result));
    COrvoUpdatePackage::SetDisplay(false);
    Out().RedirectMessage(eRedirectPrompt, "   Cold Reset : ");
    // The image is programmed and reported by now; over the LAN the session
    // often drops as the BMC resets (that error is only logged), so the
    // reset's outcome is shown but does not undo the update's result.
    if (ColdReset() == 0) {
      Out().RedirectMessage(eRedirectPrompt, "Done\n");
    } else {
      Out().RedirectMessage(eRedirectPrompt, "Failed\n");
    }
    return result;
  }
  return update->DoRebootBMCAndWaitForItComesUp(bmc, local);
}

int ReportFinalResult(int result, eFinalStyleTag style) {
  if (result == 0) {
    Out().RedirectMessage(eRedirectPrompt, "   Firmware Update Successfully\n");
  } else if (result == RC_BIOS_RESTART) {
    if (style == eFinalVirtualMedia) {
      Out().RedirectMessage(eRedirectPrompt, "   System restart for BIOS update.");
    } else {
      Out().RedirectMessage(eRedirectPrompt, "\n   System restart for BIOS update.");
    }
    result = 0;
  }
  return result;
}

int TakeDiskListBeforePhaseOne() {
  Out().RedirectMessage(eRedirectDebug,
                        "\n   Get Device Name List Before Doing Phase 1 : ");
  int result = G_pWriteFirmware->GetBlockDeviceList();
  if (result != 0) {
    Out().RedirectMessage(eRedirectNormal,
                          "\n   Get Device Name List Before Doing Phase 1 "
                          "Failed\n");
  } else {
    Out().RedirectMessage(eRedirectDebug,
                          "\n   Get Device Name List Before Doing Phase 1 "
                          "OK\n");
  }
  return result;
}

}  // namespace update_steps

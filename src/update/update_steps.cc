// Steps that the three-phase, the virtual-media and the remote update share.
#include "update/update_steps.h"

#include <stdio.h>

#include <string>

#include "common/run_state.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "output/update_package.h"
#include "platform/platform.h"
#include "platform/signals.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

namespace update_steps {
namespace {

enum eDeviceStateTag { eDeviceUntouched, eDeviceReleased, eDeviceStillMounted };
eDeviceStateTag g_device = eDeviceUntouched;
std::string g_mountedOn;
bool g_updateStarted = false;
bool g_bmcReset = false;
bool g_reported = false;

std::string StateText() {
  std::string text;
  if (g_device == eDeviceReleased) {
    text = "nothing is left mounted";
  } else if (g_device == eDeviceStillMounted) {
    text = g_mountedOn.empty()
               ? "the virtual USB device may still be mounted (see df -Th)"
               : "the virtual USB device is still mounted on " + g_mountedOn +
                     " (release it with: umount " + g_mountedOn + ")";
  }
  if (!text.empty()) text += ", ";
  if (!g_updateStarted) {
    text += "no update was started on the BMC";
  } else if (g_bmcReset) {
    text += "the BMC was reset to leave its update mode";
  } else {
    text += "the BMC's update task was left to end on its own";
  }
  return text;
}

}  // namespace

bool Interrupted() { return platform::PendingSignal() != 0; }

int Checkpoint(int result) {
  return result == 0 && Interrupted() ? RC_FAILED : result;
}

void NoteUpdateStarted() { g_updateStarted = true; }
void NoteBmcReset() { g_bmcReset = true; }

void ResetInterruptNotes() {
  g_device = eDeviceUntouched;
  g_mountedOn.clear();
  g_updateStarted = false;
  g_bmcReset = false;
  g_reported = false;
}

int ReportIfInterrupted(int result) {
  const int sig = platform::PendingSignal();
  if (sig == 0) return result;
  if (!g_reported) {
    g_reported = true;
    Out().RedirectMessage(eRedirectError, "\n   Interrupted by %s: %s\n",
                          platform::SignalName(sig), StateText().c_str());
  }
  return platform::ExitCodeForSignal(sig);
}

double Elapsed(time_t later, time_t earlier) {
  return platform::DiffTime(later, earlier);
}

PollClock::PollClock()
    : tStart(platform::GetEnv()->Now()), tLatest(tStart) {}

void PollClock::Tick() {
  tLatest = platform::GetEnv()->Now();
  dElapsed = Elapsed(tLatest, tStart);
}

void PollClock::PrintTimes(const char* indent, const char* startText,
                           const char* stopText) const {
  Out().RedirectMessage(eRedirectDebug, "%s%s at %s", indent, startText,
                        platform::CTime(tStart).c_str());
  Out().RedirectMessage(eRedirectDebug, "%s%s at %s", indent, stopText,
                        platform::CTime(tLatest).c_str());
}

void PollClock::PrintElapsed(const char* indent) const {
  Out().RedirectMessage(eRedirectDebug, "%sElapsed time = %2.0f seconds\n",
                        indent, dElapsed);
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

int RunMountedWindow(TFirmwareUpdate* update, int result,
                     bool unmountOnFailure, eDetectStyleTag style,
                     const char* imagePath, MountedStep afterCopy) {
  if (result == 0) result = DetectOrMountUSBDevice(update, style);
  if (result == 0 && !Interrupted()) result = update->CopyFwImageFile(imagePath);
  if (result == 0 && !Interrupted() && afterCopy != nullptr) {
    result = afterCopy(update);
  }
  if (!Interrupted()) result = UnmountAfterCopy(result, unmountOnFailure);
  if (!Interrupted()) return result;
  // Also a signal during the unmount itself: the device is looked for once
  // more and released, and only a release that happened is reported.
  if (G_pWriteFirmware->ManuallyUnmountUSBDevice(0) == 0 &&
      G_pWriteFirmware->RemoveCreatedDirectories() == 0) {
    g_device = eDeviceReleased;
  } else {
    g_device = eDeviceStillMounted;
    g_mountedOn = G_pWriteFirmware->MountedOn();
  }
  return result != 0 ? result : RC_FAILED;
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

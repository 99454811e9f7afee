// Restarting the BMC and waiting until it answers again with its new
// firmware.
#include <string.h>

#include "common/run_state.h"
#include "image/image_file.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "platform/platform.h"
#include "update/firmware_update.h"
#include "update/update_steps.h"

namespace {

// The BMC needs time to restart before the first question is worth asking;
// later questions are spaced so that a booting BMC is not flooded.
constexpr int kGracefulFirstAttemptMax = 50;
constexpr int kColdFirstAttemptMax = 10;
constexpr double kAttemptSpacing = 7;
constexpr uint16_t kSpacingAppliesAbove = 7;

const char kSpinnerText[] = "  Checking new firmware version ...  ";

enum eAttemptTag { eAttemptFailed, eAttemptDone };

// The shared rhythm of both waits. attempt() returns eAttemptDone to end
// the wait (whatever its outcome), eAttemptFailed to try again later.
template <typename Attempt>
update_steps::PollClock WaitForBMC(uint16_t waitingTime, int firstAttemptMax,
                                   Attempt attempt) {
  update_steps::PollClock clock;
  time_t lastFailure = clock.Start();
  // Signed: a waiting time of 0 gives -1 and an attempt at once.
  int firstAttemptDelay = static_cast<int>(waitingTime) - 1;
  if (firstAttemptDelay > firstAttemptMax) firstAttemptDelay = firstAttemptMax;
  int counter = update_steps::kSpinnerStart;
  do {
    Out().BeautifyDelayPrintout(counter, kSpinnerText);
    if (clock.Seconds() >= firstAttemptDelay &&
        (update_steps::Elapsed(clock.Latest(), lastFailure) >= kAttemptSpacing ||
         waitingTime <= kSpacingAppliesAbove)) {
      if (attempt() == eAttemptDone) {
        clock.Tick();
        return clock;
      }
      Out().RedirectMessage(eRedirectDebug, "   Get FW Version Failed\n");
      lastFailure = platform::GetEnv()->Now();
    }
    DelayMS(1000);
    clock.Tick();
    --counter;
  } while (clock.Seconds() <= waitingTime && !update_steps::Interrupted());
  return clock;
}

void PrintCheckTimeout() {
  Out().RedirectMessage(eRedirectProgress,
                        "\r   Checking new firmware version timeout  ");
  Out().RedirectMessage(eRedirectDebug,
                        "   Checking new firmware version timeout\n");
}

void PrintVersionOk() {
  Out().RedirectMessage(eRedirectProgress,
                        "\r                                        \r");
  Out().RedirectMessage(eRedirectDebug, "   Get FW Version OK\n");
}

}  // namespace

int TFirmwareUpdate::WaitForiBMCComeUp(sBMCInformationTag* bmc) {
  bool answered = false;
  const update_steps::PollClock clock =
      WaitForBMC(u16FwRebootWaitingTime, kGracefulFirstAttemptMax, [&] {
        unsigned char revision[4] = {0};
        if (GetFwImageVersion(0, revision) != 0) return eAttemptFailed;
        memcpy(bmc->au8FwRevision, revision, sizeof(bmc->au8FwRevision));
        PrintVersionOk();
        answered = true;
        return eAttemptDone;
      });

  // The wait begins right after the graceful reset.
  clock.PrintTimes("   ", "Set iBMC Graceful Reset Command",
                   "Stop waiting for iBMC comes up");
  clock.PrintElapsed("   ");
  if (!answered) {
    Out().RedirectMessage(eRedirectProgress,
                          "\r   Checking new firmware version timeout  ");
    Out().RedirectMessage(eRedirectProgress, "\n   Get FW Version failed\n");
    Out().RedirectMessage(eRedirectDebug,
                          "   Checking new firmware version timeout\n");
    return RC_TIMEOUT_LIMIT + RC_GET_FW_VERSION_FAILED;
  }

  unsigned char bootloader[8] = {0};
  if (GetFwImageVersion(1, bootloader) == 0) {
    bmc->u8HasBootloader = 1;
    memcpy(bmc->au8BootloaderInfo, bootloader, 4);
    memcpy(bmc->au8BootloaderVersion, bootloader + 4, 4);
  } else {
    // An old boot loader that cannot tell its version is no failure.
    Out().RedirectMessage(eRedirectDebug, "\n   Get u-boot version failed!\n");
    bmc->u8HasBootloader = 0;
  }
  return 0;
}

int TFirmwareUpdate::WaitForColdResetDone(const sBMCInformationTag* /*current*/,
                                          const sBMCInformationTag* /*fill*/) {
  int result = 1;
  const update_steps::PollClock clock =
      WaitForBMC(u16FwRebootWaitingTime, kColdFirstAttemptMax, [&] {
        unsigned char revision[2] = {0};
        result = GetDeviceID(revision);
        if (result != 0) return eAttemptFailed;
        PrintVersionOk();
        // One byte more than the command fills, so the text always ends.
        char version[257];
        memset(version, 0, sizeof(version));
        if (GetVRXFirmwareVersion(version) == 0) {
          if (G_u8EntityID <= 5) {
            Out().RedirectMessage(eRedirectPrompt, "   %sVersion: %s \n",
                                  au8EntityIDStr[G_u8EntityID], version);
          } else {
            Out().RedirectMessage(eRedirectPrompt, "   Firmware Version: %s \n",
                                  version);
          }
        } else {
          PrintCheckTimeout();
          result = RC_TIMEOUT_LIMIT + RC_GET_FW_VERSION_FAILED;
        }
        return eAttemptDone;
      });

  clock.PrintTimes("   ", "Cold Reset Command", "BMC comes up from Cold Reset");
  clock.PrintElapsed("   ");
  if (result != 0) {
    PrintCheckTimeout();
    return RC_TIMEOUT_LIMIT + RC_GET_FW_VERSION_FAILED;
  }
  return 0;
}

int TFirmwareUpdate::DoRebootBMCAndWaitForItComesUp(
    const sBMCInformationTag* current, sBMCInformationTag* fill) {
  const uint8_t attempts = static_cast<uint8_t>(u8ResetRetry + 1);
  int counter = update_steps::kSpinnerStart;
  int rc = RC_FAILED;
  for (uint8_t i = 0; i < attempts; ++i) {
    Out().RedirectMessage(eRedirectDebug, "\n   Reset BMC");
    Out().BeautifyDelayPrintout(counter--, "  Reset BMC ...");
    rc = ColdReset();
    if (rc == 0) break;
  }
  if (rc == 0) rc = WaitForColdResetDone(current, fill);
  if (rc != 0) Out().RedirectMessage(eRedirectDebug, "\n");
  return rc;
}

// Watching the BMC while it programs: the status-code table and the four
// polls, each a one-second rhythm against a waiting time in whole seconds.
#include <stdio.h>

#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "platform/platform.h"
#include "update/firmware_update.h"
#include "update/update_steps.h"

namespace {

struct sStatusCodeTag {
  uint8_t u8Code;
  const char* pchText;
  int i32Verdict;  // 0 running or finished, 1 the BMC reports a failure
};

const sStatusCodeTag kStatusCodes[] = {
    {0x00, "Connecting to Server and Transmitting Image", 0},
    {0x01, "Validating Image", 0},
    {0x02, "Programming", 0},
    {0x03, "Ready to Accept Image", 0},
    {0x04, "At USB Init Stage", 0},
    {0x05, "Connect to Server", 0},
    {0x06, "Host Rebooting", 0},
    {0x80, "General Error", 1},
    {0x81, "Cannot Establish Connection", 1},
    {0x82, "Path Not Found", 1},
    {0x83, "Transmission Abort", 1},
    {0x84, "Checksum Error", 1},
    {0x85, "Incorrect Platform", 1},
    {0x86, "Memory Error", 1},
    {0x87, "Detach Error", 1},
    {0x88, "BIOS Timeout", 1},
    {0x89, "Incorrect Image Type", 1},
    {0x8A, "Host Reboot failed", 1},
    {0xFF, "Completed", 0},
};

constexpr int kUnknownStatusVerdict = 42;
constexpr uint8_t kStatusProgramming = 0x02;
constexpr uint8_t kStatusCompleted = 0xFF;

// The start and stop lines of the status polls.
void PrintStatusTimes(const update_steps::PollClock& clock) {
  clock.PrintTimes("   ", "Start getting firmware update status",
                   "Stop getting firmware update status");
}

}  // namespace

// text must hold 64 bytes.
int TFirmwareUpdate::CheckStatusCode(uint8_t code, char* text) {
  for (const sStatusCodeTag& entry : kStatusCodes) {
    if (entry.u8Code == code) {
      snprintf(text, 64, "%s", entry.pchText);
      return entry.i32Verdict;
    }
  }
  text[0] = '\0';
  return kUnknownStatusVerdict;
}

int TFirmwareUpdate::DoGetFwUpdateStatus() {
  Out().RedirectMessage(eRedirectNormal, "\n   Get Firmware Update Status ");
  update_steps::PollClock clock;
  int rc = 0;
  bool done = false;
  do {
    DelayMS(1000);
    unsigned char percent = 0;
    rc = GetFwUpdateStatus(&percent);
    if (rc == 0) {
      Out().RedirectMessage(eRedirectProgress2,
                            "\r   Firmware update status: %d percent", percent);
      if (percent == 100) {
        Out().RedirectMessage(eRedirectProgress2, "\n");
        done = true;
      }
    }
    clock.Tick();
  } while (rc == 0 && !done && clock.Seconds() <= u16FwUpdateWaitingTime &&
           !update_steps::Interrupted());

  PrintStatusTimes(clock);
  clock.PrintElapsed("   ");
  if (rc != 0) {
    Out().RedirectMessage(eRedirectNormal,
                          "\n   Get Firmware Update Status Failed\n");
    return rc;
  }
  if (!done) {
    Out().RedirectMessage(eRedirectDebug, "   Firmware update status timeout\n");
    Out().RedirectMessage(eRedirectProgress,
                          "\r   Firmware update status: Timeout     ");
    return RC_TIMEOUT_LIMIT + RC_FW_UPDATE_FAILED;
  }
  Out().RedirectMessage(eRedirectDebug, "   Get Firmware Update Status OK\n");
  return 0;
}

int TFirmwareUpdate::DoUSBGetFwUpdateStatus(uint8_t taskId) {
  Out().RedirectMessage(eRedirectNormal, "\n   Get Firmware Update Status");
  update_steps::PollClock clock;
  int rc = 0;
  bool done = false;
  bool ended = false;  // a failed command or a verdict stopped the poll
  bool percentValid = false;
  unsigned char percent = 0;
  do {
    DelayMS(1000);
    unsigned char status = 0;
    rc = GetUpdateStatus(taskId, &status, &percent, &percentValid);
    if (rc != 0) {
      ended = true;
    } else {
      char text[64];
      const int verdict = CheckStatusCode(status, text);
      if (verdict == kUnknownStatusVerdict) {
        Out().RedirectMessage(eRedirectDebug,
                              "\tUnrecognized status code: 0x%02X\n", status);
        Out().ClearOneLine(eRedirectProgress);
        Out().RedirectMessage(eRedirectProgress,
                              "\r\tUnrecognized status code: 0x%02X\n", status);
        rc = RC_FW_UPDATE_FAILED;
        ended = true;
      } else {
        Out().ClearOneLine(eRedirectProgress);
        if (percentValid) {
          Out().RedirectMessage(eRedirectProgress2,
                                "\r\tFirmware Update Status: %s %d percent",
                                text, percent);
        } else {
          Out().RedirectMessage(eRedirectProgress2,
                                "\r   Firmware Update Status: %s", text);
          if (status == kStatusProgramming) DelayMS(10000);
        }
        if (verdict == 1) {
          rc = RC_FW_UPDATE_FAILED;
          ended = true;
        }
        if (status == kStatusCompleted) done = true;
      }
    }
    clock.Tick();
  } while (!ended && !done && clock.Seconds() <= u16FwUpdateWaitingTime &&
           !update_steps::Interrupted());

  clock.PrintTimes("\t", "Start getting firmware update status",
                   "Stop getting firmware update status");
  clock.PrintElapsed("\t");
  if (!done && rc == 0) {
    Out().RedirectMessage(eRedirectDebug, "\tFirmware update status timeout\n");
    Out().ClearOneLine(eRedirectProgress);
    Out().RedirectMessage(eRedirectProgress,
                          "\r\tFirmware update status: Timeout");
    rc = RC_TIMEOUT_LIMIT + RC_FW_UPDATE_FAILED;
  }
  Out().RedirectMessage(eRedirectPrompt, "\n");
  return rc;
}

int TFirmwareUpdate::DoGetRemoteFwUpdateStatus(uint8_t taskId) {
  Out().RedirectMessage(eRedirectNormal, "\n   Get Firmware Update Status ");
  update_steps::PollClock clock;
  int rc = 0;
  bool done = false;
  bool ended = false;  // a failure verdict stopped the poll
  bool percentValid = false;
  unsigned char percent = 0;
  uint8_t u8FirmwareRetry = 0;  // failed status commands, never reset
  do {
    DelayMS(1000);
    unsigned char status = 0;
    rc = GetUpdateStatus(taskId, &status, &percent, &percentValid);
    if (rc != 0) {
      ++u8FirmwareRetry;
    } else {
      char text[64];
      const int verdict = CheckStatusCode(status, text);
      if (verdict == kUnknownStatusVerdict) {
        Out().RedirectMessage(eRedirectDebug,
                              "   Unrecognized status code: 0x%02X\n", status);
        Out().ClearOneLine(eRedirectProgress);
        Out().RedirectMessage(eRedirectProgress,
                              "\r   Unrecognized status code: 0x%02X\n", status);
        // The next answer replaces this result: an unknown code fails the
        // poll only as the last answer before the time-out.
        if (u8FirmwareRetry > 15) {
          ++u8FirmwareRetry;
          Out().RedirectMessage(eRedirectDebug, "u8FirmwareRetry = %d\n",
                                u8FirmwareRetry);
          rc = 0;
        } else {
          Out().RedirectMessage(eRedirectDebug,
                                "Retry limited, u8FirmwareRetry = %d\n",
                                u8FirmwareRetry);
          rc = RC_FW_UPDATE_FAILED;
        }
      } else {
        Out().ClearOneLine(eRedirectProgress);
        if (percentValid) {
          Out().RedirectMessage(eRedirectProgress2,
                                "\r   Firmware Update Status: %s %d percent",
                                text, percent);
        } else {
          Out().RedirectMessage(eRedirectProgress2,
                                "\r   Firmware Update Status: %s", text);
          if (status == kStatusProgramming) DelayMS(15000);
        }
        if (verdict == 1) {
          rc = RC_FW_UPDATE_FAILED;
          ended = true;
        }
        if (status == kStatusCompleted) done = true;
      }
    }
    clock.Tick();
  } while (!ended && !done && u8FirmwareRetry <= 15 &&
           clock.Seconds() <= u16FwUpdateWaitingTime &&
           !update_steps::Interrupted());

  if (u8FirmwareRetry > 14) {
    Out().RedirectMessage(eRedirectError,
                          "\n   Get Firmware Update Status Failed, Retry = %d\n",
                          u8FirmwareRetry);
  }
  PrintStatusTimes(clock);
  Out().RedirectMessage(eRedirectDebug, "   Wait Time Setting %d",
                        u16FwUpdateWaitingTime);
  clock.PrintElapsed("   ");
  if (!done && rc == 0) {
    Out().RedirectMessage(eRedirectDebug, "   Firmware update status timeout\n");
    Out().ClearOneLine(eRedirectProgress);
    Out().RedirectMessage(eRedirectProgress,
                          "\r   Firmware update status: Timeout");
    rc = RC_TIMEOUT_LIMIT + RC_FW_UPDATE_FAILED;
  }
  Out().RedirectMessage(eRedirectPrompt, "\n");
  return rc;
}

int TFirmwareUpdate::WaitResetToDefDone(uint8_t taskId) {
  Out().RedirectMessage(eRedirectDebug, "\n   Wait Reset To Default Done ");
  update_steps::PollClock clock;
  int rc = 0;
  bool done = false;
  do {
    DelayMS(1000);
    unsigned char state = 0;
    rc = GetResetToDefStatus(taskId, &state);
    if (rc == 0 && state == 1) {
      Out().RedirectMessage(eRedirectPrompt, "Done");
      done = true;
    }
    clock.Tick();
  } while (rc == 0 && !done && clock.Seconds() <= u16PhaseOneWaitingTime &&
           !update_steps::Interrupted());

  // The reset wait shares the status poll's wording on purpose.
  PrintStatusTimes(clock);
  clock.PrintElapsed("   ");
  if (!done && rc == 0) {
    Out().RedirectMessage(eRedirectError, "   Timeout\n");
    return RC_TIMEOUT_LIMIT + RC_FW_UPDATE_FAILED;
  }
  if (done) Out().RedirectMessage(eRedirectPrompt, "\n");
  return rc;
}

// The remote update: the BMC fetches the image itself from a URI after the
// host has written the remote-update settings into its configuration store,
// each one read back to make sure that it took.
#include <string.h>

#include <string>

#include "common/run_state.h"
#include "common/secret_text.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "platform/platform.h"
#include "update/firmware_update.h"
#include "update/update_steps.h"

namespace {

constexpr unsigned char kSourceNetwork = 1;
constexpr size_t kCountedBufferSize = 256;

// The texts and failure code of one assign step.
struct sAssignStepTag {
  const char* pchHeading;
  const char* pchSpinner;
  const char* pchMismatch;
  const char* pchOkLog;
  const char* pchOkConsole;
  int i32FailureCode;
};

const sAssignStepTag kAssignProtocol = {
    "\n   Assign Remote Update Protocol",
    "  Assign Remote Update Protocol ...",
    "\n   Returned protocol does not equal to the set one",
    "   Assign Remote Update Protocol OK\n",
    "\r   Assign Remote Update Protocol OK\n",
    RC_ASSIGN_PROTOCOL_FAILED};
const sAssignStepTag kAssignURI = {
    "\n   Assign Remote Update URI : ",
    "  Assign Remote Update URI ...",
    "\n   Returned URI does not equal to the set one",
    "   Assign Remote Update URI OK\n",
    "\r   Assign Remote Update URI OK\n",
    RC_ASSIGN_URI_FAILED};
const sAssignStepTag kAssignConnectionRetry = {
    "\n   Assign Connection Retry",
    "  Assign Connection Retry ...",
    "\n   Returned connection retry does not equal to the set one",
    "   Assign Connection Retry OK\n",
    "\r   Assign Connection Retry OK\n",
    RC_ASSIGN_RETRY_FAILED};
const sAssignStepTag kAssignRetryInterval = {
    "\n   Assign Connection Retry Interval",
    "  Assign Connection Retry Interval ...",
    "\n   Returned retry interval does not equal to the set one",
    "   Assign Connection Retry Interval OK\n",
    "\r   Assign Connection Retry Interval OK\n",
    RC_ASSIGN_INTERVAL_FAILED};
const sAssignStepTag kAssignDelayTime = {
    "\n   Assign Remote Update Delay Time",
    "  Assign Remote Update Delay Time ...",
    "\n   Returned delay time does not equal to the set one",
    "   Assign Remote Update Delay Time OK\n",
    "\r   Assign Remote Update Delay Time OK\n",
    RC_ASSIGN_DELAY_FAILED};

// One attempt of a one-byte setting: 0 when the value was set and read
// back equal, 1 when the read-back differs, else the failing command's code.
int AssignByteOnce(int (*set)(unsigned char), int (*get)(unsigned char*),
                   unsigned char value, const char* mismatch) {
  int rc = set(value);
  if (rc != 0) return rc;
  unsigned char readBack = 0;
  rc = get(&readBack);
  if (rc != 0) return rc;
  if (readBack == value) return 0;
  Out().RedirectMessage(eRedirectDebug, "%s", mismatch);
  return 1;
}

// Prints a counted buffer from its length byte on, never past its end, and
// never a password in the URI's user part.
void PrintCountedBuffer(const char* buffer) {
  const size_t length = strnlen(buffer, kCountedBufferSize);
  const std::string shown = MaskUriPassword(std::string(buffer, length));
  Out().RedirectMessage(eRedirectDebug, "pai8SetBuffer = %s\n", shown.c_str());
}

// Length byte plus characters are compared; the count is the length byte
// taken as signed plus one in 16 bits: 0-127 compare, 128-254 would run far
// past the buffers and count as a mismatch, 255 gives 0 and passes.
bool CountedBuffersEqual(const char* set, const char* readBack) {
  const uint16_t count =
      static_cast<uint16_t>(static_cast<int8_t>(set[0]) + 1);
  if (count == 0) return true;
  if (count > kCountedBufferSize) return false;
  return memcmp(set, readBack, count) == 0;
}

// The same for the counted URI; readBack holds 256 bytes.
int AssignURIOnce(const char* counted, char* readBack) {
  int rc = SetURIConfig(counted);
  if (rc != 0) return rc;
  rc = GetURIConfig(readBack);
  if (rc != 0) return rc;
  PrintCountedBuffer(counted);
  PrintCountedBuffer(readBack);
  if (CountedBuffersEqual(counted, readBack)) return 0;
  Out().RedirectMessage(eRedirectDebug, "%s", kAssignURI.pchMismatch);
  return 1;
}

// Up to retry + 1 attempts, counted in 8 bits (255 makes none), with no
// wait between them.
template <typename Attempt>
int RunAssignStep(uint8_t configurationRetry, const sAssignStepTag& step,
                  Attempt attempt) {
  const uint8_t attempts = static_cast<uint8_t>(configurationRetry + 1);
  int counter = update_steps::kSpinnerStart;
  int rc = 1;
  for (uint8_t i = 0; i < attempts; ++i) {
    Out().RedirectMessage(eRedirectDebug, "%s", step.pchHeading);
    Out().BeautifyDelayPrintout(counter--, step.pchSpinner);
    rc = attempt();
    if (rc == 0) break;
  }
  if (rc != 0) {
    Out().RedirectMessage(eRedirectNormal, "\n");
    return RC_RETRY_LIMIT + step.i32FailureCode;
  }
  Out().RedirectMessage(eRedirectDebug, "%s", step.pchOkLog);
  Out().ClearOneLine(eRedirectProgress);
  Out().RedirectMessage(eRedirectProgress, "%s", step.pchOkConsole);
  return 0;
}

}  // namespace

int TFirmwareUpdate::EnableRemoteFirmwareUpdate(uint8_t value) {
  Out().RedirectMessage(eRedirectDebug, "\n   Remote Update Enable : ");
  Out().ClearOneLine(eRedirectProgress);
  Out().RedirectMessage(eRedirectNormal, "\n");
  update_steps::PollClock clock;
  int counter = update_steps::kSpinnerStart;
  int rc = 1;
  do {
    Out().BeautifyDelayPrintout(counter--, "  Remote Update Enable ...");
    DelayMS(1000);
    rc = SetRemoteUpdateEnableConfig(value);
    if (rc == 0) {
      unsigned char readBack = 0;
      rc = GetRemoteUpdateEnableConfig(&readBack);
      if (rc == 0 && readBack != value) {
        Out().RedirectMessage(eRedirectDebug,
                              "\n   Returned remote update enable status does "
                              "not equal to the set one");
        rc = 1;
      }
    }
    clock.Tick();
  } while (rc != 0 && clock.Seconds() <= u16PhaseOneWaitingTime &&
           !update_steps::Interrupted());

  clock.PrintTimes("   ", "Start checking whether remote update is enabled",
                   "Stop checking whether remote update is enabled");
  clock.PrintElapsed("   ");
  if (rc != 0) {
    Out().RedirectMessage(eRedirectDebug, "   Remote Update Enable timeout\n");
    Out().RedirectMessage(eRedirectNormal, "\n");
    return RC_TIMEOUT_LIMIT + RC_REMOTE_ENABLE_FAILED;
  }
  Out().RedirectMessage(eRedirectDebug, "   Remote Update Enable OK\n");
  Out().ClearOneLine(eRedirectProgress);
  Out().RedirectMessage(eRedirectProgress, "\r   Remote Update Enable OK\n");
  return 0;
}

int TFirmwareUpdate::AssignFirmwareUpdateProtocol(uint8_t value) {
  return RunAssignStep(u8ConfigurationRetry, kAssignProtocol, [value] {
    return AssignByteOnce(SetProtocolConfig, GetProtocolConfig, value,
                          kAssignProtocol.pchMismatch);
  });
}

// counted: a 256-byte buffer, length byte first.
int TFirmwareUpdate::AssignFirmwareUpdateURI(const char* counted) {
  char readBack[kCountedBufferSize];
  memset(readBack, 0, sizeof(readBack));
  return RunAssignStep(u8ConfigurationRetry, kAssignURI, [counted, &readBack] {
    return AssignURIOnce(counted, readBack);
  });
}

int TFirmwareUpdate::AssignFirmwareUpdateConnectionRetry(uint8_t value) {
  return RunAssignStep(u8ConfigurationRetry, kAssignConnectionRetry, [value] {
    return AssignByteOnce(SetConnectionRetryConfig, GetConnectionRetryConfig,
                          value, kAssignConnectionRetry.pchMismatch);
  });
}

int TFirmwareUpdate::AssignFirmwareUpdateRetryInterval(uint8_t value) {
  return RunAssignStep(u8ConfigurationRetry, kAssignRetryInterval, [value] {
    return AssignByteOnce(SetRetryIntervalConfig, GetRetryIntervalConfig, value,
                          kAssignRetryInterval.pchMismatch);
  });
}

int TFirmwareUpdate::AssignFirmwareUpdateDelayTime(uint8_t value) {
  return RunAssignStep(u8ConfigurationRetry, kAssignDelayTime, [value] {
    return AssignByteOnce(SetDelayTimeConfig, GetDelayTimeConfig, value,
                          kAssignDelayTime.pchMismatch);
  });
}

int TFirmwareUpdate::FirmwareUpdateByNetworking(uint8_t* taskId,
                                                uint8_t target) {
  Out().RedirectMessage(eRedirectDebug, "\n   Update Firmware : ");
  return UpdateFirmware(kSourceNetwork,
                        static_cast<unsigned char>(0x80 | (target & 0x0F)),
                        taskId);
}

int TFirmwareUpdate::DoRemoteFwUpdate(const sBMCInformationTag* bmc) {
  int result = 0;
  uint8_t taskId = 0;
  sBMCInformationTag local;
  memset(&local, 0, sizeof(local));
  update_steps::CopyDeviceName(&local, bmc != nullptr ? bmc->achPlatformName : "");
  if (CurrentSettings() != nullptr) {
    SetFwUpdateSettings(CurrentSettings());
  }

  result = EnableRemoteFirmwareUpdate(1);
  result = update_steps::Checkpoint(result);
  if (result == 0) result = AssignFirmwareUpdateURI(GetURI());
  result = update_steps::Checkpoint(result);
  // Only what the user gave is written; a flag stays set when its step
  // never ran.
  if (result == 0 && G_RetryCountFlag == 1) {
    G_RetryCountFlag = 0;
    result = AssignFirmwareUpdateConnectionRetry(u8ConnectionRetry);
  }
  if (result == 0 && G_RetryIntervalFlag == 1) {
    G_RetryIntervalFlag = 0;
    result = AssignFirmwareUpdateRetryInterval(u8RetryInterval);
  }
  if (result == 0 && G_DelayTimeFlag == 1) {
    G_DelayTimeFlag = 0;
    result = AssignFirmwareUpdateDelayTime(u8DelayTime);
  }
  result = update_steps::Checkpoint(result);
  if (result == 0) result = FirmwareUpdateByNetworking(&taskId, u8UpdateTarget);
  if (result == 0) update_steps::NoteUpdateStarted();
  result = update_steps::Checkpoint(result);
  if (result == 0) result = DoGetRemoteFwUpdateStatus(taskId);
  result = update_steps::Checkpoint(result);
  result = update_steps::FinishAfterTask(this, bmc, &local, result);
  result = update_steps::ReportFinalResult(result, update_steps::eFinalRemote);
  return update_steps::ReportIfInterrupted(result);
}

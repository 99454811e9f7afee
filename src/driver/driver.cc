#include "driver/driver.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <new>
#include <string>

#include "bmc/bmc_handle.h"
#include "common/secret_text.h"
#include "common/text_format.h"
#include "driver/config.h"
#include "driver/options.h"
#include "driver/preflight.h"
#include "image/image_file.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "ipmi/lan_transport.h"
#include "ipmi/request_kind.h"
#include "ipmi/request_record.h"
#include "output/history.h"
#include "output/output.h"
#include "output/update_package.h"
#include "platform/platform.h"
#include "platform/signals.h"
#include "update/firmware_update.h"
#include "update/update_steps.h"
#include "usb/write_firmware.h"


namespace {

const uint8_t kEntityBios = 1;
const uint8_t kEntityCustomerDefault = 5;

// A BIOS refusal leaves the run without any clean-up; a later run in the
// same process (tests only) releases what that run left behind.
bool g_bRunAbandoned = false;
char** g_ppchAbandonedList = nullptr;

void ReleaseAbandonedRun() {
  if (!g_bRunAbandoned) return;
  DeleteFwImageFilenameList(&g_ppchAbandonedList);
  MainDestructor();
  g_bRunAbandoned = false;
}

// One run per BMC: the lock is taken before the first request that can
// change the BMC and held until the run ends.
const char kLockDirectory[] = "/run/lock";
std::string g_lockPath;

std::string LockPathForTarget() {
  const char* directory = getenv("VRXFWUL_LOCK_DIR");
  if (directory == nullptr || directory[0] == '\0') directory = kLockDirectory;
  std::string target = "kcs";
  if (G_EnableIPMILan == 1) {
    const char* host = G_pFirmwareUpdate != nullptr ? G_pFirmwareUpdate->GetHostIP() : "";
    target = std::string("lan-") + (host != nullptr ? host : "");
    for (size_t i = 4; i < target.size(); ++i) {
      const char c = target[i];
      const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '.' || c == '-' || c == ':';
      if (!plain) target[i] = '_';
    }
  }
  return std::string(directory) + "/vrxfwul-" + target + ".lock";
}

int LockTheBmc() {
  const std::string path = LockPathForTarget();
  const int taken = platform::GetEnv()->TryLock(path);
  if (taken == 0) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectError,
        "\n   Another vrxfwul run is updating this BMC (lock %s)\n", path.c_str());
    return RC_UPDATE_IN_PROGRESS;
  }
  // Without a lock directory (no /run/lock) the update still goes ahead.
  if (taken < 0)
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                            "\n   Cannot open the lock %s\n",
                                            path.c_str());
  else
    g_lockPath = path;
  return RC_SUCCESS;
}

void UnlockTheBmc() {
  if (g_lockPath.empty()) return;
  platform::GetEnv()->Unlock(g_lockPath);
  g_lockPath.clear();
}

// The BMC's firmware as the search found it, for the update history.
std::string g_versionBefore;

void NoteVersionBefore() {
  G_pBMCHandle->SetCurrBMCInfo(0);
  const sBMCInformationTag* bmc = G_pBMCHandle->GetCurrBMCInfo();
  if (bmc != nullptr)
    g_versionBefore = StringPrintf("%u.%02X", bmc->au8FwRevision[0], bmc->au8FwRevision[1]);
}

std::string UtcTime(time_t t) {
  struct tm parts;
  char text[32] = "-";
  if (gmtime_r(&t, &parts) != nullptr)
    strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

// source: the image file named on the command line, for an image update.
void RecordInHistory(const std::string& source, int finalRc, time_t runStart) {
  sHistoryRecordTag record;
  record.time = UtcTime(runStart);
  record.target = G_EnableIPMILan == 1 && G_pFirmwareUpdate != nullptr
                      ? std::string("lan:") + G_pFirmwareUpdate->GetHostIP()
                      : "kcs";
  record.entity = CurrentSettings() != nullptr ? CurrentSettings()->u8EntityID : 0;
  record.remote = G_pBMCHandle->GetFwUpdateMode() == eFwUpdateModeRemote;
  if (record.remote) {
    record.source = G_pFirmwareUpdate != nullptr
                        ? MaskUriPassword(G_pFirmwareUpdate->GetURI() + 1)
                        : "";
  } else {
    record.source = source;
    record.sha256 = ImageFileSha256(source.c_str());
  }
  record.versionBefore = g_versionBefore;
  record.versionAfter = LastFirmwareVersionText();
  record.returnCode = finalRc;
  record.seconds = static_cast<long>(platform::DiffTime(platform::GetEnv()->Now(), runStart));
  const int sig = platform::PendingSignal();
  if (sig != 0) record.interruptedBy = platform::SignalName(sig);
  AppendHistoryRecord(record);
}

bool Ask(const char* question) {
  return G_pOutputMessageHandle->PromptUser(eRedirectPrompt, question) == 0;
}

// The questions of the chosen entity. Returns false when the user refused a
// BIOS update, which ends the run at once.
bool AskEntityQuestions() {
  const sProgramSettingsTag* settings = G_pConfigHandle->GetSettings();
  G_u8EntityID = settings->u8EntityID;
  G_u8CipherValue = settings->u8CipherValue;
  if (G_ForceUpdateFlag) {
    G_u8BMCNeedReboot = 1;
    G_u8HostNeedRebootFlag = 1;
    return true;
  }
  if (G_u8EntityID == kEntityBios) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectPrompt, "%s",
        "\n   BIOS firmware update will reboot system after uploading image.\n");
    if (!Ask("Are you sure to continue BIOS firmware update (Y/N) ?")) {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectPrompt, "%s", "\n   BIOS firmware update canceled\n");
      return false;
    }
    G_u8HostNeedRebootFlag = 1;
    return true;
  }
  bool yes;
  if (G_u8EntityID == kEntityCustomerDefault) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectPrompt, "%s",
        "\n   Restore to default and reset BMC are necessary after doing\n");
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectPrompt, "%s",
        "customer default firmware update to make new default value take "
        "effect.\n");
    yes = Ask("Do you want to restore to defule and reset BMC (Y/N) ?");
  } else {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectPrompt, "%s",
        "\n   After firmware update, BMC need to be reset so firmware can "
        "take effect.\n");
    yes = Ask("Do you want to reset BMC (Y/N) ?");
  }
  G_u8BMCNeedReboot = yes ? 1 : 0;
  return true;
}

// Remote update from a URI, for every BMC in the list (it holds one).
int DispatchRemoteUpdate() {
  int rc = RC_SUCCESS;
  for (int index = 0; index < 1; ++index) {
    G_pBMCHandle->SetCurrBMCInfo(index);
    sBMCInformationTag* bmc = G_pBMCHandle->GetCurrBMCInfo();
    if (G_pOutputMessageHandle->IsOutputRevisionOnly())
      rc = RC_SUCCESS;
    else
      rc = G_pFirmwareUpdate->DoRemoteFwUpdate(bmc);
    if (rc != RC_SUCCESS) {
      COrvoUpdatePackage::FlashStatus(0);
      return rc;
    }
    COrvoUpdatePackage::FlashStatus(1);
  }
  return rc;
}

// Update through the image file(s) named on the command line.
int DispatchImageUpdate(char** fileList, int fileCount,
                        const sImageHeaderTag* emptyHeader) {
  int rc =
      G_pImageFileHandle->ReadValidateFwImageFileHeader(fileList, fileCount);
  sImageHeaderTag* headerList = G_pImageFileHandle->GetImageHeaderList();
  if (rc != RC_SUCCESS) {
    if (G_pOutputMessageHandle->IsOutputRevisionOnly()) {
      G_pBMCHandle->SetCurrBMCInfo(0);
      G_pOutputMessageHandle->OutputFirmwareRevisions(
          G_pBMCHandle->GetCurrBMCInfo(), emptyHeader);
    }
    return rc;
  }
  for (int index = 0; index < 1; ++index) {
    G_pBMCHandle->SetCurrBMCInfo(index);
    sBMCInformationTag* bmc = G_pBMCHandle->GetCurrBMCInfo();
    rc = CompareImageType(bmc, headerList,
                          G_pImageFileHandle->GetFwImageFileCount());
    if (rc == RC_SUCCESS) {
      G_pImageFileHandle->SetCurrImageHeader(
          static_cast<int>(bmc->u32ImageIndex));
      rc = G_pFirmwareUpdate->DoUSBFwUpdate(
          bmc, G_pImageFileHandle->GetCurrImageHeader());
      if (rc != RC_SUCCESS) {
        COrvoUpdatePackage::FlashStatus(0);
        return rc;
      }
      COrvoUpdatePackage::FlashStatus(1);
    } else {
      G_pOutputMessageHandle->OutputFirmwareRevisions(bmc, emptyHeader);
      G_pOutputMessageHandle->RedirectMessage(eRedirectError, "%s",
                                              "\r   No suitable image!! \n");
    }
  }
  return rc;
}

}  // namespace

void MainConstructor() {
  OutputConstructor();
  IPMICommandConstructor();
  ConfigConstructor();
  BMCHandlerConstructor();
  ImageHandlerConstructor();
  WriteFirmwareConstructor();
  FwUpdateConstructor();
  CheckFlagsConstructor();
  COrvoUpdatePackage::SetRevisionReader(GetDeviceID);
}

void MainDestructor() {
  CheckFlagsDestructor();
  WriteFirmwareDestructor();
  FwUpdateDestructor();
  BMCHandlerDestructor();
  ImageHandlerDestructor();
  IPMICommandDestructor();
  ConfigDestructor();
  OutputDestructor();
}

int CreateFwImageFilenameList(char*** list) {
  if (list == nullptr) return RC_OUT_OF_MEMORY;
  *list = new (std::nothrow) char*[kFwImageFileListCapacity];
  if (*list == nullptr) return RC_OUT_OF_MEMORY;
  for (int i = 0; i < kFwImageFileListCapacity; ++i) (*list)[i] = nullptr;
  for (int i = 0; i < kFwImageFileListCapacity; ++i) {
    (*list)[i] = new (std::nothrow) char[kFwImageFileNameSize];
    if ((*list)[i] == nullptr) {
      DeleteFwImageFilenameList(list);
      return RC_OUT_OF_MEMORY;
    }
    memset((*list)[i], 0, kFwImageFileNameSize);
  }
  return RC_SUCCESS;
}

int DeleteFwImageFilenameList(char*** list) {
  if (list == nullptr || *list == nullptr) return RC_SUCCESS;
  for (int i = 0; i < kFwImageFileListCapacity; ++i) delete[] (*list)[i];
  delete[] *list;
  *list = nullptr;
  return RC_SUCCESS;
}

int RunMain(int argc, char** argv) {
  ReleaseAbandonedRun();
  G_u8EntityID = 0;
  G_u8HostNeedRebootFlag = 0;
  G_u8BMCNeedReboot = 0;
  G_u8CipherValue = 0xFF;
  update_steps::ResetInterruptNotes();
  ResetStateChangeNote();
  ForgetFirmwareVersionText();
  g_versionBefore.clear();
  const time_t runStart = platform::GetEnv()->Now();

  // Objects, then the settings file, so that the options win over it.
  sImageHeaderTag emptyHeader;
  memset(&emptyHeader, 0, sizeof(emptyHeader));
  MainConstructor();
  int configRc = RC_SUCCESS;
  if (G_pConfigHandle != nullptr) configRc = G_pConfigHandle->ReadConfigFile();

  // Every report of this program describes a BMC.
  COrvoUpdatePackage::IsBMC(true);

  // The list that -i fills; a settings file that is no regular file
  // stops the run before anything else.
  char** fileList = nullptr;
  int fileCount = 0;
  int rc = CreateFwImageFilenameList(&fileList);
  if (rc == RC_SUCCESS && configRc == RC_FILE_ERROR) rc = RC_FILE_ERROR;
  if (rc != RC_SUCCESS) G_pOutputMessageHandle->OutputUtilityHeader();

  // Options, the settings report, the channel and the BMC search.
  if (rc == RC_SUCCESS)
    rc = ParseCommandArguments(argc, argv, fileList, &fileCount);
  // -record: refused like the log, before any request goes to the BMC.
  if (rc == RC_SUCCESS && RecordFileName()[0] != '\0') {
    const sLanTargetTag lan = CurrentLanTarget();
    const bool overLan = G_EnableIPMILan == 1;
    const std::string refusal = OpenRequestRecording(
        RecordFileName(), fileList, fileCount,
        overLan ? (lan.pchHost != nullptr ? lan.pchHost : "") : nullptr,
        overLan ? lan.pchInterface : nullptr);
    if (!refusal.empty()) {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectError, "   %s: %s\n", RecordFileName(), refusal.c_str());
      rc = RC_FILE_ERROR;
    }
  }
  if (rc == RC_SUCCESS)
    G_pOutputMessageHandle->OutuptUtilityConfiguration(
        G_pConfigHandle->GetSettings());
  // The pre-flight check runs the steps that change nothing, then ends;
  // the history is shown without asking any BMC.
  const bool check = rc == RC_SUCCESS && CheckRequested();
  const bool history = rc == RC_SUCCESS && HistoryRequested();
  if (check)
    rc = RunPreflightCheck({fileList, fileCount,
                            G_pBMCHandle->GetFwUpdateMode() == eFwUpdateModeRemote,
                            LockPathForTarget()});
  if (history)
    rc = ShowHistory(G_pOutputMessageHandle->GetOutputMode() == eOutputXml);
  const bool noUpdate = check || history;
  if (rc == RC_SUCCESS && !noUpdate && G_EnableIPMILan == 0) rc = InitKcsDriver();
  if (rc == RC_SUCCESS && !noUpdate) rc = G_pBMCHandle->SearchBMCDevices();
  if (rc == RC_SUCCESS && !noUpdate) NoteVersionBefore();

  // The inventory, the check and the history need no questions and no update.
  const bool inventory = COrvoUpdatePackage::XmlInventoryMode() || noUpdate;
  if (rc == RC_SUCCESS && !inventory) {
    if (!AskEntityQuestions()) {
      // A refused BIOS update ends here, without report or clean-up.
      g_bRunAbandoned = true;
      g_ppchAbandonedList = fileList;
      return RC_SUCCESS;
    }
    rc = RC_SUCCESS;
  }

  // One run per BMC from here on, then the update itself.
  if (rc == RC_SUCCESS && !inventory) rc = LockTheBmc();
  if (rc == RC_SUCCESS && !inventory) {
    if (G_pBMCHandle->GetFwUpdateMode() == eFwUpdateModeRemote)
      rc = DispatchRemoteUpdate();
    else
      rc = DispatchImageUpdate(fileList, fileCount, &emptyHeader);
  }

  // The common ending.
  COrvoUpdatePackage::ToOutputIfNecessary(static_cast<eReturnCodeTag>(rc));
  const std::string source = fileCount > 0 && fileList != nullptr ? fileList[0] : "";
  DeleteFwImageFilenameList(&fileList);
  UinitKcsDriver();
  if (rc != RC_COMMAND_LINE_ERROR) CheckOptionCombination();
  // A stopped run says so instead of naming the failure it was turned into.
  if (!update_steps::Interrupted()) G_pOutputMessageHandle->OutputReturnCode(rc);
  const int finalRc = update_steps::ReportIfInterrupted(rc);
  // Every run that may have changed the BMC leaves a record of itself.
  if (StateChangingRequestSent()) RecordInHistory(source, finalRc, runStart);
  UnlockTheBmc();
  CloseRequestRecording();
  MainDestructor();
  return finalRc;
}

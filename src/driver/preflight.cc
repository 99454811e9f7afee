// The pre-flight check: the update's own steps up to the first one that
// would change the BMC, with every verdict on a line of its own.
#include "driver/preflight.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "bmc/bmc_handle.h"
#include "common/run_state.h"
#include "common/secret_text.h"
#include "common/text_format.h"
#include "image/image_file.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "ipmi/request_kind.h"
#include "output/output.h"
#include "output/xml_text.h"
#include "platform/platform.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

namespace {

enum class Verdict { kOk, kFailed, kSkipped };

struct CheckLine {
  const char* name;   // the XML name
  const char* label;  // the text column
  Verdict verdict;
  std::string detail;
  int rc;
};

// Collects the verdicts, prints each text line as it comes (so a slow BMC
// shows where the check is), and the XML document at the end.
class Report {
 public:
  void Ok(const char* name, const char* label, const std::string& detail) {
    Add({name, label, Verdict::kOk, detail, RC_SUCCESS});
  }
  void Fail(const char* name, const char* label, const std::string& detail,
            int rc) {
    Add({name, label, Verdict::kFailed, detail, rc});
  }
  void Skip(const char* name, const char* label, const std::string& why) {
    Add({name, label, Verdict::kSkipped, why, RC_SUCCESS});
  }

  int FirstFailure() const {
    for (const CheckLine& line : lines_)
      if (line.verdict == Verdict::kFailed) return line.rc;
    return RC_SUCCESS;
  }

  void Finish() {
    const int rc = FirstFailure();
    if (rc == RC_SUCCESS)
      Out().RedirectMessage(eRedirectNormal,
                            "\n   Check passed: the update would go ahead\n");
    else
      Out().RedirectMessage(eRedirectNormal,
                            "\n   Check failed: the update would not go ahead\n");
    if (Out().GetOutputMode() != eOutputXml) return;
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";
    char head[96];
    snprintf(head, sizeof(head), "<PreflightCheck result=\"%s\" code=\"%d\">\n",
             rc == RC_SUCCESS ? "pass" : "fail", rc);
    xml += head;
    for (const CheckLine& line : lines_) {
      char code[32];
      snprintf(code, sizeof(code), "%d", line.rc);
      xml += std::string("   <Check name=\"") + line.name + "\" status=\"" +
             VerdictName(line.verdict) + "\" code=\"" + code + "\">" +
             XmlEscape(line.detail) + "</Check>\n";
    }
    xml += "</PreflightCheck>\n";
    Out().WriteDocument(xml);
  }

 private:
  static const char* VerdictName(Verdict verdict) {
    switch (verdict) {
      case Verdict::kOk: return "ok";
      case Verdict::kFailed: return "failed";
      default: return "skipped";
    }
  }

  void Add(CheckLine line) {
    const char* word = line.verdict == Verdict::kOk       ? "OK"
                       : line.verdict == Verdict::kFailed ? "FAILED"
                                                          : "skipped";
    if (line.detail.empty())
      Out().RedirectMessage(eRedirectNormal, "   %-21s: %s\n", line.label, word);
    else
      Out().RedirectMessage(eRedirectNormal, "   %-21s: %s, %s\n", line.label,
                            word, line.detail.c_str());
    lines_.push_back(std::move(line));
  }

  std::vector<CheckLine> lines_;
};

// "1.52.7": major, minor as two hex digits, revision, as the BMC's own
// version text reads.
std::string VersionText(const uint8_t* fw) {
  char text[32];
  snprintf(text, sizeof(text), "%u.%02X.%u", fw[0], fw[1],
           fw[2] * 256u + fw[3]);
  return text;
}

std::string EntityName(unsigned entity) {
  if (entity >= 6) return "entity " + std::to_string(entity);
  std::string name = au8EntityIDStr[entity];
  while (!name.empty() && name.back() == ' ') name.pop_back();
  return name;
}

// The revision after the second dot of the BMC's version text, or 0.
unsigned RevisionOfVersionText(const char* text) {
  const char* dot = strchr(text, '.');
  if (dot != nullptr) dot = strchr(dot + 1, '.');
  if (dot == nullptr) return 0;
  return static_cast<unsigned>(strtoul(dot + 1, nullptr, 10));
}

void CheckOptions(const sPreflightInputTag& input, Report* report) {
  const sProgramSettingsTag* settings = CurrentSettings();
  const unsigned entity = settings != nullptr ? settings->u8EntityID : 0;
  std::string detail = "entity " + std::to_string(entity) + " (" +
                       EntityName(entity) + ")";
  if (input.bRemote && G_pFirmwareUpdate != nullptr)
    detail += ", URI " + MaskUriPassword(G_pFirmwareUpdate->GetURI() + 1);
  else if (input.i32FileCount > 0)
    detail += std::string(", image ") + input.ppchFileList[0];
  if (G_EnableIPMILan == 1 && G_pFirmwareUpdate != nullptr)
    detail += std::string(", LAN ") + G_pFirmwareUpdate->GetHostIP() + " (" +
              G_pFirmwareUpdate->GetLanIF() + ")";
  else
    detail += ", KCS";
  report->Ok("options", "Options and settings", detail);
}

void CheckLock(const std::string& path, Report* report) {
  platform::Env* env = platform::GetEnv();
  const int taken = env->TryLock(path);
  if (taken == 1) {
    env->Unlock(path);
    report->Ok("lock", "Lock", "free (" + path + ")");
  } else if (taken == 0) {
    report->Fail("lock", "Lock",
                 "another vrxfwul run is updating this BMC (" + path + ")",
                 RC_UPDATE_IN_PROGRESS);
  } else {
    report->Ok("lock", "Lock",
               "cannot be opened (" + path + "); an update goes ahead without it");
  }
}

// Returns the BMC's record when it answered, else null.
sBMCInformationTag* CheckBmc(Report* report, std::string* versionText) {
  int rc = RC_SUCCESS;
  if (G_EnableIPMILan == 0) {
    rc = InitKcsDriver();
    if (rc != RC_SUCCESS) {
      report->Fail("bmc", "BMC", "the system interface cannot be opened", rc);
      return nullptr;
    }
  }
  rc = G_pBMCHandle->SearchBMCDevices();
  // The search's progress text ends without a line feed.
  Out().RedirectMessage(eRedirectNormal, "\n");
  G_pBMCHandle->SetCurrBMCInfo(0);
  sBMCInformationTag* bmc = G_pBMCHandle->GetCurrBMCInfo();
  if (rc != RC_SUCCESS || bmc == nullptr) {
    report->Fail("bmc", "BMC", "no BMC answered Get Device ID", rc);
    return nullptr;
  }
  char text[256] = {0};
  if (GetVRXFirmwareVersion(text) == 0 && text[0] != '\0') {
    *versionText = text;
    const unsigned revision = RevisionOfVersionText(text);
    bmc->au8FwRevision[2] = static_cast<uint8_t>(revision >> 8);
    bmc->au8FwRevision[3] = static_cast<uint8_t>(revision & 0xFF);
  } else {
    *versionText = VersionText(bmc->au8FwRevision);
  }
  const std::string name(bmc->achPlatformName,
                         strnlen(bmc->achPlatformName, sizeof(bmc->achPlatformName)));
  report->Ok("bmc", "BMC",
             name + StringPrintf(", type 0x%02X, firmware %u.", bmc->u32DeviceType,
                    bmc->au8FwRevision[0]) +
                 StringPrintf("%02X", bmc->au8FwRevision[1]) + " (" +
                 *versionText + ")");
  return bmc;
}

void CheckTask(Report* report) {
  unsigned char id = 0;
  int rc = GetCurrTaskID(&id);
  if (rc != RC_SUCCESS) {
    report->Fail("task", "Update task", "the task id cannot be read",
                 RC_GET_UPDATE_STATUS_FAILED);
    return;
  }
  if (id == 0) {
    report->Ok("task", "Update task", "none under way");
    return;
  }
  unsigned char status = 0, percent = 0;
  bool percentValid = false;
  rc = GetUpdateStatus(id, &status, &percent, &percentValid);
  if (rc != RC_SUCCESS) {
    report->Fail("task", "Update task",
                 StringPrintf("the status of task %u cannot be read", id), rc);
    return;
  }
  // 0xFF is done, 0x80 and above failed: either way the task is over.
  if (status >= 0x80)
    report->Ok("task", "Update task",
               StringPrintf("none under way (task %u ended with 0x%02X)", id, status));
  else
    report->Fail("task", "Update task",
                 StringPrintf("task %u is under way (status 0x%02X)", id, status),
                 RC_UPDATE_IN_PROGRESS);
}

// The image file, its header and CRC; returns its header when usable.
const sImageHeaderTag* CheckImageFile(const sPreflightInputTag& input,
                                      Report* report) {
  TImageFileHandle* images = G_pImageFileHandle;
  const char* name = input.i32FileCount > 0 ? input.ppchFileList[0] : "";
  int rc = images->ReadValidateFwImageFileHeader(input.ppchFileList,
                                                 input.i32FileCount);
  if (rc != RC_SUCCESS || images->GetFwImageFileCount() == 0) {
    report->Fail("image", "Image file",
                 std::string(name) + " cannot be used as an image", rc);
    return nullptr;
  }
  uint8_t block[512];
  if (ReadImageHeaderBlock(name, block) != 0) {
    report->Fail("image", "Image file",
                 std::string(name) + ": the header cannot be read",
                 RC_OPEN_INPUT_FAILED);
    return nullptr;
  }
  images->SetCurrImageHeader(0);
  images->ReadFwImageFileHeader(block);
  rc = images->ValidateFwImageFileHeader(block);
  const sImageHeaderTag* header = images->GetCurrImageHeader();
  if (rc != RC_SUCCESS) {
    const char* why = images->LastRefusal();
    report->Fail("image", "Image file",
                 std::string(name) + ": " + (why != nullptr ? why : "invalid header"),
                 rc);
    return nullptr;
  }
  report->Ok("image", "Image file",
             std::string(name) + ", " + std::to_string(header->u32FileSize) +
                 " bytes, header and CRC valid");
  return header;
}

void CheckImageType(sBMCInformationTag* bmc, const sImageHeaderTag* header,
                    Report* report) {
  const unsigned entity = CurrentSettings() != nullptr ? CurrentSettings()->u8EntityID : 0;
  const std::string board(header->achBoardType, 4);
  bool boardKnown = false;
  for (const char* valid : achValidBoardType)
    if (memcmp(header->achBoardType, valid, 4) == 0) boardKnown = true;
  const std::string detail = StringPrintf("type 0x%02X", header->u32ImageType) +
                             ", board " + board + ", for " + EntityName(entity);
  if (!boardKnown) {
    report->Fail("type", "Image type",
                 detail + ": the BMC takes only " + achValidBoardType[0] +
                     " or " + achValidBoardType[1] + " images",
                 RC_FW_UPDATE_FAILED);
    return;
  }
  // The comparison marks the record; the check works on a copy.
  sBMCInformationTag copy = *bmc;
  const int rc = CompareImageType(&copy, G_pImageFileHandle->GetImageHeaderList(),
                                  G_pImageFileHandle->GetFwImageFileCount());
  if (rc != RC_SUCCESS)
    report->Fail("type", "Image type", detail + ": no image fits this BMC", rc);
  else
    report->Ok("type", "Image type", detail);
}

void CheckVersion(const sBMCInformationTag* bmc, const std::string& bmcVersion,
                  const sImageHeaderTag* header, Report* report) {
  const unsigned entity = CurrentSettings() != nullptr ? CurrentSettings()->u8EntityID : 0;
  const std::string offered = VersionText(header->au8FwRevision);
  if (entity != 0) {
    report->Ok("version", "Version",
               "image " + offered + "; the BMC reports no version of the " +
                   EntityName(entity));
    return;
  }
  sBMCInformationTag copy = *bmc;
  copy.u32Status = eBMCImageMatched;
  // Upgrade-only asks no question; its verdicts name all three cases.
  CompareRevisions(&copy, header, eFwUpdateModeUpgradeOnly);
  std::string verdict;
  if (copy.u32Status == eBMCSameVersion)
    verdict = "same version " + offered + "; it is written again";
  else if (copy.u32Status == eBMCUpdate)
    verdict = "update " + bmcVersion + " -> " + offered;
  else
    verdict = "older image: " + bmcVersion + " -> " + offered +
              " is a downgrade; it is written all the same";
  report->Ok("version", "Version", verdict);
}

void CheckScratch(Report* report) {
  std::string path, reason;
  bool wouldCreate = false;
  if (PlanScratchDirectory(&path, &wouldCreate, &reason) != 0)
    report->Fail("scratch", "Scratch directory", reason, RC_DETECT_USB_FAILED);
  else
    report->Ok("scratch", "Scratch directory",
               path + (wouldCreate ? " (made by the update)" : ""));
}

void CheckTools(Report* report) {
  std::string found, missing;
  for (const char* tool : G_apchUsbTools) {
    std::string& list = platform::GetEnv()->CanExecute(tool) ? found : missing;
    if (!list.empty()) list += ", ";
    list += tool;
  }
  if (missing.empty())
    report->Ok("tools", "Tools", found);
  else
    report->Fail("tools", "Tools", "not found: " + missing, RC_DETECT_USB_FAILED);
}

// The counted URI's read-back compares the length byte taken as signed:
// 128 to 254 characters never compare equal, so the assign step fails.
constexpr size_t kLongestComparedUri = 127;
constexpr size_t kUncomparedUri = 255;

void CheckUri(Report* report) {
  const std::string uri = G_pFirmwareUpdate->GetURI() + 1;
  const std::string shown = MaskUriPassword(uri);
  const size_t scheme = uri.find("://");
  if (uri.empty() || scheme == std::string::npos || scheme == 0) {
    report->Fail("uri", "URI", shown + ": not of the form scheme://host/path",
                 RC_BAD_DATA);
    return;
  }
  const std::string length = std::to_string(uri.size()) + " characters";
  if (uri.size() > kLongestComparedUri && uri.size() != kUncomparedUri) {
    report->Fail("uri", "URI",
                 length + ": the BMC's settings hold at most " +
                     std::to_string(kLongestComparedUri),
                 RC_RETRY_LIMIT + RC_ASSIGN_URI_FAILED);
    return;
  }
  report->Ok("uri", "URI", shown + ", " + length);
}

void CheckRemoteSettings(Report* report) {
  const sProgramSettingsTag* s = CurrentSettings();
  if (s == nullptr) {
    report->Skip("settings", "Remote settings", "no settings");
    return;
  }
  report->Ok("settings", "Remote settings",
             StringPrintf("retry %u, interval %u s", s->u8ConnectionRetry,
                    s->u8ConnectionRetryInterval * 5u) +
                 ", delay " + std::to_string(s->u8DelayTime) + " s");
}

}  // namespace

int RunPreflightCheck(const sPreflightInputTag& input) {
  Report report;
  Out().RedirectMessage(eRedirectNormal,
                        "\n   Pre-flight check: nothing on the BMC is changed\n");
  SetReadOnlyChannel(true);
  CheckOptions(input, &report);
  CheckLock(input.lockPath, &report);
  std::string bmcVersion;
  sBMCInformationTag* bmc = CheckBmc(&report, &bmcVersion);
  if (bmc != nullptr)
    CheckTask(&report);
  else
    report.Skip("task", "Update task", "no BMC");

  if (input.bRemote) {
    CheckUri(&report);
    CheckRemoteSettings(&report);
  } else {
    const sImageHeaderTag* header = CheckImageFile(input, &report);
    if (header == nullptr || bmc == nullptr) {
      const char* why = header == nullptr ? "no usable image" : "no BMC";
      report.Skip("type", "Image type", why);
      report.Skip("version", "Version", why);
    } else {
      CheckImageType(bmc, header, &report);
      CheckVersion(bmc, bmcVersion, header, &report);
    }
    CheckScratch(&report);
    CheckTools(&report);
  }
  SetReadOnlyChannel(false);
  report.Finish();
  return report.FirstFailure();
}

#include "bmc_state.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace simbmc {
namespace {

// Completion codes
constexpr uint8_t kCcOk = 0x00;
constexpr uint8_t kCcInProgress = 0x81;
constexpr uint8_t kCcReservation = 0xC5;
constexpr uint8_t kCcLength = 0xC7;
constexpr uint8_t kCcOutOfRange = 0xC9;
constexpr uint8_t kCcInvalidData = 0xCC;
constexpr uint8_t kCcWrongState = 0xD5;

// Update status codes
constexpr uint8_t kStConnectTransmit = 0x00;
constexpr uint8_t kStValidating = 0x01;
constexpr uint8_t kStProgramming = 0x02;
constexpr uint8_t kStReady = 0x03;
constexpr uint8_t kStUsbInit = 0x04;
constexpr uint8_t kStConnect = 0x05;
constexpr uint8_t kStGeneralError = 0x80;
constexpr uint8_t kStNoConnection = 0x81;
constexpr uint8_t kStPathNotFound = 0x82;
constexpr uint8_t kStAbort = 0x83;
constexpr uint8_t kStMemoryError = 0x86;
constexpr uint8_t kStDetachError = 0x87;
constexpr uint8_t kStCompleted = 0xFF;

constexpr uint8_t kCid = 0x10;
constexpr size_t kUriCapacity = 256;
constexpr size_t kImageLimit = 256u << 20;

bool ParseUnsigned(const std::string& text, unsigned long max,
                   unsigned long* out) {
  if (text.empty()) return false;
  char* end = nullptr;
  unsigned long v = std::strtoul(text.c_str(), &end, 0);
  if (*end != '\0' || v > max) return false;
  *out = v;
  return true;
}

std::string Hex(uint8_t b) {
  char text[8];
  std::snprintf(text, sizeof(text), "0x%02x", b);
  return text;
}

uint16_t Key(uint8_t a, uint8_t b) { return static_cast<uint16_t>(a << 8 | b); }

}  // namespace

Bmc::Bmc(Host* host) : host_(host) { ResetConfigStore(); }

void Bmc::Record(const std::string& line) { host_->Log("event " + line); }

Hook Bmc::Intercept(uint8_t netfn, uint8_t cmd, uint8_t* cc) {
  if (down_) return Hook::kDrop;
  auto it = faults_.find(Key(netfn, cmd));
  if (it == faults_.end()) return Hook::kNone;
  Fault fault = it->second;
  if (fault.remaining > 0 && --it->second.remaining == 0) faults_.erase(it);
  if (fault.drop) return Hook::kDrop;
  *cc = fault.cc;
  return Hook::kCompletionCode;
}

void Bmc::Handle(uint8_t netfn, uint8_t cmd, const uint8_t* data, unsigned len,
                 Reply* reply) {
  reply->cc = kCcOk;
  reply->len = 0;
  switch (netfn) {
    case 0x06: HandleApp(cmd, data, len, reply); break;
    case 0x0A: HandleStorage(cmd, data, len, reply); break;
    case 0x08: HandleFirmware(cmd, data, len, reply); break;
    case 0x30: HandleOem(cmd, data, len, reply); break;
    case 0x2E: HandleGroup(cmd, data, len, reply); break;
    default: reply->cc = 0xC1; break;
  }
}

// ---- standard commands -----------------------------------------------------

void Bmc::HandleApp(uint8_t cmd, const uint8_t*, unsigned, Reply* r) {
  if (cmd == 0x01) {  // Get Device ID
    r->Add(0x20);
    r->Add(0x01);
    r->Add(major_ & 0x7F);
    r->Add(minor_);
    r->Add(0x02);
    r->Add(0x9F);
    for (uint8_t b : manufacturer_) r->Add(b);
    r->Add(static_cast<uint8_t>(productId_ & 0xFF));
    r->Add(static_cast<uint8_t>(productId_ >> 8));
    r->Add(static_cast<uint8_t>(revision_ >> 8));
    r->Add(static_cast<uint8_t>(revision_ & 0xFF));
    r->Add(0);
    r->Add(0);
    return;
  }
  if (cmd == 0x02) {  // Cold Reset: the reply goes out, then the BMC is gone
    Record("cold reset");
    BeginReset();
    return;
  }
  r->cc = 0xC1;
}

std::vector<uint8_t> Bmc::BuildFru() const {
  std::vector<uint8_t> area = {0x01, 0x00, 0x19};
  auto field = [&area](const std::string& text) {
    size_t n = text.size() > 63 ? 63 : text.size();
    area.push_back(static_cast<uint8_t>(0xC0 | n));
    area.insert(area.end(), text.begin(), text.begin() + n);
  };
  field("Simulated BMC Works");  // manufacturer
  field(productName_);
  field("SX-" + std::to_string(productId_));  // part/model number
  field("A1");                                // version
  field("SIM0000001");                        // serial number
  field("");                                  // asset tag
  field("");                                  // FRU file id
  area.push_back(0xC1);
  while ((area.size() + 1) % 8 != 0) area.push_back(0);
  area.push_back(0);
  area[1] = static_cast<uint8_t>(area.size() / 8);
  uint8_t sum = 0;
  for (uint8_t b : area) sum = static_cast<uint8_t>(sum + b);
  area.back() = static_cast<uint8_t>(-sum);

  // Sized once and filled in place: common header, then the area.
  std::vector<uint8_t> fru(8 + area.size(), 0);
  fru[0] = 0x01;
  fru[4] = 0x01;
  sum = 0;
  for (int i = 0; i < 7; ++i) sum = static_cast<uint8_t>(sum + fru[i]);
  fru[7] = static_cast<uint8_t>(-sum);
  std::copy(area.begin(), area.end(), fru.begin() + 8);
  return fru;
}

void Bmc::HandleStorage(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r) {
  std::vector<uint8_t> fru = BuildFru();
  if (cmd == 0x10) {  // Get FRU Inventory Area Info
    if (n < 1 || d[0] != 0) {
      r->cc = kCcInvalidData;
      return;
    }
    r->Add(static_cast<uint8_t>(fru.size() & 0xFF));
    r->Add(static_cast<uint8_t>(fru.size() >> 8));
    r->Add(0);
    return;
  }
  if (cmd == 0x11) {  // Read FRU Data
    if (n < 4) {
      r->cc = kCcLength;
      return;
    }
    if (d[0] != 0) {
      r->cc = kCcInvalidData;
      return;
    }
    size_t offset = d[1] | (d[2] << 8);
    size_t count = d[3];
    if (offset > fru.size()) {
      r->cc = kCcOutOfRange;
      return;
    }
    if (count > kMaxReplyData - 1) count = kMaxReplyData - 1;
    if (offset + count > fru.size()) count = fru.size() - offset;
    r->Add(static_cast<uint8_t>(count));
    for (size_t i = 0; i < count; ++i) r->Add(fru[offset + i]);
    return;
  }
  r->cc = 0xC1;
}

// ---- firmware commands (NetFn 0x08) ------------------------------------------

std::string Bmc::VersionText() const {
  char text[32];
  std::snprintf(text, sizeof(text), "%u.%02x.%u", major_, minor_, revision_);
  return text;
}

void Bmc::HandleFirmware(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r) {
  switch (cmd) {
    case 0x01:  // Update Firmware, or a query when the first byte is 0xAA
      if (n >= 2 && d[0] == 0xAA) {
        if (d[1] == 0x02) {
          std::string text = VersionText();
          r->Add(static_cast<uint8_t>(text.size()));
          for (char c : text) r->Add(static_cast<uint8_t>(c));
        } else if (d[1] == 0x03) {
          r->Add(task_.id);
        } else {
          r->cc = kCcInvalidData;
        }
        return;
      }
      if (n < 2) {
        r->cc = kCcLength;
        return;
      }
      StartTask(d[0], d[1], r);
      return;
    case 0x02:  // Get Update Status
      if (n < 1) {
        r->cc = kCcLength;
        return;
      }
      StatusOf(d[0], r);
      return;
    case 0x04:  // USB phases: entity, step
      if (n < 2) {
        r->cc = kCcLength;
        return;
      }
      UsbPhase(d[1], r);
      return;
    case 0x12: {  // Get Firmware Update Status: percent of the running task
      int percent = 0;
      if (task_.phase == Phase::kDone) percent = 100;
      if (task_.phase == Phase::kProgramming && programMs_ > 0)
        percent = static_cast<int>((host_->NowMs() - task_.phaseStart) * 100 /
                                   programMs_);
      if (percent > 100) percent = 100;
      r->Add(static_cast<uint8_t>(percent));
      return;
    }
    case 0x13:  // Get Firmware Version
      if (n < 1) {
        r->cc = kCcLength;
        return;
      }
      if (d[0] == 0) {
        r->Add(major_);
        r->Add(minor_);
        r->Add(static_cast<uint8_t>(revision_ >> 8));
        r->Add(static_cast<uint8_t>(revision_ & 0xFF));
      } else if (hasBootloader_) {
        for (uint8_t b : bootInfo_) r->Add(b);
        for (uint8_t b : bootVersion_) r->Add(b);
      } else {
        r->cc = kCcInvalidData;
      }
      return;
    case 0x16:  // Set Firmware Image Status
      if (n < 2) r->cc = kCcLength;
      return;
    default:
      r->cc = 0xC1;
  }
}

void Bmc::StartTask(uint8_t source, uint8_t target, Reply* r) {
  uint8_t entity = target & 0x0F;
  if ((source != 1 && source != 3) || !(target & 0x80) || entity > 5) {
    r->cc = kCcInvalidData;
    return;
  }
  // A host that starts anew while its stick is still plugged (it gave up
  // without phase 2): the BMC may end that session and pull the stick.
  if (usbRestart_ && task_.id != 0 && task_.phase == Phase::kUsbReady) {
    Record("usb session abandoned: pulling the stick");
    detachJob_ = hook_.empty() ? 0
                               : host_->Spawn({hook_, "detach", task_.device},
                                              workDir_ + "/jobs.log");
    Fail(kStAbort);
  }
  bool busy = task_.id != 0 && task_.phase != Phase::kDone &&
              task_.phase != Phase::kFailed && task_.phase != Phase::kIdle;
  if (busy) {
    r->cc = kCcInProgress;
    return;
  }
  if (source == 1 && store_[Key(kCid, 1)][0] != 1) {
    Record("network update refused: remote update disabled");
    r->cc = kCcWrongState;
    return;
  }
  Task task;
  task.id = nextTaskId_;
  nextTaskId_ = static_cast<uint8_t>(nextTaskId_ == 0xFF ? 1 : nextTaskId_ + 1);
  task.source = source;
  task.entity = entity;
  task_ = task;
  char line[96];
  std::snprintf(line, sizeof(line), "task %u start source %u entity %u",
                task_.id, source, entity);
  Record(line);
  if (!script_.empty()) {
    Enter(Phase::kScripted);
  } else if (source == 3) {
    Enter(Phase::kUsbInit);
  } else {
    const std::vector<uint8_t>& uri = store_[Key(kCid, 3)];
    task_.uri.assign(uri.begin() + 1, uri.begin() + 1 + uri[0]);
    Enter(Phase::kNetDelay);
  }
  r->Add(task_.id);
}

void Bmc::UsbPhase(uint8_t step, Reply* r) {
  if (task_.id == 0 || task_.source != 3) {
    r->cc = kCcWrongState;
    return;
  }
  if (step == 0 && task_.phase == Phase::kUsbInit) {
    char name[64];
    std::snprintf(name, sizeof(name), "/usb-%u.img", task_.id);
    task_.device = workDir_ + name;
    unlink(task_.device.c_str());
    task_.attempt = 0;
    task_.job = host_->Spawn(MakeStickCommand(), workDir_ + "/jobs.log");
    Enter(Phase::kUsbAttaching);
    return;
  }
  if (step == 1 && task_.phase == Phase::kUsbReady) {
    task_.job = hook_.empty() ? 0
                              : host_->Spawn({hook_, "detach", task_.device},
                                             workDir_ + "/jobs.log");
    Enter(Phase::kUsbDetaching);
    return;
  }
  r->cc = kCcWrongState;
}

// The stick's image: FAT on the whole device (superfloppy), FAT in one
// partition starting at 1 MiB, or no file system at all (blank).
std::vector<std::string> Bmc::MakeStickCommand() const {
  const std::string kib = std::to_string(usbSizeMb_ * 1024);
  if (usbLayout_ == "partitioned")
    return {"sh", "-c",
            "truncate -s \"$2\"K \"$1\" && "
            "echo 'start=2048, type=6' | sfdisk -q \"$1\" && "
            "mkfs.vfat --offset 2048 \"$1\" $(($2 - 1024))",
            "sh", task_.device, kib};
  if (usbLayout_ == "blank")
    return {"truncate", "-s", kib + "K", task_.device};
  return {"mkfs.vfat", "-C", task_.device, kib};
}

void Bmc::StatusOf(uint8_t id, Reply* r) {
  if (id == 0 || id != task_.id) {
    r->cc = kCcInvalidData;
    return;
  }
  int percent = -1;
  uint8_t code = kStGeneralError;
  switch (task_.phase) {
    case Phase::kIdle:
    case Phase::kUsbInit:
    case Phase::kUsbAttaching: code = kStUsbInit; break;
    case Phase::kUsbReady: code = kStReady; break;
    case Phase::kUsbDetaching:
    case Phase::kUsbReading:
    case Phase::kValidating: code = kStValidating; break;
    case Phase::kNetDelay:
    case Phase::kNetRetryWait: code = kStConnect; break;
    case Phase::kNetFetching: code = kStConnectTransmit; break;
    case Phase::kProgramming:
      code = kStProgramming;
      percent = programMs_ > 0
                    ? static_cast<int>((host_->NowMs() - task_.phaseStart) *
                                       100 / programMs_)
                    : 100;
      if (percent > 99) percent = 99;
      break;
    case Phase::kDone:
      code = kStCompleted;
      percent = 100;
      break;
    case Phase::kFailed: code = task_.failCode; break;
    case Phase::kScripted: code = ScriptedStatus(&percent); break;
  }
  r->Add(code);
  if (percent >= 0) r->Add(static_cast<uint8_t>(percent));
}

uint8_t Bmc::ScriptedStatus(int* percent) {
  int64_t elapsed = host_->NowMs() - task_.phaseStart;
  for (const ScriptStep& step : script_) {
    if (elapsed < step.ms || &step == &script_.back()) {
      *percent = step.percent;
      return step.code;
    }
    elapsed -= step.ms;
  }
  return kStGeneralError;
}

// ---- task progress -----------------------------------------------------------

void Bmc::Enter(Phase phase) {
  task_.phase = phase;
  task_.phaseStart = host_->NowMs();
  static const char* const kNames[] = {
      "idle",        "usb-init",     "usb-attaching", "usb-ready",
      "usb-detaching", "usb-reading", "net-delay",    "net-fetching",
      "net-retry-wait", "validating", "programming",  "done",
      "failed",      "scripted"};
  char line[96];
  std::snprintf(line, sizeof(line), "task %u phase %s", task_.id,
                kNames[static_cast<int>(phase)]);
  Record(line);
}

void Bmc::Fail(uint8_t code) {
  task_.failCode = code;
  Enter(Phase::kFailed);
  Record("task failed with " + Hex(code));
}

void Bmc::StartFetch() {
  char name[64];
  std::snprintf(name, sizeof(name), "/fetch-%u.bin", task_.id);
  task_.file = workDir_ + name;
  unlink(task_.file.c_str());
  ++task_.attempt;
  Record("fetch attempt " + std::to_string(task_.attempt) + " " + task_.uri);
  std::string timeout = std::to_string(fetchTimeoutS_);
  task_.job = host_->Spawn(
      {"curl", "-sS", "-f", "--proto", "=http,https,ftp,tftp",
       "--connect-timeout", timeout, "--max-time",
       std::to_string(fetchTimeoutS_ * 6), "-o", task_.file, "--url",
       task_.uri},
      workDir_ + "/jobs.log");
  if (task_.job < 0) {
    Fail(kStGeneralError);
    return;
  }
  Enter(Phase::kNetFetching);
}

void Bmc::FinishFetch(int code) {
  Record("fetch attempt " + std::to_string(task_.attempt) + " exit " +
         std::to_string(code));
  if (code == 0) {
    Enter(Phase::kValidating);
    return;
  }
  int retries = store_[Key(kCid, 4)][0];
  if (task_.attempt <= retries) {
    Enter(Phase::kNetRetryWait);
    return;
  }
  uint8_t status = kStAbort;
  switch (code) {
    case 6: case 7: case 28: case 35: case 67:
      status = kStNoConnection;
      break;
    case 9: case 22: case 68: case 78:
      status = kStPathNotFound;
      break;
    case 1: case 3:
      status = kStGeneralError;
      break;
  }
  Fail(status);
}

void Bmc::CheckAndProgram() {
  std::vector<uint8_t> image;
  if (!ReadWholeFile(task_.file, &image, kImageLimit)) {
    Fail(kStMemoryError);
    return;
  }
  ImageInfo info;
  uint8_t verdict = CheckImage(image, &info);
  if (verdict != kImageGood) {
    Fail(verdict);
    return;
  }
  task_.image = info;
  Enter(Phase::kProgramming);
}

void Bmc::StepTask() {
  int64_t elapsed = host_->NowMs() - task_.phaseStart;
  int code = 0;
  switch (task_.phase) {
    case Phase::kUsbAttaching:
      if (host_->PollJob(task_.job, &code) == 0) return;
      if (code != 0) {
        Fail(task_.attempt == 0 ? kStMemoryError : kStGeneralError);
        return;
      }
      if (task_.attempt == 0 && !hook_.empty()) {
        // The previous stick must be out before the next goes in.
        if (detachJob_ > 0 && host_->PollJob(detachJob_, &code) == 0) return;
        detachJob_ = 0;
        task_.attempt = 1;
        task_.job = host_->Spawn({hook_, "attach", task_.device},
                                 workDir_ + "/jobs.log");
        return;
      }
      Enter(Phase::kUsbReady);
      return;
    case Phase::kUsbReady:
      // A host that never says the image is there: the BMC ends the
      // session, pulls its stick and fails the task.
      if (usbReadyTimeoutMs_ > 0 && elapsed >= usbReadyTimeoutMs_) {
        if (!hook_.empty())
          host_->Spawn({hook_, "detach", task_.device}, workDir_ + "/jobs.log");
        Record("usb session timed out");
        Fail(kStAbort);
      }
      return;
    case Phase::kUsbDetaching:
      if (task_.job != 0 && host_->PollJob(task_.job, &code) == 0) return;
      if (code != 0) {
        Fail(kStDetachError);
        return;
      }
      task_.file = task_.device + ".k9";
      unlink(task_.file.c_str());
      // A partitioned stick holds its FAT in the partition at 1 MiB.
      task_.job = host_->Spawn(
          {"mcopy", "-n", "-i",
           usbLayout_ == "partitioned" ? task_.device + "@@1M" : task_.device,
           "::firmimg.k9", task_.file},
          workDir_ + "/jobs.log");
      Enter(Phase::kUsbReading);
      return;
    case Phase::kUsbReading:
      if (host_->PollJob(task_.job, &code) == 0) return;
      if (code != 0) {
        Fail(kStPathNotFound);
        return;
      }
      Enter(Phase::kValidating);
      return;
    case Phase::kNetDelay:
      if (elapsed >= store_[Key(kCid, 6)][0] * delayUnitMs_) StartFetch();
      return;
    case Phase::kNetRetryWait:
      if (elapsed >= store_[Key(kCid, 5)][0] * intervalUnitMs_) StartFetch();
      return;
    case Phase::kNetFetching:
      if (host_->PollJob(task_.job, &code) == 0) return;
      FinishFetch(code);
      return;
    case Phase::kValidating:
      if (elapsed >= validateMs_) CheckAndProgram();
      return;
    case Phase::kProgramming:
      if (elapsed < programMs_) return;
      pendingImage_ = true;
      programmed_ = task_.image;
      Enter(Phase::kDone);
      return;
    default:
      return;
  }
}

void Bmc::Tick() {
  int64_t now = host_->NowMs();
  if (downAt_ != 0 && now >= downAt_) {
    downAt_ = 0;
    down_ = true;
    downUntil_ = now + resetDownMs_;
    // A reset ends whatever task ran; its programmed image stays pending.
    task_ = Task();
    Record(resetHang_ ? "down for good" : "down");
    return;
  }
  if (down_) {
    if (resetHang_ || now < downUntil_) return;
    down_ = false;
    if (wrongVersion_) {
      // Fault: whatever was programmed, it comes back running this.
      major_ = wrongMajor_;
      minor_ = wrongMinor_;
      revision_ = wrongRevision_;
    } else if (pendingImage_) {
      major_ = programmed_.major;
      minor_ = programmed_.minor;
      revision_ = programmed_.revision;
      if (programmed_.hasBootloader) {
        std::memcpy(bootInfo_, programmed_.bootloaderInfo, 4);
        std::memcpy(bootVersion_, programmed_.bootloaderVersion, 4);
      }
    }
    pendingImage_ = false;
    Record("up, version " + VersionText());
    return;
  }
  if (resetDefaultTask_ != 0 && resetDefaultDoneAt_ != 0 &&
      now >= resetDefaultDoneAt_) {
    resetDefaultDoneAt_ = 0;
    ResetConfigStore();
    Record("settings back to defaults");
  }
  StepTask();
}

void Bmc::BeginReset() {
  if (down_ || downAt_ != 0) return;
  downAt_ = host_->NowMs() + resetDelayMs_;
  if (downAt_ == 0) downAt_ = 1;
}

// ---- OEM commands (NetFn 0x30) ------------------------------------------------

void Bmc::ResetConfigStore() {
  store_.clear();
  store_[Key(kCid, 1)] = {defEnable_};
  store_[Key(kCid, 2)] = {defProtocol_};
  store_[Key(kCid, 3)] = {0};
  store_[Key(kCid, 4)] = {defRetry_};
  store_[Key(kCid, 5)] = {defInterval_};
  store_[Key(kCid, 6)] = {defDelay_};
  uriPending_.clear();
}

std::vector<uint8_t>* Bmc::ConfigItem(uint8_t cid, uint8_t aid, uint8_t index) {
  if (cid != kCid || index != 0) return nullptr;
  auto it = store_.find(Key(cid, aid));
  return it == store_.end() ? nullptr : &it->second;
}

// Both Get and Set carry reservation, CID, AID and index in their first
// four bytes and need at least seven; a refusal sets the completion code.
std::vector<uint8_t>* Bmc::CheckedConfigItem(const uint8_t* d, unsigned n,
                                             Reply* r) {
  if (n < 7) {
    r->cc = kCcLength;
    return nullptr;
  }
  if (d[0] != reservation_ || reservation_ == 0) {
    r->cc = kCcReservation;
    return nullptr;
  }
  std::vector<uint8_t>* item = ConfigItem(d[1], d[2], d[3]);
  if (item == nullptr) r->cc = kCcInvalidData;
  return item;
}

void Bmc::GetConfig(const uint8_t* d, unsigned n, Reply* r) {
  std::vector<uint8_t>* item = CheckedConfigItem(d, n, r);
  if (item == nullptr) return;
  size_t offset = d[4] | (d[5] << 8);
  size_t count = d[6];
  if (count > kMaxReplyData - 4) count = kMaxReplyData - 4;
  if (offset >= item->size()) count = 0;
  else if (offset + count > item->size()) count = item->size() - offset;
  r->Add(d[1]);
  r->Add(d[2]);
  r->Add(d[3]);
  r->Add(static_cast<uint8_t>(count));
  for (size_t i = 0; i < count; ++i) r->Add((*item)[offset + i]);
}

void Bmc::SetConfig(const uint8_t* d, unsigned n, Reply* r) {
  std::vector<uint8_t>* item = CheckedConfigItem(d, n, r);
  if (item == nullptr) return;
  size_t offset = d[4] | (d[5] << 8);
  bool last = d[6] == 1;
  size_t count = n - 7;
  const uint8_t* bytes = d + 7;
  if (d[2] != 3) {  // one-byte items
    if (offset != 0 || count != 1) {
      r->cc = kCcOutOfRange;
      return;
    }
    (*item)[0] = bytes[0];
    r->Add(1);
    return;
  }
  if (offset + count > kUriCapacity) {
    r->cc = kCcOutOfRange;
    return;
  }
  if (offset == 0) uriPending_.clear();
  if (uriPending_.size() < offset + count) uriPending_.resize(offset + count, 0);
  std::memcpy(uriPending_.data() + offset, bytes, count);
  if (last) {
    if (uriPending_.empty() || uriPending_.size() < 1u + uriPending_[0]) {
      r->cc = kCcInvalidData;
      uriPending_.clear();
      return;
    }
    uriPending_.resize(1u + uriPending_[0]);
    *item = uriPending_;
    uriPending_.clear();
    Record("uri set to " + std::string(item->begin() + 1, item->end()));
  }
  r->Add(static_cast<uint8_t>(count));
}

void Bmc::HandleOem(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r) {
  switch (cmd) {
    case 0x01:  // Reserve Extended Configuration
      reservation_ = static_cast<uint8_t>(reservation_ + 1);
      if (reservation_ == 0) reservation_ = 1;
      r->Add(reservation_);
      return;
    case 0x02: GetConfig(d, n, r); return;
    case 0x03: SetConfig(d, n, r); return;
    case 0x04:  // Reset To Default
      if (n < 1 || d[0] != 0xFF) {
        r->cc = kCcInvalidData;
        return;
      }
      resetDefaultTask_ = nextResetDefaultId_;
      nextResetDefaultId_ = static_cast<uint8_t>(
          nextResetDefaultId_ == 0xFF ? 1 : nextResetDefaultId_ + 1);
      resetDefaultDoneAt_ = host_->NowMs() + resetDefaultMs_;
      if (resetDefaultDoneAt_ == 0) resetDefaultDoneAt_ = 1;
      Record("reset to defaults task " + std::to_string(resetDefaultTask_));
      r->Add(resetDefaultTask_);
      return;
    case 0x05:  // Get Reset To Default Status
      if (n < 1 || d[0] == 0 || d[0] != resetDefaultTask_) {
        r->cc = kCcInvalidData;
        return;
      }
      r->Add(resetDefaultDoneAt_ == 0 ? 1 : 0);
      return;
    case 0x21:  // Chassis host reset with a reason
      if (n < 1) r->cc = kCcLength;
      else Record("host reset, reason " + Hex(d[0]));
      return;
    default:
      r->cc = 0xC1;
  }
}

void Bmc::HandleGroup(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r) {
  // Graceful reset: 0x06 0x43 mode, after the enterprise number.
  if (cmd != 0xCC || n < 3 || d[0] != 0x06 || d[1] != 0x43) {
    r->cc = kCcInvalidData;
    return;
  }
  Record("graceful reset, mode " + Hex(d[2]));
  BeginReset();
}

// ---- console -----------------------------------------------------------------

std::string Bmc::Show() const {
  char text[512];
  std::snprintf(text, sizeof(text),
                "version %s%s product \"%s\" task %u phase %d fail 0x%02x "
                "pending %d reset_down_ms %lld hang %d faults %zu\n",
                VersionText().c_str(), down_ ? " (down)" : "",
                productName_.c_str(), task_.id, static_cast<int>(task_.phase),
                task_.failCode, pendingImage_ ? 1 : 0,
                static_cast<long long>(resetDownMs_), resetHang_ ? 1 : 0,
                faults_.size());
  return text;
}

std::string Bmc::Set(const std::string& key, const std::vector<std::string>& v) {
  unsigned long a = 0, b = 0, c = 0;
  auto one = [&](unsigned long max, unsigned long* out) {
    return v.size() == 1 && ParseUnsigned(v[0], max, out);
  };
  auto rest = [&v]() {
    std::string text;
    for (size_t i = 0; i < v.size(); ++i) text += (i ? " " : "") + v[i];
    return text;
  };
  if (key == "version" && v.size() == 3 && ParseUnsigned(v[0], 0x7F, &a) &&
      ParseUnsigned(v[1], 255, &b) && ParseUnsigned(v[2], 65535, &c)) {
    major_ = static_cast<uint8_t>(a);
    minor_ = static_cast<uint8_t>(b);
    revision_ = static_cast<uint16_t>(c);
  } else if (key == "wrong_version" && v.size() == 3 &&
             ParseUnsigned(v[0], 0x7F, &a) && ParseUnsigned(v[1], 255, &b) &&
             ParseUnsigned(v[2], 65535, &c)) {
    wrongVersion_ = true;
    wrongMajor_ = static_cast<uint8_t>(a);
    wrongMinor_ = static_cast<uint8_t>(b);
    wrongRevision_ = static_cast<uint16_t>(c);
  } else if (key == "wrong_version" && v.size() == 1 && v[0] == "off") {
    wrongVersion_ = false;
  } else if (key == "product_name" && !v.empty()) {
    productName_ = rest().substr(0, 63);
  } else if (key == "bootloader" && v.size() == 8) {
    for (int i = 0; i < 8; ++i) {
      if (!ParseUnsigned(v[i], 255, &a)) return "** bad byte\n";
      (i < 4 ? bootInfo_[i] : bootVersion_[i - 4]) = static_cast<uint8_t>(a);
    }
    hasBootloader_ = true;
  } else if (key == "bootloader" && v.size() == 1 && v[0] == "none") {
    hasBootloader_ = false;
  } else if (key == "reset_down_ms" && one(3600000, &a)) {
    resetDownMs_ = static_cast<int64_t>(a);
  } else if (key == "reset_delay_ms" && one(60000, &a)) {
    resetDelayMs_ = static_cast<int64_t>(a);
  } else if (key == "reset_hang" && one(1, &a)) {
    resetHang_ = a == 1;
  } else if (key == "validate_ms" && one(3600000, &a)) {
    validateMs_ = static_cast<int64_t>(a);
  } else if (key == "program_ms" && one(3600000, &a)) {
    programMs_ = static_cast<int64_t>(a);
  } else if (key == "reset_default_ms" && one(3600000, &a)) {
    resetDefaultMs_ = static_cast<int64_t>(a);
  } else if (key == "interval_unit_ms" && one(3600000, &a)) {
    intervalUnitMs_ = static_cast<int64_t>(a);
  } else if (key == "delay_unit_ms" && one(3600000, &a)) {
    delayUnitMs_ = static_cast<int64_t>(a);
  } else if (key == "fetch_timeout_s" && one(3600, &a) && a > 0) {
    fetchTimeoutS_ = static_cast<int>(a);
  } else if (key == "usb_size_mb" && one(4096, &a) && a > 0) {
    usbSizeMb_ = static_cast<unsigned>(a);
  } else if (key == "usb_layout" && v.size() == 1 &&
             (v[0] == "superfloppy" || v[0] == "partitioned" ||
              v[0] == "blank")) {
    usbLayout_ = v[0];
  } else if (key == "usb_restart" && one(1, &a)) {
    usbRestart_ = a == 1;
  } else if (key == "usb_ready_timeout_ms" && one(3600000, &a)) {
    usbReadyTimeoutMs_ = static_cast<int64_t>(a);
  } else if (key == "workdir" && v.size() == 1) {
    workDir_ = v[0];
  } else if (key == "hook" && v.size() <= 1) {
    hook_ = v.empty() ? "" : v[0];
  } else if (key == "log" && v.size() == 1) {
    if (!host_->OpenLog(v[0])) return "** cannot open log\n";
  } else if (key == "default" && v.size() == 2 && ParseUnsigned(v[1], 255, &b)) {
    uint8_t value = static_cast<uint8_t>(b);
    if (v[0] == "enable") defEnable_ = value;
    else if (v[0] == "protocol") defProtocol_ = value;
    else if (v[0] == "retry") defRetry_ = value;
    else if (v[0] == "interval") defInterval_ = value;
    else if (v[0] == "delay") defDelay_ = value;
    else return "** unknown default\n";
    ResetConfigStore();
  } else if (key == "down") {
    BeginReset();
  } else {
    return "** bad setting: " + key + "\n";
  }
  return "";
}

std::string Bmc::Command(const std::vector<std::string>& w) {
  if (w.empty()) return "** missing command\n";
  const std::string& verb = w[0];
  if (verb == "show") return Show();
  if (verb == "set") {
    if (w.size() < 2) return "** set KEY VALUE...\n";
    return Set(w[1], std::vector<std::string>(w.begin() + 2, w.end()));
  }
  if (verb == "fault") {
    // fault clear | fault NETFN CMD off | fault NETFN CMD cc CODE [once|always|N]
    // | fault NETFN CMD drop [once|always|N]
    if (w.size() == 2 && w[1] == "clear") {
      faults_.clear();
      return "";
    }
    unsigned long netfn = 0, cmd = 0, code = 0, count = 0;
    if (w.size() < 4 || !ParseUnsigned(w[1], 0x3F, &netfn) ||
        !ParseUnsigned(w[2], 255, &cmd))
      return "** fault NETFN CMD cc CODE|drop|off [once|always|N]\n";
    uint16_t key = Key(static_cast<uint8_t>(netfn), static_cast<uint8_t>(cmd));
    if (w[3] == "off") {
      faults_.erase(key);
      return "";
    }
    Fault fault;
    size_t next = 4;
    if (w[3] == "cc") {
      if (w.size() < 5 || !ParseUnsigned(w[4], 255, &code))
        return "** bad completion code\n";
      fault.cc = static_cast<uint8_t>(code);
      next = 5;
    } else if (w[3] == "drop") {
      fault.drop = true;
    } else {
      return "** fault kind is cc or drop\n";
    }
    if (w.size() > next) {
      if (w[next] == "once") fault.remaining = 1;
      else if (w[next] == "always") fault.remaining = -1;
      else if (ParseUnsigned(w[next], 100000, &count) && count > 0)
        fault.remaining = static_cast<int>(count);
      else return "** count is once, always or a number\n";
    }
    faults_[key] = fault;
    return "";
  }
  if (verb == "replay") {
    // replay FILE | replay off
    if (w.size() != 2) return "** replay FILE|off\n";
    if (w[1] == "off") {
      replay_.Stop();
      Record("replay off");
      return "";
    }
    const std::string why = replay_.Load(w[1]);
    if (!why.empty()) return "** replay: " + why + "\n";
    Record("replay " + std::to_string(replay_.Size()) + " attempts from " + w[1]);
    return "";
  }
  if (verb == "status_seq") {
    // status_seq clear | status_seq CODE[/PERCENT][@MS] ...
    unsigned long code = 0, count = 0;
    script_.clear();
    if (w.size() == 2 && w[1] == "clear") return "";
    for (size_t i = 1; i < w.size(); ++i) {
      ScriptStep step;
      std::string text = w[i];
      size_t at = text.find('@');
      if (at != std::string::npos) {
        if (!ParseUnsigned(text.substr(at + 1), 3600000, &code)) {
          script_.clear();
          return "** bad duration in " + text + "\n";
        }
        step.ms = static_cast<int64_t>(code);
        text = text.substr(0, at);
      }
      size_t slash = text.find('/');
      if (slash != std::string::npos) {
        if (!ParseUnsigned(text.substr(slash + 1), 255, &count)) {
          script_.clear();
          return "** bad percent in " + w[i] + "\n";
        }
        step.percent = static_cast<int>(count);
        text = text.substr(0, slash);
      }
      if (!ParseUnsigned(text, 255, &code)) {
        script_.clear();
        return "** bad status code in " + w[i] + "\n";
      }
      step.code = static_cast<uint8_t>(code);
      script_.push_back(step);
    }
    return "";
  }
  return "** unknown command " + verb + "\n";
}

}  // namespace simbmc

// The simulated BMC's behaviour as one state machine: identity, the
// extended-configuration store, update tasks (network and virtual USB),
// resets and fault injection. It knows nothing of OpenIPMI; the module glue
// feeds it requests, a 100 ms tick and console commands.
#ifndef VRX_SIM_BMC_STATE_H_
#define VRX_SIM_BMC_STATE_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "image_header.h"
#include "replay.h"

namespace simbmc {

// What the BMC needs from its surroundings; every side effect goes here.
class Host {
 public:
  virtual ~Host() = default;
  virtual int64_t NowMs() = 0;
  // Starts argv in the background; returns a job id (> 0) or -1.
  virtual int Spawn(const std::vector<std::string>& argv,
                    const std::string& outputLog) = 0;
  // 0 while running, 1 when finished (exit code in *code), -1 unknown job.
  virtual int PollJob(int job, int* code) = 0;
  virtual void Log(const std::string& line) = 0;
  virtual bool OpenLog(const std::string& path) = 0;
};

constexpr unsigned kMaxReplyData = 34;  // the simulator's reply buffer

struct Reply {
  uint8_t cc = 0;
  uint8_t data[kMaxReplyData] = {};
  unsigned len = 0;
  void Add(uint8_t b) {
    if (len < kMaxReplyData) data[len++] = b;
  }
};

enum class Hook { kNone, kDrop, kCompletionCode };

class Bmc {
 public:
  explicit Bmc(Host* host);

  // Before normal handling: whether the request is dropped or answered with
  // an injected completion code (*cc). Consumes "once" faults.
  Hook Intercept(uint8_t netfn, uint8_t cmd, uint8_t* cc);
  void Handle(uint8_t netfn, uint8_t cmd, const uint8_t* data, unsigned len,
              Reply* reply);
  void Tick();
  bool IsDown() const { return down_; }
  // Replay mode ("vrx replay FILE"): while active, the glue answers every
  // request from it instead of from this state machine.
  Replay* ReplayMode() { return replay_.Active() ? &replay_ : nullptr; }

  // Console command (words already split); returns text for the console.
  std::string Command(const std::vector<std::string>& words);

 private:
  enum class Phase {
    kIdle,
    kUsbInit,        // waiting for USB phase 1
    kUsbAttaching,   // mkfs + attach hook running
    kUsbReady,       // image may be copied onto the device
    kUsbDetaching,   // detach hook, then reading firmimg.k9 back
    kUsbReading,
    kNetDelay,       // honouring the delay time
    kNetFetching,    // one fetch attempt running
    kNetRetryWait,   // between attempts
    kValidating,
    kProgramming,
    kDone,
    kFailed,
    kScripted,       // custom status sequence from the console
  };
  struct Task {
    uint8_t id = 0;
    uint8_t source = 0;
    uint8_t entity = 0;
    Phase phase = Phase::kIdle;
    uint8_t failCode = 0;
    int job = 0;
    int64_t phaseStart = 0;
    int attempt = 0;
    std::string uri;
    std::string file;      // downloaded or read-back image
    std::string device;    // virtual USB device image
    ImageInfo image;
    size_t scriptIndex = 0;
  };
  struct Fault {
    bool drop = false;
    uint8_t cc = 0;
    int remaining = -1;  // -1: always
  };
  struct ScriptStep {
    uint8_t code = 0;
    int percent = -1;
    int64_t ms = 0;
  };

  void HandleApp(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r);
  void HandleStorage(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r);
  void HandleFirmware(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r);
  void HandleOem(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r);
  void HandleGroup(uint8_t cmd, const uint8_t* d, unsigned n, Reply* r);

  void StartTask(uint8_t source, uint8_t target, Reply* r);
  void UsbPhase(uint8_t step, Reply* r);
  void StatusOf(uint8_t id, Reply* r);
  std::vector<std::string> MakeStickCommand() const;
  void GetConfig(const uint8_t* d, unsigned n, Reply* r);
  void SetConfig(const uint8_t* d, unsigned n, Reply* r);
  std::vector<uint8_t>* ConfigItem(uint8_t cid, uint8_t aid, uint8_t index);
  std::vector<uint8_t>* CheckedConfigItem(const uint8_t* d, unsigned n,
                                          Reply* r);
  void ResetConfigStore();
  void BeginReset();

  void Enter(Phase phase);
  void Fail(uint8_t code);
  void StepTask();
  void StartFetch();
  void FinishFetch(int code);
  void CheckAndProgram();
  uint8_t ScriptedStatus(int* percent);

  std::vector<uint8_t> BuildFru() const;
  std::string VersionText() const;
  std::string Set(const std::string& key, const std::vector<std::string>& v);
  std::string Show() const;
  void Record(const std::string& line);

  Host* host_;
  // Identity
  uint8_t major_ = 1, minor_ = 0x50;
  uint16_t revision_ = 0;
  uint8_t bootInfo_[4] = {1, 0, 2, 0};
  uint8_t bootVersion_[4] = {2, 1, 0, 0};
  bool hasBootloader_ = true;
  std::string productName_ = "Stratovex S2600";
  uint8_t manufacturer_[3] = {0x5E, 0x2B, 0x00};
  uint16_t productId_ = 0x0F02;
  // What the last good update programmed, effective after the next reset.
  bool pendingImage_ = false;
  ImageInfo programmed_;
  bool wrongVersion_ = false;
  uint8_t wrongMajor_ = 0, wrongMinor_ = 0;
  uint16_t wrongRevision_ = 0;

  // Resets
  bool down_ = false;
  int64_t downAt_ = 0;  // a reset takes effect once its reply is out
  int64_t downUntil_ = 0;
  int64_t resetDelayMs_ = 200;
  bool resetHang_ = false;
  int64_t resetDownMs_ = 3000;
  uint8_t resetDefaultTask_ = 0;
  int64_t resetDefaultDoneAt_ = 0;
  int64_t resetDefaultMs_ = 1500;
  uint8_t nextResetDefaultId_ = 1;

  // Extended configuration
  std::map<uint16_t, std::vector<uint8_t>> store_;
  std::vector<uint8_t> uriPending_;
  uint8_t reservation_ = 0;
  uint8_t defEnable_ = 0, defProtocol_ = 0, defRetry_ = 0, defInterval_ = 0,
          defDelay_ = 0;

  // Update task
  Task task_;
  uint8_t nextTaskId_ = 1;
  int64_t validateMs_ = 1000, programMs_ = 3000;
  int64_t intervalUnitMs_ = 5000, delayUnitMs_ = 1000;
  int fetchTimeoutS_ = 10;
  std::string workDir_ = "/tmp";
  std::string hook_;
  unsigned usbSizeMb_ = 64;
  std::string usbLayout_ = "superfloppy";
  int64_t usbReadyTimeoutMs_ = 0;  // 0: the stick stays until phase 2
  bool usbRestart_ = false;  // a new start ends an abandoned stick session
  int detachJob_ = 0;        // that session's detach, still running
  std::vector<ScriptStep> script_;

  std::map<uint16_t, Fault> faults_;
  Replay replay_;
};

}  // namespace simbmc

#endif  // VRX_SIM_BMC_STATE_H_

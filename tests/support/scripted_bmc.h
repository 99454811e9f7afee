// A scripted BMC for tests. It answers IPMI requests from rules, keeps a
// small model of a real BMC for everything the rules leave open, and
// records every request in order. The same model serves three transports:
//   - in-process: InstalledBmc hands its entry points to the KCS transport;
//   - the test build of libopenraw.so (openraw_double.cc);
//   - the fake `ipmitool` executable (fake_ipmitool.cc), and in-process
//     LAN tests through ServeIpmitool() on a FakeEnv.
//
// Script file format (one directive per line; '#' starts a comment; all
// numbers are hexadecimal, with or without "0x", except where noted):
//
//   <netfn> <cmd> [<data prefix>...] = <answer> [| <answer>]...
//       A rule: requests with this NetFn, command and leading data bytes
//       are answered from the queue in order; the last answer repeats. The
//       longest matching prefix wins; a later line with the same key adds
//       to the queue. An answer is one of
//         <cc> [<data>...]   completion code, then response data bytes
//         fail <status>      transport failure (library status; ipmitool
//                            cannot establish the session)
//         silent             no answer (library status 3; ipmitool prints
//                            "Unable to send RAW command (...)")
//         model              what the built-in BMC below would answer
//       optionally followed by *N (decimal): the answer N times.
//   device-id <bytes>        data of Get Device ID (default: 15 bytes,
//                            firmware 2.10, manufacturer 0x002B5E)
//   firmware <major> <minor> bytes 2 and 3 of Get Device ID
//   fru <bytes>              FRU device 0 contents (lines accumulate)
//   fru-product <name>       a valid FRU image with this product name
//   config <cid> <aid> <index> = [<bytes>]
//                            content of an extended configuration item
//   down-after <netfn> <cmd> <count>
//                            after answering such a request, the next
//                            <count> (decimal) requests get no answer
//   open-fails               RawOpen returns 0
//
// Built-in model: Get Device ID; Cold Reset and Chassis Control succeed;
// the extended configuration store (Reserve 30/01, Get 30/02, Set 30/03,
// reservation checked, writes read back, one-byte items of CID 0x10 start
// as 00, the URI item 03 as an empty counted string); Read FRU Data 0A/11
// and Get FRU Inventory Area Info 0A/10 on FRU device 0 (default product
// name "Stratovex"); everything else is answered with 0xC1.
//
// Environment of the library and the fake ipmitool:
//   VRX_SCRIPTED_BMC      the script file (none: the built-in model only)
//   VRX_SCRIPTED_BMC_LOG  a file that gets one line per request, appended:
//                         "<netfn> <cmd> <data>..." in two-digit hex, with
//                         "ipmb <address> " in front of IPMB requests
// The fake ipmitool runs once per request, so it keeps the queue positions,
// the down counter and the configuration store in "<script>.state" (delete
// it to start over). The library keeps its state in memory and starts
// again from the script at every RawOpen.
#ifndef VRX_TESTS_SUPPORT_SCRIPTED_BMC_H_
#define VRX_TESTS_SUPPORT_SCRIPTED_BMC_H_

#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "ipmi/kcs_transport.h"
#include "support/fake_env.h"

namespace testing_support {

struct BmcRequest {
  uint8_t slave = 0x20;  // 0x20: the BMC itself; otherwise an IPMB target
  uint8_t netfn = 0;
  uint8_t lun = 0;
  uint8_t cmd = 0;
  std::vector<uint8_t> data;
  // "08 02 01"; "ipmb 2c 08 02 01" for an IPMB request.
  std::string ToString() const;
};

struct BmcAnswer {
  enum Kind { kReply, kTransportFailure, kNoAnswer, kModel };
  Kind kind = kReply;
  uint8_t completion_code = 0;
  std::vector<uint8_t> data;
  int status = 0;  // kTransportFailure

  static BmcAnswer Reply(std::vector<uint8_t> data, uint8_t cc = 0x00);
  static BmcAnswer Code(uint8_t cc);
  static BmcAnswer Failure(int status);
  static BmcAnswer Silent();
  static BmcAnswer Model();
  bool operator==(const BmcAnswer& o) const;
};

// Library status of a request that got no answer.
const int kNoAnswerStatus = 3;

class ScriptedBmc {
 public:
  ScriptedBmc();
  ~ScriptedBmc();
  ScriptedBmc(const ScriptedBmc&) = delete;
  ScriptedBmc& operator=(const ScriptedBmc&) = delete;

  // --- rules ---
  void On(uint8_t netfn, uint8_t cmd, std::vector<uint8_t> prefix,
          std::vector<BmcAnswer> answers);
  void On(uint8_t netfn, uint8_t cmd, std::vector<BmcAnswer> answers) {
    On(netfn, cmd, {}, std::move(answers));
  }
  // Consulted before the rules, for stateful behaviour (e.g. a status that
  // follows the virtual clock). Return false to fall through to the rules.
  std::function<bool(const BmcRequest&, BmcAnswer*)> handler;

  // --- model ---
  void SetDeviceId(std::vector<uint8_t> data) { device_id_ = std::move(data); }
  void SetFirmware(uint8_t major, uint8_t minor);
  void SetFru(std::vector<uint8_t> image) { fru_ = std::move(image); }
  // A valid FRU image (common header, product area) naming the product.
  static std::vector<uint8_t> MakeFru(const std::string& product,
                                      const std::string& manufacturer = "VRX");
  std::vector<uint8_t>& ConfigItem(uint8_t cid, uint8_t aid, uint8_t index);
  void DownAfter(uint8_t netfn, uint8_t cmd, int requests);
  bool open_fails = false;

  // --- serving ---
  // Records the request and decides the answer (never kModel).
  BmcAnswer Handle(const BmcRequest& request);
  const std::vector<BmcRequest>& requests() const { return requests_; }
  std::vector<std::string> RequestLines() const;
  // Requests with this NetFn and command, in order.
  std::vector<BmcRequest> RequestsFor(uint8_t netfn, uint8_t cmd) const;
  void ClearRequests() { requests_.clear(); }
  // Appends each request line to this file as well (empty: none).
  std::string log_path;

  // --- script and persisted state ---
  bool Load(const std::string& text, std::string* error);
  bool LoadFile(const std::string& path, std::string* error);
  std::string SaveState() const;
  bool LoadState(const std::string& text);

  // --- transports ---
  // The library's four entry points, served by the current instance.
  static RawEntryPoints EntryPoints();
  static ScriptedBmc* Current();
  static void SetCurrent(ScriptedBmc* bmc);
  // Routes "ipmitool ..." command lines run through env to this BMC, as
  // the fake ipmitool would answer them (output and error text merged, as
  // "2>&1" does). Other command lines fall through.
  void ServeIpmitool(FakeEnv* env) {
    env->handler = [this](const std::string& command, CommandResult* result) {
      return AnswerIpmitoolCommandLine(command, &result->output,
                                       &result->status);
    };
    env->process_handler = [this](const platform::ProcessSpec& spec,
                                  CommandResult* result) {
      return AnswerIpmitoolProcess(spec.argv, &result->output, &result->status);
    };
  }
  // The same for an argument vector run without a shell.
  bool AnswerIpmitoolProcess(const std::vector<std::string>& argv,
                             std::string* output, int* status);
  // The same for one shell command line; false if it does not run ipmitool.
  bool AnswerIpmitoolCommandLine(const std::string& line, std::string* output,
                                 int* status);
  // ipmitool's behaviour for one argument vector (without the program
  // name): exit code, standard output and standard error.
  int RunIpmitool(const std::vector<std::string>& args, std::string* out,
                  std::string* err);

 private:
  struct Rule {
    uint8_t netfn;
    uint8_t cmd;
    std::vector<uint8_t> prefix;
    std::vector<BmcAnswer> answers;
    size_t position = 0;
  };
  struct DownTrigger {
    uint8_t netfn;
    uint8_t cmd;
    int requests;
  };
  BmcAnswer ModelAnswer(const BmcRequest& request);
  BmcAnswer ExtConfigAnswer(const BmcRequest& request);
  BmcAnswer FruAnswer(const BmcRequest& request);
  bool LoadLine(const std::string& line, std::string* error);

  std::vector<Rule> rules_;
  std::vector<DownTrigger> down_triggers_;
  int down_remaining_ = 0;
  std::vector<BmcRequest> requests_;
  std::vector<uint8_t> device_id_;
  std::vector<uint8_t> fru_;
  bool fru_from_script_ = false;
  std::map<std::tuple<uint8_t, uint8_t, uint8_t>, std::vector<uint8_t>> config_;
  uint8_t reservation_ = 0;
};

// Points the KCS transport at bmc for the lifetime of this object, so that
// InitKcsDriver() and every command talk to it in-process.
class InstalledBmc {
 public:
  explicit InstalledBmc(ScriptedBmc* bmc) {
    ScriptedBmc::SetCurrent(bmc);
    RawEntryPoints entries = ScriptedBmc::EntryPoints();
    TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(&entries);
  }
  ~InstalledBmc() {
    TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(nullptr);
    ScriptedBmc::SetCurrent(nullptr);
  }
  InstalledBmc(const InstalledBmc&) = delete;
  InstalledBmc& operator=(const InstalledBmc&) = delete;
};

}  // namespace testing_support

#endif  // VRX_TESTS_SUPPORT_SCRIPTED_BMC_H_

// Replay mode of the simulated BMC: answers every request from a recording
// made with vrxfwul -record=FILE (format in src/ipmi/request_record.h).
//
// A request gets the answer of the next recorded attempt (from the last one
// used on) with the same NetFn, command and data; the bytes of a masked URI
// write match any bytes. A recorded "none" stays unanswered, a recorded
// ipmitool error "rsp=0xCC" is answered with that completion code (any
// other tool error stays unanswered). A masked URI read-back is answered
// with what this run wrote at those places (inverted for mask=uri-other,
// so the program sees a mismatch again). A request the recording does not
// have gets completion code 0xD5.
//
// Answers go out at once: the recorded gaps are not waited for. The
// program's own waits and its clock decide its timing, not the BMC's.
#ifndef VRX_SIM_REPLAY_H_
#define VRX_SIM_REPLAY_H_

#include <cstdint>
#include <string>
#include <vector>

namespace simbmc {

struct ReplayAnswer {
  enum Kind { kAnswer, kNoAnswer, kUnknown } kind = kUnknown;
  uint8_t cc = 0xD5;
  std::vector<uint8_t> data;
};

class Replay {
 public:
  // Reads a recording; "" on success, else why it was refused.
  std::string Load(const std::string& path);
  void Stop() { active_ = false; }
  bool Active() const { return active_; }
  // A LAN recording answers the LAN channels only, a KCS one the system
  // interface only; the other side keeps the normal simulator.
  bool Lan() const { return lan_; }
  // Whether any recorded request has this NetFn and command.
  bool Knows(uint8_t netfn, uint8_t cmd) const;
  // Attempts in the recording and how many were used so far.
  size_t Size() const { return entries_.size(); }
  size_t Used() const { return used_; }

  // session: a LAN session id (0: none). ipmitool sends a request again
  // within one session when it got no answer; such a repeat of an attempt
  // recorded as unanswered stays unanswered without using another one.
  ReplayAnswer Answer(uint8_t netfn, uint8_t cmd, const uint8_t* data,
                      unsigned len, uint32_t session);

 private:
  struct Entry {
    uint8_t netfn = 0, cmd = 0;
    std::vector<uint8_t> data;  // the bytes before the mask when masked
    bool masked = false;
    ReplayAnswer answer;
    int readMask = 0;  // 1: read-back as written, 2: read-back different
    bool used = false;
  };
  bool Matches(const Entry& e, uint8_t netfn, uint8_t cmd, const uint8_t* data,
               unsigned len) const;
  void NoteUriWrite(uint8_t netfn, uint8_t cmd, const uint8_t* data,
                    unsigned len);

  bool active_ = false;
  bool lan_ = false;
  std::vector<Entry> entries_;
  size_t next_ = 0;
  size_t used_ = 0;
  uint8_t written_[256] = {};
  // The last unanswered request, to recognise ipmitool's repeats of it.
  uint32_t dropSession_ = 0;
  std::vector<uint8_t> dropKey_;
};

}  // namespace simbmc

#endif  // VRX_SIM_REPLAY_H_

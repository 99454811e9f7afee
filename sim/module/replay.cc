#include "replay.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace simbmc {
namespace {

constexpr size_t kSetHeader = 7;  // URI write: bytes before the URI's
constexpr size_t kGetHeader = 4;  // URI read answer: bytes before the URI's
constexpr unsigned kMaxAnswer = 33;  // the module's reply buffer, less cc

bool Byte(const std::string& word, uint8_t* out) {
  if (word.size() != 2) return false;
  char* end = nullptr;
  unsigned long v = std::strtoul(word.c_str(), &end, 16);
  if (end == nullptr || *end != '\0') return false;
  *out = static_cast<uint8_t>(v);
  return true;
}

// "key=value" of a line's words, or "" when absent.
std::string Field(const std::vector<std::string>& words, const char* key) {
  const std::string prefix = std::string(key) + "=";
  for (const std::string& w : words)
    if (w.compare(0, prefix.size(), prefix) == 0) return w.substr(prefix.size());
  return "";
}

// Bytes after "data=" up to the end of the line; *masked for a final "*".
bool DataOf(const std::vector<std::string>& words, std::vector<uint8_t>* data,
            bool* masked) {
  size_t i = 0;
  while (i < words.size() && words[i].compare(0, 5, "data=") != 0) ++i;
  if (i == words.size()) return false;
  std::vector<std::string> bytes;
  if (words[i].size() > 5) bytes.push_back(words[i].substr(5));
  bytes.insert(bytes.end(), words.begin() + static_cast<long>(i) + 1, words.end());
  *masked = false;
  for (const std::string& b : bytes) {
    if (b == "*") {
      *masked = true;
      break;
    }
    uint8_t v = 0;
    if (!Byte(b, &v)) return false;
    data->push_back(v);
  }
  return true;
}

std::string Unescaped(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    uint8_t v = 0;
    if (text[i] == '%' && i + 2 < text.size() && Byte(text.substr(i + 1, 2), &v)) {
      out += static_cast<char>(v);
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

std::string Replay::Load(const std::string& path) {
  std::ifstream in(path);
  if (!in) return "cannot open " + path;
  std::string line;
  if (!std::getline(in, line) || line.compare(0, 20, "vrxfwul-recording 1 ") != 0)
    return path + " is no recording of format 1";
  const bool lan = line.compare(20, 3, "lan") == 0;
  std::vector<Entry> entries;
  int number = 1;
  bool open = false;  // the last entry still waits for its outcome
  while (std::getline(in, line)) {
    ++number;
    std::istringstream split(line);
    std::vector<std::string> words;
    for (std::string w; split >> w;) words.push_back(w);
    if (words.size() < 3) continue;
    const std::string& kind = words[1];
    if (kind == "req") {
      Entry e;
      uint8_t v = 0;
      if (!Byte(Field(words, "netfn"), &e.netfn) || !Byte(Field(words, "cmd"), &v) ||
          !DataOf(words, &e.data, &e.masked))
        return "line " + std::to_string(number) + ": bad request";
      e.cmd = v;
      e.answer.kind = ReplayAnswer::kNoAnswer;  // until its outcome follows
      entries.push_back(e);
      open = true;
      continue;
    }
    if (!open) continue;
    Entry& e = entries.back();
    open = false;
    if (kind == "rsp") {
      bool masked = false;
      uint8_t cc = 0;
      if (!Byte(Field(words, "cc"), &cc) || !DataOf(words, &e.answer.data, &masked))
        return "line " + std::to_string(number) + ": bad answer";
      e.answer.kind = ReplayAnswer::kAnswer;
      e.answer.cc = cc;
      const std::string mask = Field(words, "mask");
      if (masked) e.readMask = mask == "uri-other" ? 2 : 1;
    } else if (kind == "tool") {
      // ipmitool names the completion code it got: answer with that one.
      const std::string text = Unescaped(Field(words, "text"));
      const size_t at = text.find("rsp=0x");
      uint8_t cc = 0;
      if (at != std::string::npos) {
        std::string digits = text.substr(at + 6, 2);
        if (digits.size() == 2 && digits[1] == ')') digits = "0" + digits.substr(0, 1);
        if (Byte(digits, &cc)) {
          e.answer.kind = ReplayAnswer::kAnswer;
          e.answer.cc = cc;
        }
      }
    }
    // "none" and anything else: no answer.
  }
  entries_ = entries;
  lan_ = lan;
  next_ = 0;
  used_ = 0;
  std::memset(written_, 0, sizeof(written_));
  dropSession_ = 0;
  dropKey_.clear();
  active_ = true;
  return "";
}

bool Replay::Matches(const Entry& e, uint8_t netfn, uint8_t cmd,
                     const uint8_t* data, unsigned len) const {
  if (e.used || e.netfn != netfn || e.cmd != cmd) return false;
  if (e.masked) {
    // The URI's own bytes may be anything, as long as there are some.
    return len > e.data.size() && std::memcmp(e.data.data(), data, e.data.size()) == 0;
  }
  return e.data.size() == len &&
         (len == 0 || std::memcmp(e.data.data(), data, len) == 0);
}

bool Replay::Knows(uint8_t netfn, uint8_t cmd) const {
  for (const Entry& e : entries_)
    if (e.netfn == netfn && e.cmd == cmd) return true;
  return false;
}

void Replay::NoteUriWrite(uint8_t netfn, uint8_t cmd, const uint8_t* data,
                          unsigned len) {
  if (netfn != 0x30 || cmd != 0x03 || len <= kSetHeader || data[1] != 0x10 ||
      data[2] != 0x03)
    return;
  const unsigned offset = data[4] | (data[5] << 8);
  for (unsigned i = kSetHeader; i < len; ++i)
    if (offset + i - kSetHeader < sizeof(written_))
      written_[offset + i - kSetHeader] = data[i];
}

ReplayAnswer Replay::Answer(uint8_t netfn, uint8_t cmd, const uint8_t* data,
                            unsigned len, uint32_t session) {
  NoteUriWrite(netfn, cmd, data, len);
  std::vector<uint8_t> key = {netfn, cmd};
  key.insert(key.end(), data, data + len);
  if (session != 0 && session == dropSession_ && key == dropKey_) {
    ReplayAnswer none;
    none.kind = ReplayAnswer::kNoAnswer;
    return none;
  }
  for (size_t i = next_; i < entries_.size(); ++i) {
    Entry& e = entries_[i];
    if (!Matches(e, netfn, cmd, data, len)) continue;
    e.used = true;
    ++used_;
    next_ = i + 1;
    ReplayAnswer answer = e.answer;
    if (answer.kind == ReplayAnswer::kNoAnswer) {
      dropSession_ = session;
      dropKey_ = key;
    } else {
      dropSession_ = 0;
      dropKey_.clear();
    }
    if (e.readMask != 0 && answer.data.size() >= kGetHeader && len >= 6) {
      // The read-back: what this run wrote, as the recorded run saw it.
      const unsigned offset = data[4] | (data[5] << 8);
      const unsigned count = answer.data[3];
      for (unsigned k = 0; k < count && answer.data.size() < kMaxAnswer; ++k) {
        uint8_t b = offset + k < sizeof(written_) ? written_[offset + k] : 0;
        answer.data.push_back(e.readMask == 2 ? static_cast<uint8_t>(~b) : b);
      }
    }
    if (answer.data.size() > kMaxAnswer) answer.data.resize(kMaxAnswer);
    return answer;
  }
  return ReplayAnswer();
}

}  // namespace simbmc

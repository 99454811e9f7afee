#include "support/scripted_bmc.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace testing_support {
namespace {

const uint32_t kOpenHandle = 0x5EB0;
const uint8_t kCIDRemoteUpdate = 0x10;

ScriptedBmc* g_current = nullptr;

std::string Hex2(unsigned value) {
  char buf[8];
  snprintf(buf, sizeof(buf), "%02x", value & 0xFF);
  return buf;
}

std::string Trim(const std::string& text) {
  size_t b = text.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return std::string();
  size_t e = text.find_last_not_of(" \t\r\n");
  return text.substr(b, e - b + 1);
}

std::vector<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  std::string word;
  while (in >> word) words.push_back(word);
  return words;
}

bool ParseHexByte(const std::string& word, uint8_t* value) {
  std::string digits = word;
  if (digits.size() > 2 && digits[0] == '0' &&
      (digits[1] == 'x' || digits[1] == 'X'))
    digits = digits.substr(2);
  if (digits.empty() || digits.size() > 2) return false;
  char* end = nullptr;
  unsigned long v = strtoul(digits.c_str(), &end, 16);
  if (*end != '\0') return false;
  *value = static_cast<uint8_t>(v);
  return true;
}

bool ParseHexBytes(const std::vector<std::string>& words, size_t from,
                   size_t to, std::vector<uint8_t>* out, std::string* error) {
  for (size_t i = from; i < to; ++i) {
    uint8_t v = 0;
    if (!ParseHexByte(words[i], &v)) {
      *error = "not a hex byte: " + words[i];
      return false;
    }
    out->push_back(v);
  }
  return true;
}

bool ParseAnswer(const std::string& text, std::vector<BmcAnswer>* out,
                 std::string* error) {
  std::string body = Trim(text);
  int repeat = 1;
  size_t star = body.rfind('*');
  if (star != std::string::npos) {
    repeat = atoi(body.substr(star + 1).c_str());
    if (repeat < 1) {
      *error = "bad repeat count in: " + text;
      return false;
    }
    body = Trim(body.substr(0, star));
  }
  std::vector<std::string> words = Words(body);
  if (words.empty()) {
    *error = "empty answer";
    return false;
  }
  BmcAnswer answer;
  if (words[0] == "fail") {
    if (words.size() != 2) {
      *error = "fail needs a status";
      return false;
    }
    answer = BmcAnswer::Failure(atoi(words[1].c_str()));
  } else if (words[0] == "silent") {
    answer = BmcAnswer::Silent();
  } else if (words[0] == "model") {
    answer = BmcAnswer::Model();
  } else {
    std::vector<uint8_t> bytes;
    if (!ParseHexBytes(words, 0, words.size(), &bytes, error)) return false;
    answer = BmcAnswer::Reply(
        std::vector<uint8_t>(bytes.begin() + 1, bytes.end()), bytes[0]);
  }
  for (int i = 0; i < repeat; ++i) out->push_back(answer);
  return true;
}

std::vector<uint8_t> DefaultDeviceId() {
  // Device 0x20, revision 1, firmware 2.10, IPMI 2.0, device support 0x9f,
  // manufacturer 0x002B5E, product 0x0f01, no auxiliary revision.
  return {0x20, 0x01, 0x02, 0x10, 0x02, 0x9f, 0x5e, 0x2b,
          0x00, 0x01, 0x0f, 0x00, 0x00, 0x00, 0x00};
}

uint8_t Checksum(const std::vector<uint8_t>& bytes, size_t from, size_t to) {
  uint8_t sum = 0;
  for (size_t i = from; i < to; ++i) sum = static_cast<uint8_t>(sum + bytes[i]);
  return static_cast<uint8_t>(0x100 - sum);
}

const char* CompletionCodeText(uint8_t cc) {
  switch (cc) {
    case 0x00: return "Command completed normally";
    case 0xc0: return "Node busy";
    case 0xc1: return "Invalid command";
    case 0xc2: return "Invalid command on LUN";
    case 0xc3: return "Timeout";
    case 0xc4: return "Out of space";
    case 0xc5: return "Reservation cancelled or invalid";
    case 0xc6: return "Request data truncated";
    case 0xc7: return "Request data length invalid";
    case 0xc8: return "Request data field length limit exceeded";
    case 0xc9: return "Parameter out of range";
    case 0xca: return "Cannot return number of requested data bytes";
    case 0xcb: return "Requested sensor, data, or record not found";
    case 0xcc: return "Invalid data field in request";
    case 0xcd: return "Command illegal for specified sensor or record type";
    case 0xce: return "Command response could not be provided";
    case 0xcf: return "Cannot execute duplicated request";
    case 0xd0: return "SDR Repository in update mode";
    case 0xd1: return "Device firmeware in update mode";
    case 0xd2: return "BMC initialization in progress";
    case 0xd3: return "Destination unavailable";
    case 0xd4: return "Insufficient privilege level";
    case 0xd5: return "Command not supported in present state";
    case 0xd6: return "Cannot execute command, command disabled";
    case 0xff: return "Unspecified error";
    default: return nullptr;
  }
}

// ipmitool's number parser: decimal, or hexadecimal with "0x".
bool ParseToolByte(const std::string& word, uint8_t* value) {
  if (word.empty()) return false;
  char* end = nullptr;
  long v = strtol(word.c_str(), &end, 0);
  if (*end != '\0' || v < 0 || v > 255) return false;
  *value = static_cast<uint8_t>(v);
  return true;
}

// Splits a /bin/sh command line the way the shell would for the simple
// quoting that the utility produces.
std::vector<std::string> ShellWords(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  for (size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (c == '\'') {
      size_t end = line.find('\'', i + 1);
      if (end == std::string::npos) end = line.size();
      word += line.substr(i + 1, end - i - 1);
      i = end;
      inWord = true;
    } else if (c == '\\' && i + 1 < line.size()) {
      word += line[++i];
      inWord = true;
    } else if (c == ' ' || c == '\t') {
      if (inWord) words.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (inWord) words.push_back(word);
  return words;
}

}  // namespace

std::string BmcRequest::ToString() const {
  std::string text;
  if (slave != 0x20) text = "ipmb " + Hex2(slave) + " ";
  text += Hex2(netfn) + " " + Hex2(cmd);
  for (uint8_t b : data) text += " " + Hex2(b);
  return text;
}

BmcAnswer BmcAnswer::Reply(std::vector<uint8_t> data, uint8_t cc) {
  BmcAnswer a;
  a.kind = kReply;
  a.completion_code = cc;
  a.data = std::move(data);
  return a;
}

BmcAnswer BmcAnswer::Code(uint8_t cc) { return Reply({}, cc); }

BmcAnswer BmcAnswer::Failure(int status) {
  BmcAnswer a;
  a.kind = kTransportFailure;
  a.status = status;
  return a;
}

BmcAnswer BmcAnswer::Silent() {
  BmcAnswer a;
  a.kind = kNoAnswer;
  return a;
}

BmcAnswer BmcAnswer::Model() {
  BmcAnswer a;
  a.kind = kModel;
  return a;
}

bool BmcAnswer::operator==(const BmcAnswer& o) const {
  return kind == o.kind && completion_code == o.completion_code &&
         data == o.data && status == o.status;
}

ScriptedBmc::ScriptedBmc()
    : device_id_(DefaultDeviceId()), fru_(MakeFru("Stratovex")) {
  for (uint8_t aid = 1; aid <= 6; ++aid)
    config_[std::make_tuple(kCIDRemoteUpdate, aid, uint8_t{0})] = {0x00};
}

ScriptedBmc::~ScriptedBmc() {
  if (g_current == this) g_current = nullptr;
}

void ScriptedBmc::On(uint8_t netfn, uint8_t cmd, std::vector<uint8_t> prefix,
                     std::vector<BmcAnswer> answers) {
  for (Rule& rule : rules_) {
    if (rule.netfn == netfn && rule.cmd == cmd && rule.prefix == prefix) {
      rule.answers.insert(rule.answers.end(), answers.begin(), answers.end());
      return;
    }
  }
  Rule rule;
  rule.netfn = netfn;
  rule.cmd = cmd;
  rule.prefix = std::move(prefix);
  rule.answers = std::move(answers);
  rules_.push_back(std::move(rule));
}

void ScriptedBmc::SetFirmware(uint8_t major, uint8_t minor) {
  if (device_id_.size() < 4) device_id_.resize(4);
  device_id_[2] = major;
  device_id_[3] = minor;
}

std::vector<uint8_t> ScriptedBmc::MakeFru(const std::string& product,
                                          const std::string& manufacturer) {
  // Product area: version, length, language, manufacturer, name, version,
  // end marker, padding to a multiple of 8, checksum.
  std::vector<uint8_t> area = {0x01, 0x00, 0x00};
  area.push_back(static_cast<uint8_t>(0xC0 | (manufacturer.size() & 0x3F)));
  area.insert(area.end(), manufacturer.begin(), manufacturer.end());
  area.push_back(static_cast<uint8_t>(0xC0 | (product.size() & 0x3F)));
  area.insert(area.end(), product.begin(), product.end());
  area.push_back(0xC1);
  while ((area.size() + 1) % 8 != 0) area.push_back(0x00);
  area.push_back(0x00);
  area[1] = static_cast<uint8_t>(area.size() / 8);
  area.back() = Checksum(area, 0, area.size() - 1);
  // Sized once and filled in place: common header, then the area.
  std::vector<uint8_t> image(8 + area.size(), 0x00);
  image[0] = 0x01;
  image[4] = 0x01;
  image[7] = Checksum(image, 0, 7);
  std::copy(area.begin(), area.end(), image.begin() + 8);
  return image;
}

std::vector<uint8_t>& ScriptedBmc::ConfigItem(uint8_t cid, uint8_t aid,
                                              uint8_t index) {
  return config_[std::make_tuple(cid, aid, index)];
}

void ScriptedBmc::DownAfter(uint8_t netfn, uint8_t cmd, int requests) {
  down_triggers_.push_back(DownTrigger{netfn, cmd, requests});
}

std::vector<std::string> ScriptedBmc::RequestLines() const {
  std::vector<std::string> lines;
  for (const BmcRequest& r : requests_) lines.push_back(r.ToString());
  return lines;
}

std::vector<BmcRequest> ScriptedBmc::RequestsFor(uint8_t netfn,
                                                 uint8_t cmd) const {
  std::vector<BmcRequest> found;
  for (const BmcRequest& r : requests_)
    if (r.netfn == netfn && r.cmd == cmd) found.push_back(r);
  return found;
}

BmcAnswer ScriptedBmc::Handle(const BmcRequest& request) {
  requests_.push_back(request);
  if (!log_path.empty()) {
    FILE* log = fopen(log_path.c_str(), "a");
    if (log != nullptr) {
      fprintf(log, "%s\n", request.ToString().c_str());
      fclose(log);
    }
  }
  if (down_remaining_ > 0) {
    --down_remaining_;
    return BmcAnswer::Silent();
  }
  BmcAnswer answer = BmcAnswer::Model();
  bool decided = false;
  if (handler) decided = handler(request, &answer);
  if (!decided) {
    Rule* best = nullptr;
    for (Rule& rule : rules_) {
      if (rule.netfn != request.netfn || rule.cmd != request.cmd) continue;
      if (rule.prefix.size() > request.data.size()) continue;
      if (!std::equal(rule.prefix.begin(), rule.prefix.end(),
                      request.data.begin()))
        continue;
      if (best == nullptr || rule.prefix.size() > best->prefix.size())
        best = &rule;
    }
    if (best != nullptr && !best->answers.empty()) {
      answer = best->answers[best->position];
      if (best->position + 1 < best->answers.size()) ++best->position;
    }
  }
  if (answer.kind == BmcAnswer::kModel) answer = ModelAnswer(request);
  if (answer.kind == BmcAnswer::kReply) {
    for (const DownTrigger& t : down_triggers_)
      if (t.netfn == request.netfn && t.cmd == request.cmd)
        down_remaining_ = t.requests;
  }
  return answer;
}

BmcAnswer ScriptedBmc::ModelAnswer(const BmcRequest& request) {
  if (request.netfn == 0x06 && request.cmd == 0x01)
    return BmcAnswer::Reply(device_id_);
  if (request.netfn == 0x06 && request.cmd == 0x02) return BmcAnswer::Code(0);
  if (request.netfn == 0x00 && request.cmd == 0x02) return BmcAnswer::Code(0);
  if (request.netfn == 0x30 && request.cmd >= 0x01 && request.cmd <= 0x03)
    return ExtConfigAnswer(request);
  if (request.netfn == 0x0A && (request.cmd == 0x10 || request.cmd == 0x11))
    return FruAnswer(request);
  return BmcAnswer::Code(0xC1);
}

BmcAnswer ScriptedBmc::ExtConfigAnswer(const BmcRequest& request) {
  const std::vector<uint8_t>& d = request.data;
  if (request.cmd == 0x01) {
    reservation_ = static_cast<uint8_t>(reservation_ + 1);
    if (reservation_ == 0) reservation_ = 1;
    return BmcAnswer::Reply({reservation_});
  }
  if (d.size() < 7) return BmcAnswer::Code(0xC7);
  if (d[0] != reservation_ || reservation_ == 0) return BmcAnswer::Code(0xC5);
  auto key = std::make_tuple(d[1], d[2], d[3]);
  size_t offset = d[4] | (d[5] << 8);
  auto it = config_.find(key);
  if (request.cmd == 0x02) {
    if (it == config_.end()) return BmcAnswer::Code(0xCB);
    const std::vector<uint8_t>& item = it->second;
    size_t n = offset < item.size() ? std::min<size_t>(d[6], item.size() - offset)
                                    : 0;
    std::vector<uint8_t> data = {d[1], d[2], d[3], static_cast<uint8_t>(n)};
    data.insert(data.end(), item.begin() + offset, item.begin() + offset + n);
    return BmcAnswer::Reply(data);
  }
  std::vector<uint8_t>& item = config_[key];
  size_t n = d.size() - 7;
  if (item.size() < offset + n) item.resize(offset + n);
  std::copy(d.begin() + 7, d.end(), item.begin() + offset);
  if (d[6] == 1) item.resize(offset + n);  // the last chunk ends the item
  return BmcAnswer::Reply({static_cast<uint8_t>(n)});
}

BmcAnswer ScriptedBmc::FruAnswer(const BmcRequest& request) {
  const std::vector<uint8_t>& d = request.data;
  if (d.empty()) return BmcAnswer::Code(0xC7);
  if (d[0] != 0) return BmcAnswer::Code(0xCB);
  if (request.cmd == 0x10)
    return BmcAnswer::Reply({static_cast<uint8_t>(fru_.size() & 0xFF),
                             static_cast<uint8_t>(fru_.size() >> 8), 0x00});
  if (d.size() < 4) return BmcAnswer::Code(0xC7);
  size_t offset = d[1] | (d[2] << 8);
  if (offset >= fru_.size()) return BmcAnswer::Code(0xC9);
  size_t n = std::min<size_t>(d[3], fru_.size() - offset);
  std::vector<uint8_t> data = {static_cast<uint8_t>(n)};
  data.insert(data.end(), fru_.begin() + offset, fru_.begin() + offset + n);
  return BmcAnswer::Reply(data);
}

// --- script ---

bool ScriptedBmc::LoadLine(const std::string& rawLine, std::string* error) {
  std::string line = rawLine.substr(0, rawLine.find('#'));
  line = Trim(line);
  if (line.empty()) return true;
  std::vector<std::string> words = Words(line);
  const std::string& head = words[0];
  if (head == "open-fails") {
    open_fails = true;
    return true;
  }
  if (head == "device-id") {
    std::vector<uint8_t> bytes;
    if (!ParseHexBytes(words, 1, words.size(), &bytes, error)) return false;
    device_id_ = bytes;
    return true;
  }
  if (head == "firmware") {
    std::vector<uint8_t> bytes;
    if (words.size() != 3 || !ParseHexBytes(words, 1, 3, &bytes, error)) {
      if (error->empty()) *error = "firmware needs major and minor";
      return false;
    }
    SetFirmware(bytes[0], bytes[1]);
    return true;
  }
  if (head == "fru") {
    std::vector<uint8_t> bytes;
    if (!ParseHexBytes(words, 1, words.size(), &bytes, error)) return false;
    if (!fru_from_script_) fru_.clear();
    fru_from_script_ = true;
    fru_.insert(fru_.end(), bytes.begin(), bytes.end());
    return true;
  }
  if (head == "fru-product") {
    std::string name = Trim(line.substr(head.size()));
    fru_ = MakeFru(name);
    fru_from_script_ = true;
    return true;
  }
  if (head == "down-after") {
    std::vector<uint8_t> bytes;
    if (words.size() != 4 || !ParseHexBytes(words, 1, 3, &bytes, error)) {
      if (error->empty()) *error = "down-after needs netfn, cmd and count";
      return false;
    }
    DownAfter(bytes[0], bytes[1], atoi(words[3].c_str()));
    return true;
  }
  size_t eq = line.find('=');
  if (eq == std::string::npos) {
    *error = "no '=' in: " + line;
    return false;
  }
  std::vector<std::string> left = Words(line.substr(0, eq));
  std::string right = line.substr(eq + 1);
  if (!left.empty() && left[0] == "config") {
    std::vector<uint8_t> key, value;
    if (left.size() != 4 || !ParseHexBytes(left, 1, 4, &key, error)) {
      if (error->empty()) *error = "config needs cid, aid and index";
      return false;
    }
    std::vector<std::string> valueWords = Words(right);
    if (!ParseHexBytes(valueWords, 0, valueWords.size(), &value, error))
      return false;
    ConfigItem(key[0], key[1], key[2]) = value;
    return true;
  }
  std::vector<uint8_t> key;
  if (left.size() < 2 || !ParseHexBytes(left, 0, left.size(), &key, error)) {
    if (error->empty()) *error = "a rule needs netfn and cmd: " + line;
    return false;
  }
  std::vector<BmcAnswer> answers;
  size_t start = 0;
  while (start <= right.size()) {
    size_t bar = right.find('|', start);
    if (bar == std::string::npos) bar = right.size();
    if (!ParseAnswer(right.substr(start, bar - start), &answers, error))
      return false;
    start = bar + 1;
  }
  On(key[0], key[1], std::vector<uint8_t>(key.begin() + 2, key.end()),
     std::move(answers));
  return true;
}

bool ScriptedBmc::Load(const std::string& text, std::string* error) {
  std::istringstream in(text);
  std::string line;
  int number = 0;
  std::string ignored;
  if (error == nullptr) error = &ignored;
  fru_from_script_ = false;  // "fru" lines of this script start a new image
  while (std::getline(in, line)) {
    ++number;
    error->clear();
    if (!LoadLine(line, error)) {
      *error = "line " + std::to_string(number) + ": " + *error;
      return false;
    }
  }
  return true;
}

bool ScriptedBmc::LoadFile(const std::string& path, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    if (error != nullptr) *error = "cannot read " + path;
    return false;
  }
  std::stringstream text;
  text << in.rdbuf();
  return Load(text.str(), error);
}

std::string ScriptedBmc::SaveState() const {
  std::string text;
  for (size_t i = 0; i < rules_.size(); ++i)
    text += "rule " + std::to_string(i) + " " +
            std::to_string(rules_[i].position) + "\n";
  text += "down " + std::to_string(down_remaining_) + "\n";
  text += "reservation " + std::to_string(reservation_) + "\n";
  text += "config-store\n";
  for (const auto& item : config_) {
    text += "config " + Hex2(std::get<0>(item.first)) + " " +
            Hex2(std::get<1>(item.first)) + " " +
            Hex2(std::get<2>(item.first)) + " =";
    for (uint8_t b : item.second) text += " " + Hex2(b);
    text += "\n";
  }
  return text;
}

bool ScriptedBmc::LoadState(const std::string& text) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    std::vector<std::string> words = Words(line);
    if (words.empty()) continue;
    if (words[0] == "rule" && words.size() == 3) {
      size_t index = strtoul(words[1].c_str(), nullptr, 10);
      size_t position = strtoul(words[2].c_str(), nullptr, 10);
      if (index < rules_.size() && position < rules_[index].answers.size())
        rules_[index].position = position;
    } else if (words[0] == "down" && words.size() == 2) {
      down_remaining_ = atoi(words[1].c_str());
    } else if (words[0] == "reservation" && words.size() == 2) {
      reservation_ = static_cast<uint8_t>(atoi(words[1].c_str()));
    } else if (words[0] == "config-store") {
      config_.clear();
    } else if (words[0] == "config") {
      std::string error;
      if (!LoadLine(line, &error)) return false;
    }
  }
  return true;
}

// --- the library's entry points ---

namespace {

uint32_t ScriptedRawOpen(void) {
  ScriptedBmc* bmc = ScriptedBmc::Current();
  if (bmc == nullptr || bmc->open_fails) return 0;
  return kOpenHandle;
}

int Serve(const BmcRequest& request, unsigned char* completionCode,
          unsigned char* responseData, unsigned short* responseLength) {
  ScriptedBmc* bmc = ScriptedBmc::Current();
  if (bmc == nullptr) return 1;
  BmcAnswer answer = bmc->Handle(request);
  if (answer.kind == BmcAnswer::kTransportFailure) return answer.status;
  if (answer.kind == BmcAnswer::kNoAnswer) return kNoAnswerStatus;
  *completionCode = answer.completion_code;
  size_t n = std::min<size_t>(answer.data.size(), *responseLength);
  if (n > 0) memcpy(responseData, answer.data.data(), n);
  *responseLength = static_cast<unsigned short>(n);
  return 0;
}

int ScriptedRawRequest(uint32_t handle, unsigned char netFnLun,
                       unsigned char command, unsigned char* requestData,
                       unsigned char requestLength,
                       unsigned char* completionCode,
                       unsigned char* responseData,
                       unsigned short* responseLength) {
  if (handle != kOpenHandle) return 1;
  BmcRequest request;
  request.netfn = netFnLun >> 2;
  request.lun = netFnLun & 0x03;
  request.cmd = command;
  request.data.assign(requestData, requestData + requestLength);
  return Serve(request, completionCode, responseData, responseLength);
}

int ScriptedRawIPMBRequest(uint32_t handle, unsigned char slaveAddress,
                           unsigned char netFnLun, unsigned char command,
                           unsigned char* requestData,
                           unsigned char requestLength,
                           unsigned char* completionCode,
                           unsigned char* responseData,
                           unsigned short* responseLength) {
  if (handle != kOpenHandle) return 1;
  BmcRequest request;
  request.slave = slaveAddress;
  request.netfn = netFnLun >> 2;
  request.lun = netFnLun & 0x03;
  request.cmd = command;
  request.data.assign(requestData, requestData + requestLength);
  return Serve(request, completionCode, responseData, responseLength);
}

void ScriptedRawClose(uint32_t) {}

}  // namespace

RawEntryPoints ScriptedBmc::EntryPoints() {
  return RawEntryPoints{ScriptedRawOpen, ScriptedRawRequest,
                        ScriptedRawIPMBRequest, ScriptedRawClose};
}

ScriptedBmc* ScriptedBmc::Current() { return g_current; }

void ScriptedBmc::SetCurrent(ScriptedBmc* bmc) { g_current = bmc; }

// --- ipmitool ---

int ScriptedBmc::RunIpmitool(const std::vector<std::string>& args,
                             std::string* out, std::string* err) {
  static const char kValueOptions[] = "IHUPCNRLpkytbTBlmfSOoeA";
  std::string interface = "open";
  bool hostGiven = false;
  size_t i = 0;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.size() != 2 || a[0] != '-') break;
    if (strchr(kValueOptions, a[1]) == nullptr) continue;
    if (i + 1 >= args.size()) {
      *err += "Option " + a + " requires an argument\n";
      return 1;
    }
    if (a[1] == 'I') interface = args[i + 1];
    if (a[1] == 'H') hostGiven = true;
    ++i;
  }
  if (hostGiven && interface == "open") interface = "lan";
  if (interface != "lan" && interface != "lanplus") {
    *err += "Could not open device at /dev/ipmi0 or /dev/ipmi/0 or "
            "/dev/ipmidev/0: No such file or directory\n";
    return 1;
  }
  if (i >= args.size() || args[i] != "raw") {
    *err += "Invalid command: only \"raw\" is served by this BMC\n";
    return 1;
  }
  ++i;
  if (args.size() - i < 2) {
    *err += "Not enough parameters given.\n";
    return 1;
  }
  BmcRequest request;
  for (size_t k = i; k < args.size(); ++k) {
    uint8_t value = 0;
    if (!ParseToolByte(args[k], &value)) {
      *err += "Given data \"" + args[k] + "\" is invalid.\n";
      return 1;
    }
    if (k == i) {
      request.netfn = value;
    } else if (k == i + 1) {
      request.cmd = value;
    } else {
      request.data.push_back(value);
    }
  }
  BmcAnswer answer = Handle(request);
  char buf[160];
  if (answer.kind == BmcAnswer::kTransportFailure) {
    if (interface == "lanplus") {
      *err += "Error: Unable to establish IPMI v2 / RMCP+ session\n";
    } else {
      *err += "Error: Unable to establish LAN session\n"
              "Error: Unable to establish IPMI v1.5 / RMCP session\n";
    }
    return 1;
  }
  if (answer.kind == BmcAnswer::kNoAnswer) {
    snprintf(buf, sizeof(buf),
             "Unable to send RAW command (channel=0x0 netfn=0x%x lun=0x0 "
             "cmd=0x%x)\n",
             request.netfn, request.cmd);
    *err += buf;
    return 1;
  }
  if (answer.completion_code != 0) {
    const char* text = CompletionCodeText(answer.completion_code);
    char unknown[32];
    if (text == nullptr) {
      snprintf(unknown, sizeof(unknown), "Unknown (0x%02X)",
               answer.completion_code);
      text = unknown;
    }
    snprintf(buf, sizeof(buf),
             "Unable to send RAW command (channel=0x0 netfn=0x%x lun=0x0 "
             "cmd=0x%x rsp=0x%x): %s\n",
             request.netfn, request.cmd, answer.completion_code, text);
    *err += buf;
    return 1;
  }
  for (size_t k = 0; k < answer.data.size(); ++k) {
    if (k % 16 == 0 && k != 0) *out += "\n";
    *out += " " + Hex2(answer.data[k]);
  }
  *out += "\n";
  return 0;
}

bool ScriptedBmc::AnswerIpmitoolCommandLine(const std::string& line,
                                            std::string* output, int* status) {
  std::vector<std::string> words = ShellWords(line);
  if (!words.empty() && words.back() == "2>&1") words.pop_back();
  return AnswerIpmitoolProcess(words, output, status);
}

bool ScriptedBmc::AnswerIpmitoolProcess(const std::vector<std::string>& words,
                                        std::string* output, int* status) {
  if (words.empty()) return false;
  const std::string& program = words[0];
  if (program != "ipmitool" &&
      (program.size() < 9 ||
       program.compare(program.size() - 9, 9, "/ipmitool") != 0))
    return false;
  std::string out, err;
  int code = RunIpmitool(std::vector<std::string>(words.begin() + 1, words.end()),
                         &out, &err);
  *output = err + out;
  *status = code << 8;
  return true;
}

}  // namespace testing_support

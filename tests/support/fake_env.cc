#include "support/fake_env.h"

#include <string.h>

#include <algorithm>

namespace testing_support {
namespace {

class StringPipe : public platform::Pipe {
 public:
  StringPipe(std::string text, int status)
      : text_(std::move(text)), status_(status) {}
  int Close() override { return status_; }
  bool ReadLine(char* buf, int size) override {
    if (pos_ >= text_.size() || size <= 0) return false;
    size_t max = static_cast<size_t>(size) - 1;
    size_t n = 0;
    while (n < max && pos_ < text_.size()) {
      char c = text_[pos_++];
      buf[n++] = c;
      if (c == '\n') break;
    }
    buf[n] = '\0';
    return true;
  }
  size_t Read(char* buf, size_t size) override {
    size_t n = std::min(size, text_.size() - pos_);
    memcpy(buf, text_.data() + pos_, n);
    pos_ += n;
    return n;
  }

 private:
  std::string text_;
  int status_;
  size_t pos_ = 0;
};

}  // namespace

FakeEnv::FakeEnv() { platform::SetEnv(this); }

FakeEnv::~FakeEnv() { platform::SetEnv(nullptr); }

void FakeEnv::SleepMs(unsigned ms) {
  sleeps.push_back(ms);
  total_sleep_ms += ms;
  ms_remainder_ += ms;
  now += ms_remainder_ / 1000;
  ms_remainder_ %= 1000;
  if (on_sleep) on_sleep(ms);
}

void FakeEnv::Script(const std::string& command, CommandResult result) {
  scripts_[command].push_back(std::move(result));
}

void FakeEnv::Script(const std::string& command, const std::string& output,
                     int status) {
  CommandResult r;
  r.output = output;
  r.status = status;
  Script(command, r);
}

int FakeEnv::RunCount(const std::string& command) const {
  return static_cast<int>(std::count(commands.begin(), commands.end(), command));
}

CommandResult FakeEnv::Lookup(const std::string& command) {
  commands.push_back(command);
  auto it = scripts_.find(command);
  if (it != scripts_.end() && !it->second.empty()) {
    CommandResult r = it->second.front();
    if (it->second.size() > 1) it->second.pop_front();
    return r;
  }
  CommandResult r;
  if (handler && handler(command, &r)) return r;
  r.status = 127 << 8;
  return r;
}

int FakeEnv::RunCommand(const std::string& command) {
  CommandResult r = Lookup(command);
  if (r.start_fails) return -1;
  return r.status;
}

std::unique_ptr<platform::Pipe> FakeEnv::OpenPipe(const std::string& command) {
  CommandResult r = Lookup(command);
  if (r.start_fails) return nullptr;
  return std::unique_ptr<platform::Pipe>(new StringPipe(r.output, r.status));
}

platform::ProcessResult FakeEnv::RunProcess(const platform::ProcessSpec& spec) {
  processes.push_back(spec);
  std::string line;
  for (const std::string& a : spec.argv) line += (line.empty() ? "" : " ") + a;
  CommandResult r = Lookup(line);
  platform::ProcessResult result;
  if (r.start_fails) return result;
  result.started = true;
  result.status = r.status;
  result.timed_out = r.timed_out;
  result.output = r.output.substr(0, spec.output_limit);
  return result;
}

int FakeEnv::ReadInputChar() {
  if (input_pos >= input.size()) return EOF;
  return static_cast<unsigned char>(input[input_pos++]);
}

int FakeEnv::BlockDeviceSectors(const std::string& path,
                                unsigned long* sectors) {
  auto it = block_devices.find(path);
  if (it == block_devices.end()) return -1;
  if (it->second < 0) return static_cast<int>(it->second);
  *sectors = static_cast<unsigned long>(it->second);
  return 0;
}

}  // namespace testing_support

#include "support/fake_env.h"

#include <string.h>

#include <algorithm>

namespace testing_support {
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

bool FakeEnv::Find(const std::string& command, CommandResult* result) {
  auto it = scripts_.find(command);
  if (it == scripts_.end() || it->second.empty()) return false;
  *result = it->second.front();
  if (it->second.size() > 1) it->second.pop_front();
  return true;
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

platform::ProcessResult FakeEnv::RunProcess(const platform::ProcessSpec& spec) {
  processes.push_back(spec);
  // Shell commands are scripted by their command line, programs run
  // without a shell by their words joined with blanks.
  const std::string line = platform::CommandText(spec);
  CommandResult r;
  if (!Find(line, &r) && !(process_handler && process_handler(spec, &r)))
    r = Lookup(line);
  else
    commands.push_back(line);
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

bool FakeEnv::IsDirectory(const std::string& path) {
  if (directories.count(path) != 0) return true;
  if (fs == nullptr) return false;
  FakeFiles::Node* node = fs->Find(path);
  return node != nullptr && node->type == platform::FileType::kDirectory;
}

bool FakeEnv::PathExists(const std::string& path) {
  if (directories.count(path) != 0 || files.count(path) != 0) return true;
  platform::FileInfo info;
  return fs != nullptr && fs->LinkStat(path, &info);
}

bool FakeEnv::IsMountPoint(const std::string& path) {
  return mount_points.count(path) != 0 || (fs != nullptr && fs->IsMountPoint(path));
}

std::unique_ptr<platform::File> FakeEnv::OpenForRead(const std::string& path) {
  return fs != nullptr ? fs->OpenForRead(path) : platform::RealEnv()->OpenForRead(path);
}

std::unique_ptr<platform::File> FakeEnv::OpenFile(const std::string& path) {
  return fs != nullptr ? fs->OpenFile(path) : platform::RealEnv()->OpenFile(path);
}

std::unique_ptr<platform::File> FakeEnv::CreateFile(const std::string& path) {
  return fs != nullptr ? fs->CreateFile(path) : platform::RealEnv()->CreateFile(path);
}

std::unique_ptr<platform::File> FakeEnv::CreateForWrite(const std::string& path) {
  return fs != nullptr ? fs->CreateForWrite(path)
                       : platform::RealEnv()->CreateForWrite(path);
}

bool FakeEnv::ListDirectory(const std::string& path, std::vector<std::string>* names) {
  return fs != nullptr ? fs->ListDirectory(path, names)
                       : platform::RealEnv()->ListDirectory(path, names);
}

bool FakeEnv::RemoveFile(const std::string& path) {
  return fs != nullptr ? fs->RemoveFile(path) : platform::RealEnv()->RemoveFile(path);
}

bool FakeEnv::Stat(const std::string& path, platform::FileInfo* info) {
  return fs != nullptr ? fs->Stat(path, info) : platform::RealEnv()->Stat(path, info);
}

bool FakeEnv::LinkStat(const std::string& path, platform::FileInfo* info) {
  return fs != nullptr ? fs->LinkStat(path, info)
                       : platform::RealEnv()->LinkStat(path, info);
}

}  // namespace testing_support

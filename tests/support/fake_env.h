// A scripted stand-in for the operating system: a virtual clock whose
// sleeps advance time at once, a shell that answers command lines from a
// script and records what ran, scripted standard input, scripted
// directories and block devices, and (when fs is set) in-memory files.
#ifndef VRX_TESTS_SUPPORT_FAKE_ENV_H_
#define VRX_TESTS_SUPPORT_FAKE_ENV_H_

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/fake_files.h"

namespace testing_support {

struct CommandResult {
  std::string output;   // what the command prints (pipes only)
  int status = 0;       // wait status
  bool start_fails = false;  // the program cannot be started
  bool timed_out = false;    // RunProcess: killed at its time limit
};

class FakeEnv : public platform::Env {
 public:
  // Installs itself as the environment; the destructor restores the real OS.
  FakeEnv();
  ~FakeEnv() override;

  // --- clock ---
  time_t now = 1700000000;  // a fixed, readable start
  std::vector<unsigned> sleeps;  // every SleepMs, in order
  // Called after the clock moved, e.g. to change a scripted BMC over time.
  std::function<void(unsigned ms)> on_sleep;
  unsigned long long total_sleep_ms = 0;
  // Added to the monotonic clock, e.g. by a handler that plays a slow answer.
  unsigned long long extra_ms = 0;

  // --- shell ---
  // Results for one exact command line are used in order; the last one is
  // repeated when the queue runs dry.
  void Script(const std::string& command, CommandResult result);
  void Script(const std::string& command, const std::string& output,
              int status = 0);
  // Consulted for command lines without a script; return false to fall
  // through to "no such command" (status 127, empty output).
  std::function<bool(const std::string& command, CommandResult* result)>
      handler;
  // Consulted for programs without a script, with their argument vector
  // and environment as given (before handler).
  std::function<bool(const platform::ProcessSpec& spec, CommandResult* result)>
      process_handler;
  std::vector<std::string> commands;  // every command line run, in order
  // Every RunProcess, in order; its command line (argv joined by blanks)
  // is also added to commands and answered by the same scripts.
  std::vector<platform::ProcessSpec> processes;
  // Count of runs of one exact command line.
  int RunCount(const std::string& command) const;

  // --- standard input ---
  std::string input;
  size_t input_pos = 0;

  // --- file system facts ---
  std::set<std::string> directories;
  std::set<std::string> files;         // other things that exist
  std::set<std::string> mount_points;  // directories with a mount on them
  std::set<std::string> locks;                 // held by this run
  std::set<std::string> locks_held_elsewhere;  // held by another run
  // Sector counts of block devices; -1 = cannot open, -2 = ioctl fails.
  std::map<std::string, long> block_devices;
  // The file system behind the file operations (not owned). Null: they
  // reach the real OS. Its directories and mount points count as well as
  // the sets above.
  FakeFiles* fs = nullptr;

  // platform::Env
  time_t Now() override { return now; }
  // Advances with the sleeps (and extra_ms), from 0.
  long long MonotonicMs() override {
    return static_cast<long long>(total_sleep_ms + extra_ms);
  }
  void SleepMs(unsigned ms) override;
  platform::ProcessResult RunProcess(const platform::ProcessSpec& spec) override;
  int ReadInputChar() override;
  void DiscardPendingInput() override {}
  bool IsDirectory(const std::string& path) override;
  bool PathExists(const std::string& path) override;
  bool IsMountPoint(const std::string& path) override;
  int TryLock(const std::string& path) override {
    if (locks_held_elsewhere.count(path) != 0) return 0;
    locks.insert(path);
    return 1;
  }
  void Unlock(const std::string& path) override { locks.erase(path); }
  int BlockDeviceSectors(const std::string& path,
                         unsigned long* sectors) override;
  // Programs that may be run, by the name the product asks for.
  std::set<std::string> executables;
  bool CanExecute(const std::string& program) override {
    return executables.count(program) != 0;
  }
  std::unique_ptr<platform::File> OpenForRead(const std::string& path) override;
  std::unique_ptr<platform::File> OpenFile(const std::string& path) override;
  std::unique_ptr<platform::File> CreateFile(const std::string& path) override;
  std::unique_ptr<platform::File> CreateForWrite(const std::string& path) override;
  bool ListDirectory(const std::string& path,
                     std::vector<std::string>* names) override;
  bool RemoveFile(const std::string& path) override;
  bool Stat(const std::string& path, platform::FileInfo* info) override;
  bool LinkStat(const std::string& path, platform::FileInfo* info) override;
  int AppendRecord(const std::string& path, const std::string& line,
                   std::string* why) override;
  // What AppendRecord took when no fake file system is installed.
  std::map<std::string, std::string> appended;

 private:
  CommandResult Lookup(const std::string& command);
  bool Find(const std::string& command, CommandResult* result);
  std::map<std::string, std::deque<CommandResult>> scripts_;
  unsigned ms_remainder_ = 0;
};

}  // namespace testing_support

#endif  // VRX_TESTS_SUPPORT_FAKE_ENV_H_

#include "platform/platform.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <map>

#include "platform/posix_files.h"
#include "platform/signals.h"

extern char** environ;

namespace platform {
namespace {

long long MonotonicMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// The inherited environment with spec's entries put in place of (or added
// to) the variables of the same name.
std::vector<std::string> ChildEnvironment(const std::vector<std::string>& extra) {
  std::vector<std::string> result;
  for (char** p = environ; p != nullptr && *p != nullptr; ++p) {
    std::string entry = *p;
    std::string name = entry.substr(0, entry.find('='));
    bool replaced = false;
    for (const std::string& e : extra)
      if (e.compare(0, name.size() + 1, name + "=") == 0) replaced = true;
    if (!replaced) result.push_back(entry);
  }
  result.insert(result.end(), extra.begin(), extra.end());
  return result;
}

ProcessResult SpawnAndWait(const ProcessSpec& spec) {
  ProcessResult result;
  if (spec.argv.empty()) return result;
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return result;

  std::vector<char*> argv;
  for (const std::string& a : spec.argv) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<std::string> envStrings = ChildEnvironment(spec.env);
  std::vector<char*> envp;
  for (const std::string& e : envStrings) envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (spec.output != ChildOutput::kInherit)
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  if (spec.output == ChildOutput::kCaptureBoth)
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  // A group of its own: the terminal's SIGINT goes to our group only. The
  // child starts with default dispositions and nothing blocked.
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &all);
  posix_spawnattr_setpgroup(&attr, 0);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                      POSIX_SPAWN_SETSIGDEF);
  fflush(nullptr);  // keep our output ahead of the child's
  pid_t pid = -1;
  int rc = posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  close(fds[1]);
  if (rc != 0) {
    close(fds[0]);
    return result;
  }
  result.started = true;

  const long long deadline = MonotonicMs() + spec.timeout_ms;
  char buf[4096];
  bool open = true;
  while (open) {
    long long left = deadline - MonotonicMs();
    if (left <= 0) {
      kill(-pid, SIGKILL);
      result.timed_out = true;
      break;
    }
    struct pollfd pfd = {fds[0], POLLIN, 0};
    int n = poll(&pfd, 1, static_cast<int>(left > 1000 ? 1000 : left));
    if (n < 0 && errno != EINTR) break;
    if (n <= 0) continue;
    ssize_t got = read(fds[0], buf, sizeof(buf));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      open = false;
      break;
    }
    size_t room = spec.output_limit > result.output.size()
                      ? spec.output_limit - result.output.size()
                      : 0;
    result.output.append(buf, static_cast<size_t>(got) < room ? static_cast<size_t>(got) : room);
  }
  close(fds[0]);
  // The pipe closed but the child may still run (it closed its output, or
  // left a grandchild holding it): the time limit holds for the wait too.
  // A child that closed its output is almost always exiting: look again
  // after 0.1 ms, backing off to 10 ms, so a request costs no idle time.
  int status = 0;
  long pauseNs = 100 * 1000L;
  for (;;) {
    pid_t w = waitpid(pid, &status, result.timed_out ? 0 : WNOHANG);
    if (w == pid) break;
    if (w < 0 && errno != EINTR) break;
    if (w == 0) {
      if (MonotonicMs() >= deadline) {
        kill(-pid, SIGKILL);
        result.timed_out = true;
        continue;
      }
      struct timespec ts = {0, pauseNs};
      nanosleep(&ts, nullptr);
      if (pauseNs < 10 * 1000000L) pauseNs *= 2;
    }
  }
  result.status = status;
  return result;
}

class PosixEnv : public Env {
 public:
  time_t Now() override { return time(nullptr); }
  long long MonotonicMs() override { return platform::MonotonicMs(); }
  void SleepMs(unsigned ms) override {
    // usleep() may refuse a full second or more; nanosleep has no such limit.
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    // The first stop request ends the pause at once so the run reacts in
    // time; pauses of the clean-up that follows are kept whole.
    const bool stopping = PendingSignal() != 0;
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
      if (!stopping && PendingSignal() != 0) break;
    }
  }
  ProcessResult RunProcess(const ProcessSpec& spec) override {
    return SpawnAndWait(spec);
  }
  int ReadInputChar() override { return getchar(); }
  void DiscardPendingInput() override {
    // Only a terminal has type-ahead to drop; answers piped in by a script
    // are consumed line by line and must not be thrown away.
    if (isatty(STDIN_FILENO)) tcflush(STDIN_FILENO, TCIFLUSH);
  }
  bool IsDirectory(const std::string& path) override {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
  }
  bool PathExists(const std::string& path) override {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
  }
  bool IsMountPoint(const std::string& path) override {
    // A mounted file system has another device than the directory above
    // it (bind mounts of one file system aside, which we never make).
    struct stat st, parent;
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    if (stat((path + "/..").c_str(), &parent) != 0) return false;
    return st.st_dev != parent.st_dev || st.st_ino == parent.st_ino;
  }
  int TryLock(const std::string& path) override {
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return -1;
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      const bool busy = errno == EWOULDBLOCK;
      close(fd);
      return busy ? 0 : -1;
    }
    Unlock(path);  // a lock taken twice is held once
    locks_[path] = fd;
    return 1;
  }
  void Unlock(const std::string& path) override {
    auto it = locks_.find(path);
    if (it == locks_.end()) return;
    close(it->second);
    locks_.erase(it);
  }
  int BlockDeviceSectors(const std::string& path,
                         unsigned long* sectors) override {
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return -1;
    unsigned long count = 0;
    int rc = ioctl(fd, BLKGETSIZE, &count);
    close(fd);
    if (rc != 0) return -2;
    *sectors = count;
    return 0;
  }
  bool CanExecute(const std::string& program) override {
    if (program.empty()) return false;
    if (program.find('/') != std::string::npos)
      return access(program.c_str(), X_OK) == 0;
    const char* path = getenv("PATH");
    std::string directories = path != nullptr ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= directories.size()) {
      size_t end = directories.find(':', start);
      if (end == std::string::npos) end = directories.size();
      std::string directory = directories.substr(start, end - start);
      if (directory.empty()) directory = ".";
      const std::string candidate = directory + "/" + program;
      struct stat st;
      if (stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
          access(candidate.c_str(), X_OK) == 0)
        return true;
      start = end + 1;
    }
    return false;
  }
  std::unique_ptr<File> OpenForRead(const std::string& path) override {
    return posix::OpenForRead(path);
  }
  std::unique_ptr<File> OpenFile(const std::string& path) override {
    return posix::OpenFile(path);
  }
  std::unique_ptr<File> CreateFile(const std::string& path) override {
    return posix::CreateFile(path);
  }
  std::unique_ptr<File> CreateForWrite(const std::string& path) override {
    return posix::CreateForWrite(path);
  }
  bool ListDirectory(const std::string& path,
                     std::vector<std::string>* names) override {
    return posix::ListDirectory(path, names);
  }
  bool RemoveFile(const std::string& path) override {
    return posix::RemoveFile(path);
  }
  bool Stat(const std::string& path, FileInfo* info) override {
    return posix::Stat(path, info);
  }
  bool LinkStat(const std::string& path, FileInfo* info) override {
    return posix::LinkStat(path, info);
  }
  int AppendRecord(const std::string& path, const std::string& line,
                   std::string* why) override {
    return posix::AppendRecord(path, line, why);
  }

 private:
  std::map<std::string, int> locks_;
};

Env* g_env = nullptr;

}  // namespace

Env* RealEnv() {
  static PosixEnv env;
  return &env;
}

Env* GetEnv() { return g_env != nullptr ? g_env : RealEnv(); }

void SetEnv(Env* env) { g_env = env; }

std::string CTime(time_t t) {
  char buf[64];
  if (ctime_r(&t, buf) == nullptr) return "\n";
  return buf;
}

double DiffTime(time_t later, time_t earlier) { return difftime(later, earlier); }

bool RunningAsRoot() { return geteuid() == 0; }

std::string HomeDirectory() {
  const char* home = getenv("HOME");
  return home != nullptr && home[0] == '/' ? home : "";
}

bool TextReader::ReadLine(char* buf, int size) {
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

size_t TextReader::Read(char* buf, size_t size) {
  size_t left = text_.size() - pos_;
  size_t n = size < left ? size : left;
  memcpy(buf, text_.data() + pos_, n);
  pos_ += n;
  return n;
}

ProcessSpec ShellCommand(const std::string& command, ChildOutput output) {
  ProcessSpec spec;
  spec.argv = {"/bin/sh", "-c", command};
  spec.output = output;
  spec.timeout_ms = kShellTimeoutMs;
  return spec;
}

std::string CommandText(const ProcessSpec& spec) {
  if (spec.argv.size() == 3 && spec.argv[0] == "/bin/sh" && spec.argv[1] == "-c")
    return spec.argv[2];
  std::string text;
  for (const std::string& word : spec.argv) {
    if (!text.empty()) text += ' ';
    text += word;
  }
  return text;
}

std::string TimeoutLine(const ProcessSpec& spec) {
  return "   Command timed out after " + std::to_string(spec.timeout_ms / 1000) +
         " s: " + CommandText(spec) + "\n";
}

std::string ShellQuoteIfNeeded(const std::string& text) {
  static const char kSafe[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
      "@%+=:,./-_";
  if (!text.empty() && text.find_first_not_of(kSafe) == std::string::npos)
    return text;
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'')
      quoted += "'\\''";
    else
      quoted += c;
  }
  quoted += "'";
  return quoted;
}

}  // namespace platform

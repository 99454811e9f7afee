#include "platform/platform.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace platform {
namespace {

class PosixPipe : public Pipe {
 public:
  explicit PosixPipe(FILE* f) : file_(f) {}
  ~PosixPipe() override { Close(); }
  int Close() override {
    if (file_ != nullptr) {
      status_ = pclose(file_);
      file_ = nullptr;
    }
    return status_;
  }
  bool ReadLine(char* buf, int size) override {
    return file_ != nullptr && fgets(buf, size, file_) != nullptr;
  }
  size_t Read(char* buf, size_t size) override {
    return file_ != nullptr ? fread(buf, 1, size, file_) : 0;
  }

 private:
  FILE* file_;
  int status_ = -1;
};

class PosixEnv : public Env {
 public:
  time_t Now() override { return time(nullptr); }
  void SleepMs(unsigned ms) override {
    // usleep() may refuse a full second or more; nanosleep has no such limit.
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
  }
  int RunCommand(const std::string& command) override {
    fflush(nullptr);  // keep our output ahead of the child's
    return system(command.c_str());
  }
  std::unique_ptr<Pipe> OpenPipe(const std::string& command) override {
    fflush(nullptr);
    FILE* f = popen(command.c_str(), "r");
    if (f == nullptr) return nullptr;
    return std::unique_ptr<Pipe>(new PosixPipe(f));
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

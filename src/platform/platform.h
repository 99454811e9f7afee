// The one seam between the utility and the operating system for time,
// sleeping, shell commands, console input, files and directories, and the
// block device size query. Production uses the real OS; tests install a fake with
// SetEnv() so that waits of minutes run in microseconds and every external
// command is scripted and recorded.
#ifndef VRX_PLATFORM_PLATFORM_H_
#define VRX_PLATFORM_PLATFORM_H_

#include <time.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/files.h"

namespace platform {

// fgets()/fread() over text already captured from a child, so parsers
// read a command's output the way they would read a stream.
class TextReader {
 public:
  explicit TextReader(std::string text) : text_(std::move(text)) {}
  // At most size-1 characters, stops after a line feed, always terminates
  // buf. Returns false at the end of the text.
  bool ReadLine(char* buf, int size);
  // Up to size bytes; returns how many were copied.
  size_t Read(char* buf, size_t size);

 private:
  std::string text_;
  size_t pos_ = 0;
};

// One child process started without a shell: no word of argv is ever
// interpreted, so outside text can be passed as it stands.
enum class ChildOutput {
  kCaptureBoth,    // standard output and error share one captured pipe
  kCaptureStdout,  // standard output captured, errors go to our stderr
  kInherit,        // the child writes to our own stdout and stderr
};

struct ProcessSpec {
  std::vector<std::string> argv;  // argv[0] is looked up on PATH
  std::vector<std::string> env;   // "NAME=value" set for the child only
  ChildOutput output = ChildOutput::kCaptureBoth;
  // Bytes past the limit are read and dropped so the child never blocks
  // on a full pipe.
  size_t output_limit = 256;
  // The child (its whole process group) is killed after this long.
  unsigned timeout_ms = 60000;
};

struct ProcessResult {
  bool started = false;   // false: not found, or it could not be started
  int status = -1;        // wait status when started
  bool timed_out = false; // killed at the time limit
  std::string output;     // at most output_limit bytes
};

class Env {
 public:
  virtual ~Env() = default;

  // time() semantics: whole seconds.
  virtual time_t Now() = 0;
  // A monotonic clock in milliseconds, for measuring durations only.
  virtual long long MonotonicMs() = 0;
  virtual void SleepMs(unsigned ms) = 0;

  // Runs spec to its end (or its time limit) in a process group of its own,
  // so a Ctrl-C at the terminal reaches this program only; the program's
  // signal handlers stay live meanwhile. This is the only way the product
  // starts another program.
  virtual ProcessResult RunProcess(const ProcessSpec& spec) = 0;

  // getchar() semantics on standard input: EOF at its end.
  virtual int ReadInputChar() = 0;
  // Drops type-ahead that the user entered before a question was shown.
  virtual void DiscardPendingInput() = 0;

  virtual bool IsDirectory(const std::string& path) = 0;
  // Something (of any type) is at path; a symbolic link is not followed.
  virtual bool PathExists(const std::string& path) = 0;
  // path is a directory with another file system mounted on it.
  virtual bool IsMountPoint(const std::string& path) = 0;
  // An advisory lock (flock) on the file at path, created if missing and
  // held until Unlock or exit: 1 when taken, 0 when another process holds
  // it, -1 when the file cannot be opened.
  virtual int TryLock(const std::string& path) = 0;
  virtual void Unlock(const std::string& path) = 0;

  // Size of a block device in 512-byte sectors (BLKGETSIZE on the device
  // opened read-only). Returns 0, or -1 when it cannot be opened, -2 when
  // the size request fails.
  virtual int BlockDeviceSectors(const std::string& path,
                                 unsigned long* sectors) = 0;

  // program may be executed by this process: a name with a slash as it
  // stands, any other name as the shell would find it on PATH.
  virtual bool CanExecute(const std::string& program) = 0;

  // open(O_RDONLY | O_NONBLOCK | O_CLOEXEC): a FIFO cannot hang the open,
  // and a file of any type opens. Null when it cannot be opened.
  virtual std::unique_ptr<File> OpenForRead(const std::string& path) = 0;
  // fopen(path, "rb"): follows symbolic links. Null when it fails.
  virtual std::unique_ptr<File> OpenFile(const std::string& path) = 0;
  // fopen(path, "wb"): created (0666 less the umask) or truncated.
  // Null when it fails.
  virtual std::unique_ptr<File> CreateFile(const std::string& path) = 0;
  // A private file written from its start: created with mode 0600 or
  // truncated, never through a symbolic link, without blocking. Null when
  // it cannot be opened or is not a regular file.
  virtual std::unique_ptr<File> CreateForWrite(const std::string& path) = 0;
  // The names in directory path, without "." and "..", in the directory's
  // own order. false when the directory cannot be opened.
  virtual bool ListDirectory(const std::string& path,
                             std::vector<std::string>* names) = 0;
  // remove(): a file, or an empty directory. false when it is still there.
  virtual bool RemoveFile(const std::string& path) = 0;
  // stat() of path, following symbolic links: false when it fails.
  virtual bool Stat(const std::string& path, FileInfo* info) = 0;
  // lstat() of path: a symbolic link is reported as one.
  virtual bool LinkStat(const std::string& path, FileInfo* info) = 0;
  // Appends line, one whole record, to the private file at path in one
  // write, under an exclusive lock taken within about a second. The file
  // is made with mode 0600 (its directory with 0700) when missing, never
  // opened through a symbolic link, and refused when it is no regular file,
  // belongs to another user or may be written by others. 0, or -1 with
  // the reason in why.
  virtual int AppendRecord(const std::string& path, const std::string& line,
                           std::string* why) = 0;
};

// The environment in force: the real OS unless a test installed another.
Env* GetEnv();
// Installs env (not owned); nullptr restores the real OS.
void SetEnv(Env* env);
// The real OS, for tests that want to pass through to it.
Env* RealEnv();

// ctime() text of t, with its trailing line feed.
std::string CTime(time_t t);
// difftime(later, earlier).
double DiffTime(time_t later, time_t earlier);
// The effective user is root.
bool RunningAsRoot();
// $HOME when it is set to an absolute path, else "".
std::string HomeDirectory();

// Time limits of child processes. A mount or a copy-back onto a slow stick
// may take minutes; one ipmitool request never does.
constexpr unsigned kShellTimeoutMs = 300000;
constexpr unsigned kToolTimeoutMs = 120000;

// A command line that is meant for the shell ("mount DEV DIR", "df -Th"):
// /bin/sh -c command, with the shell's time limit.
ProcessSpec ShellCommand(const std::string& command, ChildOutput output);
// The command as shown to the user: the shell's command line, or the
// argument vector joined by blanks.
std::string CommandText(const ProcessSpec& spec);
// "   Command timed out after N s: CMD\n" for a child that met its limit.
std::string TimeoutLine(const ProcessSpec& spec);

// Quotes text for /bin/sh only when it holds a character the shell would
// interpret, so ordinary values stay exactly as given.
std::string ShellQuoteIfNeeded(const std::string& text);

}  // namespace platform

#endif  // VRX_PLATFORM_PLATFORM_H_

// The one seam between the utility and the operating system for time,
// sleeping, shell commands, console input, directory tests and the block
// device size query. Production uses the real OS; tests install a fake with
// SetEnv() so that waits of minutes run in microseconds and every external
// command is scripted and recorded.
#ifndef VRX_PLATFORM_PLATFORM_H_
#define VRX_PLATFORM_PLATFORM_H_

#include <time.h>

#include <cstddef>
#include <memory>
#include <string>

namespace platform {

// Output of a command started with Env::OpenPipe. It is closed on
// destruction unless Close() was called first.
class Pipe {
 public:
  virtual ~Pipe() = default;
  // pclose() semantics: waits for the command and returns its wait status.
  virtual int Close() = 0;
  // fgets() semantics: at most size-1 characters, stops after a line feed,
  // always terminates buf. Returns false at end of output.
  virtual bool ReadLine(char* buf, int size) = 0;
  // fread() semantics: up to size bytes, returns how many were read.
  virtual size_t Read(char* buf, size_t size) = 0;
};

class Env {
 public:
  virtual ~Env() = default;

  // time() semantics: whole seconds.
  virtual time_t Now() = 0;
  virtual void SleepMs(unsigned ms) = 0;

  // system() semantics: the raw wait status, -1 when no shell could run.
  virtual int RunCommand(const std::string& command) = 0;
  // popen(command, "r"); null when the command cannot be started.
  virtual std::unique_ptr<Pipe> OpenPipe(const std::string& command) = 0;

  // getchar() semantics on standard input: EOF at its end.
  virtual int ReadInputChar() = 0;
  // Drops type-ahead that the user entered before a question was shown.
  virtual void DiscardPendingInput() = 0;

  virtual bool IsDirectory(const std::string& path) = 0;
  // Size of a block device in 512-byte sectors (BLKGETSIZE on the device
  // opened read-only). Returns 0, or -1 when it cannot be opened, -2 when
  // the size request fails.
  virtual int BlockDeviceSectors(const std::string& path,
                                 unsigned long* sectors) = 0;
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

// Quotes text for /bin/sh only when it holds a character the shell would
// interpret, so ordinary values stay exactly as given.
std::string ShellQuoteIfNeeded(const std::string& text);

}  // namespace platform

#endif  // VRX_PLATFORM_PLATFORM_H_

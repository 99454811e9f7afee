// Runs the built vrxfwul binary once per case directory under cases/ and
// compares its standard output, standard error, log file and exit status
// byte for byte with the files kept in the case. See README.md beside this
// file for the layout; VRX_UPDATE_GOLDEN=1 rewrites the expected files.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#ifndef VRX_BINARY
#error "VRX_BINARY must name the vrxfwul binary"
#endif

namespace fs = std::filesystem;

namespace {

const char kDefaultPath[] =
    "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
const int kDefaultTimeoutSeconds = 60;

bool Exists(const fs::path& p) {
  std::error_code ec;
  return fs::exists(p, ec);
}

std::string ReadAll(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void WriteAll(const fs::path& p, const std::string& text) {
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out << text;
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

void ReplaceAll(std::string* text, const std::string& from,
                const std::string& to) {
  if (from.empty()) return;
  size_t pos = 0;
  while ((pos = text->find(from, pos)) != std::string::npos) {
    text->replace(pos, from.size(), to);
    pos += to.size();
  }
}

// Placeholders usable in args and env, and put back into actual output so
// that goldens never hold machine-specific paths.
struct Placeholders {
  std::string workdir, build, source, caseDir;

  std::string Expand(std::string text) const {
    ReplaceAll(&text, "@WORKDIR@", workdir);
    ReplaceAll(&text, "@BUILD@", build);
    ReplaceAll(&text, "@SOURCE@", source);
    ReplaceAll(&text, "@CASE@", caseDir);
    ReplaceAll(&text, "@PATH@", kDefaultPath);
    return text;
  }

  // Longest first, so a work dir inside the build dir stays @WORKDIR@.
  std::string Normalize(std::string text) const {
    std::vector<std::pair<std::string, std::string>> pairs = {
        {workdir, "@WORKDIR@"},
        {caseDir, "@CASE@"},
        {build, "@BUILD@"},
        {source, "@SOURCE@"}};
    std::sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) {
      return a.first.size() > b.first.size();
    });
    for (const auto& p : pairs) ReplaceAll(&text, p.first, p.second);
    return text;
  }
};

struct RunResult {
  std::string out, err, status;
};

std::string FindOnPath(const std::string& program, const std::string& path) {
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find(':', start);
    if (end == std::string::npos) end = path.size();
    fs::path candidate = fs::path(path.substr(start, end - start)) / program;
    if (access(candidate.c_str(), X_OK) == 0) return candidate.string();
    start = end + 1;
  }
  return "";
}

// Starts the binary in workdir and waits for it, at most timeout seconds.
RunResult RunBinary(const std::vector<std::string>& args,
              const std::map<std::string, std::string>& env,
              const fs::path& workdir, const fs::path& stdinFile,
              const fs::path& outFile, const fs::path& errFile,
              int timeoutSeconds) {
  std::vector<std::string> argStore = args;
  std::vector<char*> argv;
  for (std::string& a : argStore) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  std::vector<std::string> envStore;
  for (const auto& kv : env) envStore.push_back(kv.first + "=" + kv.second);
  std::vector<char*> envp;
  for (std::string& e : envStore) envp.push_back(&e[0]);
  envp.push_back(nullptr);

  RunResult result;
  fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) {
    result.status = "fork failed\n";
    return result;
  }
  if (pid == 0) {
    int in = open(stdinFile.c_str(), O_RDONLY);
    int out = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (in < 0 || out < 0 || err < 0 || chdir(workdir.c_str()) != 0) _exit(126);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    close(in);
    close(out);
    close(err);
    setpgid(0, 0);  // its own group, so a timeout kills helpers it started
    execve(VRX_BINARY, argv.data(), envp.data());
    _exit(127);
  }
  int status = 0;
  const struct timespec step = {0, 5 * 1000 * 1000};
  long waitedMs = 0;
  for (;;) {
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) break;
    if (done < 0 && errno != EINTR) break;
    if (waitedMs >= timeoutSeconds * 1000L) {
      kill(-pid, SIGKILL);
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      result.status = "timeout\n";
      break;
    }
    nanosleep(&step, nullptr);
    waitedMs += 5;
  }
  if (result.status.empty()) {
    if (WIFEXITED(status))
      result.status = std::to_string(WEXITSTATUS(status)) + "\n";
    else if (WIFSIGNALED(status))
      result.status = "signal " + std::to_string(WTERMSIG(status)) + "\n";
    else
      result.status = "unknown\n";
  }
  result.out = ReadAll(outFile);
  result.err = ReadAll(errFile);
  return result;
}

class GoldenCase : public ::testing::Test {
 public:
  explicit GoldenCase(fs::path dir) : dir_(std::move(dir)) {}

  void TestBody() override {
    char tmpl[] = "/tmp/vrxgolden.XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(tmpl)) << strerror(errno);
    const fs::path scratch = tmpl;
    const fs::path workdir = scratch / "work";
    fs::create_directory(workdir);

    Placeholders ph{workdir.string(), VRX_BUILD_DIR, VRX_SOURCE_DIR,
                    dir_.string()};

    if (Exists(dir_ / "files")) {
      std::error_code ec;
      fs::copy(dir_ / "files", workdir,
               fs::copy_options::recursive | fs::copy_options::copy_symlinks,
               ec);
      ASSERT_FALSE(ec) << "copying files/: " << ec.message();
    }

    std::vector<std::string> args = {"vrxfwul"};
    if (Exists(dir_ / "argv0"))
      args[0] = ph.Expand(SplitLines(ReadAll(dir_ / "argv0")).at(0));
    ASSERT_TRUE(Exists(dir_ / "args")) << "a case needs an args file";
    for (const std::string& line : SplitLines(ReadAll(dir_ / "args")))
      args.push_back(ph.Expand(line));

    std::map<std::string, std::string> env = {
        {"PATH", kDefaultPath}, {"HOME", workdir.string()}, {"LANG", "C"},
        {"LC_ALL", "C"},        {"TZ", "UTC"},
        // Cases run side by side; each has its own BMC, so its own locks.
        {"VRXFWUL_LOCK_DIR", workdir.string()},
        // ... and its own update history, never the machine's.
        {"VRXFWUL_HISTORY_FILE", (workdir / "history").string()}};
    // Sanitizer builds keep their settings.
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
      const char* value = getenv(name);
      if (value != nullptr) env[name] = value;
    }
    if (Exists(dir_ / "env")) {
      for (const std::string& line : SplitLines(ReadAll(dir_ / "env"))) {
        if (line.empty() || line[0] == '#') continue;
        size_t eq = line.find('=');
        ASSERT_NE(std::string::npos, eq) << "env line without '=': " << line;
        env[line.substr(0, eq)] = ph.Expand(line.substr(eq + 1));
      }
    }
    // A preloaded library (the stopped clock) comes before a sanitizer
    // runtime, which would otherwise refuse to start.
    if (env.count("LD_PRELOAD") != 0 && env.count("ASAN_OPTIONS") != 0)
      env["ASAN_OPTIONS"] += ":verify_asan_link_order=0";

    if (Exists(dir_ / "requires")) {
      for (const std::string& program : SplitLines(ReadAll(dir_ / "requires"))) {
        if (program.empty()) continue;
        std::string expanded = ph.Expand(program);
        bool found = expanded.find('/') != std::string::npos
                         ? access(expanded.c_str(), X_OK) == 0
                         : !FindOnPath(expanded, env["PATH"]).empty();
        if (!found) {
          fs::remove_all(scratch);
          GTEST_SKIP() << "needs " << expanded;
        }
      }
    }

    fs::path stdinFile = dir_ / "stdin";
    if (!Exists(stdinFile)) stdinFile = "/dev/null";
    int timeout = kDefaultTimeoutSeconds;
    if (Exists(dir_ / "timeout")) timeout = atoi(ReadAll(dir_ / "timeout").c_str());

    RunResult r = RunBinary(args, env, workdir, stdinFile, scratch / "stdout",
                            scratch / "stderr", timeout);
    std::string out = ph.Normalize(r.out);
    std::string err = ph.Normalize(r.err);

    bool hasLogName = Exists(dir_ / "logname");
    std::string logName;
    bool logExists = false;
    std::string log;
    if (hasLogName) {
      logName = ph.Expand(SplitLines(ReadAll(dir_ / "logname")).at(0));
      fs::path logPath = fs::path(logName).is_absolute()
                             ? fs::path(logName)
                             : workdir / logName;
      logExists = Exists(logPath);
      if (logExists) log = ph.Normalize(ReadAll(logPath));
    }

    const char* update = getenv("VRX_UPDATE_GOLDEN");
    if (update != nullptr && strcmp(update, "1") == 0) {
      WriteAll(dir_ / "stdout", out);
      WriteAll(dir_ / "stderr", err);
      WriteAll(dir_ / "status", r.status);
      if (hasLogName) {
        if (logExists)
          WriteAll(dir_ / "log", log);
        else
          fs::remove(dir_ / "log");
      }
    } else {
      for (const char* name : {"stdout", "stderr", "status"}) {
        EXPECT_TRUE(Exists(dir_ / name))
            << "missing " << name << "; run with VRX_UPDATE_GOLDEN=1 and review";
      }
      EXPECT_EQ(ReadAll(dir_ / "status"), r.status) << "exit status";
      EXPECT_EQ(ReadAll(dir_ / "stdout"), out) << "standard output";
      EXPECT_EQ(ReadAll(dir_ / "stderr"), err) << "standard error";
      if (hasLogName) {
        bool expectLog = Exists(dir_ / "log");
        EXPECT_EQ(expectLog, logExists) << "log file " << logName;
        if (expectLog && logExists) {
          EXPECT_EQ(ReadAll(dir_ / "log"), log) << "log file " << logName;
        }
      }
    }

    const char* keep = getenv("VRX_GOLDEN_KEEP");
    if (keep != nullptr && strcmp(keep, "1") == 0)
      std::cout << "kept " << scratch << "\n";
    else
      fs::remove_all(scratch);
  }

 private:
  fs::path dir_;
};

void RegisterCases() {
  std::vector<fs::path> cases;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(VRX_GOLDEN_CASES, ec)) {
    if (entry.is_directory()) cases.push_back(entry.path());
  }
  std::sort(cases.begin(), cases.end());
  for (const fs::path& dir : cases) {
    std::string name = dir.filename().string();
    ::testing::RegisterTest(
        "golden", name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
        [dir]() -> ::testing::Test* { return new GoldenCase(dir); });
  }
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  RegisterCases();
  return RUN_ALL_TESTS();
}

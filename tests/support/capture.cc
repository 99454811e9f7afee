#include "support/capture.h"

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "driver/driver.h"
#include "output/output.h"
#include "platform/platform.h"

namespace testing_support {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

namespace {

std::string ReadBack(FILE* f) {
  std::string text;
  rewind(f);
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof(buf), f)) > 0) text.append(buf, n);
  fclose(f);
  return text;
}

}  // namespace

int RunMainCaptured(const std::vector<std::string>& args, std::string* out,
                    std::string* err) {
  std::vector<std::string> all = {"vrxfwul"};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& s : all) argv.push_back(&s[0]);
  argv.push_back(nullptr);

  fflush(stdout);
  fflush(stderr);
  FILE* outFile = tmpfile();
  FILE* errFile = tmpfile();
  int savedOut = dup(1);
  int savedErr = dup(2);
  dup2(fileno(outFile), 1);
  dup2(fileno(errFile), 2);
  int rc = RunMain(static_cast<int>(all.size()), argv.data());
  fflush(stdout);
  fflush(stderr);
  dup2(savedOut, 1);
  dup2(savedErr, 2);
  close(savedOut);
  close(savedErr);
  *out = ReadBack(outFile);
  *err = ReadBack(errFile);
  return rc;
}

CapturedOutput::CapturedOutput() {
  if (G_pOutputMessageHandle == nullptr) {
    OutputConstructor();
    owns_handle_ = true;
  }
  out_ = open_memstream(&out_buf_, &out_size_);
  err_ = open_memstream(&err_buf_, &err_size_);
  G_pOutputMessageHandle->SetConsoleStreams(out_, err_);
}

CapturedOutput::~CapturedOutput() {
  if (G_pOutputMessageHandle != nullptr) {
    G_pOutputMessageHandle->SetConsoleStreams(nullptr, nullptr);
    if (owns_handle_) OutputDestructor();
  }
  fclose(out_);
  fclose(err_);
  free(out_buf_);
  free(err_buf_);
  if (!log_path_.empty()) unlink(log_path_.c_str());
}

std::string CapturedOutput::Out() {
  fflush(out_);
  return std::string(out_buf_, out_size_).substr(out_mark_);
}

std::string CapturedOutput::Err() {
  fflush(err_);
  return std::string(err_buf_, err_size_).substr(err_mark_);
}

void CapturedOutput::OpenLog() {
  char name[] = "/tmp/vrxlogXXXXXX";
  int fd = mkstemp(name);
  if (fd >= 0) close(fd);
  log_path_ = name;
  char prog[] = "test";
  char* argv[] = {prog};
  // The captured log is a real file even while a test's files are fake.
  platform::Env* env = platform::GetEnv();
  platform::SetEnv(platform::RealEnv());
  G_pOutputMessageHandle->OpenLogFile(log_path_.c_str(), 1, argv);
  platform::SetEnv(env == platform::RealEnv() ? nullptr : env);
  // Skip the logged command line ("test \n") so Log() shows only messages.
  log_mark_ = 6;
}

std::string CapturedOutput::Log() {
  if (log_path_.empty()) return "";
  std::string all = ReadFile(log_path_);
  return all.size() >= log_mark_ ? all.substr(log_mark_) : "";
}

void CapturedOutput::Clear() {
  fflush(out_);
  fflush(err_);
  out_mark_ = out_size_;
  err_mark_ = err_size_;
  if (!log_path_.empty()) log_mark_ = ReadFile(log_path_).size();
}

}  // namespace testing_support

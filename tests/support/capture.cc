#include "support/capture.h"

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "output/output.h"

namespace testing_support {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
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
  G_pOutputMessageHandle->OpenLogFile(log_path_.c_str(), 1, argv);
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

// Captures what the output object writes to the console and the log.
#ifndef VRX_TESTS_SUPPORT_CAPTURE_H_
#define VRX_TESTS_SUPPORT_CAPTURE_H_

#include <stdio.h>

#include <string>
#include <vector>

namespace testing_support {

// Creates G_pOutputMessageHandle (if none exists) and points its console at
// two memory streams. The destructor destroys the output object it made.
class CapturedOutput {
 public:
  CapturedOutput();
  ~CapturedOutput();
  std::string Out();   // everything written to standard output so far
  std::string Err();   // everything written to standard error so far
  // Opens the output object's log on a fresh temporary file, as -l would;
  // Log() then returns what was logged after the command line.
  void OpenLog();
  std::string Log();
  void Clear();        // forget what was captured so far

 private:
  char* out_buf_ = nullptr;
  size_t out_size_ = 0;
  FILE* out_ = nullptr;
  char* err_buf_ = nullptr;
  size_t err_size_ = 0;
  FILE* err_ = nullptr;
  std::string log_path_;
  bool owns_handle_ = false;
  size_t out_mark_ = 0, err_mark_ = 0, log_mark_ = 0;
};

std::string ReadFile(const std::string& path);

// Runs the whole program in-process as "vrxfwul args...", with the real
// standard output and error (file descriptors 1 and 2) redirected to
// temporary files, and returns RunMain's code with what was printed.
int RunMainCaptured(const std::vector<std::string>& args, std::string* out,
                    std::string* err);

}  // namespace testing_support

#endif  // VRX_TESTS_SUPPORT_CAPTURE_H_

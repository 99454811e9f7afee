// A real temporary directory for the tests of the real OS, removed with
// everything in it when the object goes.
#ifndef VRX_TESTS_SUPPORT_TEMP_DIR_H_
#define VRX_TESTS_SUPPORT_TEMP_DIR_H_

#include <stdlib.h>

#include <string>

#include "platform/platform.h"

namespace testing_support {

class ScopedTempDir {
 public:
  ScopedTempDir() {
    const char* base = getenv("TMPDIR");
    std::string name = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                       "/vrx-test-XXXXXX";
    if (mkdtemp(&name[0]) != nullptr) path_ = name;
  }
  ~ScopedTempDir() {
    if (path_.empty()) return;
    platform::ProcessSpec spec;
    spec.argv = {"rm", "-rf", "--", path_};
    platform::RealEnv()->RunProcess(spec);
  }
  ScopedTempDir(const ScopedTempDir&) = delete;
  ScopedTempDir& operator=(const ScopedTempDir&) = delete;
  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace testing_support

#endif  // VRX_TESTS_SUPPORT_TEMP_DIR_H_

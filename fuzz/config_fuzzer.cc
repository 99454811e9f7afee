// Arbitrary bytes as the settings file: every line is read, split and
// converted without reading past what the file holds.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "driver/config.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::TheWorld();
  std::string path = fuzzing::WriteTempFile("bmcfwu.cfg", data, size);
  // A fresh record each time, so every input starts from the defaults.
  ConfigDestructor();
  ConfigConstructor();
  G_pConfigHandle->ReadConfigFile(path.c_str());
  return 0;
}

// Set-up shared by the fuzz targets: the program's singletons with every
// console stream pointed at /dev/null, and a fake OS whose commands all
// print the bytes of the current input.
#ifndef VRX_FUZZ_FUZZ_SUPPORT_H_
#define VRX_FUZZ_FUZZ_SUPPORT_H_

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "ipmi/kcs_transport.h"
#include "support/fake_env.h"

namespace fuzzing {

// Created once per process; later calls return the same world.
struct World {
  testing_support::FakeEnv env;
  std::string command_output;  // what every command prints
  int command_status = 0;      // its wait status
};
World& TheWorld();

// Routes the KCS channel to entries (the fuzzer's own BMC) and opens it
// once per process; false when that failed.
bool InstallKcsOnce(const RawEntryPoints& entries);

// Consumes bytes from the front of an input.
class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool Empty() const { return pos_ >= size_; }
  uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  // Up to n bytes (fewer at the end of the input).
  std::vector<uint8_t> Bytes(size_t n);
  std::string Rest();

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

// Writes bytes to a private temporary file and returns its path; the file
// is rewritten on every call.
std::string WriteTempFile(const char* tag, const uint8_t* data, size_t size);

}  // namespace fuzzing

#endif  // VRX_FUZZ_FUZZ_SUPPORT_H_

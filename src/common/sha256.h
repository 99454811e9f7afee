// SHA-256 (FIPS 180-4), to name exactly which image a run wrote.
#ifndef VRX_COMMON_SHA256_H_
#define VRX_COMMON_SHA256_H_

#include <stddef.h>
#include <stdint.h>

#include <string>

class Sha256 {
 public:
  Sha256();
  // Adds bytes; may be called any number of times before HexDigest.
  void Update(const void* data, size_t size);
  // The digest as 64 lower-case hexadecimal digits; ends the hashing.
  std::string HexDigest();

 private:
  void Block(const uint8_t* block);

  uint32_t state_[8];
  uint8_t buffer_[64];
  size_t buffered_ = 0;
  uint64_t total_ = 0;
};

#endif  // VRX_COMMON_SHA256_H_

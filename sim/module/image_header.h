// Firmware image header as the simulated BMC sees it: the 512-byte block at
// the start of an image, protected by a reflected CRC-32 over bytes 4..511.
#ifndef VRX_SIM_IMAGE_HEADER_H_
#define VRX_SIM_IMAGE_HEADER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace simbmc {

constexpr size_t kHeaderSize = 512;
constexpr size_t kMaxPartitions = 40;

uint32_t Crc32(const uint8_t* data, size_t length);

struct ImageInfo {
  uint8_t major = 0;
  uint8_t minor = 0;       // BCD, as Get Device ID reports it
  uint16_t revision = 0;
  uint8_t imageType = 0xAE;
  uint8_t bootloaderInfo[4] = {0, 0, 0, 0};
  uint8_t bootloaderVersion[4] = {0, 0, 0, 0};
  bool hasBootloader = false;
  char boardType[5] = "WEVB";
};

// The BMC's verdict on an image, as an update status code (0 when good).
enum ImageVerdict : uint8_t {
  kImageGood = 0x00,
  kImageChecksumError = 0x84,
  kImageIncorrectPlatform = 0x85,
  kImageIncorrectType = 0x89,
};

// Checks a whole image file's bytes and fills *info from its header.
uint8_t CheckImage(const std::vector<uint8_t>& image, ImageInfo* info);

struct ImageRecipe {
  ImageInfo info;
  unsigned partitions = 2;
  std::vector<uint8_t> body;
};

// Builds a valid image: header (sizes, partition table, CRC) plus body.
std::vector<uint8_t> BuildImage(const ImageRecipe& recipe);

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>* out,
                   size_t limit);

}  // namespace simbmc

#endif  // VRX_SIM_IMAGE_HEADER_H_

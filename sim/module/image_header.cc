#include "image_header.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace simbmc {
namespace {

uint32_t ReadLe32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

void WriteLe32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

uint32_t Crc32(const uint8_t* data, size_t length) {
  static uint32_t table[256];
  static bool ready = false;
  if (!ready) {
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
      table[i] = c;
    }
    ready = true;
  }
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < length; ++i)
    crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

uint8_t CheckImage(const std::vector<uint8_t>& image, ImageInfo* info) {
  if (image.size() < kHeaderSize) return kImageChecksumError;
  const uint8_t* h = image.data();
  if (ReadLe32(h) != Crc32(h + 4, kHeaderSize - 4)) return kImageChecksumError;
  if (h[4] != 1 || h[7] != 0 || ReadLe32(h + 28) != 0)
    return kImageChecksumError;
  if (h[5] == 0 || h[5] == 0xAF) return kImageIncorrectType;
  unsigned count = h[6];
  if (count > kMaxPartitions) return kImageChecksumError;
  for (unsigned i = 0; i < count; ++i)
    if (ReadLe32(h + 36 + 12 * i) == 0) return kImageChecksumError;
  // A declared size larger than what arrived means a cut-off transfer.
  uint32_t declared = ReadLe32(h + 12);
  if (declared != 0 && declared > image.size()) return kImageChecksumError;
  if (std::memcmp(h + 24, "WEVB", 4) != 0 && std::memcmp(h + 24, "AEVB", 4) != 0)
    return kImageIncorrectPlatform;
  ImageInfo out;
  out.major = h[8];
  out.minor = h[9];
  out.revision = static_cast<uint16_t>(h[10] | (h[11] << 8));
  out.imageType = h[5];
  std::memcpy(out.bootloaderInfo, h + 16, 4);
  std::memcpy(out.bootloaderVersion, h + 20, 4);
  std::memcpy(out.boardType, h + 24, 4);
  out.boardType[4] = '\0';
  bool anyBoot = false;
  for (int i = 0; i < 8; ++i) anyBoot = anyBoot || h[16 + i] != 0;
  out.hasBootloader = count > 2 && anyBoot;
  *info = out;
  return kImageGood;
}

std::vector<uint8_t> BuildImage(const ImageRecipe& recipe) {
  unsigned count = recipe.partitions > kMaxPartitions
                       ? static_cast<unsigned>(kMaxPartitions)
                       : recipe.partitions;
  // Sized once: the header, then the body copied in place.
  std::vector<uint8_t> image(kHeaderSize + recipe.body.size(), 0);
  std::copy(recipe.body.begin(), recipe.body.end(), image.begin() + kHeaderSize);
  uint8_t* h = image.data();
  h[4] = 1;
  h[5] = recipe.info.imageType;
  h[6] = static_cast<uint8_t>(count);
  h[8] = recipe.info.major;
  h[9] = recipe.info.minor;
  h[10] = static_cast<uint8_t>(recipe.info.revision & 0xFF);
  h[11] = static_cast<uint8_t>(recipe.info.revision >> 8);
  WriteLe32(h + 12, static_cast<uint32_t>(image.size()));
  std::memcpy(h + 16, recipe.info.bootloaderInfo, 4);
  std::memcpy(h + 20, recipe.info.bootloaderVersion, 4);
  std::memcpy(h + 24, recipe.info.boardType, 4);
  uint32_t offset = static_cast<uint32_t>(kHeaderSize);
  uint32_t bodySize = static_cast<uint32_t>(recipe.body.size());
  for (unsigned i = 0; i < count; ++i) {
    uint32_t size = bodySize / count;
    if (i + 1 == count) size = bodySize - size * (count - 1);
    if (size == 0) size = 1;  // a zero size marks a broken table
    uint8_t* entry = h + 32 + 12 * i;
    WriteLe32(entry, offset);
    WriteLe32(entry + 4, size);
    offset += size;
  }
  WriteLe32(h, Crc32(h + 4, kHeaderSize - 4));
  return image;
}

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>* out,
                   size_t limit) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  out->clear();
  uint8_t buffer[65536];
  bool ok = true;
  for (;;) {
    size_t n = std::fread(buffer, 1, sizeof(buffer), f);
    if (n == 0) break;
    if (out->size() + n > limit) {
      ok = false;
      break;
    }
    out->insert(out->end(), buffer, buffer + n);
  }
  if (std::ferror(f)) ok = false;
  std::fclose(f);
  return ok;
}

}  // namespace simbmc

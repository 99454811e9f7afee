// vrx-mkimage: writes a firmware image with a valid 512-byte header for the
// simulated BMC and the end-to-end tests.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "image_header.h"

namespace {

void Usage() {
  std::fprintf(stderr,
               "usage: vrx-mkimage -o FILE [-v MAJOR.MINOR[.REV]] [-t TYPE] [-b BOARD]\n"
               "                   [-s BODY_BYTES | --body FILE] [-p PARTITIONS]\n"
               "                   [--bootloader INFO,VERSION] [--bad-crc]\n"
               "  MINOR is two decimal digits stored as BCD (1.52 -> 0x52), or 0xNN.\n"
               "  INFO and VERSION are four bytes each, e.g. 1.2.3.0,4.5.6.0\n");
}

bool ParseNumber(const char* text, unsigned long max, unsigned long* out) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  unsigned long v = std::strtoul(text, &end, 0);
  if (*end != '\0' || v > max) return false;
  *out = v;
  return true;
}

bool ParseMinor(const std::string& text, uint8_t* out) {
  unsigned long v = 0;
  if (text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0) {
    if (!ParseNumber(text.c_str(), 255, &v)) return false;
    *out = static_cast<uint8_t>(v);
    return true;
  }
  if (text.empty() || text.size() > 2) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  v = std::strtoul(text.c_str(), nullptr, 10);
  *out = static_cast<uint8_t>(((v / 10) << 4) | (v % 10));
  return true;
}

bool ParseVersion(const std::string& text, simbmc::ImageInfo* info) {
  size_t dot1 = text.find('.');
  if (dot1 == std::string::npos) return false;
  size_t dot2 = text.find('.', dot1 + 1);
  unsigned long major = 0, rev = 0;
  if (!ParseNumber(text.substr(0, dot1).c_str(), 255, &major)) return false;
  std::string minor = text.substr(dot1 + 1, dot2 == std::string::npos
                                                ? std::string::npos
                                                : dot2 - dot1 - 1);
  if (!ParseMinor(minor, &info->minor)) return false;
  if (dot2 != std::string::npos &&
      !ParseNumber(text.substr(dot2 + 1).c_str(), 65535, &rev))
    return false;
  info->major = static_cast<uint8_t>(major);
  info->revision = static_cast<uint16_t>(rev);
  return true;
}

bool ParseFourBytes(const std::string& text, uint8_t out[4]) {
  size_t start = 0;
  for (int i = 0; i < 4; ++i) {
    size_t dot = text.find('.', start);
    if ((dot == std::string::npos) != (i == 3)) return false;
    unsigned long v = 0;
    if (!ParseNumber(text.substr(start, dot - start).c_str(), 255, &v))
      return false;
    out[i] = static_cast<uint8_t>(v);
    start = dot + 1;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  simbmc::ImageRecipe recipe;
  recipe.info.major = 1;
  recipe.info.minor = 0x00;
  std::string output, bodyFile;
  unsigned long bodySize = 4096;
  bool badCrc = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    unsigned long n = 0;
    bool ok = true;
    if (arg == "--bad-crc") {
      badCrc = true;
      continue;
    }
    if (arg == "-h" || arg == "--help") {
      Usage();
      return 0;
    }
    if (value == nullptr) {
      Usage();
      return 2;
    }
    ++i;
    if (arg == "-o") {
      output = value;
    } else if (arg == "-v") {
      ok = ParseVersion(value, &recipe.info);
    } else if (arg == "-t") {
      ok = ParseNumber(value, 255, &n);
      recipe.info.imageType = static_cast<uint8_t>(n);
    } else if (arg == "-b") {
      ok = std::strlen(value) == 4;
      if (ok) std::memcpy(recipe.info.boardType, value, 5);
    } else if (arg == "-s") {
      ok = ParseNumber(value, 64ul << 20, &bodySize);
    } else if (arg == "--body") {
      bodyFile = value;
    } else if (arg == "-p") {
      ok = ParseNumber(value, simbmc::kMaxPartitions, &n);
      recipe.partitions = static_cast<unsigned>(n);
    } else if (arg == "--bootloader") {
      std::string text = value;
      size_t comma = text.find(',');
      ok = comma != std::string::npos &&
           ParseFourBytes(text.substr(0, comma), recipe.info.bootloaderInfo) &&
           ParseFourBytes(text.substr(comma + 1), recipe.info.bootloaderVersion);
    } else {
      ok = false;
    }
    if (!ok) {
      std::fprintf(stderr, "vrx-mkimage: bad argument %s %s\n", arg.c_str(), value);
      Usage();
      return 2;
    }
  }
  if (output.empty()) {
    Usage();
    return 2;
  }
  if (!bodyFile.empty()) {
    if (!simbmc::ReadWholeFile(bodyFile, &recipe.body, 256u << 20)) {
      std::fprintf(stderr, "vrx-mkimage: cannot read %s\n", bodyFile.c_str());
      return 1;
    }
  } else {
    // A deterministic body so that two runs give the same image.
    recipe.body.resize(bodySize);
    uint32_t x = 0x12345678u;
    for (auto& b : recipe.body) {
      x = x * 1103515245u + 12345u;
      b = static_cast<uint8_t>(x >> 16);
    }
  }
  std::vector<uint8_t> image = simbmc::BuildImage(recipe);
  if (badCrc) image[0] ^= 0xFF;
  FILE* f = std::fopen(output.c_str(), "wb");
  if (f == nullptr) {
    std::fprintf(stderr, "vrx-mkimage: cannot create %s\n", output.c_str());
    return 1;
  }
  bool written = std::fwrite(image.data(), 1, image.size(), f) == image.size();
  if (std::fclose(f) != 0 || !written) {
    std::fprintf(stderr, "vrx-mkimage: cannot write %s\n", output.c_str());
    return 1;
  }
  return 0;
}

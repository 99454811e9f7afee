// Copying an image onto the mounted virtual USB device, and emptying that
// device's directory.
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "image/image_file.h"
#include "output/output.h"
#include "platform/platform.h"
#include "platform/signals.h"

namespace {

constexpr size_t kChunkSize = 1024;
constexpr unsigned long long kLargestImage = 0xFFFFFFFFull;

void Debug(const char* text) {
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "%s", text);
}

void ShowPercent(unsigned percent) {
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectProgress2, "\r   Copy file status: %d percent",
      static_cast<int>(percent));
}

// Size of the opened source, 0 when it is empty or cannot be an image.
unsigned long long SourceSize(platform::File* file, const char* src) {
  platform::FileInfo info;
  if (!file->Stat(&info) || info.type != platform::FileType::kRegular) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n       Not a regular file: %s \n", src);
    return 0;
  }
  long long end = file->Size();
  if (end <= 0) return 0;
  return static_cast<unsigned long long>(end);
}

// Opening the source itself for writing would truncate it.
bool SameFile(platform::File* src, const char* dst) {
  platform::FileInfo srcInfo, dstInfo;
  if (!src->Stat(&srcInfo) || !platform::GetEnv()->Stat(dst, &dstInfo))
    return false;
  return platform::SameFile(srcInfo, dstInfo);
}

}  // namespace

int WriteFwImageFile(const char* src, const char* dst) {
  std::unique_ptr<platform::File> in = platform::GetEnv()->OpenFile(src);
  if (!in) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n       Cannot find %s \n", src);
    return 1;
  }
  unsigned long long size = SourceSize(in.get(), src);
  if (size == 0) {
    Debug("\n       Reading file error\n");
    return 1;
  }
  if (size > kLargestImage) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n       File larger than 4 GiB: %s \n", src);
    return 1;
  }
  if (SameFile(in.get(), dst)) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n       Source and destination are one file: %s \n",
        dst);
    return 1;
  }
  std::unique_ptr<platform::File> out = platform::GetEnv()->CreateFile(dst);
  if (!out) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n       Create file error: %s \n", dst);
    return 1;
  }
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[kChunkSize]);
  if (!buffer) {
    Debug("\r   Allocate memory failed");
    return 3;
  }

  G_pOutputMessageHandle->ClearOneLine(eRedirectProgress2);
  ShowPercent(0);
  unsigned long long remaining = size;
  unsigned long long copied = 0;
  unsigned shown = 0;
  while (remaining > 0) {
    // A signal stops the copy after the chunk in flight; the file is closed
    // on the way out, so the device can be released.
    if (platform::PendingSignal() != 0) {
      Debug("\n       Copy interrupted\n");
      return 1;
    }
    size_t chunk = remaining < kChunkSize ? static_cast<size_t>(remaining)
                                          : kChunkSize;
    if (in->Read(buffer.get(), chunk) != chunk) {
      Debug("\n       Reading file error\n");
      return 1;
    }
    if (out->Write(buffer.get(), chunk) != chunk) {
      Debug("\n       Writing file error\n");
      return 1;
    }
    remaining -= chunk;
    copied += chunk;
    // Wide arithmetic keeps the display right for images of any size.
    unsigned percent = static_cast<unsigned>(copied * 100 / size);
    if (percent > shown) {
      shown = percent;
      ShowPercent(shown);
    }
    // The BMC reads the device as soon as the copy is reported done.
    if (!out->Flush()) {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectDebug, "\n       fflush file error at %d percent\n",
          static_cast<int>(shown));
      return 1;
    }
  }
  if (!out->Close()) {
    Debug("\n       Writing file error\n");
    return 1;
  }
  return 0;
}

int ClearDisk(const char* path) {
  std::vector<std::string> names;
  if (!platform::GetEnv()->ListDirectory(path, &names)) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n       Open directory error: %s", path);
    return 0;
  }
  for (const std::string& name : names) {
    std::string full = std::string(path) + "/" + name;
    if (platform::GetEnv()->RemoveFile(full)) {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectDebug, "\n       Delete file OK: %s", full.c_str());
    } else {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectDebug, "\n       Delete file error: %s", full.c_str());
    }
  }
  return 0;
}

// Copying an image onto the mounted virtual USB device, and emptying that
// device's directory.
#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>
#include <new>
#include <string>

#include "image/image_file.h"
#include "output/output.h"
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

struct FileCloser {
  void operator()(FILE* file) const {
    if (file != nullptr) fclose(file);
  }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Size of the opened source, 0 when it is empty or cannot be an image.
unsigned long long SourceSize(FILE* file, const char* src) {
  struct stat info;
  if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n       Not a regular file: %s \n", src);
    return 0;
  }
  if (fseeko(file, 0, SEEK_END) != 0) return 0;
  off_t end = ftello(file);
  if (end <= 0 || fseeko(file, 0, SEEK_SET) != 0) return 0;
  return static_cast<unsigned long long>(end);
}

// Opening the source itself for writing would truncate it.
bool SameFile(FILE* src, const char* dst) {
  struct stat srcInfo, dstInfo;
  if (fstat(fileno(src), &srcInfo) != 0 || stat(dst, &dstInfo) != 0)
    return false;
  return srcInfo.st_dev == dstInfo.st_dev && srcInfo.st_ino == dstInfo.st_ino;
}

}  // namespace

int WriteFwImageFile(const char* src, const char* dst) {
  FilePtr in(fopen(src, "rb"));
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
  FilePtr out(fopen(dst, "wb"));
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
    if (fread(buffer.get(), 1, chunk, in.get()) != chunk) {
      Debug("\n       Reading file error\n");
      return 1;
    }
    if (fwrite(buffer.get(), 1, chunk, out.get()) != chunk) {
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
    if (fflush(out.get()) != 0) {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectDebug, "\n       fflush file error at %d percent\n",
          static_cast<int>(shown));
      return 1;
    }
  }
  FILE* raw = out.release();
  if (fclose(raw) != 0) {
    Debug("\n       Writing file error\n");
    return 1;
  }
  return 0;
}

int ClearDisk(const char* path) {
  DIR* dir = opendir(path);
  if (dir == nullptr) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n       Open directory error: %s", path);
    return 0;
  }
  while (struct dirent* entry = readdir(dir)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0)
      continue;
    std::string full = std::string(path) + "/" + entry->d_name;
    if (remove(full.c_str()) == 0) {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectDebug, "\n       Delete file OK: %s", full.c_str());
    } else {
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectDebug, "\n       Delete file error: %s", full.c_str());
    }
  }
  closedir(dir);
  return 0;
}

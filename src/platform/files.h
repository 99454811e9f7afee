// Files as the product sees them through the platform seam: an open file
// handle and what stat() tells about a path. platform::Env hands them out,
// so tests can put an in-memory file system in place of the real one.
#ifndef VRX_PLATFORM_FILES_H_
#define VRX_PLATFORM_FILES_H_

#include <stddef.h>

#include <memory>
#include <string>

namespace platform {

enum class FileType {
  kRegular,
  kDirectory,
  kSymlink,  // only ever reported by LinkStat
  kFifo,
  kCharDevice,
  kBlockDevice,
  kSocket,
  kOther,
};

// The part of struct stat the product looks at.
struct FileInfo {
  FileType type = FileType::kOther;
  unsigned long long size = 0;  // st_size
  // Together they name one file, whatever path leads to it.
  unsigned long long device = 0;
  unsigned long long inode = 0;
};

inline bool SameFile(const FileInfo& a, const FileInfo& b) {
  return a.device == b.device && a.inode == b.inode;
}

// One open file, closed by the destructor if Close() was not called.
class File {
 public:
  virtual ~File() = default;
  // fstat() of the open file: false when it fails.
  virtual bool Stat(FileInfo* info) = 0;
  // Length found by seeking to the end, then back to the start; -1 when a
  // seek fails.
  virtual long long Size() = 0;
  // fread() semantics: the count of bytes read, short at the end or on an
  // error.
  virtual size_t Read(char* buf, size_t size) = 0;
  // fgets() semantics: at most size-1 bytes, up to and with a line feed,
  // always terminated; false at the end of the file or on an error.
  virtual bool ReadLine(char* buf, int size) = 0;
  // fwrite() semantics: the count of bytes taken, short on an error.
  virtual size_t Write(const char* data, size_t size) = 0;
  // Hands buffered bytes to the file: false when that fails.
  virtual bool Flush() = 0;
  // Flushes and closes: false when either fails. Nothing works afterwards.
  virtual bool Close() = 0;
};

}  // namespace platform

#endif  // VRX_PLATFORM_FILES_H_

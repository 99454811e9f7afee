#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <errno.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include "platform/posix_files.h"

namespace platform {
namespace posix {
namespace {

FileInfo InfoOf(const struct stat& st) {
  FileInfo info;
  if (S_ISREG(st.st_mode))
    info.type = FileType::kRegular;
  else if (S_ISDIR(st.st_mode))
    info.type = FileType::kDirectory;
  else if (S_ISLNK(st.st_mode))
    info.type = FileType::kSymlink;
  else if (S_ISFIFO(st.st_mode))
    info.type = FileType::kFifo;
  else if (S_ISCHR(st.st_mode))
    info.type = FileType::kCharDevice;
  else if (S_ISBLK(st.st_mode))
    info.type = FileType::kBlockDevice;
  else if (S_ISSOCK(st.st_mode))
    info.type = FileType::kSocket;
  info.size = st.st_size > 0 ? static_cast<unsigned long long>(st.st_size) : 0;
  info.device = static_cast<unsigned long long>(st.st_dev);
  info.inode = static_cast<unsigned long long>(st.st_ino);
  return info;
}

// A stdio stream: the product reads and writes files through stdio.
class PosixFile : public File {
 public:
  explicit PosixFile(FILE* file) : file_(file) {}
  ~PosixFile() override {
    if (file_ != nullptr) fclose(file_);
  }
  PosixFile(const PosixFile&) = delete;
  PosixFile& operator=(const PosixFile&) = delete;

  bool Stat(FileInfo* info) override {
    struct stat st;
    if (file_ == nullptr || fstat(fileno(file_), &st) != 0) return false;
    *info = InfoOf(st);
    return true;
  }
  long long Size() override {
    if (file_ == nullptr || fseeko(file_, 0, SEEK_END) != 0) return -1;
    off_t end = ftello(file_);
    if (end < 0 || fseeko(file_, 0, SEEK_SET) != 0) return -1;
    return static_cast<long long>(end);
  }
  size_t Read(char* buf, size_t size) override {
    return file_ != nullptr ? fread(buf, 1, size, file_) : 0;
  }
  bool ReadLine(char* buf, int size) override {
    return file_ != nullptr && fgets(buf, size, file_) != nullptr;
  }
  size_t Write(const char* data, size_t size) override {
    return file_ != nullptr ? fwrite(data, 1, size, file_) : 0;
  }
  bool Flush() override { return file_ != nullptr && fflush(file_) == 0; }
  bool Close() override {
    if (file_ == nullptr) return false;
    FILE* file = file_;
    file_ = nullptr;
    return fclose(file) == 0;
  }

 private:
  FILE* file_;
};

std::unique_ptr<File> Wrap(FILE* file) {
  if (file == nullptr) return nullptr;
  return std::unique_ptr<File>(new PosixFile(file));
}

std::unique_ptr<File> FromDescriptor(int fd, const char* mode) {
  if (fd < 0) return nullptr;
  FILE* file = fdopen(fd, mode);
  if (file == nullptr) close(fd);
  return Wrap(file);
}

}  // namespace

std::unique_ptr<File> OpenForRead(const std::string& path) {
  return FromDescriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), "rb");
}

std::unique_ptr<File> OpenFile(const std::string& path) {
  return Wrap(fopen(path.c_str(), "rb"));
}

std::unique_ptr<File> CreateFile(const std::string& path) {
  return Wrap(fopen(path.c_str(), "wb"));
}

std::unique_ptr<File> CreateForWrite(const std::string& path) {
  int fd = open(path.c_str(),
                O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
                0600);
  struct stat st;
  if (fd >= 0 && (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
    close(fd);
    fd = -1;
  }
  return FromDescriptor(fd, "w");
}

bool ListDirectory(const std::string& path, std::vector<std::string>* names) {
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) return false;
  while (struct dirent* entry = readdir(dir)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0)
      continue;
    names->push_back(entry->d_name);
  }
  closedir(dir);
  return true;
}

bool RemoveFile(const std::string& path) { return remove(path.c_str()) == 0; }

bool Stat(const std::string& path, FileInfo* info) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return false;
  *info = InfoOf(st);
  return true;
}

bool LinkStat(const std::string& path, FileInfo* info) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return false;
  *info = InfoOf(st);
  return true;
}

}  // namespace posix
}  // namespace platform

namespace platform {
namespace posix {

int AppendRecord(const std::string& path, const std::string& line,
                 std::string* why) {
  // Missing directories on the way are made private (mkdir -p, 0700).
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string directory = path.substr(0, slash);
    struct stat st;
    if (lstat(directory.c_str(), &st) != 0 && mkdir(directory.c_str(), 0700) != 0 &&
        errno != EEXIST) {
      *why = directory + ": " + strerror(errno);
      return -1;
    }
  }
  const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW |
                                        O_NONBLOCK | O_CLOEXEC, 0600);
  if (fd < 0) {
    // A directory, or a FIFO nobody reads, cannot even be opened for this.
    *why = errno == ELOOP                      ? "is a symbolic link"
           : errno == EISDIR || errno == ENXIO ? "is not a regular file"
                                               : strerror(errno);
    return -1;
  }
  struct stat st;
  const char* refusal = nullptr;
  if (fstat(fd, &st) != 0)
    refusal = "cannot be examined";
  else if (!S_ISREG(st.st_mode))
    refusal = "is not a regular file";
  else if (st.st_uid != geteuid())
    refusal = "belongs to another user";
  else if ((st.st_mode & 022) != 0)
    refusal = "may be written by others";
  if (refusal != nullptr) {
    close(fd);
    *why = refusal;
    return -1;
  }
  // Another run may be appending: wait for it, but not for ever.
  bool locked = false;
  for (int attempt = 0; attempt < 50 && !locked; ++attempt) {
    locked = flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (!locked) {
      struct timespec pause = {0, 20 * 1000 * 1000};
      nanosleep(&pause, nullptr);
    }
  }
  if (!locked) {
    close(fd);
    *why = "is locked by another process";
    return -1;
  }
  ssize_t written;
  do {
    written = write(fd, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  const int writeErrno = errno;
  close(fd);
  if (written != static_cast<ssize_t>(line.size())) {
    *why = written < 0 ? strerror(writeErrno) : "was written only in part";
    return -1;
  }
  return 0;
}

}  // namespace posix
}  // namespace platform

// The real file operations behind platform::Env, for the real OS only.
#ifndef VRX_PLATFORM_POSIX_FILES_H_
#define VRX_PLATFORM_POSIX_FILES_H_

#include <memory>
#include <string>
#include <vector>

#include "platform/files.h"

namespace platform {
namespace posix {

std::unique_ptr<File> OpenForRead(const std::string& path);
std::unique_ptr<File> OpenFile(const std::string& path);
std::unique_ptr<File> CreateFile(const std::string& path);
std::unique_ptr<File> CreateForWrite(const std::string& path);
bool ListDirectory(const std::string& path, std::vector<std::string>* names);
bool RemoveFile(const std::string& path);
bool Stat(const std::string& path, FileInfo* info);
bool LinkStat(const std::string& path, FileInfo* info);

}  // namespace posix
}  // namespace platform

#endif  // VRX_PLATFORM_POSIX_FILES_H_

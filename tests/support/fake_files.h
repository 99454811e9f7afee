// An in-memory file system behind platform::Env's file operations:
// regular files, directories, FIFOs, symbolic links and devices, mount
// points, and files that cannot be read, written or removed, so that every
// refusal of the product can be tested without real special files.
#ifndef VRX_TESTS_SUPPORT_FAKE_FILES_H_
#define VRX_TESTS_SUPPORT_FAKE_FILES_H_

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/files.h"

namespace testing_support {

class FakeFiles {
 public:
  struct Node {
    platform::FileType type = platform::FileType::kRegular;
    std::string data;      // content of a regular file
    std::string target;    // where a symbolic link points
    long long apparent_size = -1;  // >= 0: the size stat reports (sparse)
    unsigned mode = 0644;
    unsigned long long device = 1;
    unsigned long long inode = 0;
    bool unreadable = false;     // opening it for reading is refused
    bool unwritable = false;     // opening it for writing, or creating in it, is refused
    bool full = false;           // writes are taken, flushing them fails
    bool undeletable = false;    // remove() fails
  };

  FakeFiles();

  // Relative paths start here.
  std::string cwd = "/";
  // RLIMIT_FSIZE: >= 0, flushing a file past this many bytes fails.
  long long file_size_limit = -1;

  // Each creates the missing directories above path; the node is returned
  // for further changes.
  Node* AddDirectory(const std::string& path);
  Node* AddFile(const std::string& path, const std::string& data);
  Node* AddFifo(const std::string& path);
  Node* AddSymlink(const std::string& path, const std::string& target);
  Node* AddNode(const std::string& path, platform::FileType type);
  // Makes path a directory with a file system of its own mounted on it.
  Node* Mount(const std::string& path);

  // The node at path (symbolic links followed), or null.
  Node* Find(const std::string& path);
  bool Exists(const std::string& path) { return Find(path) != nullptr; }
  // Content of the regular file at path, "" when there is none.
  std::string Content(const std::string& path);
  // Names in directory path, sorted.
  std::vector<std::string> List(const std::string& path);
  bool IsMountPoint(const std::string& path);

  // platform::Env's file operations, with the semantics given there.
  std::unique_ptr<platform::File> OpenForRead(const std::string& path);
  std::unique_ptr<platform::File> OpenFile(const std::string& path);
  std::unique_ptr<platform::File> CreateFile(const std::string& path);
  std::unique_ptr<platform::File> CreateForWrite(const std::string& path);
  bool ListDirectory(const std::string& path, std::vector<std::string>* names);
  bool RemoveFile(const std::string& path);
  bool Stat(const std::string& path, platform::FileInfo* info);
  bool LinkStat(const std::string& path, platform::FileInfo* info);

 private:
  // The absolute path with "." and ".." and doubled slashes resolved, and
  // symbolic links followed (the last one only when follow_last). "" when
  // a link loops.
  std::string Resolve(const std::string& path, bool follow_last);
  std::shared_ptr<Node> Get(const std::string& resolved);
  std::shared_ptr<Node> Make(const std::string& path, platform::FileType type);
  std::unique_ptr<platform::File> Open(const std::string& path, bool nonblocking);
  std::unique_ptr<platform::File> Create(const std::string& path, unsigned mode,
                                         bool nofollow, bool regular_only);
  std::map<std::string, std::shared_ptr<Node>> nodes_;
  unsigned long long next_inode_ = 2;
  unsigned long long next_device_ = 2;
};

platform::FileInfo InfoOf(const FakeFiles::Node& node);

}  // namespace testing_support

#endif  // VRX_TESTS_SUPPORT_FAKE_FILES_H_

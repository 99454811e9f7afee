#include "support/fake_files.h"

#include <string.h>

namespace testing_support {
namespace {

using platform::FileType;

std::vector<std::string> Split(const std::string& path) {
  std::vector<std::string> parts;
  size_t i = 0;
  while (i < path.size()) {
    size_t j = path.find('/', i);
    if (j == std::string::npos) j = path.size();
    if (j > i) parts.push_back(path.substr(i, j - i));
    i = j + 1;
  }
  return parts;
}

std::string Join(const std::vector<std::string>& parts, size_t count) {
  std::string path;
  for (size_t i = 0; i < count; ++i) path += "/" + parts[i];
  return path.empty() ? "/" : path;
}

std::string Parent(const std::string& resolved) {
  size_t slash = resolved.rfind('/');
  return slash == 0 ? "/" : resolved.substr(0, slash);
}

// A handle on one node: reads from its content, writes through a buffer
// that reaches the node when flushed, as stdio does.
class FakeFile : public platform::File {
 public:
  FakeFile(std::shared_ptr<FakeFiles::Node> node, bool writing,
           const long long* limit)
      : node_(std::move(node)), writing_(writing), limit_(limit) {}
  ~FakeFile() override { Flush(); }

  bool Stat(platform::FileInfo* info) override {
    if (closed_) return false;
    *info = InfoOf(*node_);
    return true;
  }
  long long Size() override {
    if (closed_ || node_->type == FileType::kFifo) return -1;
    pos_ = 0;
    return InfoOf(*node_).size;
  }
  size_t Read(char* buf, size_t size) override {
    if (closed_ || writing_ || node_->type != FileType::kRegular) return 0;
    size_t left = node_->data.size() > pos_ ? node_->data.size() - pos_ : 0;
    size_t n = size < left ? size : left;
    memcpy(buf, node_->data.data() + pos_, n);
    pos_ += n;
    return n;
  }
  bool ReadLine(char* buf, int size) override {
    if (closed_ || writing_ || size <= 0 || pos_ >= node_->data.size()) return false;
    int n = 0;
    while (n < size - 1 && pos_ < node_->data.size()) {
      char c = node_->data[pos_++];
      buf[n++] = c;
      if (c == '\n') break;
    }
    buf[n] = '\0';
    return true;
  }
  size_t Write(const char* data, size_t size) override {
    if (closed_ || !writing_) return 0;
    pending_.append(data, size);
    return size;
  }
  bool Flush() override {
    if (closed_ || !writing_) return !closed_;
    if (pending_.empty()) return true;
    if (node_->full) return false;
    if (*limit_ >= 0 && node_->data.size() + pending_.size() >
                            static_cast<unsigned long long>(*limit_))
      return false;
    if (node_->type == FileType::kRegular) node_->data += pending_;
    pending_.clear();
    return true;
  }
  bool Close() override {
    if (closed_) return false;
    bool ok = Flush();
    closed_ = true;
    return ok;
  }

 private:
  std::shared_ptr<FakeFiles::Node> node_;
  bool writing_;
  const long long* limit_;
  bool closed_ = false;
  size_t pos_ = 0;
  std::string pending_;
};

}  // namespace

platform::FileInfo InfoOf(const FakeFiles::Node& node) {
  platform::FileInfo info;
  info.type = node.type;
  info.size = node.apparent_size >= 0
                  ? static_cast<unsigned long long>(node.apparent_size)
                  : node.type == FileType::kSymlink ? node.target.size()
                                                    : node.data.size();
  info.device = node.device;
  info.inode = node.inode;
  return info;
}

FakeFiles::FakeFiles() {
  auto root = std::make_shared<Node>();
  root->type = FileType::kDirectory;
  root->mode = 0755;
  root->inode = 1;
  nodes_["/"] = root;
}

std::string FakeFiles::Resolve(const std::string& path, bool follow_last) {
  std::string full = !path.empty() && path[0] == '/' ? path : cwd + "/" + path;
  for (int links = 0; links < 40; ++links) {
    std::vector<std::string> parts;
    bool restarted = false;
    std::vector<std::string> input = Split(full);
    for (size_t i = 0; i < input.size(); ++i) {
      const std::string& part = input[i];
      if (part == ".") continue;
      if (part == "..") {
        if (!parts.empty()) parts.pop_back();
        continue;
      }
      parts.push_back(part);
      const bool last = i + 1 == input.size();
      auto it = nodes_.find(Join(parts, parts.size()));
      if (it == nodes_.end() || it->second->type != FileType::kSymlink) continue;
      if (last && !follow_last) continue;
      // Put the link's target in place of the link and start again.
      const std::string& target = it->second->target;
      std::string rest;
      for (size_t k = i + 1; k < input.size(); ++k) rest += "/" + input[k];
      full = (!target.empty() && target[0] == '/'
                  ? target
                  : Join(parts, parts.size() - 1) + "/" + target) +
             rest;
      restarted = true;
      break;
    }
    if (!restarted) return Join(parts, parts.size());
  }
  return "";
}

std::shared_ptr<FakeFiles::Node> FakeFiles::Get(const std::string& resolved) {
  auto it = nodes_.find(resolved);
  return it == nodes_.end() ? nullptr : it->second;
}

std::shared_ptr<FakeFiles::Node> FakeFiles::Make(const std::string& path,
                                                 FileType type) {
  std::string resolved = Resolve(path, false);
  std::vector<std::string> parts = Split(resolved);
  unsigned long long device = 1;
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    std::string dir = Join(parts, i + 1);
    auto node = Get(dir);
    if (!node) {
      node = std::make_shared<Node>();
      node->type = FileType::kDirectory;
      node->mode = 0755;
      node->device = device;
      node->inode = next_inode_++;
      nodes_[dir] = node;
    }
    device = node->device;
  }
  auto node = std::make_shared<Node>();
  node->type = type;
  node->mode = type == FileType::kDirectory ? 0755 : 0644;
  node->device = device;
  node->inode = next_inode_++;
  nodes_[resolved] = node;
  return node;
}

FakeFiles::Node* FakeFiles::AddDirectory(const std::string& path) {
  Node* existing = Find(path);
  if (existing != nullptr && existing->type == FileType::kDirectory) return existing;
  return Make(path, FileType::kDirectory).get();
}

FakeFiles::Node* FakeFiles::AddFile(const std::string& path, const std::string& data) {
  Node* node = Make(path, FileType::kRegular).get();
  node->data = data;
  return node;
}

FakeFiles::Node* FakeFiles::AddFifo(const std::string& path) {
  return Make(path, FileType::kFifo).get();
}

FakeFiles::Node* FakeFiles::AddSymlink(const std::string& path, const std::string& target) {
  Node* node = Make(path, FileType::kSymlink).get();
  node->target = target;
  node->mode = 0777;
  return node;
}

FakeFiles::Node* FakeFiles::AddNode(const std::string& path, FileType type) {
  return Make(path, type).get();
}

FakeFiles::Node* FakeFiles::Mount(const std::string& path) {
  Node* node = AddDirectory(path);
  node->device = next_device_++;
  return node;
}

FakeFiles::Node* FakeFiles::Find(const std::string& path) {
  std::string resolved = Resolve(path, true);
  return resolved.empty() ? nullptr : Get(resolved).get();
}

std::string FakeFiles::Content(const std::string& path) {
  Node* node = Find(path);
  return node != nullptr && node->type == FileType::kRegular ? node->data : "";
}

std::vector<std::string> FakeFiles::List(const std::string& path) {
  std::vector<std::string> names;
  ListDirectory(path, &names);
  return names;
}

bool FakeFiles::IsMountPoint(const std::string& path) {
  std::string resolved = Resolve(path, true);
  auto node = resolved.empty() ? nullptr : Get(resolved);
  if (!node || node->type != FileType::kDirectory) return false;
  if (resolved == "/") return true;
  auto parent = Get(Parent(resolved));
  return parent && parent->device != node->device;
}

std::unique_ptr<platform::File> FakeFiles::Open(const std::string& path,
                                                bool nonblocking) {
  (void)nonblocking;  // a FIFO here has a writer that never writes
  std::string resolved = Resolve(path, true);
  auto node = resolved.empty() ? nullptr : Get(resolved);
  if (!node || node->unreadable) return nullptr;
  return std::unique_ptr<platform::File>(new FakeFile(node, false, &file_size_limit));
}

std::unique_ptr<platform::File> FakeFiles::OpenForRead(const std::string& path) {
  return Open(path, true);
}

std::unique_ptr<platform::File> FakeFiles::OpenFile(const std::string& path) {
  return Open(path, false);
}

std::unique_ptr<platform::File> FakeFiles::Create(const std::string& path,
                                                  unsigned mode, bool nofollow,
                                                  bool regular_only) {
  std::string resolved = Resolve(path, !nofollow);
  if (resolved.empty()) return nullptr;
  auto node = Get(resolved);
  if (node) {
    // O_NOFOLLOW refuses a link; a directory is never opened for writing;
    // a FIFO without a reader refuses a non-blocking open.
    if (node->type == FileType::kSymlink || node->type == FileType::kDirectory ||
        node->unwritable)
      return nullptr;
    if (regular_only && node->type != FileType::kRegular) return nullptr;
    if (node->type == FileType::kRegular) {
      node->data.clear();
      node->apparent_size = -1;
    }
    return std::unique_ptr<platform::File>(new FakeFile(node, true, &file_size_limit));
  }
  auto parent = Get(Parent(resolved));
  if (!parent || parent->type != FileType::kDirectory || parent->unwritable)
    return nullptr;
  node = std::make_shared<Node>();
  node->mode = mode;
  node->device = parent->device;
  node->inode = next_inode_++;
  nodes_[resolved] = node;
  return std::unique_ptr<platform::File>(new FakeFile(node, true, &file_size_limit));
}

std::unique_ptr<platform::File> FakeFiles::CreateFile(const std::string& path) {
  return Create(path, 0644, false, false);
}

std::unique_ptr<platform::File> FakeFiles::CreateForWrite(const std::string& path) {
  return Create(path, 0600, true, true);
}

bool FakeFiles::ListDirectory(const std::string& path,
                              std::vector<std::string>* names) {
  std::string resolved = Resolve(path, true);
  auto node = resolved.empty() ? nullptr : Get(resolved);
  if (!node || node->type != FileType::kDirectory || node->unreadable) return false;
  const std::string prefix = resolved == "/" ? "/" : resolved + "/";
  for (auto it = nodes_.lower_bound(prefix);
       it != nodes_.end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
    if (it->first.find('/', prefix.size()) == std::string::npos)
      names->push_back(it->first.substr(prefix.size()));
  }
  return true;
}

bool FakeFiles::RemoveFile(const std::string& path) {
  std::string resolved = Resolve(path, false);
  auto node = resolved.empty() || resolved == "/" ? nullptr : Get(resolved);
  if (!node || node->undeletable) return false;
  auto parent = Get(Parent(resolved));
  if (parent && parent->unwritable) return false;
  if (node->type == FileType::kDirectory) {
    std::vector<std::string> children;
    ListDirectory(resolved, &children);
    if (!children.empty()) return false;
  }
  nodes_.erase(resolved);
  return true;
}

bool FakeFiles::Stat(const std::string& path, platform::FileInfo* info) {
  std::string resolved = Resolve(path, true);
  auto node = resolved.empty() ? nullptr : Get(resolved);
  if (!node) return false;
  *info = InfoOf(*node);
  return true;
}

bool FakeFiles::LinkStat(const std::string& path, platform::FileInfo* info) {
  std::string resolved = Resolve(path, false);
  auto node = resolved.empty() ? nullptr : Get(resolved);
  if (!node) return false;
  *info = InfoOf(*node);
  return true;
}

int FakeFiles::AppendRecord(const std::string& path, const std::string& line,
                            std::string* why) {
  const std::string resolved = Resolve(path, false);
  if (resolved.empty()) {
    *why = "No such file or directory";
    return -1;
  }
  // Missing directories on the way are made private, as the real one does.
  std::vector<std::string> missing;
  for (std::string d = Parent(resolved); !d.empty() && d != "/" && !Get(d); d = Parent(d))
    missing.push_back(d);
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) AddDirectory(*it)->mode = 0700;
  auto node = Get(resolved);
  if (!node) {
    auto parent = Get(Parent(resolved));
    if (parent->type != FileType::kDirectory || parent->unwritable) {
      *why = "Permission denied";
      return -1;
    }
    node = std::make_shared<Node>();
    node->mode = 0600;
    node->device = parent->device;
    node->inode = next_inode_++;
    nodes_[resolved] = node;
  }
  if (node->type == FileType::kSymlink) {
    *why = "is a symbolic link";
    return -1;
  }
  if (node->type != FileType::kRegular) {
    *why = "is not a regular file";
    return -1;
  }
  if (node->foreign) {
    *why = "belongs to another user";
    return -1;
  }
  if ((node->mode & 022) != 0) {
    *why = "may be written by others";
    return -1;
  }
  if (node->unwritable || node->full) {
    *why = node->full ? "No space left on device" : "Permission denied";
    return -1;
  }
  node->data += line;
  return 0;
}

}  // namespace testing_support

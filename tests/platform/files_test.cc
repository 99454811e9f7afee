// The file operations of platform::Env, each case run twice: on the real OS
// in a temporary directory, and on the in-memory file system of the tests,
// so that the fake keeps behaving like the real thing.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/fake_env.h"
#include "support/temp_dir.h"

namespace {

using platform::FileInfo;
using platform::FileType;
using testing_support::FakeEnv;
using testing_support::FakeFiles;
using testing_support::ScopedTempDir;

// Makes the things the cases need, in one of the two file systems.
class Files {
 public:
  virtual ~Files() = default;
  virtual platform::Env* env() = 0;
  virtual std::string Path(const std::string& name) = 0;
  virtual void File(const std::string& name, const std::string& data) = 0;
  virtual void Directory(const std::string& name) = 0;
  virtual void Fifo(const std::string& name) = 0;
  virtual void Symlink(const std::string& name, const std::string& target) = 0;
  virtual std::string Content(const std::string& name) = 0;
  virtual unsigned Mode(const std::string& name) = 0;
};

class RealFiles : public Files {
 public:
  platform::Env* env() override { return platform::RealEnv(); }
  std::string Path(const std::string& name) override { return dir_ / name; }
  void File(const std::string& name, const std::string& data) override {
    std::ofstream(Path(name), std::ios::binary) << data;
  }
  void Directory(const std::string& name) override { mkdir(Path(name).c_str(), 0755); }
  void Fifo(const std::string& name) override { mkfifo(Path(name).c_str(), 0600); }
  void Symlink(const std::string& name, const std::string& target) override {
    EXPECT_EQ(0, symlink(target.c_str(), Path(name).c_str()));
  }
  std::string Content(const std::string& name) override {
    std::ifstream in(Path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  unsigned Mode(const std::string& name) override {
    struct stat st;
    return stat(Path(name).c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
  }

 private:
  ScopedTempDir dir_;
};

class InMemoryFiles : public Files {
 public:
  InMemoryFiles() {
    env_.fs = &fs_;
    fs_.AddDirectory("/scratch");
  }
  platform::Env* env() override { return &env_; }
  std::string Path(const std::string& name) override { return "/scratch/" + name; }
  void File(const std::string& name, const std::string& data) override {
    fs_.AddFile(Path(name), data);
  }
  void Directory(const std::string& name) override { fs_.AddDirectory(Path(name)); }
  void Fifo(const std::string& name) override { fs_.AddFifo(Path(name)); }
  void Symlink(const std::string& name, const std::string& target) override {
    fs_.AddSymlink(Path(name), target);
  }
  std::string Content(const std::string& name) override { return fs_.Content(Path(name)); }
  unsigned Mode(const std::string& name) override {
    FakeFiles::Node* node = fs_.Find(Path(name));
    return node != nullptr ? node->mode : 0;
  }

 private:
  FakeEnv env_;
  FakeFiles fs_;
};

class FileOps : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam())
      files_.reset(new RealFiles);
    else
      files_.reset(new InMemoryFiles);
  }
  platform::Env* env() { return files_->env(); }
  std::string P(const std::string& name) { return files_->Path(name); }
  std::unique_ptr<Files> files_;
};

INSTANTIATE_TEST_SUITE_P(RealAndFake, FileOps, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return std::string(info.param ? "Real" : "Fake");
                         });

TEST_P(FileOps, OpenForReadReadsAndReportsTheType) {
  files_->File("a.bin", "hello\nworld\n");
  std::unique_ptr<platform::File> f = env()->OpenForRead(P("a.bin"));
  ASSERT_TRUE(f);
  FileInfo info;
  ASSERT_TRUE(f->Stat(&info));
  EXPECT_EQ(FileType::kRegular, info.type);
  EXPECT_EQ(12u, info.size);
  EXPECT_EQ(12, f->Size());
  char buf[64];
  ASSERT_TRUE(f->ReadLine(buf, sizeof buf));
  EXPECT_STREQ("hello\n", buf);
  EXPECT_EQ(6u, f->Read(buf, sizeof buf));
  EXPECT_EQ("world\n", std::string(buf, 6));
  EXPECT_EQ(0u, f->Read(buf, sizeof buf));
  EXPECT_FALSE(f->ReadLine(buf, sizeof buf));
  EXPECT_TRUE(f->Close());
  EXPECT_FALSE(env()->OpenForRead(P("missing")));
}

TEST_P(FileOps, OpenForReadOpensAFifoWithoutBlockingAndADirectory) {
  files_->Fifo("pipe");
  files_->Directory("dir");
  std::unique_ptr<platform::File> f = env()->OpenForRead(P("pipe"));
  ASSERT_TRUE(f);
  FileInfo info;
  ASSERT_TRUE(f->Stat(&info));
  EXPECT_EQ(FileType::kFifo, info.type);
  f = env()->OpenForRead(P("dir"));
  ASSERT_TRUE(f);
  ASSERT_TRUE(f->Stat(&info));
  EXPECT_EQ(FileType::kDirectory, info.type);
}

TEST_P(FileOps, CreateFileTruncatesAndWritesWhenFlushed) {
  files_->File("out.bin", std::string(5000, 'o'));
  std::unique_ptr<platform::File> f = env()->CreateFile(P("out.bin"));
  ASSERT_TRUE(f);
  EXPECT_EQ("", files_->Content("out.bin"));
  EXPECT_EQ(3u, f->Write("abc", 3));
  EXPECT_TRUE(f->Flush());
  EXPECT_EQ("abc", files_->Content("out.bin"));
  EXPECT_EQ(2u, f->Write("de", 2));
  EXPECT_TRUE(f->Close());
  EXPECT_EQ("abcde", files_->Content("out.bin"));
  EXPECT_FALSE(env()->CreateFile(P("no/such/dir/x")));
  EXPECT_FALSE(env()->CreateFile(P("")));  // the directory itself
}

TEST_P(FileOps, OpenFileFollowsLinksAndIdentifiesTheFile) {
  files_->File("img.bin", "1234");
  files_->Symlink("link.bin", P("img.bin"));
  std::unique_ptr<platform::File> f = env()->OpenFile(P("link.bin"));
  ASSERT_TRUE(f);
  FileInfo viaHandle, viaPath, viaDots, link;
  ASSERT_TRUE(f->Stat(&viaHandle));
  ASSERT_TRUE(env()->Stat(P("img.bin"), &viaPath));
  ASSERT_TRUE(env()->Stat(P("./img.bin"), &viaDots));
  EXPECT_TRUE(platform::SameFile(viaHandle, viaPath));
  EXPECT_TRUE(platform::SameFile(viaHandle, viaDots));
  ASSERT_TRUE(env()->LinkStat(P("link.bin"), &link));
  EXPECT_EQ(FileType::kSymlink, link.type);
  EXPECT_FALSE(platform::SameFile(link, viaPath));
  ASSERT_TRUE(env()->Stat(P("link.bin"), &link));
  EXPECT_EQ(FileType::kRegular, link.type);
  EXPECT_FALSE(env()->Stat(P("missing"), &link));
  EXPECT_FALSE(env()->LinkStat(P("missing"), &link));
}

TEST_P(FileOps, CreateForWriteIsPrivateAndRegularOnly) {
  std::unique_ptr<platform::File> f = env()->CreateForWrite(P("run.log"));
  ASSERT_TRUE(f);
  EXPECT_EQ(4u, f->Write("line", 4));
  EXPECT_TRUE(f->Close());
  EXPECT_EQ("line", files_->Content("run.log"));
  EXPECT_EQ(0600u, files_->Mode("run.log"));
  f = env()->CreateForWrite(P("run.log"));
  ASSERT_TRUE(f);
  EXPECT_EQ("", files_->Content("run.log"));  // truncated

  files_->File("target.log", "keep");
  files_->Symlink("link.log", P("target.log"));
  files_->Fifo("pipe.log");
  files_->Directory("dir.log");
  EXPECT_FALSE(env()->CreateForWrite(P("link.log")));
  EXPECT_FALSE(env()->CreateForWrite(P("pipe.log")));
  EXPECT_FALSE(env()->CreateForWrite(P("dir.log")));
  EXPECT_EQ("keep", files_->Content("target.log"));
}

TEST_P(FileOps, ListAndRemove) {
  files_->Directory("disk");
  files_->File("disk/a", "1");
  files_->File("disk/b c", "2");
  files_->Directory("disk/empty");
  files_->Directory("disk/full");
  files_->File("disk/full/keep", "3");
  std::vector<std::string> names;
  ASSERT_TRUE(env()->ListDirectory(P("disk"), &names));
  std::sort(names.begin(), names.end());
  EXPECT_EQ((std::vector<std::string>{"a", "b c", "empty", "full"}), names);
  EXPECT_TRUE(env()->RemoveFile(P("disk/a")));
  EXPECT_TRUE(env()->RemoveFile(P("disk/empty")));
  EXPECT_FALSE(env()->RemoveFile(P("disk/full")));
  EXPECT_FALSE(env()->RemoveFile(P("disk/a")));
  names.clear();
  ASSERT_TRUE(env()->ListDirectory(P("disk"), &names));
  std::sort(names.begin(), names.end());
  EXPECT_EQ((std::vector<std::string>{"b c", "full"}), names);
  EXPECT_FALSE(env()->ListDirectory(P("gone"), &names));
  EXPECT_FALSE(env()->ListDirectory(P("disk/b c"), &names));
}

// What only the fake can model: the faults a real test could reach only as
// an unprivileged user or with special files.
TEST_P(FileOps, AppendRecordIsPrivateWholeAndRefusesWhatIsNotItsOwn) {
  std::string why;
  EXPECT_EQ(0, env()->AppendRecord(P("d/e/history"), "one\n", &why)) << why;
  EXPECT_EQ(0, env()->AppendRecord(P("d/e/history"), "two\n", &why)) << why;
  EXPECT_EQ("one\ntwo\n", files_->Content("d/e/history"));
  EXPECT_EQ(0600u, files_->Mode("d/e/history"));
  EXPECT_EQ(0700u, files_->Mode("d/e"));
  EXPECT_EQ(0700u, files_->Mode("d"));

  files_->File("target", "x\n");
  files_->Symlink("link", P("target"));
  EXPECT_EQ(-1, env()->AppendRecord(P("link"), "three\n", &why));
  EXPECT_EQ("is a symbolic link", why);
  EXPECT_EQ("x\n", files_->Content("target"));

  files_->Directory("dir");
  EXPECT_EQ(-1, env()->AppendRecord(P("dir"), "three\n", &why));
  EXPECT_EQ("is not a regular file", why);
}

TEST(FakeFiles, ModelsRefusalsAndFaults) {
  FakeEnv env;
  FakeFiles fs;
  env.fs = &fs;
  fs.AddFile("/img/locked.bin", "x")->unreadable = true;
  EXPECT_FALSE(env.OpenForRead("/img/locked.bin"));
  fs.AddDirectory("/ro")->unwritable = true;
  EXPECT_FALSE(env.CreateFile("/ro/new"));
  fs.AddNode("/dev/full", FileType::kCharDevice)->full = true;
  std::unique_ptr<platform::File> f = env.CreateFile("/dev/full");
  ASSERT_TRUE(f);
  EXPECT_EQ(3u, f->Write("abc", 3));
  EXPECT_FALSE(f->Flush());
  fs.AddFile("/img/huge.bin", "")->apparent_size = 0x100000001LL;
  FileInfo info;
  ASSERT_TRUE(env.Stat("/img/huge.bin", &info));
  EXPECT_EQ(0x100000001ull, info.size);
  fs.AddFile("/img/stuck", "")->undeletable = true;
  EXPECT_FALSE(env.RemoveFile("/img/stuck"));
}

TEST(FakeFiles, DirectoriesAndMountsAreSeenByTheEnv) {
  FakeEnv env;
  FakeFiles fs;
  env.fs = &fs;
  fs.Mount("/media/scrtch");
  fs.AddFile("/media/scrtch/old.k9", "stale");
  EXPECT_TRUE(env.IsDirectory("/media"));
  EXPECT_TRUE(env.IsMountPoint("/media/scrtch"));
  EXPECT_FALSE(env.IsMountPoint("/media"));
  EXPECT_TRUE(env.PathExists("/media/scrtch/old.k9"));
  EXPECT_FALSE(env.IsDirectory("/media/scrtch/old.k9"));
  fs.cwd = "/media";
  EXPECT_EQ("stale", fs.Content("scrtch/old.k9"));
  fs.AddSymlink("/loop", "/loop");
  EXPECT_FALSE(fs.Exists("/loop"));
  EXPECT_TRUE(env.PathExists("/loop"));  // the link itself is there
}

}  // namespace

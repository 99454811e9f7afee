#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "image/image_file.h"
#include "output/output.h"
#include "support/capture.h"
#include "support/fake_env.h"

namespace {

using testing_support::CapturedOutput;
using testing_support::FakeEnv;
using testing_support::FakeFiles;

const std::string kClearLine = "\r" + std::string(74, ' ') + "\r";

std::string Percent(int p) {
  return "\r   Copy file status: " + std::to_string(p) + " percent";
}

class ImageCopyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env_.fs = &fs_;
    fs_.AddDirectory(dir_);
    cap_.OpenLog();
  }

  std::string Data(size_t size) {
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + 3);
    return data;
  }

  std::string MakeFile(const std::string& name, const std::string& data) {
    std::string path = dir_ + "/" + name;
    fs_.AddFile(path, data);
    return path;
  }

  std::string ReadFile(const std::string& path) { return fs_.Content(path); }
  bool Exists(const std::string& path) { return fs_.Exists(path); }

  FakeEnv env_;
  FakeFiles fs_;
  std::string dir_ = "/var/images";
  CapturedOutput cap_;
};

TEST_F(ImageCopyTest, CopiesFifteenHundredBytesInTwoChunks) {
  std::string data = Data(1500);
  std::string src = MakeFile("fw.bin", data);
  std::string dst = dir_ + "/firmimg.k9";
  EXPECT_EQ(0, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(data, ReadFile(dst));
  EXPECT_EQ(data, ReadFile(src));
  EXPECT_EQ(kClearLine + Percent(0) + Percent(68) + Percent(100), cap_.Out());
  EXPECT_EQ("", cap_.Err());
  EXPECT_EQ("", cap_.Log());  // progress lines never reach the log
}

TEST_F(ImageCopyTest, CopiesExactlyOneChunk) {
  std::string data = Data(1024);
  std::string src = MakeFile("fw.bin", data);
  std::string dst = dir_ + "/firmimg.k9";
  EXPECT_EQ(0, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(data, ReadFile(dst));
  EXPECT_EQ(kClearLine + Percent(0) + Percent(100), cap_.Out());
}

TEST_F(ImageCopyTest, ShowsOnlyRisingPercentages) {
  // 300 chunks: each adds a third of a percent, so most steps show nothing.
  std::string data = Data(300 * 1024);
  std::string src = MakeFile("fw.bin", data);
  std::string dst = dir_ + "/out.bin";
  EXPECT_EQ(0, WriteFwImageFile(src.c_str(), dst.c_str()));
  std::string expect = kClearLine + Percent(0);
  for (int p = 1; p <= 100; ++p) expect += Percent(p);
  EXPECT_EQ(expect, cap_.Out());
  EXPECT_EQ(data, ReadFile(dst));
}

TEST_F(ImageCopyTest, QuietModeShowsNoProgress) {
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  std::string src = MakeFile("fw.bin", Data(10));
  std::string dst = dir_ + "/out.bin";
  EXPECT_EQ(0, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_EQ("", cap_.Out());
}

TEST_F(ImageCopyTest, NamesWithBlanks) {
  std::string data = Data(2000);
  std::string src = MakeFile("new fw image.bin", data);
  std::string dst = dir_ + "/usb disk file.k9";
  EXPECT_EQ(0, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(data, ReadFile(dst));
}

TEST_F(ImageCopyTest, TruncatesAnOlderLongerDestination) {
  std::string data = Data(100);
  std::string src = MakeFile("fw.bin", data);
  std::string dst = MakeFile("old.k9", Data(5000));
  EXPECT_EQ(0, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(data, ReadFile(dst));
}

TEST_F(ImageCopyTest, EmptySourceFailsBeforeTheDestinationExists) {
  std::string src = MakeFile("empty.bin", "");
  std::string dst = dir_ + "/out.bin";
  EXPECT_EQ(1, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_FALSE(Exists(dst));
  EXPECT_EQ("\n       Reading file error\n", cap_.Log());
  EXPECT_EQ("", cap_.Out());
}

TEST_F(ImageCopyTest, MissingSource) {
  std::string src = dir_ + "/none.bin";
  std::string dst = dir_ + "/out.bin";
  EXPECT_EQ(1, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_FALSE(Exists(dst));
  EXPECT_EQ("\n       Cannot find " + src + " \n", cap_.Log());
}

TEST_F(ImageCopyTest, SourceDirectoryIsRefused) {
  std::string src = dir_ + "/sub";
  fs_.AddDirectory(src);
  std::string dst = dir_ + "/out.bin";
  EXPECT_EQ(1, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_FALSE(Exists(dst));
  EXPECT_EQ("\n       Not a regular file: " + src +
                " \n\n       Reading file error\n",
            cap_.Log());
}

TEST_F(ImageCopyTest, DestinationCannotBeCreated) {
  std::string src = MakeFile("fw.bin", Data(10));
  std::string dst = dir_ + "/no/such/dir/out.bin";
  EXPECT_EQ(1, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_EQ("\n       Create file error: " + dst + " \n", cap_.Log());
}

TEST_F(ImageCopyTest, CopyOntoItselfLeavesTheSourceAlone) {
  std::string data = Data(1500);
  std::string src = MakeFile("fw.bin", data);
  std::string same = dir_ + "/./fw.bin";
  EXPECT_EQ(1, WriteFwImageFile(src.c_str(), same.c_str()));
  EXPECT_EQ(data, ReadFile(src));
  EXPECT_EQ("\n       Source and destination are one file: " + same + " \n",
            cap_.Log());
}

TEST_F(ImageCopyTest, SourceIsNeverChanged) {
  std::string data = Data(5000);
  std::string src = MakeFile("fw.bin", data);
  fs_.Find(src)->mode = 0444;
  std::string dst = dir_ + "/out.bin";
  EXPECT_EQ(0, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_EQ(data, ReadFile(src));
  platform::FileInfo info;
  ASSERT_TRUE(env_.Stat(src, &info));
  EXPECT_EQ(5000u, info.size);
}

TEST_F(ImageCopyTest, FailingFlushReportsTheLastPercentShown) {
  fs_.AddNode("/dev/full", platform::FileType::kCharDevice)->full = true;
  std::string src = MakeFile("fw.bin", Data(1500));
  EXPECT_EQ(1, WriteFwImageFile(src.c_str(), "/dev/full"));
  EXPECT_EQ(kClearLine + Percent(0) + Percent(68), cap_.Out());
  EXPECT_EQ("\n       fflush file error at 68 percent\n", cap_.Log());
}

TEST_F(ImageCopyTest, SourceOverFourGiBIsRefused) {
  std::string src = MakeFile("huge.bin", "");
  fs_.Find(src)->apparent_size = 0x100000000LL + 1;
  std::string dst = dir_ + "/out.bin";
  EXPECT_EQ(1, WriteFwImageFile(src.c_str(), dst.c_str()));
  EXPECT_FALSE(Exists(dst));
  EXPECT_EQ("\n       File larger than 4 GiB: " + src + " \n", cap_.Log());
}

TEST_F(ImageCopyTest, ClearDiskOnMissingDirectory) {
  std::string path = dir_ + "/gone";
  EXPECT_EQ(0, ClearDisk(path.c_str()));
  EXPECT_EQ("\n       Open directory error: " + path, cap_.Log());
}

TEST_F(ImageCopyTest, ClearDiskRemovesFilesAndEmptyDirectories) {
  std::string disk = dir_ + "/disk";
  fs_.AddDirectory(disk);
  MakeFile("disk/firmimg.k9", Data(10));
  MakeFile("disk/old file.bin", Data(10));
  fs_.AddDirectory(disk + "/empty");
  fs_.AddDirectory(disk + "/full");
  MakeFile("disk/full/keep.bin", Data(10));

  EXPECT_EQ(0, ClearDisk(disk.c_str()));

  // Entries come in directory order; compare them as a set.
  std::string log = cap_.Log();
  std::vector<std::string> lines;
  size_t at = 0;
  while ((at = log.find("\n       ", at)) != std::string::npos) {
    size_t next = log.find("\n       ", at + 1);
    lines.push_back(log.substr(at, next == std::string::npos ? std::string::npos
                                                             : next - at));
    at += 1;
  }
  std::sort(lines.begin(), lines.end());
  std::vector<std::string> expect = {
      "\n       Delete file OK: " + disk + "/empty",
      "\n       Delete file OK: " + disk + "/firmimg.k9",
      "\n       Delete file OK: " + disk + "/old file.bin",
      "\n       Delete file error: " + disk + "/full",
  };
  std::sort(expect.begin(), expect.end());
  EXPECT_EQ(expect, lines);
  EXPECT_FALSE(Exists(disk + "/firmimg.k9"));
  EXPECT_TRUE(Exists(disk + "/full/keep.bin"));
}

TEST_F(ImageCopyTest, ClearDiskOnAnEmptyDirectory) {
  EXPECT_EQ(0, ClearDisk(dir_.c_str()));
  EXPECT_EQ("", cap_.Log());
}

}  // namespace

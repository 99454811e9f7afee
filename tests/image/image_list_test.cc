#include <gtest/gtest.h>

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

class ImageListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env_.fs = &fs_;
    fs_.AddDirectory(dir_);
    cap_.OpenLog();
  }

  std::string MakeFile(const std::string& name, size_t size) {
    std::string path = dir_ + "/" + name;
    fs_.AddFile(path, std::string(size, 'x'));
    return path;
  }

  int Read(std::vector<std::string> names) {
    std::vector<char*> argv;
    for (std::string& n : names) argv.push_back(&n[0]);
    names_ = names;
    return handle_.ReadValidateFwImageFileHeader(argv.data(),
                                                 static_cast<int>(argv.size()));
  }

  sImageHeaderTag* Record(int i) { return &handle_.GetImageHeaderList()[i]; }

  FakeEnv env_;
  FakeFiles fs_;
  std::string dir_ = "/home/op/images";
  std::vector<std::string> names_;
  CapturedOutput cap_;
  TImageFileHandle handle_;
};

TEST_F(ImageListTest, SecondOfThreeUnopenable) {
  std::string a = MakeFile("a.bin", 1500);
  std::string b = dir_ + "/missing.bin";
  std::string c = MakeFile("c.bin", 700);
  EXPECT_EQ(0, Read({a, b, c}));
  EXPECT_EQ(2, handle_.GetFwImageFileCount());
  EXPECT_STREQ(a.c_str(), Record(0)->achFileName);
  EXPECT_EQ(1500u, Record(0)->u32FileSize);
  EXPECT_EQ(1500u, Record(0)->u32ImageSize);
  EXPECT_STREQ(c.c_str(), Record(1)->achFileName);
  EXPECT_EQ(700u, Record(1)->u32FileSize);
  EXPECT_EQ(700u, Record(1)->u32ImageSize);
  // Only name and sizes are set; new records start zero-filled.
  EXPECT_EQ(0u, Record(1)->u32HeadCRC);
  EXPECT_EQ(0, Record(1)->au8FwRevision[0]);
  EXPECT_EQ(0, Record(1)->u8HasBootloader);
  EXPECT_EQ("\n   Read and validate " + a + " \n   Read and validate " + b +
                " \n   Cannot open " + b + " \n\n   Read and validate " + c +
                " ",
            cap_.Log());
  EXPECT_EQ("", cap_.Out());
  EXPECT_EQ("", cap_.Err());
}

TEST_F(ImageListTest, AllUnopenable) {
  EXPECT_EQ(RC_OPEN_INPUT_FAILED,
            Read({dir_ + "/x.bin", dir_ + "/y.bin"}));
  EXPECT_EQ(0, handle_.GetFwImageFileCount());
  EXPECT_STREQ("", Record(0)->achFileName);
}

TEST_F(ImageListTest, NoNamesGiveAnEmptyList) {
  EXPECT_EQ(0, handle_.ReadValidateFwImageFileHeader(nullptr, 0));
  EXPECT_EQ(0, handle_.GetFwImageFileCount());
  EXPECT_NE(nullptr, handle_.GetImageHeaderList());
}

TEST_F(ImageListTest, FilesTooShortForAHeaderAreRefused) {
  std::string empty = MakeFile("empty.bin", 0);
  std::string shortFile = MakeFile("short.bin", 511);
  std::string smallest = MakeFile("smallest.bin", 512);
  EXPECT_EQ(RC_FILE_ERROR, Read({empty, shortFile}));
  EXPECT_EQ(0, handle_.GetFwImageFileCount());
  EXPECT_EQ("   " + empty + ": is too short to be an image (less than 512 bytes)\n"
            "   " + shortFile + ": is too short to be an image (less than 512 bytes)\n",
            cap_.Err());
  EXPECT_EQ(0, Read({smallest}));
  EXPECT_EQ(512u, Record(0)->u32FileSize);
}

TEST_F(ImageListTest, AFifoIsRefusedWithoutHanging) {
  std::string fifo = dir_ + "/image.fifo";
  fs_.AddFifo(fifo);
  EXPECT_EQ(RC_FILE_ERROR, Read({fifo}));
  EXPECT_EQ("   " + fifo + ": is not a regular file\n", cap_.Err());
}

TEST_F(ImageListTest, NameWithBlanks) {
  std::string path = MakeFile("my new image.bin", 2048);
  EXPECT_EQ(0, Read({path}));
  EXPECT_EQ(1, handle_.GetFwImageFileCount());
  EXPECT_STREQ(path.c_str(), Record(0)->achFileName);
  EXPECT_EQ(2048u, Record(0)->u32FileSize);
}

TEST_F(ImageListTest, DirectoryIsRefusedClearly) {
  std::string sub = dir_ + "/images";
  fs_.AddDirectory(sub);
  std::string good = MakeFile("good.bin", 1024);
  EXPECT_EQ(0, Read({sub, good}));
  EXPECT_EQ(1, handle_.GetFwImageFileCount());
  EXPECT_STREQ(good.c_str(), Record(0)->achFileName);
  EXPECT_EQ("\n   " + sub + " is a directory, not an image file \n", cap_.Err());

  cap_.Clear();
  EXPECT_EQ(RC_OPEN_INPUT_FAILED, Read({sub}));
  EXPECT_EQ(0, handle_.GetFwImageFileCount());
}

TEST_F(ImageListTest, UnreadableFileCannotBeOpened) {
  std::string path = MakeFile("locked.bin", 10);
  fs_.Find(path)->mode = 0;
  fs_.Find(path)->unreadable = true;
  EXPECT_EQ(RC_OPEN_INPUT_FAILED, Read({path}));
  EXPECT_EQ(0, handle_.GetFwImageFileCount());
}

TEST_F(ImageListTest, FileOverFourGiBIsRefused) {
  std::string path = MakeFile("huge.bin", 0);
  fs_.Find(path)->apparent_size = 0x100000000LL + 10;
  EXPECT_EQ(RC_OPEN_INPUT_FAILED, Read({path}));
  EXPECT_EQ(0, handle_.GetFwImageFileCount());
  EXPECT_EQ("\n   " + path + " is larger than 4 GiB, too large for an image file \n",
            cap_.Err());
}

TEST_F(ImageListTest, FileOfExactlyFourGiBMinusOneIsListed) {
  std::string path = MakeFile("big.bin", 0);
  fs_.Find(path)->apparent_size = 0xFFFFFFFFLL;
  EXPECT_EQ(0, Read({path}));
  EXPECT_EQ(0xFFFFFFFFu, Record(0)->u32FileSize);
}

TEST_F(ImageListTest, OverlongNameIsRefused) {
  std::string name(300, 'n');
  EXPECT_EQ(RC_OPEN_INPUT_FAILED, Read({name}));
  EXPECT_EQ(0, handle_.GetFwImageFileCount());
  EXPECT_EQ("\n   File name too long: " + name + " \n", cap_.Err());
}

TEST_F(ImageListTest, ReadingTwiceReplacesTheList) {
  std::string a = MakeFile("a.bin", 1024);
  std::string b = MakeFile("b.bin", 2048);
  EXPECT_EQ(0, Read({a, b}));
  EXPECT_EQ(2, handle_.GetFwImageFileCount());
  EXPECT_EQ(0, Read({b}));
  EXPECT_EQ(1, handle_.GetFwImageFileCount());
  EXPECT_STREQ(b.c_str(), Record(0)->achFileName);
}

TEST(ImageList, ClearAndDelete) {
  TImageFileHandle handle;
  ASSERT_EQ(0, handle.CreateImageHeaderList(3));
  handle.SetFwImageFileCount(3);
  for (int i = 0; i < 3; ++i) {
    handle.SetCurrImageHeader(i);
    handle.GetCurrImageHeader()->u32FileSize = 99;
  }
  handle.ClearImageHeaderList();
  EXPECT_EQ(&handle.GetImageHeaderList()[2], handle.GetCurrImageHeader());
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(0u, handle.GetImageHeaderList()[i].u32FileSize);
  EXPECT_EQ(0, handle.DeleteImageHeaderList());
  EXPECT_EQ(nullptr, handle.GetImageHeaderList());
  EXPECT_EQ(nullptr, handle.GetCurrImageHeader());
  EXPECT_EQ(3, handle.GetFwImageFileCount());
  EXPECT_EQ(0, handle.DeleteImageHeaderList());
}

TEST(ImageList, SelectingOutsideTheListSelectsNothing) {
  TImageFileHandle handle;
  ASSERT_EQ(0, handle.CreateImageHeaderList(2));
  handle.SetCurrImageHeader(1);
  EXPECT_EQ(&handle.GetImageHeaderList()[1], handle.GetCurrImageHeader());
  handle.SetCurrImageHeader(2);
  EXPECT_EQ(nullptr, handle.GetCurrImageHeader());
  handle.SetCurrImageHeader(-1);
  EXPECT_EQ(nullptr, handle.GetCurrImageHeader());
  handle.ClearCurrImageHeader();  // nothing selected: nothing to clear
}

TEST(ImageList, ClearingIsBoundedByTheList) {
  TImageFileHandle handle;
  handle.SetFwImageFileCount(5);  // left from an earlier, longer list
  ASSERT_EQ(0, handle.CreateImageHeaderList(1));
  handle.ClearImageHeaderList();
  EXPECT_EQ(&handle.GetImageHeaderList()[0], handle.GetCurrImageHeader());
  EXPECT_EQ(5, handle.GetFwImageFileCount());
}

TEST(ImageList, ConstructorAndDestructor) {
  EXPECT_EQ(0, ImageHandlerConstructor());
  ASSERT_NE(nullptr, G_pImageFileHandle);
  EXPECT_EQ(0, G_pImageFileHandle->GetFwImageFileCount());
  EXPECT_EQ(0, ImageHandlerDestructor());
  EXPECT_EQ(nullptr, G_pImageFileHandle);
  EXPECT_EQ(0, ImageHandlerDestructor());
}

}  // namespace

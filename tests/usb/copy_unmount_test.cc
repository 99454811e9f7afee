// Writing the image onto the mounted stick, unmounting it and removing only
// the scratch directories, checked through the commands run and the exact
// debug text. The copy itself is real: see WriteFileToUSBKey below.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "usb/write_firmware.h"
#include "usb_fixture.h"

namespace {

using testing_support::CommandResult;
using testing_support::ReadFile;
using usb_testing::Lines;
using usb_testing::OtherTypes;
using usb_testing::Recording;
using usb_testing::UsbTest;
using Names = std::vector<std::string>;

const char kDf[] = "df -Th";
const char kInfo[] = "\n     Get virtual media info";
const char kNotFound[] = "\n       Virtual USB device not found";
const long kSectors64M = 131072;
const int kFailed = 1 << 8;

class CopyAndUnmount : public UsbTest {
 protected:
  void SetUp() override {
    UsbTest::SetUp();
    SetMinSizeMB(16);
    mounted = Recording("df_scrtch_vfat.txt");
    none = Recording("df_none.txt");
    env.block_devices["/dev/loop0"] = kSectors64M;
  }

  // Debug text of the search that finds the recorded stick.
  std::string FoundStick() {
    std::vector<std::string> lines = Lines(mounted);
    std::string stick = lines.back();
    lines.pop_back();
    return kInfo + OtherTypes(lines) + "\n       Check \"" + stick + "\"" +
           "\n         search msdos: Type != msdos\n         search vfat: "
           "Find the Usb device: Fileystem=/dev/loop0 Type=vfat Size=59 MB "
           "Mounted on=/media/scrtch"
           "\n       Open USB device\n       Get USB device size"
           "\n         USB device size = 65536 bytes";
  }
  // Debug text of the search that finds nothing.
  std::string FoundNothing() {
    return kInfo + OtherTypes(Lines(none)) + kNotFound;
  }

  std::string mounted, none;
};

// ---- WriteFileToUSBKey ----

using WriteFileToUSBKey = CopyAndUnmount;

TEST_F(WriteFileToUSBKey, NoPathIsFileNotFound) {
  EXPECT_EQ(2, Wf().WriteFileToUSBKey(nullptr));
  EXPECT_EQ(2, Wf().WriteFileToUSBKey(""));
  EXPECT_TRUE(env.commands.empty());
  EXPECT_EQ("", Log());
}

TEST_F(WriteFileToUSBKey, NoStickGivesTheSearchResult) {
  env.Script(kDf, none);
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().WriteFileToUSBKey("/no/such/image"));
  EXPECT_EQ(Names{kDf}, env.commands);
  EXPECT_EQ(FoundNothing(), Log());
}

TEST_F(WriteFileToUSBKey, SizeQueryFailureGives46) {
  env.block_devices.clear();
  env.Script(kDf, mounted);
  EXPECT_EQ(RC_USB_SIZE_QUERY_FAILED, Wf().WriteFileToUSBKey("/no/such/image"));
  EXPECT_EQ(std::string::npos, Log().find("Clear disk"));
}

// A 1500-byte image in the test's in-memory files.
class TempImage {
 public:
  explicit TempImage(testing_support::FakeFiles* fs) {
    std::string data;
    for (int i = 0; i < 1500; ++i) data += static_cast<char>(i * 7);
    fs->AddFile(image_, data);
  }
  const std::string& dir() const { return dir_; }
  const std::string& image() const { return image_; }

 private:
  std::string dir_ = "/tmp/vrx-usb-images";
  std::string image_ = dir_ + "/image.bin";
};

// Without /media/scrtch the copy fails, and the failure is reported on the
// console too.
TEST_F(WriteFileToUSBKey, CopyFailureGives53) {
  testing_support::FakeFiles fs;
  env.fs = &fs;
  TempImage temp(&fs);
  env.Script(kDf, mounted);
  EXPECT_EQ(RC_USB_COPY_FAILED, Wf().WriteFileToUSBKey(temp.image().c_str()));
  EXPECT_EQ(Names{kDf}, env.commands);
  std::string failed =
      "\r   Copy " + temp.image() + " to /media/scrtch/firmimg.k9 Failed\n";
  EXPECT_EQ(
      FoundStick() + "\n     Clear disk /media/scrtch" +
          "\n       Open directory error: /media/scrtch" + "\n     Copy " +
          temp.image() + " to /media/scrtch/firmimg.k9 : " +
          "\n       Create file error: /media/scrtch/firmimg.k9 \n" + failed,
      Log());
  EXPECT_EQ(failed, cap.Out());
}

// df prints absolute mount points, but the search also accepts
// "<dir>/scrtch" relative to the working directory; the copy goes there.
TEST_F(WriteFileToUSBKey, CopiesTheImageAfterEmptyingTheStick) {
  testing_support::FakeFiles fs;
  env.fs = &fs;
  TempImage temp(&fs);
  std::string base = temp.dir().substr(temp.dir().rfind('/') + 1);
  std::string scratch = base + "/scrtch";
  fs.Mount(temp.dir() + "/scrtch");
  fs.AddFile(temp.dir() + "/scrtch/old.k9", "stale");
  fs.cwd = "/tmp";

  env.Script(kDf, "/dev/sdb1 vfat 64M 0 64M 0% " + scratch + "\n");
  env.block_devices["/dev/sdb1"] = kSectors64M;
  int result = Wf().WriteFileToUSBKey(temp.image().c_str());
  std::string copied = fs.Content(scratch + "/firmimg.k9");
  bool oldGone = !fs.Exists(scratch + "/old.k9");

  EXPECT_EQ(0, result);
  EXPECT_EQ(fs.Content(temp.image()), copied);
  EXPECT_EQ(1500u, copied.size());
  EXPECT_TRUE(oldGone);
  EXPECT_EQ(Names{kDf}, env.commands);
  std::string log = Log();
  std::string tail = "\n     Clear disk " + scratch +
                     "\n       Delete file OK: " + scratch + "/old.k9" +
                     "\n     Copy " + temp.image() + " to " + scratch +
                     "/firmimg.k9 : " + " OK";
  ASSERT_GE(log.size(), tail.size());
  EXPECT_EQ(tail, log.substr(log.size() - tail.size()));
  EXPECT_EQ(std::string::npos, cap.Out().find("Failed"));
}

// ---- ManuallyUnmountUSBDevice ----

using Unmount = CopyAndUnmount;

TEST_F(Unmount, NothingMountedRemovesNothing) {
  G_bMkdirMountedOnLayer2 = 1;
  G_bMkdirMountedOnLayer1[0] = 1;
  env.Script(kDf, none);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ(Names{kDf}, env.commands);
  EXPECT_EQ("\n   Check if USB device was unmounted automatically" +
                FoundNothing() + "\n     USB device has been unmounted",
            Log());
}

TEST_F(Unmount, NothingMountedInACleanUp) {
  env.Script(kDf, none);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(0));
  EXPECT_EQ(Names{kDf}, env.commands);
  EXPECT_EQ("\n   Check if USB device does not exist" + FoundNothing() +
                "\n     USB device does not exist",
            Log());
}

// A report that cannot be produced counts as no mounted device.
TEST_F(Unmount, ReportThatCannotStartCountsAsNothingMounted) {
  CommandResult fails;
  fails.start_fails = true;
  env.Script(kDf, fails);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ(Names{kDf}, env.commands);
  EXPECT_EQ(
      "\n   Check if USB device was unmounted automatically"
      "\n     Get virtual media info\n       df -Th failed"
      "\n     USB device has been unmounted",
      Log());
}

TEST_F(Unmount, StickThatThisRunDidNotCreateIsOnlyUnmounted) {
  env.Script(kDf, mounted);
  env.Script(kDf, none);
  env.Script("umount /media/scrtch", "", 0);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ((Names{kDf, "umount /media/scrtch", kDf}), env.commands);
  EXPECT_EQ(
      "\n   Check if USB device was unmounted automatically" + FoundStick() +
          "\n     USB device was not unmounted automatically"
          "\n   Unmount /media/scrtch OK"
          "\n\n   Check if USB device has been unmounted manually" +
          FoundNothing() + "\n     USB device has been unmounted manually\n",
      Log());
}

TEST_F(Unmount, CreatedDirectoriesAreRemovedAfterTheUnmount) {
  G_bMkdirMountedOnLayer2 = 1;
  G_bMkdirMountedOnLayer1[0] = 1;
  env.Script(kDf, mounted);
  env.Script(kDf, none);
  env.Script("umount /media/scrtch", "", 0);
  env.Script("rm -rf /media/scrtch", "", 0);
  env.Script("rm -rf /media", "", 0);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(0));
  EXPECT_EQ((Names{kDf, "umount /media/scrtch", "rm -rf /media/scrtch",
                   "rm -rf /media", kDf}),
            env.commands);
  EXPECT_EQ("\n   Check if USB device does not exist" + FoundStick() +
                "\n     USB device does exist"
                "\n   Unmount /media/scrtch OK"
                "\n   Delete /media/scrtch : OK"
                "\n   Delete /media : OK"
                "\n\n   Check if USB device has been unmounted manually" +
                FoundNothing() +
                "\n     USB device has been unmounted manually\n",
            Log());
}

// The directory is removed even when the unmount failed, and no second
// search is made.
TEST_F(Unmount, FailedUnmount) {
  G_bMkdirMountedOnLayer2 = 1;
  env.Script(kDf, mounted);
  env.Script("umount /media/scrtch", "", 32 << 8);
  env.Script("rm -rf /media/scrtch", "", 0);
  EXPECT_EQ(1, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ((Names{kDf, "umount /media/scrtch", "rm -rf /media/scrtch"}),
            env.commands);
  EXPECT_EQ("\n   Check if USB device was unmounted automatically" +
                FoundStick() +
                "\n     USB device was not unmounted automatically"
                "\n   Unmount /media/scrtch Failed\n"
                "\n   Delete /media/scrtch : OK",
            Log());
}

TEST_F(Unmount, StickStillThereAfterTheUnmount) {
  env.Script(kDf, mounted);
  env.Script("umount /media/scrtch", "", 0);
  EXPECT_EQ(1, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ((Names{kDf, "umount /media/scrtch", kDf}), env.commands);
  EXPECT_EQ("\n   Check if USB device was unmounted automatically" +
                FoundStick() +
                "\n     USB device was not unmounted automatically"
                "\n   Unmount /media/scrtch OK"
                "\n\n   Check if USB device has been unmounted manually" +
                FoundStick() +
                "\n     \"/media/scrtch\" still exists, manually unmounted "
                "failed",
            Log());
}

TEST_F(Unmount, FailedRemovalFails) {
  G_bMkdirMountedOnLayer2 = 1;
  env.Script(kDf, mounted);
  env.Script(kDf, none);
  env.Script("umount /media/scrtch", "", 0);
  env.Script("rm -rf /media/scrtch", "", kFailed);
  EXPECT_EQ(1, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_NE(std::string::npos,
            Log().find("\n   Delete /media/scrtch : Failed\n"));
}

// Of the parents, the last removal decides.
TEST_F(Unmount, LastParentRemovalIsKept) {
  G_bMkdirMountedOnLayer1[0] = 1;
  G_bMkdirMountedOnLayer1[1] = 1;
  env.Script(kDf, mounted);
  env.Script(kDf, none);
  env.Script("umount /media/scrtch", "", 0);
  env.Script("rm -rf /media", "", kFailed);
  env.Script("rm -rf /mnt", "", 0);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ(
      (Names{kDf, "umount /media/scrtch", "rm -rf /media", "rm -rf /mnt", kDf}),
      env.commands);
}

// The size query failed (46), but the stick is mounted and is released.
TEST_F(Unmount, StickWhoseSizeCannotBeReadIsReleased) {
  env.block_devices.clear();
  env.Script(kDf, mounted);
  env.Script(kDf, none);
  env.Script("umount /media/scrtch", "", 0);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ((Names{kDf, "umount /media/scrtch", kDf}), env.commands);
}

TEST_F(Unmount, MountPointWithShellSyntaxIsQuoted) {
  G_bMkdirMountedOnLayer2 = 1;
  env.Script(kDf, "/dev/sdb1 vfat 64M 0 64M 0% /$(reboot)/scrtch\n");
  env.Script(kDf, none);
  env.block_devices["/dev/sdb1"] = kSectors64M;
  env.Script("umount '/$(reboot)/scrtch'", "", 0);
  env.Script("rm -rf '/$(reboot)/scrtch'", "", 0);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ((Names{kDf, "umount '/$(reboot)/scrtch'",
                   "rm -rf '/$(reboot)/scrtch'", kDf}),
            env.commands);
}

// A relative "x/scrtch" passes the search, but is never unmounted or
// removed.
TEST_F(Unmount, RelativeMountPointIsRefused) {
  G_bMkdirMountedOnLayer2 = 1;
  env.Script(kDf, "/dev/sdb1 vfat 64M 0 64M 0% x/scrtch\n");
  env.block_devices["/dev/sdb1"] = kSectors64M;
  EXPECT_EQ(1, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ(Names{kDf}, env.commands);
  std::string log = Log();
  std::string tail =
      "\n     USB device was not unmounted automatically"
      "\n   Unmount x/scrtch Refused, not a scratch directory\n"
      "\n   Delete x/scrtch : Refused, not a scratch directory\n";
  EXPECT_EQ(tail, log.substr(log.size() - tail.size()));
}

// /media/scrtch cannot be made, so /mnt/scrtch is used; the flag kept at 1
// makes the clean-up remove /mnt/scrtch after the unmount.
TEST_F(Unmount, ScratchMadeAfterAFailedFirstTryIsRemoved) {
  env.directories = {"/media", "/mnt"};
  env.Script("mkdir /media/scrtch", "", kFailed);
  env.Script("rm -rf /media/scrtch", "", 0);
  env.Script("mkdir /mnt/scrtch", "", 0);
  env.Script("mount /dev/sdb1 /mnt/scrtch", "", 0);
  env.Script(kDf, "/dev/sdb1 vfat 64M 0 64M 0% /mnt/scrtch\n");
  env.Script(kDf, none);
  env.block_devices["/dev/sdb1"] = kSectors64M;
  env.Script("umount /mnt/scrtch", "", 0);
  env.Script("rm -rf /mnt/scrtch", "", 0);
  EXPECT_EQ(0, CreateAndMountUSBDevice("/dev/sdb1"));
  EXPECT_EQ(1, G_bMkdirMountedOnLayer2);
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ((Names{"mkdir /media/scrtch", "rm -rf /media/scrtch",
                   "mkdir /mnt/scrtch", "mount /dev/sdb1 /mnt/scrtch", kDf,
                   "umount /mnt/scrtch", "rm -rf /mnt/scrtch", kDf}),
            env.commands);
}

// Listing, mounting and releasing one recorded stick, command by command.
TEST_F(Unmount, MountThenReleaseSequence) {
  env.directories = {"/media"};
  env.Script("/sbin/fdisk -l", Recording("fdisk_before.txt"));
  env.Script("/sbin/fdisk -l", Recording("fdisk_after_partitioned.txt"));
  env.Script("mkdir /media/scrtch", "", 0);
  env.Script("mount /dev/loop1p1 /media/scrtch", "", 0);
  env.Script(kDf, "/dev/loop1p1 vfat 63M 512 63M 1% /media/scrtch\n");
  env.Script(kDf, none);
  env.block_devices["/dev/loop1p1"] = 129024;
  env.Script("umount /media/scrtch", "", 0);
  env.Script("rm -rf /media/scrtch", "", 0);
  ASSERT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ(0, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ(0, Wf().ManuallyUnmountUSBDevice(1));
  EXPECT_EQ((Names{"/sbin/fdisk -l", "/sbin/fdisk -l", "mkdir /media/scrtch",
                   "mount /dev/loop1p1 /media/scrtch", kDf,
                   "umount /media/scrtch", "rm -rf /media/scrtch", kDf}),
            env.commands);
  EXPECT_STREQ("/dev/loop1p1", Wf().DeviceName());
  EXPECT_EQ(129024u, Wf().SectorCount());
}

// ---- the removal guard ----

using Guard = CopyAndUnmount;

TEST_F(Guard, OnlyScratchPathsAndCreatedParentsAreRemoved) {
  const char* refused[] = {"/media",
                           "/mnt",
                           "/tmp",
                           "/",
                           "/etc",
                           "",
                           "scrtch",
                           "media/scrtch",
                           "/media/scrtch/",
                           "/media//scrtch",
                           "/media/scrtch/..",
                           "/media/../scrtch",
                           "/media/./scrtch",
                           "/media/scrtchx"};
  for (const char* path : refused) {
    SCOPED_TRACE(path);
    cap.Clear();
    EXPECT_EQ(1, DeleteMountedDirectory(path));
    EXPECT_EQ(std::string("\n   Delete ") + path +
                  " : Refused, not a scratch directory\n",
              Log());
  }
  EXPECT_EQ(1, DeleteMountedDirectory(nullptr));
  EXPECT_TRUE(env.commands.empty());

  env.Script("rm -rf /media/scrtch", "", 0);
  env.Script("rm -rf /scrtch", "", 0);
  env.Script("rm -rf /mnt", "", 0);
  EXPECT_EQ(0, DeleteMountedDirectory("/media/scrtch"));
  EXPECT_EQ(0, DeleteMountedDirectory("/scrtch"));
  G_bMkdirMountedOnLayer1[1] = 1;
  EXPECT_EQ(0, DeleteMountedDirectory("/mnt"));
  EXPECT_EQ((Names{"rm -rf /media/scrtch", "rm -rf /scrtch", "rm -rf /mnt"}),
            env.commands);
}

TEST_F(Guard, OnlyScratchPathsAreUnmounted) {
  const char* refused[] = {"/media",
                           "/",
                           "/etc",
                           "",
                           "x/scrtch",
                           "/media/scrtch/..",
                           "/media/sub/../scrtch/"};
  for (const char* path : refused) {
    SCOPED_TRACE(path);
    cap.Clear();
    EXPECT_EQ(1, UnmountUSBDevice(path));
    EXPECT_EQ(std::string("\n   Unmount ") + path +
                  " Refused, not a scratch directory\n",
              Log());
  }
  EXPECT_EQ(1, UnmountUSBDevice(nullptr));
  EXPECT_TRUE(env.commands.empty());
  env.Script("umount /mnt/scrtch", "", 0);
  cap.Clear();
  EXPECT_EQ(0, UnmountUSBDevice("/mnt/scrtch"));
  EXPECT_EQ("\n   Unmount /mnt/scrtch OK", Log());
  EXPECT_EQ(Names{"umount /mnt/scrtch"}, env.commands);
}

}  // namespace

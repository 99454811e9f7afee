// Choosing the new device, creating the scratch directory and mounting,
// checked through the commands run and the exact debug text.
#include <gtest/gtest.h>
#include <string.h>

#include "usb/write_firmware.h"
#include "usb_fixture.h"

namespace {

using testing_support::CommandResult;
using usb_testing::ListingLog;
using usb_testing::Recording;
using usb_testing::SaveDisk;
using usb_testing::SavePartition;
using usb_testing::UsbTest;
using Names = std::vector<std::string>;

const char kFdisk[] = "/sbin/fdisk -l";
const int kFailed = 1 << 8;  // wait status of a command that exited with 1

const std::string kAfterListing =
    "\n\n   Get Device Name List After Doing Phase 1 : ";
const std::string kAfterOk = "\n   Get Device Name List After Doing Phase 1 OK";

// Debug text of mounting device on /media/scrtch when both exist already.
std::string MountOnExistingMedia(const std::string& device) {
  return "\n     Mount the found device"
         "\n       Check if /media exists"
         "\n       Check if /media/scrtch exists"
         "\n       mount " +
         device + " /media/scrtch" + "\n     Mount " + device +
         " /media/scrtch OK\n";
}

class MountNewDevice : public UsbTest {
 protected:
  // Takes the listing from before the first phase and forgets its text;
  // the next listing prints after.
  void Listings(const std::string& before, const CommandResult& after) {
    env.Script(kFdisk, before);
    env.Script(kFdisk, after);
    ASSERT_EQ(0, Wf().GetBlockDeviceList());
    env.commands.clear();
    cap.Clear();
  }
  void Listings(const std::string& before, const std::string& after) {
    CommandResult result;
    result.output = after;
    Listings(before, result);
  }
  void ScratchExists() { env.directories = {"/media", "/media/scrtch"}; }
};

const char kSda[] =
    "Disk /dev/sda: 250.0 GB, 250059350016 bytes\n"
    "/dev/sda1   *           1        3824    30716248+  83  Linux\n";
const char kSdb[] = "Disk /dev/sdb: 16 MB, 16777216 bytes\n";
const char kSdb1[] =
    "/dev/sdb1               1          16       16368    6  FAT16\n";
const char kSdc[] = "Disk /dev/sdc: 16 MB, 16777216 bytes\n";
const char kSdc1[] =
    "/dev/sdc1               1          16       16368    6  FAT16\n";

std::string SdaLog() {
  return ListingLog(
      kSda,
      {{"Disk /dev/sda: 250.0 GB, 250059350016 bytes\n", SaveDisk("/dev/sda")},
       {"/dev/sda1   *           1        3824    30716248+  83  "
        "Linux\n",
        SavePartition("/dev/sda1")}});
}

TEST_F(MountNewDevice, NewDiskAndItsPartitionMountsThePartition) {
  ScratchExists();
  std::string after = std::string(kSda) + kSdb + kSdb1;
  Listings(kSda, after);
  env.Script("mount /dev/sdb1 /media/scrtch", "", 0);
  EXPECT_EQ(0, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ((Names{kFdisk, "mount /dev/sdb1 /media/scrtch"}), env.commands);
  std::string listing = ListingLog(
      after,
      {{"Disk /dev/sda: 250.0 GB, 250059350016 bytes\n", SaveDisk("/dev/sda")},
       {"/dev/sda1   *           1        3824    30716248+  "
        "83  Linux\n",
        SavePartition("/dev/sda1")},
       {kSdb, SaveDisk("/dev/sdb")},
       {kSdb1, SavePartition("/dev/sdb1")}});
  EXPECT_EQ(kAfterListing + listing + kAfterOk +
                "\n     Find a new disk /dev/sdb "
                "\n     Find a new partition /dev/sdb1 " +
                MountOnExistingMedia("/dev/sdb1"),
            Log());
}

TEST_F(MountNewDevice, NewDiskWithoutPartitionMountsTheDisk) {
  Listings(kSda, std::string(kSda) + kSdb);
  ScratchExists();
  env.Script("mount /dev/sdb /media/scrtch", "", 0);
  EXPECT_EQ(0, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ((Names{kFdisk, "mount /dev/sdb /media/scrtch"}), env.commands);
}

TEST_F(MountNewDevice, NewPartitionOnAKnownDiskIsMounted) {
  Listings(std::string(kSda) + kSdb, std::string(kSda) + kSdb + kSdb1);
  ScratchExists();
  env.Script("mount /dev/sdb1 /media/scrtch", "", 0);
  EXPECT_EQ(0, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ((Names{kFdisk, "mount /dev/sdb1 /media/scrtch"}), env.commands);
}

TEST_F(MountNewDevice, UnrelatedDiskAndPartitionMountNothing) {
  ScratchExists();
  std::string after = std::string(kSda) + kSdb + kSdc + kSdc1;
  Listings(std::string(kSda) + kSdc, after);
  EXPECT_EQ(1, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ(Names{kFdisk}, env.commands);
  std::string listing = ListingLog(
      after,
      {{"Disk /dev/sda: 250.0 GB, 250059350016 bytes\n", SaveDisk("/dev/sda")},
       {"/dev/sda1   *           1        3824    30716248+  "
        "83  Linux\n",
        SavePartition("/dev/sda1")},
       {kSdb, SaveDisk("/dev/sdb")},
       {kSdc, SaveDisk("/dev/sdc")},
       {kSdc1, SavePartition("/dev/sdc1")}});
  EXPECT_EQ(kAfterListing + listing + kAfterOk +
                "\n     Find a new disk /dev/sdb "
                "\n     Find a new partition /dev/sdc1 "
                "\n     Find more than one devices after Phase One: "
                "/dev/sdb, /dev/sdc1"
                "\n     Cannot decide which new device is created by Phase One",
            Log());
}

TEST_F(MountNewDevice, NothingNewIsReported) {
  Listings(kSda, kSda);
  EXPECT_EQ(1, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ(Names{kFdisk}, env.commands);
  EXPECT_EQ(kAfterListing + SdaLog() + kAfterOk +
                "\n     Cannot find any new device after Phase One\n",
            Log());
}

TEST_F(MountNewDevice, TwoNewDisksWithoutPartitions) {
  Listings(kSda, std::string(kSda) + kSdb + kSdc);
  EXPECT_EQ(1, Wf().ManuallyMountUSBDevice());
  std::string log = Log();
  EXPECT_EQ(
      "\n     Find a new disk /dev/sdb "
      "\n     Find a new disk /dev/sdc "
      "\n     Find more than one disks after Phase One: /dev/sdb, /dev/sdc"
      "\n     Cannot decide which new disk is created by Phase One",
      log.substr(log.find(kAfterOk) + kAfterOk.size()));
}

TEST_F(MountNewDevice, TwoNewPartitionsOfAKnownDisk) {
  std::string after = std::string(kSda) + kSdb + kSdb1 +
                      "/dev/sdb2              17          32       16384    6  "
                      "FAT16\n";
  Listings(std::string(kSda) + kSdb, after);
  EXPECT_EQ(1, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ(Names{kFdisk}, env.commands);
  std::string log = Log();
  EXPECT_EQ(
      "\n     Find a new partition /dev/sdb1 "
      "\n     Find a new partition /dev/sdb2 "
      "\n     Find more than one partitions after Phase One: /dev/sdb1, "
      "/dev/sdb2"
      "\n     Cannot decide which new partition is created by Phase One",
      log.substr(log.find(kAfterOk) + kAfterOk.size()));
}

TEST_F(MountNewDevice, ListingThatCannotStartFails) {
  CommandResult fails;
  fails.start_fails = true;
  Listings(kSda, fails);
  EXPECT_EQ(1, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ(Names{kFdisk}, env.commands);
  EXPECT_EQ(kAfterListing +
                "\n       Get Device List\n         /sbin/fdisk -l failed"
                "\n   Get Device Name List After Doing Phase 1 Failed",
            Log());
}

// The same decisions on real listings of loop devices.
TEST_F(MountNewDevice, RecordedPartitionedStick) {
  ScratchExists();
  std::string after = Recording("fdisk_after_partitioned.txt");
  Listings(Recording("fdisk_before.txt"), after);
  env.Script("mount /dev/loop1p1 /media/scrtch", "", 0);
  EXPECT_EQ(0, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ((Names{kFdisk, "mount /dev/loop1p1 /media/scrtch"}), env.commands);
  std::string listing = ListingLog(
      after, {{"Disk /dev/loop0: 64 MiB, 67108864 bytes, 131072 sectors\n",
               SaveDisk("/dev/loop0")},
              {"/dev/loop0p1       2048 131071  129024  63M  6 FAT16\n",
               SavePartition("/dev/loop0p1")},
              {"Disk /dev/loop1: 64 MiB, 67108864 bytes, 131072 sectors\n",
               SaveDisk("/dev/loop1")},
              {"/dev/loop1p1       2048 131071  129024  63M  6 FAT16\n",
               SavePartition("/dev/loop1p1")}});
  EXPECT_EQ(kAfterListing + listing + kAfterOk +
                "\n     Find a new disk /dev/loop1 "
                "\n     Find a new partition /dev/loop1p1 " +
                MountOnExistingMedia("/dev/loop1p1"),
            Log());
}

TEST_F(MountNewDevice, RecordedSuperfloppyMountsTheDisk) {
  Listings(Recording("fdisk_before.txt"),
           Recording("fdisk_after_superfloppy.txt"));
  ScratchExists();
  env.Script("mount /dev/loop1 /media/scrtch", "", 0);
  EXPECT_EQ(0, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ((Names{kFdisk, "mount /dev/loop1 /media/scrtch"}), env.commands);
}

TEST_F(MountNewDevice, RecordedUnrelatedDiskAndPartition) {
  Listings(Recording("fdisk_before_blank.txt"),
           Recording("fdisk_after_unrelated.txt"));
  EXPECT_EQ(1, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ(Names{kFdisk}, env.commands);
  std::string log = Log();
  EXPECT_EQ(
      "\n     Find a new disk /dev/loop2 "
      "\n     Find a new partition /dev/loop1p1 "
      "\n     Find more than one devices after Phase One: /dev/loop2, "
      "/dev/loop1p1"
      "\n     Cannot decide which new device is created by Phase One",
      log.substr(log.find(kAfterOk) + kAfterOk.size()));
}

TEST_F(MountNewDevice, RecordedTwoSticks) {
  Listings(Recording("fdisk_before.txt"),
           Recording("fdisk_after_two_sticks.txt"));
  EXPECT_EQ(1, Wf().ManuallyMountUSBDevice());
  std::string log = Log();
  EXPECT_EQ(
      "\n     Find a new disk /dev/loop1 "
      "\n     Find a new disk /dev/loop2 "
      "\n     Find a new partition /dev/loop1p1 "
      "\n     Find a new partition /dev/loop2p1 "
      "\n     Find more than one disks after Phase One: /dev/loop1, /dev/loop2"
      "\n     Cannot decide which new disk is created by Phase One"
      "\n     Find more than one partitions after Phase One: /dev/loop1p1, "
      "/dev/loop2p1"
      "\n     Cannot decide which new partition is created by Phase One",
      log.substr(log.find(kAfterOk) + kAfterOk.size()));
}

// A name holding shell syntax reaches mount quoted.
TEST_F(MountNewDevice, DeviceNameIsQuotedForTheShell) {
  Listings(kSda, std::string(kSda) +
                     "/dev/sdb1;reboot$(id)  1  16  16368  6  FAT16\n");
  ScratchExists();
  env.Script("mount '/dev/sdb1;reboot$(id)' /media/scrtch", "", 0);
  EXPECT_EQ(0, Wf().ManuallyMountUSBDevice());
  EXPECT_EQ((Names{kFdisk, "mount '/dev/sdb1;reboot$(id)' /media/scrtch"}),
            env.commands);
  std::string log = Log();
  EXPECT_NE(std::string::npos,
            log.find("\n       mount '/dev/sdb1;reboot$(id)' /media/scrtch"
                     "\n     Mount /dev/sdb1;reboot$(id) /media/scrtch OK\n"));
}

using ScratchDirectory = UsbTest;

TEST_F(ScratchDirectory, ExistingScratchDirectoryIsUsedAsItIs) {
  env.directories = {"/media", "/media/scrtch"};
  char path[64] = "";
  EXPECT_EQ(0, CreateMountedDirectory(path, sizeof(path)));
  EXPECT_STREQ("/media/scrtch", path);
  EXPECT_TRUE(env.commands.empty());
  EXPECT_EQ(0, G_bMkdirMountedOnLayer2);
  EXPECT_EQ(
      "\n       Check if /media exists"
      "\n       Check if /media/scrtch exists",
      Log());
}

TEST_F(ScratchDirectory, ScratchDirectoryIsCreatedUnderMedia) {
  env.directories = {"/media"};
  env.Script("mkdir /media/scrtch", "", 0);
  char path[64] = "";
  EXPECT_EQ(0, CreateMountedDirectory(path, sizeof(path)));
  EXPECT_STREQ("/media/scrtch", path);
  EXPECT_EQ(Names{"mkdir /media/scrtch"}, env.commands);
  EXPECT_EQ(1, G_bMkdirMountedOnLayer2);
  EXPECT_EQ((std::vector<uint8_t>{0, 0, 0}),
            std::vector<uint8_t>(G_bMkdirMountedOnLayer1,
                                 G_bMkdirMountedOnLayer1 + 3));
  EXPECT_EQ(
      "\n       Check if /media exists"
      "\n       Check if /media/scrtch exists"
      "\n       /media/scrtch does not exist"
      "\n       Try to create /media/scrtch"
      "\n         mkdir /media/scrtch"
      "\n       Create /media/scrtch OK",
      Log());
}

// /media exists but /media/scrtch cannot be made: it is removed, /mnt is
// tried next, and the scratch flag stays set for the clean-up.
TEST_F(ScratchDirectory, FailedScratchUnderMediaFallsBackToMnt) {
  env.directories = {"/media", "/mnt"};
  env.Script("mkdir /media/scrtch", "", kFailed);
  env.Script("rm -rf /media/scrtch", "", 0);
  env.Script("mkdir /mnt/scrtch", "", 0);
  char path[64] = "";
  EXPECT_EQ(0, CreateMountedDirectory(path, sizeof(path)));
  EXPECT_STREQ("/mnt/scrtch", path);
  EXPECT_EQ((Names{"mkdir /media/scrtch", "rm -rf /media/scrtch",
                   "mkdir /mnt/scrtch"}),
            env.commands);
  EXPECT_EQ(1, G_bMkdirMountedOnLayer2);
  EXPECT_EQ(0, G_bMkdirMountedOnLayer1[0]);
  EXPECT_EQ(0, G_bMkdirMountedOnLayer1[1]);
  EXPECT_EQ(
      "\n       Check if /media exists"
      "\n       Check if /media/scrtch exists"
      "\n       /media/scrtch does not exist"
      "\n       Try to create /media/scrtch"
      "\n         mkdir /media/scrtch"
      "\n       Create /media/scrtch failed"
      "\n   Delete /media/scrtch : OK"
      "\n       Check if /mnt exists"
      "\n       Check if /mnt/scrtch exists"
      "\n       /mnt/scrtch does not exist"
      "\n       Try to create /mnt/scrtch"
      "\n         mkdir /mnt/scrtch"
      "\n       Create /mnt/scrtch OK",
      Log());
}

TEST_F(ScratchDirectory, MissingParentIsCreatedAndFlagged) {
  env.Script("mkdir /media", "", 0);
  env.Script("mkdir /media/scrtch", "", 0);
  char path[64] = "";
  EXPECT_EQ(0, CreateMountedDirectory(path, sizeof(path)));
  EXPECT_STREQ("/media/scrtch", path);
  EXPECT_EQ((Names{"mkdir /media", "mkdir /media/scrtch"}), env.commands);
  EXPECT_EQ(1, G_bMkdirMountedOnLayer1[0]);
  EXPECT_EQ(1, G_bMkdirMountedOnLayer2);
  EXPECT_EQ(
      "\n       Check if /media exists"
      "\n       /media does not exist"
      "\n       Try to create /media"
      "\n         mkdir /media"
      "\n       Create /media OK"
      "\n       Check if /media/scrtch exists"
      "\n       /media/scrtch does not exist"
      "\n       Try to create /media/scrtch"
      "\n         mkdir /media/scrtch"
      "\n       Create /media/scrtch OK",
      Log());
}

TEST_F(ScratchDirectory, ParentThatCannotBeCreatedIsUnflagged) {
  env.Script("mkdir /media", "", kFailed);
  env.directories = {"/mnt", "/mnt/scrtch"};
  char path[64] = "";
  EXPECT_EQ(0, CreateMountedDirectory(path, sizeof(path)));
  EXPECT_STREQ("/mnt/scrtch", path);
  EXPECT_EQ(Names{"mkdir /media"}, env.commands);
  EXPECT_EQ(0, G_bMkdirMountedOnLayer1[0]);
  EXPECT_EQ(0, G_bMkdirMountedOnLayer2);
  EXPECT_EQ(
      "\n       Check if /media exists"
      "\n       /media does not exist"
      "\n       Try to create /media"
      "\n         mkdir /media"
      "\n       Create /media failed"
      "\n       Check if /mnt exists"
      "\n       Check if /mnt/scrtch exists",
      Log());
}

TEST_F(ScratchDirectory, AllParentsFailing) {
  env.directories = {"/media", "/mnt", "/tmp"};
  env.Script("mkdir /media/scrtch", "", kFailed);
  env.Script("mkdir /mnt/scrtch", "", kFailed);
  env.Script("mkdir /tmp/scrtch", "", -1);  // no shell at all
  env.Script("rm -rf /media/scrtch", "", 0);
  env.Script("rm -rf /mnt/scrtch", "", 0);
  env.Script("rm -rf /tmp/scrtch", "", 0);
  char path[64] = "";
  EXPECT_EQ(1, CreateMountedDirectory(path, sizeof(path)));
  EXPECT_EQ(
      (Names{"mkdir /media/scrtch", "rm -rf /media/scrtch", "mkdir /mnt/scrtch",
             "rm -rf /mnt/scrtch", "mkdir /tmp/scrtch", "rm -rf /tmp/scrtch"}),
      env.commands);
  EXPECT_EQ(1, G_bMkdirMountedOnLayer2);
}

TEST_F(ScratchDirectory, BufferTooSmallIsRefusedNotOverrun) {
  env.directories = {"/media", "/media/scrtch"};
  char path[16];
  memset(path, 'Z', sizeof(path));
  EXPECT_EQ(1, CreateMountedDirectory(path, 13));  // needs 14
  EXPECT_EQ('Z', path[0]);
  EXPECT_EQ(0, CreateMountedDirectory(path, 14));
  EXPECT_STREQ("/media/scrtch", path);
  EXPECT_EQ(1, CreateMountedDirectory(nullptr, 64));
}

using MountDevice = UsbTest;

TEST_F(MountDevice, MountFailureIsReported) {
  env.directories = {"/media", "/media/scrtch"};
  env.Script("mount /dev/sdb1 /media/scrtch", "", 32 << 8);
  EXPECT_EQ(1, CreateAndMountUSBDevice("/dev/sdb1"));
  EXPECT_EQ(Names{"mount /dev/sdb1 /media/scrtch"}, env.commands);
  EXPECT_EQ(
      "\n     Mount the found device"
      "\n       Check if /media exists"
      "\n       Check if /media/scrtch exists"
      "\n       mount /dev/sdb1 /media/scrtch"
      "\n     Mount /dev/sdb1 /media/scrtch failed\n",
      Log());
}

// mkdir and rm -rf through the fake change the directories, as the real
// commands would.
void MakeDirectoriesReal(testing_support::FakeEnv* env) {
  env->handler = [env](const std::string& command, CommandResult* result) {
    if (command.compare(0, 6, "mkdir ") == 0) {
      env->directories.insert(command.substr(6));
    } else if (command.compare(0, 7, "rm -rf ") == 0) {
      env->directories.erase(command.substr(7));
    } else {
      return false;
    }
    result->status = 0;
    return true;
  };
}

TEST_F(MountDevice, FailedMountRemovesTheDirectoriesItCreated) {
  MakeDirectoriesReal(&env);
  env.Script("mount /dev/sdb1 /media/scrtch", "", 32 << 8);
  EXPECT_EQ(1, CreateAndMountUSBDevice("/dev/sdb1"));
  EXPECT_EQ((Names{"mkdir /media", "mkdir /media/scrtch",
                   "mount /dev/sdb1 /media/scrtch", "rm -rf /media/scrtch",
                   "rm -rf /media"}),
            env.commands);
  std::string log = Log();
  EXPECT_EQ(
      "\n     Mount /dev/sdb1 /media/scrtch failed\n"
      "\n   Delete /media/scrtch : OK"
      "\n   Delete /media : OK",
      log.substr(log.rfind("\n     Mount /dev/sdb1")));
}

TEST_F(MountDevice, FailedMountLeavesAMountPointAlone) {
  env.directories = {"/media"};
  MakeDirectoriesReal(&env);
  env.mount_points = {"/media/scrtch"};
  env.Script("mount /dev/sdb1 /media/scrtch", "", 32 << 8);
  EXPECT_EQ(1, CreateAndMountUSBDevice("/dev/sdb1"));
  EXPECT_EQ((Names{"mkdir /media/scrtch", "mount /dev/sdb1 /media/scrtch"}),
            env.commands);
  EXPECT_NE(std::string::npos, Log().find("Refused, still a mount point"));
}

TEST_F(MountDevice, NoDirectoryMeansNoMount) {
  env.Script("mkdir /media", "", kFailed);
  env.Script("mkdir /mnt", "", kFailed);
  env.Script("mkdir /tmp", "", kFailed);
  EXPECT_EQ(1, CreateAndMountUSBDevice("/dev/sdb1"));
  EXPECT_EQ((Names{"mkdir /media", "mkdir /mnt", "mkdir /tmp"}), env.commands);
  std::string log = Log();
  EXPECT_EQ("\n       Create /tmp failed\n     Mount /dev/sdb1  failed\n",
            log.substr(log.rfind("\n       Create /tmp failed")));
}

}  // namespace

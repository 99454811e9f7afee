// The fdisk listing parser and the difference of two listings, fed with
// real recorded listings and with hand-made bad input.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "usb/write_firmware.h"
#include "usb_fixture.h"

namespace {

using testing_support::CommandResult;
using usb_testing::Lines;
using usb_testing::ListingLog;
using usb_testing::Read;
using usb_testing::Recording;
using usb_testing::SaveDisk;
using usb_testing::SavePartition;
using usb_testing::UsbTest;
using Names = std::vector<std::string>;

using GetBlockDeviceList = UsbTest;

TEST_F(GetBlockDeviceList, RecordedListingOfOnePartitionedDisk) {
  std::string listing = Recording("fdisk_before.txt");
  env.Script("/sbin/fdisk -l", listing);
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ(Names{"/dev/loop0"}, G_astrDiskList);
  EXPECT_EQ(Names{"/dev/loop0p1"}, G_astrPartitionList);
  EXPECT_EQ(Names{"/sbin/fdisk -l"}, env.commands);
  EXPECT_EQ(
      "\n       Get Device List" +
          Read("Disk /dev/loop0: 64 MiB, 67108864 bytes, 131072 sectors\n") +
          "\n         Save disk name \"/dev/loop0\"" +
          Read("Units: sectors of 1 * 512 = 512 bytes\n") +
          Read("Sector size (logical/physical): 512 bytes / 512 bytes\n") +
          Read("I/O size (minimum/optimal): 512 bytes / 512 bytes\n") +
          Read("Disklabel type: dos\n") +
          Read("Disk identifier: 0xfdb52b6f\n") + Read("\n") +
          Read("Device       Boot Start    End Sectors Size Id Type\n") +
          Read("/dev/loop0p1       2048 131071  129024  63M  6 FAT16\n") +
          "\n         Save partition name \"/dev/loop0p1\"",
      Log());
}

// fdisk and df are run in the C locale: under a German locale the same
// listing would read "Festplatte ... Bytes" and no disk would be found.
TEST_F(GetBlockDeviceList, ListingIsReadInTheCLocaleWhateverTheUsers) {
  env.process_handler = [](const platform::ProcessSpec& spec, CommandResult* r) {
    bool cLocale = false;
    for (const std::string& e : spec.env) cLocale = cLocale || e == "LC_ALL=C";
    r->output = cLocale ? "Disk /dev/sdb: 64 MiB, 67108864 bytes, 131072 sectors\n"
                        : "Festplatte /dev/sdb: 64 MiB, 67108864 Bytes, 131072 Sektoren\n";
    return true;
  };
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  unsetenv("LC_ALL");
  EXPECT_EQ(Names{"/dev/sdb"}, G_astrDiskList);
  ASSERT_EQ(1u, env.processes.size());
  EXPECT_EQ(std::vector<std::string>{"LC_ALL=C"}, env.processes[0].env);
}

// The unit lines hold "/" and "bytes" but no "Disk"; the identifier line
// holds "Disk" but no "/": none of them is a disk.
TEST_F(GetBlockDeviceList, RecordedListingOfThreeDisksInPrintedOrder) {
  std::string listing = Recording("fdisk_after_two_sticks.txt");
  env.Script("/sbin/fdisk -l", listing);
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ((Names{"/dev/loop0", "/dev/loop1", "/dev/loop2"}), G_astrDiskList);
  EXPECT_EQ((Names{"/dev/loop0p1", "/dev/loop1p1", "/dev/loop2p1"}),
            G_astrPartitionList);
  EXPECT_EQ(
      ListingLog(listing,
                 {{"Disk /dev/loop0: 64 MiB, 67108864 bytes, 131072 sectors\n",
                   SaveDisk("/dev/loop0")},
                  {"/dev/loop0p1       2048 131071  129024  63M  6 FAT16\n",
                   SavePartition("/dev/loop0p1")},
                  {"Disk /dev/loop1: 64 MiB, 67108864 bytes, 131072 sectors\n",
                   SaveDisk("/dev/loop1")},
                  {"/dev/loop1p1       2048 131071  129024  63M  6 FAT16\n",
                   SavePartition("/dev/loop1p1")},
                  {"Disk /dev/loop2: 64 MiB, 67108864 bytes, 131072 sectors\n",
                   SaveDisk("/dev/loop2")},
                  {"/dev/loop2p1       2048 131071  129024  63M  6 FAT16\n",
                   SavePartition("/dev/loop2p1")}}),
      Log());
}

TEST_F(GetBlockDeviceList, RecordedDiskWithNewTableBesideAnotherDisk) {
  std::string listing = Recording("fdisk_after_unrelated.txt");
  env.Script("/sbin/fdisk -l", listing);
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ((Names{"/dev/loop0", "/dev/loop1", "/dev/loop2"}), G_astrDiskList);
  EXPECT_EQ((Names{"/dev/loop0p1", "/dev/loop1p1"}), G_astrPartitionList);
  EXPECT_EQ(
      ListingLog(listing,
                 {{"Disk /dev/loop0: 64 MiB, 67108864 bytes, 131072 sectors\n",
                   SaveDisk("/dev/loop0")},
                  {"/dev/loop0p1       2048 131071  129024  63M  6 FAT16\n",
                   SavePartition("/dev/loop0p1")},
                  {"Disk /dev/loop1: 32 MiB, 33554432 bytes, 65536 sectors\n",
                   SaveDisk("/dev/loop1")},
                  {"/dev/loop1p1       2048 65535   63488  31M  6 FAT16\n",
                   SavePartition("/dev/loop1p1")},
                  {"Disk /dev/loop2: 64 MiB, 67108864 bytes, 131072 sectors\n",
                   SaveDisk("/dev/loop2")}}),
      Log());
}

// A superfloppy shows a label but no partition line.
TEST_F(GetBlockDeviceList, RecordedDiskWithoutPartitions) {
  env.Script("/sbin/fdisk -l", Recording("fdisk_after_superfloppy.txt"));
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ((Names{"/dev/loop0", "/dev/loop1"}), G_astrDiskList);
  EXPECT_EQ(Names{"/dev/loop0p1"}, G_astrPartitionList);
}

TEST_F(GetBlockDeviceList, SecondListingReplacesTheFirst) {
  env.Script("/sbin/fdisk -l", Recording("fdisk_after_two_sticks.txt"));
  env.Script("/sbin/fdisk -l", Recording("fdisk_before.txt"));
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ(Names{"/dev/loop0"}, G_astrDiskList);
  EXPECT_EQ(Names{"/dev/loop0p1"}, G_astrPartitionList);
}

// Recorded on a machine where fdisk sees no disk at all.
TEST_F(GetBlockDeviceList, NothingPrintedGivesEmptyListsAndSuccess) {
  ASSERT_EQ("", Recording("fdisk_none.txt"));
  G_astrDiskList = {"/dev/old"};
  G_astrPartitionList = {"/dev/old1"};
  env.Script("/sbin/fdisk -l", Recording("fdisk_none.txt"));
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_TRUE(G_astrDiskList.empty());
  EXPECT_TRUE(G_astrPartitionList.empty());
  EXPECT_EQ("\n       Get Device List", Log());
}

TEST_F(GetBlockDeviceList, ToolThatCannotStartFailsAfterClearingTheLists) {
  G_astrDiskList = {"/dev/old"};
  G_astrPartitionList = {"/dev/old1"};
  CommandResult fails;
  fails.start_fails = true;
  env.Script("/sbin/fdisk -l", fails);
  EXPECT_EQ(1, Wf().GetBlockDeviceList());
  EXPECT_TRUE(G_astrDiskList.empty());
  EXPECT_TRUE(G_astrPartitionList.empty());
  EXPECT_EQ("\n       Get Device List\n         /sbin/fdisk -l failed", Log());
}

// The older fdisk layout, and the lines that must be skipped.
TEST_F(GetBlockDeviceList, OlderLayoutAndSkippedLines) {
  env.Script("/sbin/fdisk -l",
             "Disk /dev/sda: 250.0 GB, 250059350016 bytes\n"
             "Disk identifier: 0x0005b1e4\n"
             "/dev/sda1   *           1        3824    30716248+  83  Linux\n"
             "Disk /dev/sdb: 16 MB, 16777216 bytes\n"
             "/dev/sdb1               1          16       16368    6  FAT16\n"
             "Disk /dev/sdc doesn't contain a valid partition table\n"
             "Disk /dev/sdd 16 MB, 16777216 bytes\n"
             "Disk size: /dev/sde 16 MB 16777216 bytes\n");
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ((Names{"/dev/sda", "/dev/sdb"}), G_astrDiskList);
  EXPECT_EQ((Names{"/dev/sda1", "/dev/sdb1"}), G_astrPartitionList);
}

TEST_F(GetBlockDeviceList, PartitionNameWithoutBlankIsSkipped) {
  env.Script("/sbin/fdisk -l", "/dev/sdb1\n/dev/sdc1");
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_TRUE(G_astrPartitionList.empty());
  EXPECT_EQ(
      "\n       Get Device List" + Read("/dev/sdb1\n") + Read("/dev/sdc1"),
      Log());
}

// The last line without its line feed still counts.
TEST_F(GetBlockDeviceList, PartialLastLineIsParsed) {
  env.Script("/sbin/fdisk -l",
             "Disk /dev/sdb: 16 MiB, 16777216 bytes\n/dev/sdb1 2048");
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ(Names{"/dev/sdb"}, G_astrDiskList);
  EXPECT_EQ(Names{"/dev/sdb1"}, G_astrPartitionList);
}

// 234 characters a read: the rest of a longer line is a line of its own.
TEST_F(GetBlockDeviceList, LongLineIsReadInPiecesOf234) {
  std::string padded = "/dev/sdb1" + std::string(300, ' ') + "2048 FAT16\n";
  std::string longName = "/dev/" + std::string(240, 'x') + " 2048\n";
  env.Script("/sbin/fdisk -l", padded + longName);
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ(Names{"/dev/sdb1"}, G_astrPartitionList);
  EXPECT_TRUE(G_astrDiskList.empty());
  EXPECT_EQ("\n       Get Device List" + Read(padded.substr(0, 234)) +
                "\n         Save partition name \"/dev/sdb1\"" +
                Read(padded.substr(234)) + Read(longName.substr(0, 234)) +
                Read(longName.substr(234)),
            Log());
}

TEST_F(GetBlockDeviceList, LineOfExactly234CharactersIsOneRead) {
  std::string line = "/dev/sdb1 " + std::string(223, 'y') + "\n";
  ASSERT_EQ(234u, line.size());
  env.Script("/sbin/fdisk -l", line);
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ("\n       Get Device List" + Read(line) +
                "\n         Save partition name \"/dev/sdb1\"",
            Log());
}

TEST_F(GetBlockDeviceList, PercentInToolOutputIsPlainText) {
  env.Script("/sbin/fdisk -l", "/dev/%s%n 1\n");
  EXPECT_EQ(0, Wf().GetBlockDeviceList());
  EXPECT_EQ(Names{"/dev/%s%n"}, G_astrPartitionList);
  EXPECT_EQ("\n       Get Device List" + Read("/dev/%s%n 1\n") +
                "\n         Save partition name \"/dev/%s%n\"",
            Log());
}

using ExtractDiff = UsbTest;

TEST_F(ExtractDiff, IdenticalListsGiveNothing) {
  Names list{"/dev/sda", "/dev/sdb"};
  EXPECT_TRUE(ExtractDiffDiskPartition(true, list, list).empty());
  EXPECT_EQ("", Log());
}

TEST_F(ExtractDiff, EmptyEarlierListGivesTheWholeLaterList) {
  Names later{"/dev/sda1", "/dev/sdb1"};
  EXPECT_EQ(later, ExtractDiffDiskPartition(false, {}, later));
  EXPECT_EQ(
      "\n     Find a new partition /dev/sda1 "
      "\n     Find a new partition /dev/sdb1 ",
      Log());
}

TEST_F(ExtractDiff, NewNamesInLaterOrderAndRepeatsReportedTwice) {
  Names earlier{"/dev/sda", "/dev/sdc"};
  Names later{"/dev/sdd", "/dev/sda", "/dev/sdb", "/dev/sdd"};
  EXPECT_EQ((Names{"/dev/sdd", "/dev/sdb", "/dev/sdd"}),
            ExtractDiffDiskPartition(true, earlier, later));
  EXPECT_EQ(
      "\n     Find a new disk /dev/sdd "
      "\n     Find a new disk /dev/sdb "
      "\n     Find a new disk /dev/sdd ",
      Log());
}

TEST_F(ExtractDiff, ExactComparisonOnly) {
  EXPECT_EQ(Names{"/dev/sdb1"},
            ExtractDiffDiskPartition(false, {"/dev/sdb"}, {"/dev/sdb1"}));
}

}  // namespace

// Finding the mounted stick in the disk-usage report, fed with real
// recorded reports (see recordings/README.md) and hand-made bad input, and
// the size query through the scripted block devices.
#include <gtest/gtest.h>

#include "usb/write_firmware.h"
#include "usb_fixture.h"

namespace {

using testing_support::CommandResult;
using usb_testing::Lines;
using usb_testing::OtherType;
using usb_testing::OtherTypes;
using usb_testing::Recording;
using usb_testing::UsbTest;
using Names = std::vector<std::string>;

const char kDf[] = "df -Th";
const char kInfo[] = "\n     Get virtual media info";
const char kNotFound[] = "\n       Virtual USB device not found";
const char kSearchToVfat[] =
    "\n         search msdos: Type != msdos\n         search vfat: ";
// A 64 MiB device, as the recorded loop devices were.
const long kSectors64M = 131072;
const char kSize64M[] =
    "\n       Open USB device\n       Get USB device size"
    "\n         USB device size = 65536 bytes";

std::string Check(const std::string& text) {
  return "\n       Check \"" + text + "\"";
}

std::string Found(const std::string& fs, const std::string& type, int mb,
                  const std::string& on) {
  return "Find the Usb device: Fileystem=" + fs + " Type=" + type +
         " Size=" + std::to_string(mb) + " MB Mounted on=" + on;
}

// The first lines of a recorded report, all of other types.
std::string Leading(const std::string& report, size_t count) {
  std::vector<std::string> lines = Lines(report);
  lines.resize(count);
  return OtherTypes(lines);
}

class FindMounted : public UsbTest {
 protected:
  void SetUp() override {
    UsbTest::SetUp();
    SetMinSizeMB(16);
  }
  // The report's last line is the stick's, the six before it other types.
  std::string StickLine(const std::string& report) {
    return Lines(report).back();
  }
};

TEST_F(FindMounted, RecordedVfatStickOnMediaScrtch) {
  std::string report = Recording("df_scrtch_vfat.txt");
  env.Script(kDf, report);
  env.block_devices["/dev/loop0"] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_STREQ("/dev/loop0", Wf().DeviceName());
  EXPECT_STREQ("/media/scrtch", Wf().MountedOn());
  EXPECT_EQ(131072u, Wf().SectorCount());
  EXPECT_EQ(512u, Wf().SectorSize());
  EXPECT_EQ(Names{kDf}, env.commands);
  EXPECT_EQ(std::string(kInfo) + Leading(report, 6) +
                Check("/dev/loop0              vfat       59M   14K   56M   1% "
                      "/media/scrtch\n") +
                kSearchToVfat +
                Found("/dev/loop0", "vfat", 59, "/media/scrtch") + kSize64M,
            Log());
}

// The same report as the machine really printed it: type ext2.
TEST_F(FindMounted, RecordedExt2StickIsNotAccepted) {
  std::string report = Recording("df_scrtch.txt");
  env.Script(kDf, report);
  env.block_devices["/dev/loop0"] = kSectors64M;
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + OtherTypes(Lines(report)) + kNotFound, Log());
}

TEST_F(FindMounted, RecordedReportWithoutStick) {
  std::string report = Recording("df_none.txt");
  env.Script(kDf, report);
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + OtherTypes(Lines(report)) + kNotFound, Log());
}

// "15M" against a minimum of 16 MB.
TEST_F(FindMounted, RecordedStickBelowMinimumSize) {
  std::string report = Recording("df_15M_vfat.txt");
  env.Script(kDf, report);
  env.block_devices["/dev/loop0"] = 32768;
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + Leading(report, 6) + Check(StickLine(report)) +
                kSearchToVfat +
                "Device size = 15 MB, expected minimum size = 16 MB" +
                kNotFound,
            Log());
}

TEST_F(FindMounted, RecordedStickOfExactlyTheMinimumSize) {
  std::string report = Recording("df_15M_vfat.txt");
  env.Script(kDf, report);
  env.block_devices["/dev/loop0"] = 32768;
  SetMinSizeMB(15);
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
}

// Only the integer part is read: "1.9G" is 1 * 1024.
TEST_F(FindMounted, RecordedGigabyteSizeReadAsIntegerTimes1024) {
  std::string report = Recording("df_1_9G_vfat.txt");
  env.Script(kDf, report);
  env.block_devices["/dev/loop0"] = 3993600;  // 1950 MiB
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + Leading(report, 6) + Check(StickLine(report)) +
                kSearchToVfat +
                Found("/dev/loop0", "vfat", 1024, "/media/scrtch") +
                "\n       Open USB device\n       Get USB device size"
                "\n         USB device size = 1996800 bytes",
            Log());
}

// A size in kilobytes is taken as megabytes.
TEST_F(FindMounted, RecordedKilobyteSizeCountsAsMegabytes) {
  std::string report = Recording("df_kilobytes_vfat.txt");
  env.Script(kDf, report);
  env.block_devices["/dev/loop0"] = 2048;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  std::string log = Log();
  EXPECT_NE(std::string::npos,
            log.find(Found("/dev/loop0", "vfat", 984, "/media/scrtch")));
}

TEST_F(FindMounted, RecordedSubdirectoryScrtchIsRejected) {
  std::string report = Recording("df_sub_scrtch_vfat.txt");
  env.Script(kDf, report);
  env.block_devices["/dev/loop0"] = kSectors64M;
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + Leading(report, 6) + Check(StickLine(report)) +
                kSearchToVfat +
                "Device name = \"sub/scrtch\", expected device name = "
                "\"scrtch\"" +
                kNotFound,
            Log());
}

TEST_F(FindMounted, MntSubScrtchIsRejected) {
  env.Script(kDf,
             "Filesystem     Type  Size  Used Avail Use% Mounted on\n"
             "/dev/sdb1      vfat   16M  4.0K   16M   1% /mnt/sub/scrtch\n");
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(
      std::string(kInfo) +
          OtherType("Filesystem     Type  Size  Used Avail Use% Mounted on\n") +
          Check(
              "/dev/sdb1      vfat   16M  4.0K   16M   1% /mnt/sub/scrtch\n") +
          kSearchToVfat +
          "Device name = \"sub/scrtch\", expected device name = \"scrtch\"" +
          kNotFound,
      Log());
}

TEST_F(FindMounted, ScratchDirectoryRules) {
  struct Row {
    const char* mountedOn;
    bool accepted;
    const char* compared;
  } rows[] = {
      {"/media/scrtch", true, "scrtch"},
      {"/mnt/scrtch", true, "scrtch"},
      {"/tmp/scrtch", true, "scrtch"},
      {"/scrtch", true, "scrtch"},
      {"/media/scrtch2", false, "scrtch2"},
      {"/media/scratch", false, "scratch"},
      {"/", false, ""},
  };
  for (const Row& row : rows)
    env.Script(kDf, std::string("/dev/sdb1 vfat 16M 0 16M 0% ") +
                        row.mountedOn + "\n");
  env.block_devices["/dev/sdb1"] = 32768;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.mountedOn);
    cap.Clear();
    EXPECT_EQ(row.accepted ? 0 : 52, Wf().IsMountedOnDirectoryFound());
    std::string rejected = std::string("Device name = \"") + row.compared +
                           "\", expected device name = \"scrtch\"";
    EXPECT_EQ(!row.accepted, Log().find(rejected) != std::string::npos);
  }
}

TEST_F(FindMounted, MsdosTypeIsAcceptedAtTheFirstComparison) {
  env.Script(kDf, "/dev/sdb     msdos   16M     0   16M   0% /media/scrtch\n");
  env.block_devices["/dev/sdb"] = 32768;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) +
                Check("/dev/sdb     msdos   16M     0   16M   0% "
                      "/media/scrtch\n") +
                "\n         search msdos: " +
                Found("/dev/sdb", "msdos", 16, "/media/scrtch") +
                "\n       Open USB device\n       Get USB device size"
                "\n         USB device size = 16384 bytes",
            Log());
}

// The first stick that passes is taken; later lines are not read.
TEST_F(FindMounted, FirstPassingLineWins) {
  env.Script(kDf,
             "/dev/sdb1 vfat 8M 0 8M 0% /media/scrtch\n"
             "/dev/sdc1 vfat 64M 0 64M 0% /mnt/scrtch\n"
             "/dev/sdd1 vfat 64M 0 64M 0% /tmp/scrtch\n");
  env.block_devices["/dev/sdc1"] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_STREQ("/dev/sdc1", Wf().DeviceName());
  EXPECT_STREQ("/mnt/scrtch", Wf().MountedOn());
  EXPECT_EQ(std::string::npos, Log().find("/dev/sdd1"));
}

// df of this machine widens its first column instead of wrapping; the
// wrapped layout is built from that real line (see the recordings README).
TEST_F(FindMounted, WrappedLineIsParsedAsOneLine) {
  std::string report = Recording("df_wrapped_vfat.txt");
  std::vector<std::string> lines = Lines(report);
  ASSERT_EQ(8u, lines.size());
  std::string name = lines[6].substr(0, lines[6].size() - 1);
  env.Script(kDf, report);
  env.block_devices[name] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(name, Wf().DeviceName());
  EXPECT_STREQ("/media/scrtch", Wf().MountedOn());
  EXPECT_EQ(std::string(kInfo) + Leading(report, 6) +
                Check(name + " " + lines[7]) + kSearchToVfat +
                Found(name, "vfat", 59, "/media/scrtch") + kSize64M,
            Log());
}

TEST_F(FindMounted, RecordedLongNameWithoutWrapping) {
  std::string report = Recording("df_long_name_vfat.txt");
  std::string stick = Lines(report).back();
  std::string name = stick.substr(0, stick.find(' '));
  ASSERT_EQ(104u, name.size());
  env.Script(kDf, report);
  env.block_devices[name] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(name, Wf().DeviceName());
  EXPECT_EQ(std::string(kInfo) + Leading(report, 6) + Check(stick) +
                kSearchToVfat + Found(name, "vfat", 59, "/media/scrtch") +
                kSize64M,
            Log());
}

// Every recorded line is longer than 255 characters and is read in pieces
// but parsed whole. The 276-character name does not fit the device name
// field, so the stick is refused rather than cut.
TEST_F(FindMounted, RecordedLinesOver255CharactersAndAnOverlongName) {
  std::string report = Recording("df_over_255_vfat.txt");
  std::string stick = Lines(report).back();
  std::string name = stick.substr(0, stick.find(' '));
  ASSERT_EQ(276u, name.size());
  ASSERT_GT(stick.size(), 256u);
  env.Script(kDf, report);
  env.block_devices[name] = kSectors64M;
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_STREQ("", Wf().DeviceName());
  EXPECT_EQ(std::string(kInfo) + Leading(report, 6) + Check(stick) +
                kSearchToVfat + "Device name \"" + name +
                "\" is longer than 255 characters" + kNotFound,
            Log());
}

TEST_F(FindMounted, DeviceNameOf255CharactersFits) {
  std::string name = "/dev/" + std::string(250, 'n');
  env.Script(kDf, name + " vfat 64M 0 64M 0% /media/scrtch\n");
  env.block_devices[name] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(name, Wf().DeviceName());
}

TEST_F(FindMounted, MountPointOver31CharactersIsRefusedNotCut) {
  std::string fits = "/" + std::string(23, 'p') + "/scrtch";     // 31
  std::string tooLong = "/" + std::string(24, 'p') + "/scrtch";  // 32
  env.Script(kDf, "/dev/sdb1 vfat 64M 0 64M 0% " + tooLong + "\n");
  env.Script(kDf, "/dev/sdb1 vfat 64M 0 64M 0% " + fits + "\n");
  env.block_devices["/dev/sdb1"] = kSectors64M;
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_STREQ("", Wf().MountedOn());
  EXPECT_EQ(std::string(kInfo) +
                Check("/dev/sdb1 vfat 64M 0 64M 0% " + tooLong + "\n") +
                kSearchToVfat + "Mount point \"" + tooLong +
                "\" is longer than 31 characters" + kNotFound,
            Log());
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(fits, Wf().MountedOn());
}

// A line longer than one read must not pass on its first piece alone: the
// mount point here is /media/scrtch/deeper, split after /media/scrtch.
TEST_F(FindMounted, MountPointSplitAcrossReadsIsSeenWhole) {
  std::string head = "/dev/sdb1 vfat 64M 0 64M 0% /media/scrtch";
  std::string line = "/dev/sdb1" + std::string(255 - head.size(), ' ') +
                     head.substr(9) + "/deeper\n";
  ASSERT_EQ("/media/scrtch/deeper\n", line.substr(255 - 13));
  env.Script(kDf, line);
  env.block_devices["/dev/sdb1"] = kSectors64M;
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + Check(line) + kSearchToVfat +
                "Device name = \"scrtch/deeper\", expected device name = "
                "\"scrtch\"" +
                kNotFound,
            Log());
}

TEST_F(FindMounted, NothingPrinted) {
  env.Script(kDf, "");
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + kNotFound, Log());
}

TEST_F(FindMounted, ReportThatCannotStart) {
  CommandResult fails;
  fails.start_fails = true;
  env.Script(kDf, fails);
  EXPECT_EQ(1, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + "\n       df -Th failed", Log());
}

TEST_F(FindMounted, LastLineWithoutLineFeedIsParsed) {
  env.Script(kDf, "/dev/sdb1 vfat 64M 0 64M 0% /media/scrtch");
  env.block_devices["/dev/sdb1"] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) +
                Check("/dev/sdb1 vfat 64M 0 64M 0% /media/scrtch") +
                kSearchToVfat +
                Found("/dev/sdb1", "vfat", 64, "/media/scrtch") + kSize64M,
            Log());
}

// A name alone at the end of the report never gets its figures.
TEST_F(FindMounted, PartialLinesAtTheEndAreIgnored) {
  env.Script(kDf, "/dev/sdb1\n64M 0 64M\n");
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) + kNotFound, Log());
}

// Lines with too few fields are joined, but never without bound.
TEST_F(FindMounted, BlankLinesAreJoinedWithinABound) {
  std::string blanks(20000, '\n');
  env.Script(kDf, blanks + "/dev/sdb1 vfat 64M 0 64M 0% /media/scrtch\n");
  env.block_devices["/dev/sdb1"] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_STREQ("/dev/sdb1", Wf().DeviceName());
  EXPECT_LT(Log().size(), 9000u);
}

TEST_F(FindMounted, OverlongLineIsSkippedWhole) {
  std::string huge =
      "/dev/" + std::string(20000, 'h') + " vfat 64M 0 64M 0% /media/scrtch\n";
  env.Script(kDf, huge + "/dev/sdb1 vfat 64M 0 64M 0% /media/scrtch\n");
  env.block_devices["/dev/sdb1"] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_EQ(std::string(kInfo) +
                Check("/dev/sdb1 vfat 64M 0 64M 0% /media/scrtch\n") +
                kSearchToVfat +
                Found("/dev/sdb1", "vfat", 64, "/media/scrtch") + kSize64M,
            Log());
}

TEST_F(FindMounted, UnreadableSizeCountsAsZero) {
  env.Script(kDf, "/dev/sdb1 vfat - - - - /media/scrtch\n");
  EXPECT_EQ(RC_USB_NOT_FOUND, Wf().IsMountedOnDirectoryFound());
  EXPECT_NE(std::string::npos,
            Log().find("Device size = 0 MB, expected minimum size = 16 MB"));
}

TEST_F(FindMounted, PercentInReportIsPlainText) {
  env.Script(kDf, "/dev/%s%n vfat 64M 0 64M 0% /media/scrtch\n");
  env.block_devices["/dev/%s%n"] = kSectors64M;
  EXPECT_EQ(0, Wf().IsMountedOnDirectoryFound());
  EXPECT_NE(std::string::npos, Log().find("Fileystem=/dev/%s%n "));
}

TEST_F(FindMounted, GetVirtualUSBDevInfoIsTheSameSearch) {
  env.Script(kDf, Recording("df_scrtch_vfat.txt"));
  env.block_devices["/dev/loop0"] = kSectors64M;
  EXPECT_EQ(0, Wf().GetVirtualUSBDevInfo());
  EXPECT_STREQ("/media/scrtch", Wf().MountedOn());
}

// The size query fails but the device is there: 46, names filled.
TEST_F(FindMounted, SizeQueryFailureGives46) {
  env.Script(kDf, Recording("df_scrtch_vfat.txt"));
  EXPECT_EQ(RC_USB_SIZE_QUERY_FAILED, Wf().IsMountedOnDirectoryFound());
  EXPECT_STREQ("/dev/loop0", Wf().DeviceName());
  EXPECT_STREQ("/media/scrtch", Wf().MountedOn());
}

class SizeQuery : public FindMounted {
 protected:
  // Fills the device name through a one-line report, then clears the log.
  void Mounted(const std::string& device) {
    env.Script(kDf, device + " vfat 64M 0 64M 0% /media/scrtch\n");
    Wf().IsMountedOnDirectoryFound();
    cap.Clear();
  }
};

TEST_F(SizeQuery, DeviceThatCannotBeOpened) {
  Mounted("/dev/sdb1");
  EXPECT_EQ(RC_USB_SIZE_QUERY_FAILED, Wf().TestVirtualUSBDevice());
  EXPECT_EQ(
      "\n       Open USB device"
      "\n         Open device \"/dev/sdb1\" failed"
      "\n         USB device size <= 0",
      Log());
}

TEST_F(SizeQuery, SizeRequestThatFails) {
  env.block_devices["/dev/sdb1"] = -2;
  Mounted("/dev/sdb1");
  EXPECT_EQ(RC_USB_SIZE_QUERY_FAILED, Wf().TestVirtualUSBDevice());
  EXPECT_EQ(
      "\n       Open USB device"
      "\n       Get USB device size"
      "\n         Get USB device size failed"
      "\n         USB device size <= 0",
      Log());
}

TEST_F(SizeQuery, ZeroSectors) {
  env.block_devices["/dev/sdb1"] = 0;
  Mounted("/dev/sdb1");
  EXPECT_EQ(RC_USB_SIZE_QUERY_FAILED, Wf().TestVirtualUSBDevice());
  EXPECT_EQ(
      "\n       Open USB device"
      "\n       Get USB device size"
      "\n         USB device size <= 0",
      Log());
}

// The figure is computed in signed 32-bit arithmetic, as it always was.
TEST_F(SizeQuery, FigureWrapsInThirtyTwoBits) {
  struct Row {
    long sectors;
    const char* text;
  } rows[] = {
      {1, "0"},               // 512 bytes
      {32768, "16384"},       // 16 MiB
      {4194303, "2097151"},   // just under 2 GiB
      {4194304, "-2097152"},  // 2 GiB: the sign bit
      {6291456, "-1048576"},  // 3 GiB
      {8388608, "0"},         // 4 GiB
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.sectors);
    env.block_devices["/dev/sdb1"] = row.sectors;
    Mounted("/dev/sdb1");
    EXPECT_EQ(0, Wf().TestVirtualUSBDevice());
    EXPECT_EQ(static_cast<uint32_t>(row.sectors), Wf().SectorCount());
    EXPECT_EQ(std::string("\n       Open USB device\n       Get USB device size"
                          "\n         USB device size = ") +
                  row.text + " bytes",
              Log());
  }
}

}  // namespace

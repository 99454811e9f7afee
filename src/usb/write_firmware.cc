// Mounts the virtual USB device on a scratch directory, writes the image
// onto it and releases it again. Every external action is a shell command
// run through the platform seam.
#include "usb/write_firmware.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include "image/image_file.h"
#include "output/output.h"
#include "platform/platform.h"
#include "platform/signals.h"

const char G_chMountedOnLayer1[3][64] = {"/media", "/mnt", "/tmp"};
const char G_chMountedOnLayer2[32] = "scrtch";
const char G_FileSystemType[2][64] = {"msdos", "vfat"};
uint8_t G_bMkdirMountedOnLayer1[3] = {0, 0, 0};
uint8_t G_bMkdirMountedOnLayer2 = 0;

TWriteFirmware* G_pWriteFirmware = nullptr;

namespace {

const char kImageFileName[] = "firmimg.k9";
// One read of the disk-usage report holds at most this many characters.
const int kDfLineLength = 255;
// A report line is never this long; more text without seven fields is junk.
const size_t kDfMaxAccumulated = 8192;


// The scratch directory this run made, for the clean-up after an interrupt.
std::string g_createdScratch;
int g_minSizeMB = 0;

bool IsLayer1Parent(const std::string& path, size_t* index) {
  for (size_t i = 0; i < 3; ++i) {
    if (path == G_chMountedOnLayer1[i]) {
      *index = i;
      return true;
    }
  }
  return false;
}

// An absolute, plain path (no empty, "." or ".." part) whose last part is
// the scratch directory's name. Only such a path is ever unmounted, and
// removed unless it is a parent that this run created.
bool IsScratchPath(const std::string& path) {
  if (path.size() < 2 || path[0] != '/') return false;
  size_t start = 1;
  std::string last;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string part = path.substr(start, end - start);
    if (part.empty() || part == "." || part == "..") return false;
    last = part;
    start = end + 1;
  }
  return last == G_chMountedOnLayer2;
}

bool MayRemove(const std::string& path) {
  size_t index = 0;
  if (IsLayer1Parent(path, &index)) return G_bMkdirMountedOnLayer1[index] == 1;
  return IsScratchPath(path);
}

// Runs "mkdir" on path, showing the command first; true on success.
bool MakeDirectory(const std::string& path) {
  std::string command = "mkdir " + platform::ShellQuoteIfNeeded(path);
  Out().RedirectMessage(eRedirectDebug, "\n         %s", command.c_str());
  return RunUsbCommandOk(command);
}

// The blank-separated words of text, as "%s" conversions would read them.
std::vector<std::string> SplitFields(const std::string& text) {
  std::vector<std::string> fields;
  size_t pos = 0;
  const char* blanks = " \t\n\r\v\f";
  while (true) {
    size_t begin = text.find_first_not_of(blanks, pos);
    if (begin == std::string::npos) break;
    size_t end = text.find_first_of(blanks, begin);
    if (end == std::string::npos) end = text.size();
    fields.push_back(text.substr(begin, end - begin));
    pos = end;
  }
  return fields;
}

// The leading decimal integer of a size field ("59M", "1.9G", "984K"), in
// megabytes: a "G" anywhere multiplies by 1024, every other unit counts as
// megabytes. Text without a number reads as 0.
int ReadSizeMB(const std::string& field) {
  const char* text = field.c_str();
  char* end = nullptr;
  long long value = strtoll(text, &end, 10);
  if (end == text) value = 0;
  if (value > INT_MAX) value = INT_MAX;
  if (value < INT_MIN) value = INT_MIN;
  if (field.find('G') != std::string::npos) value *= 1024;
  if (value > INT_MAX) value = INT_MAX;
  if (value < INT_MIN) value = INT_MIN;
  return static_cast<int>(value);
}

// The part of a mounted-on field that must be the scratch directory's name:
// what follows the second "/" of an absolute path, or the first "/" of any
// other text; without such a "/", everything after the first character.
const char* ScratchPart(const std::string& mountedOn) {
  const char* text = mountedOn.c_str();
  const char* slash =
      text[0] == '/' ? strchr(text + 1, '/') : strchr(text, '/');
  return slash != nullptr ? slash + 1 : text + 1;
}

// Assembles the report's lines from reads of at most 255 characters: the
// pieces of a longer line are joined before parsing, and a line with fewer
// than seven fields (a long device name alone, wrapped) is joined with the
// next one.
class DfReader {
 public:
  explicit DfReader(platform::TextReader* pipe) : pipe_(pipe) {}

  // The next text of at least seven fields, and its fields; false at the end.
  bool Next(std::string* text, std::vector<std::string>* fields) {
    text->clear();
    std::string line;
    while (ReadLine(&line)) {
      if (!text->empty() && text->back() == '\n') text->back() = ' ';
      *text += line;
      *fields = SplitFields(*text);
      if (fields->size() >= 7) return true;
      if (text->size() > kDfMaxAccumulated) text->clear();
    }
    return false;
  }

 private:
  // One whole line with its line feed (the last may lack it); a line
  // longer than any report line is dropped. False at the end.
  bool ReadLine(std::string* line) {
    line->clear();
    bool dropping = false;
    char piece[kDfLineLength + 1];
    while (pipe_->ReadLine(piece, sizeof(piece))) {
      size_t length = strlen(piece);
      bool ends = length > 0 && piece[length - 1] == '\n';
      if (!dropping) *line += piece;
      if (ends && !dropping) return true;
      if (ends) {
        dropping = false;
        continue;
      }
      if (line->size() > kDfMaxAccumulated) {
        line->clear();
        dropping = true;
      }
    }
    return !line->empty();
  }

  platform::TextReader* pipe_;
};

struct DfLine {
  std::string fileSystem, type, size, used, available, usePercent, mountedOn;
};

// Decides whether one parsed report line is the mounted stick. Every
// message of the decision goes to the debug output.
bool IsStickLine(const DfLine& line, int minSizeMB, int* sizeMB,
                 size_t deviceNameSize, size_t mountedOnSize) {
  bool typeFound = false;
  for (const char* candidate : G_FileSystemType) {
    Out().RedirectMessage(eRedirectDebug, "\n         search %s: ", candidate);
    if (line.type == candidate) {
      typeFound = true;
      break;
    }
    Out().RedirectMessage(eRedirectDebug, "Type != %s", candidate);
  }
  if (!typeFound) return false;

  *sizeMB = ReadSizeMB(line.size);
  if (*sizeMB < minSizeMB) {
    Out().RedirectMessage(eRedirectDebug,
                          "Device size = %d MB, expected minimum size = %d MB",
                          *sizeMB, minSizeMB);
    return false;
  }

  const char* scratch = ScratchPart(line.mountedOn);
  if (strcmp(scratch, G_chMountedOnLayer2) != 0) {
    Out().RedirectMessage(eRedirectDebug,
                          "Device name = \"%s\", expected device name = \"%s\"",
                          scratch, G_chMountedOnLayer2);
    return false;
  }

  // Names that do not fit the fixed fields are refused, never shortened
  // into another path.
  if (line.fileSystem.size() >= deviceNameSize) {
    Out().RedirectMessage(
        eRedirectDebug, "Device name \"%s\" is longer than %d characters",
        line.fileSystem.c_str(), static_cast<int>(deviceNameSize - 1));
    return false;
  }
  if (line.mountedOn.size() >= mountedOnSize) {
    Out().RedirectMessage(
        eRedirectDebug, "Mount point \"%s\" is longer than %d characters",
        line.mountedOn.c_str(), static_cast<int>(mountedOnSize - 1));
    return false;
  }
  return true;
}

void JoinNames(const std::vector<std::string>& names, std::string* joined) {
  joined->clear();
  for (const std::string& name : names) {
    if (!joined->empty()) *joined += ", ";
    *joined += name;
  }
}

}  // namespace

void SetUSBDeviceMinSizeMB(int sizeMB) { g_minSizeMB = sizeMB; }

platform::ProcessResult RunUsbCommand(const std::string& command, bool capture) {
  platform::ProcessSpec spec = platform::ShellCommand(
      command, capture ? platform::ChildOutput::kCaptureStdout
                       : platform::ChildOutput::kInherit);
  if (capture) {
    spec.env = {"LC_ALL=C"};
    // Every line of a busy server's listing must reach the parser.
    spec.output_limit = 4u << 20;
  }
  platform::ProcessResult result = platform::GetEnv()->RunProcess(spec);
  if (result.timed_out) {
    Out().RedirectMessage(eRedirectError, "%s",
                          platform::TimeoutLine(spec).c_str());
    result.started = false;
  }
  return result;
}

bool RunUsbCommandOk(const std::string& command) {
  platform::ProcessResult result = RunUsbCommand(command, false);
  return result.started && result.status == 0;
}

int WriteFirmwareConstructor() {
  G_pWriteFirmware = new (std::nothrow) TWriteFirmware();
  return G_pWriteFirmware != nullptr ? 0 : 1;
}

int WriteFirmwareDestructor() {
  delete G_pWriteFirmware;
  G_pWriteFirmware = nullptr;
  return 0;
}

void ResetMountFlagsForTest() {
  memset(G_bMkdirMountedOnLayer1, 0, sizeof(G_bMkdirMountedOnLayer1));
  G_bMkdirMountedOnLayer2 = 0;
  g_createdScratch.clear();
}

int TWriteFirmware::RemoveCreatedDirectories() {
  int failed = 0;
  if (G_bMkdirMountedOnLayer2 == 1 && !g_createdScratch.empty() &&
      platform::GetEnv()->PathExists(g_createdScratch)) {
    failed |= DeleteMountedDirectory(g_createdScratch.c_str());
  }
  for (size_t i = 0; i < 3; ++i) {
    if (G_bMkdirMountedOnLayer1[i] == 1 &&
        platform::GetEnv()->PathExists(G_chMountedOnLayer1[i]))
      failed |= DeleteMountedDirectory(G_chMountedOnLayer1[i]);
  }
  return failed;
}

int TWriteFirmware::ManuallyMountUSBDevice() {
  std::vector<std::string> disksBefore = G_astrDiskList;
  std::vector<std::string> partitionsBefore = G_astrPartitionList;

  Out().RedirectMessage(eRedirectDebug,
                        "\n\n   Get Device Name List After Doing Phase 1 : ");
  int result = GetBlockDeviceList();
  if (result != 0) {
    Out().RedirectMessage(
        eRedirectDebug, "\n   Get Device Name List After Doing Phase 1 Failed");
    return result;
  }
  Out().RedirectMessage(eRedirectDebug,
                        "\n   Get Device Name List After Doing Phase 1 OK");

  std::vector<std::string> disks =
      ExtractDiffDiskPartition(true, disksBefore, G_astrDiskList);
  std::vector<std::string> partitions =
      ExtractDiffDiskPartition(false, partitionsBefore, G_astrPartitionList);

  const std::string* chosen = nullptr;
  if (disks.empty() && partitions.size() == 1) {
    chosen = &partitions[0];
  } else if (disks.size() == 1 && partitions.empty()) {
    chosen = &disks[0];
  } else if (disks.size() == 1 && partitions.size() == 1 &&
             partitions[0].compare(0, disks[0].size(), disks[0]) == 0) {
    chosen = &partitions[0];
  }
  if (chosen != nullptr) return CreateAndMountUSBDevice(chosen->c_str());

  std::string joined;
  if (disks.empty() && partitions.empty()) {
    Out().RedirectMessage(
        eRedirectDebug, "\n     Cannot find any new device after Phase One\n");
  }
  if (disks.size() == 1 && partitions.size() == 1) {
    joined = disks[0] + ", " + partitions[0];
    Out().RedirectMessage(
        eRedirectDebug, "\n     Find more than one devices after Phase One: %s",
        joined.c_str());
    Out().RedirectMessage(
        eRedirectDebug,
        "\n     Cannot decide which new device is created by Phase One");
  }
  if (disks.size() > 1) {
    JoinNames(disks, &joined);
    Out().RedirectMessage(eRedirectDebug,
                          "\n     Find more than one disks after Phase One: %s",
                          joined.c_str());
    Out().RedirectMessage(
        eRedirectDebug,
        "\n     Cannot decide which new disk is created by Phase One");
  }
  if (partitions.size() > 1) {
    JoinNames(partitions, &joined);
    Out().RedirectMessage(
        eRedirectDebug,
        "\n     Find more than one partitions after Phase One: %s",
        joined.c_str());
    Out().RedirectMessage(
        eRedirectDebug,
        "\n     Cannot decide which new partition is created by Phase One");
  }
  return 1;
}

int CreateMountedDirectory(char* path, size_t size) {
  for (size_t i = 0; i < 3; ++i) {
    const char* parent = G_chMountedOnLayer1[i];
    Out().RedirectMessage(eRedirectDebug, "\n       Check if %s exists",
                          parent);
    if (!platform::GetEnv()->IsDirectory(parent)) {
      G_bMkdirMountedOnLayer1[i] = 1;
      Out().RedirectMessage(eRedirectDebug, "\n       %s does not exist",
                            parent);
      Out().RedirectMessage(eRedirectDebug, "\n       Try to create %s",
                            parent);
      if (!MakeDirectory(parent)) {
        Out().RedirectMessage(eRedirectDebug, "\n       Create %s failed",
                              parent);
        G_bMkdirMountedOnLayer1[i] = 0;
        continue;
      }
      Out().RedirectMessage(eRedirectDebug, "\n       Create %s OK", parent);
    }

    std::string scratch = std::string(parent) + "/" + G_chMountedOnLayer2;
    if (path == nullptr || scratch.size() >= size) return 1;
    memcpy(path, scratch.c_str(), scratch.size() + 1);
    Out().RedirectMessage(eRedirectDebug, "\n       Check if %s exists", path);
    if (platform::GetEnv()->IsDirectory(scratch)) return 0;
    // Someone else's file by that name is never replaced or removed.
    if (platform::GetEnv()->PathExists(scratch)) {
      Out().RedirectMessage(eRedirectDebug,
                            "\n       %s exists and is no directory; left alone",
                            path);
      continue;
    }
    g_createdScratch = scratch;

    // Set even when the mkdir fails, so that the unmount step cleans up.
    G_bMkdirMountedOnLayer2 = 1;
    Out().RedirectMessage(eRedirectDebug, "\n       %s does not exist", path);
    Out().RedirectMessage(eRedirectDebug, "\n       Try to create %s", path);
    if (MakeDirectory(scratch)) {
      Out().RedirectMessage(eRedirectDebug, "\n       Create %s OK", path);
      return 0;
    }
    Out().RedirectMessage(eRedirectDebug, "\n       Create %s failed", path);
    DeleteMountedDirectory(path);
  }
  return 1;
}

int CreateAndMountUSBDevice(const char* device) {
  Out().RedirectMessage(eRedirectDebug, "\n     Mount the found device");
  char directory[sizeof(G_chMountedOnLayer1[0]) + sizeof(G_chMountedOnLayer2)] =
      {0};
  int status = 1;
  // A run that is stopping does not mount what it would release at once.
  if (CreateMountedDirectory(directory, sizeof(directory)) == 0 &&
      platform::PendingSignal() == 0) {
    std::string command = "mount " + platform::ShellQuoteIfNeeded(device) +
                          " " + platform::ShellQuoteIfNeeded(directory);
    Out().RedirectMessage(eRedirectDebug, "\n       %s", command.c_str());
    status = RunUsbCommandOk(command) ? 0 : 1;
  }
  if (status != 0) {
    Out().RedirectMessage(eRedirectDebug, "\n     Mount %s %s failed\n", device,
                          directory);
    // A stick that cannot be mounted leaves no directory of this run behind
    // (never one that was there before, never a mount point).
    if (G_pWriteFirmware != nullptr) G_pWriteFirmware->RemoveCreatedDirectories();
    return 1;
  }
  Out().RedirectMessage(eRedirectDebug, "\n     Mount %s %s OK\n", device,
                        directory);
  return 0;
}

int TWriteFirmware::IsMountedOnDirectoryFound() {
  const int minSizeMB = g_minSizeMB;
  Out().RedirectMessage(eRedirectDebug, "\n     Get virtual media info");
  platform::ProcessResult df = RunUsbCommand("df -Th", true);
  if (!df.started) {
    Out().RedirectMessage(eRedirectDebug, "\n       df -Th failed");
    return 1;
  }

  platform::TextReader pipe(std::move(df.output));
  DfReader reader(&pipe);
  std::string text;
  std::vector<std::string> fields;
  DfLine found;
  int sizeMB = 0;
  bool passed = false;
  while (!passed && reader.Next(&text, &fields)) {
    DfLine line{fields[0], fields[1], fields[2], fields[3],
                fields[4], fields[5], fields[6]};
    Out().RedirectMessage(eRedirectDebug, "\n       Check \"%s\"",
                          text.c_str());
    if (!IsStickLine(line, minSizeMB, &sizeMB, sizeof(achDeviceName),
                     sizeof(achMountedOn)))
      continue;
    Out().RedirectMessage(eRedirectDebug, "Find the Usb device: Fileystem=%s ",
                          line.fileSystem.c_str());
    Out().RedirectMessage(eRedirectDebug, "Type=%s ", line.type.c_str());
    Out().RedirectMessage(eRedirectDebug, "Size=%d MB ", sizeMB);
    Out().RedirectMessage(eRedirectDebug, "Mounted on=%s",
                          line.mountedOn.c_str());
    found = line;
    passed = true;
  }

  if (!passed) {
    Out().RedirectMessage(eRedirectDebug,
                          "\n       Virtual USB device not found");
    return RC_USB_NOT_FOUND;
  }
  // Both fit: IsStickLine refused longer names.
  memcpy(achDeviceName, found.fileSystem.c_str(), found.fileSystem.size() + 1);
  memcpy(achMountedOn, found.mountedOn.c_str(), found.mountedOn.size() + 1);
  return TestVirtualUSBDevice();
}

int TWriteFirmware::TestVirtualUSBDevice() {
  Out().RedirectMessage(eRedirectDebug, "\n       Open USB device");
  unsigned long sectors = 0;
  int rc = platform::GetEnv()->BlockDeviceSectors(achDeviceName, &sectors);
  if (rc == -1) {
    Out().RedirectMessage(
        eRedirectDebug, "\n         Open device \"%s\" failed", achDeviceName);
  } else {
    Out().RedirectMessage(eRedirectDebug, "\n       Get USB device size");
    if (rc != 0)
      Out().RedirectMessage(eRedirectDebug,
                            "\n         Get USB device size failed");
  }
  if (rc != 0 || sectors == 0) {
    Out().RedirectMessage(eRedirectDebug, "\n         USB device size <= 0");
    return RC_USB_SIZE_QUERY_FAILED;
  }
  u32SectorCount = static_cast<uint32_t>(sectors);
  u32SectorSize = 512;
  // The figure is kilobytes in 32-bit arithmetic, as the text always showed.
  int32_t bytes = static_cast<int32_t>(u32SectorCount * 512u);
  int64_t wide = bytes;
  int32_t kilobytes =
      static_cast<int32_t>(wide >= 0 ? wide / 1024 : -((-wide + 1023) / 1024));
  Out().RedirectMessage(eRedirectDebug, "\n         USB device size = %d bytes",
                        kilobytes);
  return 0;
}

int TWriteFirmware::WriteFileToUSBKey(const char* path) {
  if (path == nullptr || path[0] == '\0') return 2;
  int result = IsMountedOnDirectoryFound();
  if (result != 0) return result;
  std::string target = std::string(achMountedOn) + "/" + kImageFileName;
  Out().RedirectMessage(eRedirectDebug, "\n     Clear disk %s", achMountedOn);
  ClearDisk(achMountedOn);
  Out().RedirectMessage(eRedirectDebug, "\n     Copy %s to %s : ", path,
                        target.c_str());
  if (WriteFwImageFile(path, target.c_str()) != 0) {
    Out().RedirectMessage(eRedirectNormal, "\r   Copy %s to %s Failed\n", path,
                          target.c_str());
    return RC_USB_COPY_FAILED;
  }
  Out().RedirectMessage(eRedirectDebug, " OK");
  return 0;
}

int UnmountUSBDevice(const char* directory) {
  if (directory == nullptr || !IsScratchPath(directory)) {
    Out().RedirectMessage(eRedirectDebug,
                          "\n   Unmount %s Refused, not a scratch directory\n",
                          directory != nullptr ? directory : "");
    return 1;
  }
  std::string command = "umount " + platform::ShellQuoteIfNeeded(directory);
  if (!RunUsbCommandOk(command)) {
    Out().RedirectMessage(eRedirectDebug, "\n   Unmount %s Failed\n",
                          directory);
    return 1;
  }
  Out().RedirectMessage(eRedirectDebug, "\n   Unmount %s OK", directory);
  return 0;
}

int DeleteMountedDirectory(const char* directory) {
  const char* shown = directory != nullptr ? directory : "";
  Out().RedirectMessage(eRedirectDebug, "\n   Delete %s : ", shown);
  if (directory == nullptr || !MayRemove(directory)) {
    Out().RedirectMessage(eRedirectDebug, "Refused, not a scratch directory\n");
    return 1;
  }
  // "rm -rf" on a mount point would empty the stick the BMC reads.
  if (platform::GetEnv()->IsMountPoint(directory)) {
    Out().RedirectMessage(eRedirectDebug, "Refused, still a mount point\n");
    const char* device =
        G_pWriteFirmware != nullptr && G_pWriteFirmware->DeviceName()[0] != '\0'
            ? G_pWriteFirmware->DeviceName()
            : "A device";
    Out().RedirectMessage(eRedirectError,
                          "   %s is still mounted on %s; release it with: "
                          "umount %s\n",
                          device, directory, directory);
    return 1;
  }
  std::string command = "rm -rf " + platform::ShellQuoteIfNeeded(directory);
  if (!RunUsbCommandOk(command)) {
    Out().RedirectMessage(eRedirectDebug, "Failed\n");
    return 1;
  }
  Out().RedirectMessage(eRedirectDebug, "OK");
  return 0;
}

int TWriteFirmware::ManuallyUnmountUSBDevice(int flag) {
  Out().RedirectMessage(
      eRedirectDebug,
      flag == 1 ? "\n   Check if USB device was unmounted automatically"
                : "\n   Check if USB device does not exist");
  int found = IsMountedOnDirectoryFound();
  if (found != 0 && found != RC_USB_SIZE_QUERY_FAILED) {
    Out().RedirectMessage(eRedirectDebug,
                          flag == 1 ? "\n     USB device has been unmounted"
                                    : "\n     USB device does not exist");
    return 0;
  }
  Out().RedirectMessage(
      eRedirectDebug, flag == 1
                          ? "\n     USB device was not unmounted automatically"
                          : "\n     USB device does exist");

  int unmounted = UnmountUSBDevice(achMountedOn);
  int scratchRemoved = 0;
  if (G_bMkdirMountedOnLayer2 == 1)
    scratchRemoved = DeleteMountedDirectory(achMountedOn);
  int parentRemoved = 0;
  for (size_t i = 0; i < 3; ++i) {
    if (G_bMkdirMountedOnLayer1[i] == 1)
      parentRemoved = DeleteMountedDirectory(G_chMountedOnLayer1[i]);
  }

  int checked = 0;
  if (unmounted == 0) {
    Out().RedirectMessage(
        eRedirectDebug,
        "\n\n   Check if USB device has been unmounted manually");
    int again = IsMountedOnDirectoryFound();
    if (again != 0 && again != RC_USB_SIZE_QUERY_FAILED) {
      Out().RedirectMessage(eRedirectDebug,
                            "\n     USB device has been unmounted manually\n");
    } else {
      Out().RedirectMessage(
          eRedirectDebug,
          "\n     \"%s\" still exists, manually unmounted failed",
          achMountedOn);
      checked = 1;
    }
  }
  return unmounted != 0 || checked != 0 || scratchRemoved != 0 ||
                 parentRemoved != 0
             ? 1
             : 0;
}

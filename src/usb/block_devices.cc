// Lists the host's disks and partitions from "/sbin/fdisk -l" and finds the
// names that appeared between two listings.
#include <string.h>

#include <memory>

#include "output/output.h"
#include "platform/platform.h"
#include "usb/write_firmware.h"

std::vector<std::string> G_astrDiskList;
std::vector<std::string> G_astrPartitionList;

namespace {

// One read of the listing holds at most this many characters; a longer
// line arrives in pieces and each piece is parsed as a line of its own.
const int kFdiskLineLength = 234;

// "/dev/sdb1   2048 ..." gives "/dev/sdb1". A line without a blank is not
// a partition line.
void ParsePartitionLine(const char* line) {
  const char* blank = strchr(line, ' ');
  if (blank == nullptr) return;
  std::string name(line, static_cast<size_t>(blank - line));
  G_astrPartitionList.push_back(name);
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectDebug, "\n         Save partition name \"%s\"", name.c_str());
}

// "Disk /dev/sdb: 16 MB, 16777216 bytes" gives "/dev/sdb".
void ParseDiskLine(const char* line) {
  if (strstr(line, "Disk") == nullptr) return;
  const char* slash = strchr(line, '/');
  if (slash == nullptr || strstr(slash, "bytes") == nullptr) return;
  const char* colon = strchr(slash, ':');
  if (colon == nullptr) return;
  std::string name(slash, static_cast<size_t>(colon - slash));
  G_astrDiskList.push_back(name);
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectDebug, "\n         Save disk name \"%s\"", name.c_str());
}

}  // namespace

int TWriteFirmware::GetBlockDeviceList() {
  G_astrDiskList.clear();
  G_astrPartitionList.clear();
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                          "\n       Get Device List");
  platform::ProcessResult fdisk = RunUsbCommand("/sbin/fdisk -l", true);
  if (!fdisk.started) {
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                            "\n         /sbin/fdisk -l failed");
    return 1;
  }
  platform::TextReader pipe(std::move(fdisk.output));
  char line[kFdiskLineLength + 1];
  while (pipe.ReadLine(line, sizeof(line))) {
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                            "\n         Read \"%s\"", line);
    if (line[0] == '/')
      ParsePartitionLine(line);
    else
      ParseDiskLine(line);
  }
  return 0;
}

std::vector<std::string> ExtractDiffDiskPartition(
    bool disks, std::vector<std::string> earlier,
    std::vector<std::string> later) {
  const char* kind = disks ? "disk" : "partition";
  std::vector<std::string> added;
  for (const std::string& name : later) {
    bool known = false;
    for (const std::string& old : earlier) {
      if (old == name) {
        known = true;
        break;
      }
    }
    if (known) continue;
    added.push_back(name);
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n     Find a new %s %s ", kind, name.c_str());
  }
  return added;
}

// The virtual USB device that the BMC attaches: found by comparing two
// "/sbin/fdisk -l" listings, mounted on a scratch directory, checked through
// "df -Th" and its size, filled with the image, and released.
#ifndef VRX_USB_WRITE_FIRMWARE_H_
#define VRX_USB_WRITE_FIRMWARE_H_

#include <stdint.h>

#include <string>
#include <vector>

#include "platform/platform.h"

extern std::vector<std::string> G_astrDiskList;
extern std::vector<std::string> G_astrPartitionList;

extern const char G_chMountedOnLayer1[3][64];
extern const char G_chMountedOnLayer2[32];
extern const char G_FileSystemType[2][64];
extern uint8_t G_bMkdirMountedOnLayer1[3];
extern uint8_t G_bMkdirMountedOnLayer2;

// Implemented in write_firmware.cc (mount, df, copy, unmount) and
// block_devices.cc (the fdisk listing).
class TWriteFirmware {
 public:
  TWriteFirmware() {}

  // Lists disks and partitions from "/sbin/fdisk -l" into G_astrDiskList
  // and G_astrPartitionList: 0, or 1 when fdisk could not be run.
  int GetBlockDeviceList();
  // Lists again, takes the one new partition (else the one new disk) that
  // phase 1 attached and mounts it: 0, or 1 (no list, no single new device,
  // no scratch directory, mount failed).
  int ManuallyMountUSBDevice();
  // Finds the stick in "df -Th" (a FAT file system on a scratch directory,
  // big enough) and checks its size: 0; 1 when df cannot be run;
  // RC_USB_NOT_FOUND; RC_USB_SIZE_QUERY_FAILED from TestVirtualUSBDevice.
  int IsMountedOnDirectoryFound();
  int GetVirtualUSBDevInfo() { return IsMountedOnDirectoryFound(); }
  // The device's size (BLKGETSIZE): 0, or RC_USB_SIZE_QUERY_FAILED when it
  // cannot be opened, the query fails or the size is 0.
  int TestVirtualUSBDevice();
  // Copies path onto the stick as firmimg.k9: 0; 2 without a path; the
  // stick search's code; RC_USB_COPY_FAILED (the copy's file is closed).
  int WriteFileToUSBKey(const char* path);
  // Releases the stick unless it is gone already (flag 1: after phase 2,
  // 0: before phase 1): umount, then removes the directories this run made,
  // never a mount point. 0 when all went, 1 otherwise.
  int ManuallyUnmountUSBDevice(int flag);
  // After an interrupt: removes the scratch directory and parents that this
  // run created, unless something is still mounted there. 0 when all went.
  int RemoveCreatedDirectories();

  const char* DeviceName() const { return achDeviceName; }
  const char* MountedOn() const { return achMountedOn; }
  uint32_t SectorCount() const { return u32SectorCount; }
  uint32_t SectorSize() const { return u32SectorSize; }

 private:
  char achDeviceName[256] = {0};
  char achMountedOn[32] = {0};
  uint32_t u32SectorCount = 0;
  uint32_t u32SectorSize = 0;
};

extern TWriteFirmware* G_pWriteFirmware;
int WriteFirmwareConstructor();
int WriteFirmwareDestructor();

// The disks (or partitions) in later that are not in earlier.
std::vector<std::string> ExtractDiffDiskPartition(
    bool disks, std::vector<std::string> earlier,
    std::vector<std::string> later);
// The scratch directory (/media/scrtch, else /mnt/..., else /tmp/...),
// made with its parent when missing, into path: 0, or 1 when none could be.
int CreateMountedDirectory(char* path, size_t size);
// Where CreateMountedDirectory would mount the device, decided the same way
// but without creating or changing anything (scratch_plan.cc). 0 with the
// path and whether the run would create it; 1 with the reason when no
// parent can hold it or a mount is already in the way.
int PlanScratchDirectory(std::string* path, bool* wouldCreate,
                         std::string* reason);
// The programs the virtual-USB update runs; a missing one ends the update.
extern const char* const G_apchUsbTools[4];
// mount device on the scratch directory: 0, or 1.
int CreateAndMountUSBDevice(const char* device);
// umount directory (a scratch directory only): 0, or 1.
int UnmountUSBDevice(const char* directory);
// rm -rf directory, refused for anything but a scratch directory or a
// parent this run made, and for a mount point: 0, or 1.
int DeleteMountedDirectory(const char* directory);

// Runs one of this module's shell commands with the shell's time limit.
// "df" and "fdisk" are read in the C locale, whatever the user's, because
// their output is parsed; their output is captured, while mkdir, mount,
// umount and rm write their own errors to the console as they always did.
// A command that meets its limit is killed, reported on the console and
// counts as not started.
platform::ProcessResult RunUsbCommand(const std::string& command, bool capture);
// True when command ran and exited with status 0.
bool RunUsbCommandOk(const std::string& command);

// The smallest device, in MiB, that can hold the image; the update sets it
// before the device is looked for (0: any size).
void SetUSBDeviceMinSizeMB(int sizeMB);

// Tests only: the flags are otherwise never reset.
void ResetMountFlagsForTest();

#endif  // VRX_USB_WRITE_FIRMWARE_H_

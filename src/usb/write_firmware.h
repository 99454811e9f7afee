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

class TWriteFirmware {
 public:
  TWriteFirmware() {}

  int GetBlockDeviceList();
  int ManuallyMountUSBDevice();
  int IsMountedOnDirectoryFound();
  int GetVirtualUSBDevInfo() { return IsMountedOnDirectoryFound(); }
  int TestVirtualUSBDevice();
  int WriteFileToUSBKey(const char* path);
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

std::vector<std::string> ExtractDiffDiskPartition(
    bool disks, std::vector<std::string> earlier,
    std::vector<std::string> later);
int CreateMountedDirectory(char* path, size_t size);
// Where CreateMountedDirectory would mount the device, decided the same way
// but without creating or changing anything (scratch_plan.cc). 0 with the
// path and whether the run would create it; 1 with the reason when no
// parent can hold it or a mount is already in the way.
int PlanScratchDirectory(std::string* path, bool* wouldCreate,
                         std::string* reason);
// The programs the virtual-USB update runs; a missing one ends the update.
extern const char* const G_apchUsbTools[4];
int CreateAndMountUSBDevice(const char* device);
int UnmountUSBDevice(const char* directory);
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

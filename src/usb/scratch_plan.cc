// The pre-flight view of the scratch directory: the same parents in the same
// order as the mount step, looked at but never touched.
#include <string>

#include "platform/platform.h"
#include "usb/write_firmware.h"

const char* const G_apchUsbTools[4] = {"/sbin/fdisk", "mount", "umount", "df"};

int PlanScratchDirectory(std::string* path, bool* wouldCreate,
                         std::string* reason) {
  platform::Env* env = platform::GetEnv();
  for (const char* parent : G_chMountedOnLayer1) {
    const std::string scratch = std::string(parent) + "/" + G_chMountedOnLayer2;
    // A missing parent is made by the mount step, and so is the scratch
    // directory below it.
    if (!env->IsDirectory(parent)) {
      *path = scratch;
      *wouldCreate = true;
      return 0;
    }
    if (env->IsDirectory(scratch)) {
      if (env->IsMountPoint(scratch)) {
        *reason = scratch + " is already a mount point; release it with: umount " +
                  scratch;
        return 1;
      }
      *path = scratch;
      *wouldCreate = false;
      return 0;
    }
    // Someone else's file by that name: the mount step tries the next parent.
    if (env->PathExists(scratch)) continue;
    *path = scratch;
    *wouldCreate = true;
    return 0;
  }
  *reason = std::string("no scratch directory can be made under ") +
            G_chMountedOnLayer1[0] + ", " + G_chMountedOnLayer1[1] + " or " +
            G_chMountedOnLayer1[2];
  return 1;
}

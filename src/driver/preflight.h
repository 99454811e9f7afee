// The pre-flight check (-check): every step of an update that changes
// nothing, each reported as one line with OK or the reason, so that an
// administrator knows before a rack is flashed whether the update would go
// ahead. Implemented in preflight.cc.
#ifndef VRX_DRIVER_PREFLIGHT_H_
#define VRX_DRIVER_PREFLIGHT_H_

#include <string>

struct sPreflightInputTag {
  // The image files named with -i (virtual-USB update), or none for a URI.
  char** ppchFileList;
  int i32FileCount;
  bool bRemote;          // -uri: the BMC fetches the image itself
  std::string lockPath;  // the lock an update of this BMC would take
};

// Runs the checks in order: options and settings, the lock, the BMC's
// identity, its update task, then the image (header, CRC, type, versions,
// scratch path and tools) or the URI and its settings. Nothing that changes
// the BMC is sent: the request channel refuses it meanwhile. Prints the
// lines (text, or one XML document with -xml) and returns 0 when the update
// would go ahead, else the return code of the first failed check.
int RunPreflightCheck(const sPreflightInputTag& input);

#endif  // VRX_DRIVER_PREFLIGHT_H_

// The settings record with its defaults, the setters the options use, and
// the reader for the key-value file "bmcfwu.cfg".
#ifndef VRX_DRIVER_CONFIG_H_
#define VRX_DRIVER_CONFIG_H_

#include "common/run_state.h"
#include "types.h"

class TConfigurationHandle {
 public:
  TConfigurationHandle();
  ~TConfigurationHandle();
  TConfigurationHandle(const TConfigurationHandle&) = delete;
  TConfigurationHandle& operator=(const TConfigurationHandle&) = delete;

  sProgramSettingsTag* GetSettings() { return psSettings; }
  bool HasSettings() const { return psSettings != nullptr; }

  // Each returns 0, 1 (null text), 9 (not a number) or 10 (out of range).
  int SaveConnectionRetryCount(const char* text);
  int SaveConnectionRetryInterval(const char* text);
  int SaveDelayTime(const char* text);
  int SaveEntityID(const char* text);
  int SaveCipherValue(const char* text);

  // Reads "bmcfwu.cfg" from the current directory: 0, 1 or 3.
  int ReadConfigFile();
  // The same for a given path (tests, and the file name above).
  int ReadConfigFile(const char* path);

 private:
  sProgramSettingsTag* psSettings = nullptr;
};

extern TConfigurationHandle* G_pConfigHandle;
int ConfigConstructor();
int ConfigDestructor();

// 0, 1 (null text) or 9 (not a number).
int StringToInteger(const char* text, int* value);
bool IsZero(const char* text);

#endif  // VRX_DRIVER_CONFIG_H_

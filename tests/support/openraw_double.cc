// The test build of libopenraw.so: the library's four entry points served
// by the scripted BMC, configured through the environment (see
// scripted_bmc.h). Built under the build tree only, never installed.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "support/scripted_bmc.h"

namespace {

void Configure(testing_support::ScriptedBmc* bmc) {
  const char* script = getenv("VRX_SCRIPTED_BMC");
  if (script != nullptr && *script != '\0') {
    std::string error;
    if (!bmc->LoadFile(script, &error)) {
      fprintf(stderr, "scripted BMC: %s\n", error.c_str());
      bmc->open_fails = true;
    }
  }
  const char* log = getenv("VRX_SCRIPTED_BMC_LOG");
  if (log != nullptr) bmc->log_path = log;
  testing_support::ScriptedBmc::SetCurrent(bmc);
}

// Loads the script once per load of the library; a script that cannot be
// read leaves the library unable to open, which the utility reports as a
// load failure. The object goes away when the library is unloaded.
testing_support::ScriptedBmc* Bmc() {
  static testing_support::ScriptedBmc bmc;
  static bool configured = false;
  if (!configured) {
    Configure(&bmc);
    configured = true;
  }
  return &bmc;
}

}  // namespace

#define VRX_EXPORT extern "C" __attribute__((visibility("default")))

VRX_EXPORT uint32_t RawOpen(void) {
  Bmc();
  return testing_support::ScriptedBmc::EntryPoints().pfnRawOpen();
}

VRX_EXPORT int RawRequest(uint32_t handle, unsigned char netFnLun,
                          unsigned char command, unsigned char* requestData,
                          unsigned char requestLength,
                          unsigned char* completionCode,
                          unsigned char* responseData,
                          unsigned short* responseLength) {
  Bmc();
  return testing_support::ScriptedBmc::EntryPoints().pfnRawRequest(
      handle, netFnLun, command, requestData, requestLength, completionCode,
      responseData, responseLength);
}

VRX_EXPORT int RawIPMBRequest(uint32_t handle, unsigned char slaveAddress,
                              unsigned char netFnLun, unsigned char command,
                              unsigned char* requestData,
                              unsigned char requestLength,
                              unsigned char* completionCode,
                              unsigned char* responseData,
                              unsigned short* responseLength) {
  Bmc();
  return testing_support::ScriptedBmc::EntryPoints().pfnRawIPMBRequest(
      handle, slaveAddress, netFnLun, command, requestData, requestLength,
      completionCode, responseData, responseLength);
}

VRX_EXPORT void RawClose(uint32_t handle) {
  Bmc();
  testing_support::ScriptedBmc::EntryPoints().pfnRawClose(handle);
}

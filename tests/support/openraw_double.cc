// The test build of libopenraw.so: the library's four entry points served
// by the scripted BMC, configured through the environment (see
// scripted_bmc.h) and read again at every RawOpen. Built under the build
// tree only, never installed.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>

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

std::unique_ptr<testing_support::ScriptedBmc> g_bmc;

// A fresh BMC from the script; a script that cannot be read leaves the
// library unable to open, which the utility reports as a load failure.
void Restart() {
  g_bmc.reset(new testing_support::ScriptedBmc());
  Configure(g_bmc.get());
}

testing_support::ScriptedBmc* Bmc() {
  if (!g_bmc) Restart();
  return g_bmc.get();
}

}  // namespace

#define VRX_EXPORT extern "C" __attribute__((visibility("default")))

// Every open starts from the script again (the library may stay loaded
// after it is closed, so its state must not leak into the next open).
VRX_EXPORT uint32_t RawOpen(void) {
  Restart();
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

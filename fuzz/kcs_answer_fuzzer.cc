// Arbitrary answers from the raw-access library: status, completion code,
// a reported length (even one larger than the buffer it was given) and
// data, for the device search and the commands that read what the BMC
// sends back.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "bmc/bmc_handle.h"
#include "fuzz_support.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "ipmi/kcs_transport.h"

namespace {

fuzzing::Reader* g_answers = nullptr;

uint32_t Open() { return 1; }
void Close(uint32_t) {}

int Answer(unsigned char* completionCode, unsigned char* responseData,
           unsigned short* responseLength) {
  // Once the input is used up the BMC falls silent, so retries end.
  if (g_answers == nullptr || g_answers->Empty()) return 3;
  uint8_t status = g_answers->Byte();
  if (status & 0x80) return status & 0x07;
  *completionCode = g_answers->Byte();
  uint8_t reported = g_answers->Byte();
  std::vector<uint8_t> bytes = g_answers->Bytes(reported);
  // The library writes no more than the capacity it was given ...
  size_t n = bytes.size() < *responseLength ? bytes.size() : *responseLength;
  if (n > 0) memcpy(responseData, bytes.data(), n);
  // ... but may report any length.
  *responseLength = reported;
  return 0;
}

int Request(uint32_t, unsigned char, unsigned char, unsigned char*,
            unsigned char, unsigned char* completionCode,
            unsigned char* responseData, unsigned short* responseLength) {
  return Answer(completionCode, responseData, responseLength);
}

int IPMBRequest(uint32_t, unsigned char, unsigned char, unsigned char,
                unsigned char*, unsigned char, unsigned char* completionCode,
                unsigned char* responseData, unsigned short* responseLength) {
  return Answer(completionCode, responseData, responseLength);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::TheWorld();
  if (!fuzzing::InstallKcsOnce({Open, Request, IPMBRequest, Close})) return 0;

  fuzzing::Reader answers(data, size);
  g_answers = &answers;
  G_pBMCHandle->SearchBMCDevices();
  std::vector<unsigned char> revision(4), bootloader(8);
  GetFwImageVersion(0, revision.data());
  GetFwImageVersion(1, bootloader.data());
  std::vector<char> version(256), uri(256);
  GetVRXFirmwareVersion(version.data());
  GetURIConfig(uri.data());
  unsigned char status = 0, percent = 0, task = 0;
  bool percentValid = false;
  GetCurrTaskID(&task);
  GetUpdateStatus(task, &status, &percent, &percentValid);
  g_answers = nullptr;
  return 0;
}

// Arbitrary bytes as the contents of FRU device 0, served by a BMC that
// answers every Read FRU Data request correctly: the product-name reader
// must stay inside the area it was given, whatever the offsets and lengths.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "fuzz_support.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "ipmi/kcs_transport.h"

namespace {

std::vector<uint8_t> g_fru;

uint32_t Open() { return 1; }
void Close(uint32_t) {}

int Request(uint32_t, unsigned char netFnLun, unsigned char command,
            unsigned char* requestData, unsigned char requestLength,
            unsigned char* completionCode, unsigned char* responseData,
            unsigned short* responseLength) {
  // Read FRU Data (storage 0x0A, 0x11): offset and count from the request.
  if ((netFnLun >> 2) != 0x0A || command != 0x11 || requestLength < 4) {
    *completionCode = 0xC1;
    *responseLength = 0;
    return 0;
  }
  size_t offset = requestData[1] | (requestData[2] << 8);
  size_t count = requestData[3];
  size_t n = offset < g_fru.size() ? g_fru.size() - offset : 0;
  if (n > count) n = count;
  if (n + 1 > *responseLength) n = *responseLength > 0 ? *responseLength - 1u : 0;
  *completionCode = 0;
  if (*responseLength == 0) return 0;
  responseData[0] = static_cast<unsigned char>(n);
  if (n > 0) memcpy(responseData + 1, g_fru.data() + offset, n);
  *responseLength = static_cast<unsigned short>(n + 1);
  return 0;
}

int IPMBRequest(uint32_t, unsigned char, unsigned char netFnLun,
                unsigned char command, unsigned char* requestData,
                unsigned char requestLength, unsigned char* completionCode,
                unsigned char* responseData, unsigned short* responseLength) {
  return Request(0, netFnLun, command, requestData, requestLength,
                 completionCode, responseData, responseLength);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::TheWorld();
  if (!fuzzing::InstallKcsOnce({Open, Request, IPMBRequest, Close})) return 0;
  g_fru.assign(data, data + size);
  // A correct header checksum lets most inputs reach the product area.
  if (g_fru.size() >= 8) {
    uint8_t sum = 0;
    for (int i = 0; i < 7; ++i) sum = static_cast<uint8_t>(sum + g_fru[i]);
    g_fru[7] = static_cast<uint8_t>(0x100 - sum);
  }
  std::vector<unsigned char> name(32);
  GetFRUProductName(name.data());
  return 0;
}

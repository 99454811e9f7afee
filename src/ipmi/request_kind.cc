#include "ipmi/request_kind.h"

#include "ipmi/command_record.h"

namespace {

using ipmi_detail::kNetFnApp;
using ipmi_detail::kNetFnFirmware;
using ipmi_detail::kNetFnOEM;
using ipmi_detail::kNetFnStorage;

struct Read {
  unsigned char netFn;
  unsigned char command;
};

// The reads this program sends; any other request may change the BMC.
const Read kReads[] = {
    {kNetFnApp, 0x01},       // Get Device ID
    {kNetFnFirmware, 0x02},  // Get Update Status
    {kNetFnFirmware, 0x12},  // Get Firmware Update Status
    {kNetFnFirmware, 0x13},  // Get Firmware Version
    {kNetFnStorage, 0x10},   // Get FRU Inventory Area Info
    {kNetFnStorage, 0x11},   // Read FRU Data
    {kNetFnOEM, 0x01},       // Reserve Extended Configuration
    {kNetFnOEM, 0x02},       // Get Extended Configuration
    {kNetFnOEM, 0x05},       // Get Reset To Default Status
};

// 0x08/0x01 starts an update, except when its first byte selects one of
// the read-only queries (version text, task id).
const unsigned char kFirmwareQueryPrefix = 0xAA;

bool g_readOnly = false;
bool g_changeSent = false;

}  // namespace

bool ChangesBmcState(unsigned char netFnLun, unsigned char command,
                     const unsigned char* data, size_t length) {
  const unsigned char netFn = static_cast<unsigned char>(netFnLun >> 2);
  if (netFn == kNetFnFirmware && command == 0x01)
    return !(length >= 1 && data != nullptr && data[0] == kFirmwareQueryPrefix);
  for (const Read& read : kReads)
    if (read.netFn == netFn && read.command == command) return false;
  return true;
}

void SetReadOnlyChannel(bool on) { g_readOnly = on; }
bool ReadOnlyChannel() { return g_readOnly; }

bool StateChangingRequestSent() { return g_changeSent; }
void NoteStateChangingRequest() { g_changeSent = true; }
void ResetStateChangeNote() { g_changeSent = false; }

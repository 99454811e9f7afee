// Arbitrary bytes as the mounted-file-system report: the search for the
// stick's line and the size check must stay inside their buffers.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "fuzz_support.h"
#include "usb/write_firmware.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::World& world = fuzzing::TheWorld();
  fuzzing::Reader in(data, size);
  // The first byte picks the sector count the device reports.
  world.env.block_devices.clear();
  uint8_t pick = in.Byte();
  world.command_status = 0;
  world.command_output = in.Rest();
  TWriteFirmware writer;
  if (writer.IsMountedOnDirectoryFound() == 0 && writer.DeviceName()[0] != 0) {
    world.env.block_devices[writer.DeviceName()] =
        pick < 3 ? -static_cast<long>(pick) : static_cast<long>(pick) << 12;
    writer.TestVirtualUSBDevice();
  }
  return 0;
}

// Arbitrary bytes as the disk listing: the list parser and the comparison
// of two listings must stay inside their buffers whatever the lines hold.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "fuzz_support.h"
#include "usb/write_firmware.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::World& world = fuzzing::TheWorld();
  std::string text(reinterpret_cast<const char*>(data), size);
  // The first half is the listing before the stick, all of it the one after.
  world.command_status = 0;
  world.command_output = text.substr(0, size / 2);
  G_pWriteFirmware->GetBlockDeviceList();
  std::vector<std::string> disks = G_astrDiskList;
  std::vector<std::string> parts = G_astrPartitionList;
  world.command_output = text;
  G_pWriteFirmware->GetBlockDeviceList();
  ExtractDiffDiskPartition(true, disks, G_astrDiskList);
  ExtractDiffDiskPartition(false, parts, G_astrPartitionList);
  return 0;
}

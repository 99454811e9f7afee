// Arbitrary bytes as what the LAN tool prints (first byte: its exit
// status): the parser of the response bytes and the recognised error texts
// must accept or refuse any output without leaving the record.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "fuzz_support.h"
#include "ipmi/ipmi_exec.h"
#include "update/firmware_update.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::World& world = fuzzing::TheWorld();
  static bool lan = [] {
    G_pFirmwareUpdate->SetHostIP("10.0.0.5");
    G_pFirmwareUpdate->SetUserName("admin");
    G_pFirmwareUpdate->SetLanIF("lanplus");
    G_EnableIPMILan = 1;
    return true;
  }();
  (void)lan;
  fuzzing::Reader in(data, size);
  uint8_t status = in.Byte();
  world.command_status = (status & 0x03) << 8;  // exit status 0 to 3
  world.command_output = in.Rest();

  sIPMIReqRespTag record;
  memset(&record, 0, sizeof(record));
  record.u8RetryCount = 1;
  record.u16RetryDelay = 10;
  record.u16ResponseLength = 128;  // the capacity every caller offers
  record.au8RequestData[0] = 0x01;
  record.u16RequestDataLength = 1;
  ExecuteCommand(0x20, 0x06 << 2, 0x01, &record);
  return 0;
}

// How every command function prepares, sends and reads one request record.
#ifndef VRX_IPMI_COMMAND_RECORD_H_
#define VRX_IPMI_COMMAND_RECORD_H_

#include <stddef.h>
#include <stdint.h>

#include <initializer_list>

#include "types.h"

namespace ipmi_detail {

// Network functions of the commands this program sends.
const uint8_t kNetFnChassis = 0x00;
const uint8_t kNetFnApp = 0x06;
const uint8_t kNetFnFirmware = 0x08;
const uint8_t kNetFnStorage = 0x0A;
const uint8_t kNetFnGroup = 0x2E;
const uint8_t kNetFnOEM = 0x30;

// Traces the title, clears the record and fills retry settings, capacity
// and request data.
void PrepareRecord(const char* title, sIPMIReqRespTag* record,
                   std::initializer_list<uint8_t> data);
// Sets the expected completion code and sends to the BMC's address.
int Send(uint8_t netFn, uint8_t command, uint8_t expectedCode,
         sIPMIReqRespTag* record);
// Response byte k after the offset; 0 for an index outside the buffer.
uint8_t ResponseByte(const sIPMIReqRespTag* record, size_t k);
// A command's own failure code, with the retry bit when the retries ran out.
int WithRetryBit(int result, int failCode);

}  // namespace ipmi_detail

#endif  // VRX_IPMI_COMMAND_RECORD_H_

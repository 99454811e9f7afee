// The firmware update commands: one function per request, the only place
// where their NetFn, command and data bytes are written down.
#include "ipmi/commands.h"

#include <string.h>

#include <string>

#include "common/run_state.h"
#include "ipmi/command_record.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"

namespace ipmi_detail {

namespace {
const uint8_t kDefaultCommandRetry = 15;
const uint16_t kRetryDelayMs = 1000;
}  // namespace

void PrepareRecord(const char* title, sIPMIReqRespTag* record,
                   std::initializer_list<uint8_t> data) {
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "%s", title);
  memset(record, 0, sizeof(*record));
  sProgramSettingsTag* pSettings =
      CurrentSettings();
  record->u8RetryCount = pSettings != nullptr ? pSettings->u8IPMICommandRetry
                                              : kDefaultCommandRetry;
  record->u16RetryDelay = kRetryDelayMs;
  record->u16ResponseLength = sizeof(record->au8ResponseData);
  size_t i = 0;
  for (uint8_t byte : data) {
    if (i == sizeof(record->au8RequestData)) break;
    record->au8RequestData[i++] = byte;
  }
  record->u16RequestDataLength = static_cast<uint16_t>(i);
}

int Send(uint8_t netFn, uint8_t command, uint8_t expectedCode,
         sIPMIReqRespTag* record) {
  SetExpectedCompletionCode(expectedCode);
  return ExecuteCommand(GetBMCSlaveAddress(),
                        static_cast<unsigned char>(netFn << 2), command, record);
}

uint8_t ResponseByte(const sIPMIReqRespTag* record, size_t k) {
  size_t index = record->u8ResponseDataOffset + k;
  if (index >= sizeof(record->au8ResponseData)) return 0;
  return record->au8ResponseData[index];
}

int WithRetryBit(int result, int failCode) {
  if (result == 0) return 0;
  return result == RC_RETRY_LIMIT ? failCode + RC_RETRY_LIMIT : failCode;
}

}  // namespace ipmi_detail

using ipmi_detail::kNetFnApp;
using ipmi_detail::kNetFnChassis;
using ipmi_detail::kNetFnFirmware;
using ipmi_detail::kNetFnGroup;
using ipmi_detail::kNetFnOEM;
using ipmi_detail::PrepareRecord;
using ipmi_detail::ResponseByte;
using ipmi_detail::Send;
using ipmi_detail::WithRetryBit;

namespace {

// What the update history reports as the version after a run.
std::string g_lastVersionText;

// Completion codes of the phase commands.
int MapA(int result, const sIPMIReqRespTag* record, int defaultCode) {
  if (result == 0) return 0;
  int code = defaultCode;
  switch (record->u8CompletionCode) {
    case 0x81: code = RC_UPDATE_IN_PROGRESS; break;
    case 0x82: code = RC_INSUFFICIENT_MEMORY; break;
    case 0x83: code = RC_VMEDIA_ATTACH_FAILED; break;
    default: break;
  }
  return WithRetryBit(result, code);
}

// Completion codes of Get Firmware Update Status.
int MapB(int result, const sIPMIReqRespTag* record) {
  if (result == 0) return 0;
  int code = RC_FW_UPDATE_FAILED;
  switch (record->u8CompletionCode) {
    case 0x82: code = RC_INSUFFICIENT_MEMORY; break;
    case 0x83: code = RC_VMEDIA_ATTACH_FAILED; break;
    case 0x84: code = RC_INVALID_IMAGE_SIGNATURE; break;
    case 0x85: code = RC_STANDBY_UPDATE_FAILED; break;
    case 0x86: code = RC_UPDATE_NOT_INITIATED; break;
    case 0xFF: code = RC_INTERNAL_UPDATE_ERROR; break;
    default: break;
  }
  return WithRetryBit(result, code);
}

int PhaseCommand(const char* title, uint8_t command,
                 std::initializer_list<uint8_t> data, int defaultCode) {
  sIPMIReqRespTag record;
  PrepareRecord(title, &record, data);
  int result = Send(kNetFnFirmware, command, 0x00, &record);
  return MapA(result, &record, defaultCode);
}

}  // namespace

int FwUpdatePhase1(unsigned char entity) {
  return PhaseCommand("\nFirmware Update Phase 1 Command\n", 0x10, {entity},
                      RC_PHASE1_FAILED);
}

int FwUpdatePhase2() {
  return PhaseCommand("\nFirmware Update Phase 2 Command\n", 0x11, {},
                      RC_PHASE2_FAILED);
}

int FwUpdatePhase3() {
  return PhaseCommand("\nFirmware Update Phase 3 Command\n", 0x21, {},
                      RC_PHASE3_FAILED);
}

int USBFwUpdatePhase1(unsigned char entity) {
  return PhaseCommand("\nFirmware Update Phase 1 Command\n", 0x04,
                      {entity, 0x00}, RC_PHASE1_FAILED);
}

int USBFwUpdatePhase2(unsigned char entity) {
  // Reports the phase 1 code: that is what callers and logs have always seen.
  return PhaseCommand("\nFirmware Update Phase 2 Command\n", 0x04,
                      {entity, 0x01}, RC_PHASE1_FAILED);
}

int GetFwUpdateStatus(unsigned char* status) {
  sIPMIReqRespTag record;
  PrepareRecord("\nGet Firmware Update Status Command\n", &record, {0x01});
  int result = Send(kNetFnFirmware, 0x12, 0x00, &record);
  if (result != 0) return MapB(result, &record);
  *status = ResponseByte(&record, 0);
  return 0;
}

int GetFwImageVersion(unsigned char which, unsigned char* version) {
  sIPMIReqRespTag record;
  PrepareRecord("\nGet Firmware Version Command\n", &record, {which});
  int result = Send(kNetFnFirmware, 0x13, 0x00, &record);
  if (result != 0) return WithRetryBit(result, RC_GET_FW_VERSION_FAILED);
  unsigned needed = which == 0 ? 4 : 8;
  if (record.u16ResponseLength < needed) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "   Response data length is less than %d\n", needed);
    return RC_GET_FW_VERSION_FAILED;
  }
  for (unsigned i = 0; i < needed; ++i) version[i] = ResponseByte(&record, i);
  return 0;
}

int SetFwImageStatus(unsigned char* status) {
  sIPMIReqRespTag record;
  PrepareRecord("\nSet Firmware Image Status Command\n", &record,
                {status[0], status[1]});
  int result = Send(kNetFnFirmware, 0x16, 0x00, &record);
  return WithRetryBit(result, RC_SET_IMAGE_STATUS_FAILED);
}

int UpdateFirmware(unsigned char source, unsigned char target,
                   unsigned char* taskId) {
  sIPMIReqRespTag record;
  PrepareRecord("\nUpdate Firmware Command\n", &record, {source, target});
  int result = Send(kNetFnFirmware, 0x01, 0x00, &record);
  if (result != 0) return WithRetryBit(result, RC_UPDATE_FIRMWARE_FAILED);
  *taskId = ResponseByte(&record, 0);
  return 0;
}

int GetUpdateStatus(unsigned char taskId, unsigned char* status,
                    unsigned char* percent, bool* percentValid) {
  sIPMIReqRespTag record;
  PrepareRecord("\nGet Update Status Command\n", &record, {taskId});
  int result = Send(kNetFnFirmware, 0x02, 0x00, &record);
  if (result != 0) return WithRetryBit(result, RC_GET_UPDATE_STATUS_FAILED);
  *status = ResponseByte(&record, 0);
  if (record.u16ResponseLength == 2) {
    *percent = ResponseByte(&record, 1);
    *percentValid = true;
  }
  return 0;
}

int GetCurrTaskID(unsigned char* id) {
  sIPMIReqRespTag record;
  PrepareRecord("\nGet Task ID\n", &record, {0xAA, 0x03});
  int result = Send(kNetFnFirmware, 0x01, 0x00, &record);
  if (result == 0) *id = record.au8ResponseData[0];
  return result;
}

int GetVRXFirmwareVersion(char* out) {
  sIPMIReqRespTag record;
  PrepareRecord("\nGet VRX Firmware Version Command\n", &record, {0xAA, 0x02});
  int result = Send(kNetFnFirmware, 0x01, 0x00, &record);
  if (result != 0) return result;
  memset(out, 0, 4);
  // The count byte is the BMC's word; only what was received is copied, and
  // the text is terminated within the caller's 256 bytes.
  size_t count = record.au8ResponseData[0];
  size_t received =
      record.u16ResponseLength > 0 ? record.u16ResponseLength - 1u : 0u;
  if (count > received) count = received;
  if (count > sizeof(record.au8ResponseData) - 1)
    count = sizeof(record.au8ResponseData) - 1;
  memcpy(out, &record.au8ResponseData[1], count);
  out[count] = '\0';
  g_lastVersionText = out;
  return 0;
}

const char* LastFirmwareVersionText() { return g_lastVersionText.c_str(); }

void ForgetFirmwareVersionText() { g_lastVersionText.clear(); }

int IBMCGracefulReset(unsigned char mode) {
  sIPMIReqRespTag record;
  PrepareRecord("\niBMC Graceful Reset Command\n", &record,
                {0x5E, 0x2B, 0x00, 0x06, 0x43, mode});
  int result = Send(kNetFnGroup, 0xCC, 0x00, &record);
  if (result == 0) {
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                            "   iBMC Graceful Reset OK\n");
    return 0;
  }
  G_pOutputMessageHandle->RedirectMessage(eRedirectNormal,
                                          "   iBMC Graceful Reset Failed\n");
  return WithRetryBit(result, RC_IBMC_RESET_FAILED);
}

int GetDeviceID(unsigned char* revision) {
  sIPMIReqRespTag record;
  PrepareRecord("\nGet Device ID Command\n", &record, {});
  int result = Send(kNetFnApp, 0x01, 0x00, &record);
  if (result != 0) return WithRetryBit(result, RC_GET_DEVICE_ID_FAILED);
  revision[0] = ResponseByte(&record, 2) & 0x7F;
  revision[1] = ResponseByte(&record, 3);
  return 0;
}

int ColdReset() {
  sIPMIReqRespTag record;
  PrepareRecord("\nCold Reset Command\n", &record, {});
  int result = Send(kNetFnApp, 0x02, 0x00, &record);
  if (result != 0) return WithRetryBit(result, RC_COLD_RESET_FAILED);
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "   Cold Reset OK\n");
  return 0;
}

int ChassisHostReset() {
  sIPMIReqRespTag record;
  PrepareRecord("\n Chassis Host Reset\n", &record, {0x03});
  return Send(kNetFnChassis, 0x02, 0x00, &record);
}

int ChassisHostResetWithReason() {
  sIPMIReqRespTag record;
  PrepareRecord("\n Chassis Host Reset with reason \n", &record, {0x05});
  return Send(kNetFnOEM, 0x21, 0x00, &record);
}

int SetResetToDef(unsigned char* taskId) {
  sIPMIReqRespTag record;
  PrepareRecord("\nReset To Default Command\n", &record, {0xFF});
  int result = Send(kNetFnOEM, 0x04, 0x00, &record);
  if (result != 0) return WithRetryBit(result, RC_RESET_TO_DEFAULT_FAILED);
  *taskId = ResponseByte(&record, 0);
  return 0;
}

int GetResetToDefStatus(unsigned char taskId, unsigned char* status) {
  sIPMIReqRespTag record;
  PrepareRecord("\nGet Reset To Default Status Command\n", &record, {taskId});
  int result = Send(kNetFnOEM, 0x05, 0x00, &record);
  if (result != 0) return WithRetryBit(result, RC_RESET_TO_DEFAULT_FAILED);
  *status = ResponseByte(&record, 0);
  return 0;
}

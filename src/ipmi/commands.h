// One function per BMC command: the only place where NetFn, command and
// data bytes of the update protocol are written down. Implemented in
// commands.cc (firmware, reset and identity commands) and ext_config.cc
// (the extended configuration store and the FRU).
//
// Every function sends one request (with the retries of the settings) and
// returns 0 on success. "code+R" below means: that code, plus RC_RETRY_LIMIT
// when the retries ran out. Results go to the out-parameters only on 0.
#ifndef VRX_IPMI_COMMANDS_H_
#define VRX_IPMI_COMMANDS_H_

#include <stdint.h>

// Firmware update commands.
// The phase commands: completion code 0x81 gives RC_UPDATE_IN_PROGRESS,
// 0x82 RC_INSUFFICIENT_MEMORY, 0x83 RC_VMEDIA_ATTACH_FAILED, any other
// failure the phase's own code (RC_PHASE1/2/3_FAILED), each +R. Both USB
// phases report RC_PHASE1_FAILED.
int FwUpdatePhase1(unsigned char entity);
int FwUpdatePhase2();
int FwUpdatePhase3();
int USBFwUpdatePhase1(unsigned char entity);
int USBFwUpdatePhase2(unsigned char entity);
// Percent of the running three-phase task in *status. 0x82, 0x83, 0x84,
// 0x85, 0x86 and 0xFF map to RC_INSUFFICIENT_MEMORY, RC_VMEDIA_ATTACH_FAILED,
// RC_INVALID_IMAGE_SIGNATURE, RC_STANDBY_UPDATE_FAILED,
// RC_UPDATE_NOT_INITIATED, RC_INTERNAL_UPDATE_ERROR; others
// RC_FW_UPDATE_FAILED; each +R.
int GetFwUpdateStatus(unsigned char* status);
// 4 bytes (which 0) or 8 bytes (else) into version; RC_GET_FW_VERSION_FAILED+R,
// or RC_GET_FW_VERSION_FAILED alone for a short answer.
int GetFwImageVersion(unsigned char which, unsigned char* version);
// Sends status[0..1]; RC_SET_IMAGE_STATUS_FAILED+R.
int SetFwImageStatus(unsigned char* status);
// Starts an update task (source 1 network, 3 virtual USB; target 0x80 |
// entity) and gives its id; RC_UPDATE_FIRMWARE_FAILED+R.
int UpdateFirmware(unsigned char source, unsigned char target,
                   unsigned char* taskId);
// The task's status byte, and its percent when the BMC sent one;
// RC_GET_UPDATE_STATUS_FAILED+R.
int GetUpdateStatus(unsigned char taskId, unsigned char* status,
                    unsigned char* percent, bool* percentValid);
// The current task id (0: none); a failure is the request's own result
// (RC_FAILED or RC_RETRY_LIMIT).
int GetCurrTaskID(unsigned char* id);
// The version text ("1.52.7"). out must hold 256 bytes; the copy is bounded
// by that. A failure is the request's own result (RC_FAILED or
// RC_RETRY_LIMIT).
int GetVRXFirmwareVersion(char* out);
// RC_IBMC_RESET_FAILED+R, after printing "iBMC Graceful Reset Failed".
int IBMCGracefulReset(unsigned char mode);
// Firmware major (bit 7 cleared) and minor into revision[0..1];
// RC_GET_DEVICE_ID_FAILED+R.
int GetDeviceID(unsigned char* revision);
// RC_COLD_RESET_FAILED+R.
int ColdReset();
// Power-cycle the host; a failure is the request's own result.
int ChassisHostReset();
int ChassisHostResetWithReason();
// Starts restoring the defaults and gives the task id; the status of that
// task. Both RC_RESET_TO_DEFAULT_FAILED+R.
int SetResetToDef(unsigned char* taskId);
int GetResetToDefStatus(unsigned char taskId, unsigned char* status);

// Extended configuration.
struct sGetExtConfigCmdReqTag {
  uint8_t u8ReservationID;
  uint8_t u8CID;
  uint8_t u8AID;
  uint8_t u8Index;
  uint16_t u16Offset;
  uint8_t u8Length;
};

struct sGetExtConfigCmdRespTag {
  uint8_t u8CompletionCode;
  uint8_t u8CID;
  uint8_t u8AID;
  uint8_t u8Index;
  uint8_t u8Length;
  uint8_t au8Data[128];
};

struct sSetExtConfigCmdReqTag {
  uint8_t u8ReservationID;
  uint8_t u8CID;
  uint8_t u8AID;
  uint8_t u8Index;
  uint16_t u16Offset;
  uint8_t u8LastChunk;
  uint8_t u8DataLength;  // not sent: request length = data length + 7
  uint8_t au8Data[128];
};

struct sSetExtConfigCmdRespTag {
  uint8_t u8CompletionCode;
  uint8_t au8Data[128];
};

// The store's raw commands: a failure is the request's own result
// (RC_FAILED, RC_RETRY_LIMIT), or 1 for an answer of the wrong shape or a
// request that does not fit the record.
int ReserveExtendedConfiguration(unsigned char* reservationId);
int GetExtendedConfiguration(const sGetExtConfigCmdReqTag* req,
                             sGetExtConfigCmdRespTag* resp);
int SetExtendedConfiguration(const sSetExtConfigCmdReqTag* req,
                             sSetExtConfigCmdRespTag* resp);

// One item each, under a fresh reservation. Get: the failing command's
// result, or 1 for a wrong answer. Set: 1 for any failure. The URI pair
// (chunked) gives the failing command's result, or 1 for a wrong answer or
// after five failed reads in a row.
int GetRemoteUpdateEnableConfig(unsigned char* value);
int SetRemoteUpdateEnableConfig(unsigned char value);
int GetProtocolConfig(unsigned char* value);
int SetProtocolConfig(unsigned char value);
// Both buffers: [0] = length, then that many characters; 256 bytes.
int GetURIConfig(char* buffer);
int SetURIConfig(const char* buffer);
int GetConnectionRetryConfig(unsigned char* value);
int SetConnectionRetryConfig(unsigned char value);
int GetRetryIntervalConfig(unsigned char* value);
int SetRetryIntervalConfig(unsigned char value);
int GetDelayTimeConfig(unsigned char* value);
int SetDelayTimeConfig(unsigned char value);

// Product name of FRU device 0; name must hold 32 bytes (NUL-terminated
// text of at most 31 characters). RC_GET_DEVICE_ID_FAILED+R when a read
// fails, 1 for a FRU whose checksum or areas do not hold.
int GetFRUProductName(unsigned char* name);

#endif  // VRX_IPMI_COMMANDS_H_

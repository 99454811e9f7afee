// One function per BMC command: the only place where NetFn, command and
// data bytes of the update protocol are written down.
#ifndef VRX_IPMI_COMMANDS_H_
#define VRX_IPMI_COMMANDS_H_

#include <stdint.h>

// Firmware update commands.
int FwUpdatePhase1(unsigned char entity);
int FwUpdatePhase2();
int FwUpdatePhase3();
int USBFwUpdatePhase1(unsigned char entity);
int USBFwUpdatePhase2(unsigned char entity);
int GetFwUpdateStatus(unsigned char* status);
int GetFwImageVersion(unsigned char which, unsigned char* version);
int SetFwImageStatus(unsigned char* status);
int UpdateFirmware(unsigned char source, unsigned char target,
                   unsigned char* taskId);
int GetUpdateStatus(unsigned char taskId, unsigned char* status,
                    unsigned char* percent, bool* percentValid);
int GetCurrTaskID(unsigned char* id);
// out must hold 256 bytes; the copy is bounded by that.
int GetVRXFirmwareVersion(char* out);
int IBMCGracefulReset(unsigned char mode);
int GetDeviceID(unsigned char* revision);
int ColdReset();
int ChassisHostReset();
int ChassisHostResetWithReason();
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

int ReserveExtendedConfiguration(unsigned char* reservationId);
int GetExtendedConfiguration(const sGetExtConfigCmdReqTag* req,
                             sGetExtConfigCmdRespTag* resp);
int SetExtendedConfiguration(const sSetExtConfigCmdReqTag* req,
                             sSetExtConfigCmdRespTag* resp);

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
// text of at most 31 characters).
int GetFRUProductName(unsigned char* name);

#endif  // VRX_IPMI_COMMANDS_H_

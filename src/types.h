// Types shared by every subsystem: return codes, output modes, settings,
// the IPMI request record, the image header record and the BMC record.
#ifndef VRX_TYPES_H_
#define VRX_TYPES_H_

#include <stdint.h>

// Result of every operation. The low byte names the failure; 256 and 512
// may be OR-ed onto it by the retry and polling loops.
enum eReturnCodeTag : int32_t {
  RC_SUCCESS = 0,
  RC_FAILED = 1,
  RC_FILE_NOT_FOUND = 2,
  RC_OUT_OF_MEMORY = 3,
  RC_FILE_ERROR = 4,
  RC_BAD_DATA = 5,
  RC_DEVICE_NOT_FOUND = 6,
  RC_SILENT_FAILURE = 7,
  RC_COMMAND_LINE_ERROR = 8,
  RC_INVALID_NUMBER = 9,
  RC_NUMBER_OUT_OF_RANGE = 10,
  RC_PLATFORM_NOT_SUPPORTED = 11,
  RC_LOAD_LIBRARY_FAILED = 12,
  RC_UPDATE_IN_PROGRESS = 13,
  RC_INSUFFICIENT_MEMORY = 14,
  RC_VMEDIA_ATTACH_FAILED = 15,
  RC_VMEDIA_DETACH_FAILED = 16,
  RC_INVALID_IMAGE_SIGNATURE = 17,
  RC_UPDATE_NOT_INITIATED = 18,
  RC_INTERNAL_UPDATE_ERROR = 19,
  RC_FW_UPDATE_FAILED = 20,
  RC_DETECT_USB_FAILED = 21,
  RC_COPY_IMAGE_FAILED = 22,
  RC_PHASE1_FAILED = 24,
  RC_PHASE2_FAILED = 25,
  RC_PHASE3_FAILED = 26,
  RC_STANDBY_UPDATE_FAILED = 27,
  RC_GET_FW_VERSION_FAILED = 28,
  RC_IBMC_RESET_FAILED = 29,
  RC_SET_IMAGE_STATUS_FAILED = 30,
  RC_GET_DEVICE_ID_FAILED = 31,
  RC_COLD_RESET_FAILED = 32,
  RC_UPDATE_FIRMWARE_FAILED = 33,
  RC_GET_UPDATE_STATUS_FAILED = 34,
  RC_REMOTE_ENABLE_FAILED = 35,
  RC_ASSIGN_PROTOCOL_FAILED = 36,
  RC_ASSIGN_URI_FAILED = 37,
  RC_ASSIGN_RETRY_FAILED = 38,
  RC_ASSIGN_INTERVAL_FAILED = 39,
  RC_ASSIGN_DELAY_FAILED = 40,
  RC_RESET_BMC_FAILED = 41,
  RC_RESERVED_42 = 42,
  RC_OPEN_INPUT_FAILED = 43,
  RC_RESERVED_44 = 44,
  RC_RESERVED_45 = 45,
  RC_RESERVED_46 = 46,
  RC_RESERVED_47 = 47,
  RC_RESERVED_48 = 48,
  RC_RESERVED_49 = 49,
  RC_RESERVED_50 = 50,
  RC_RESERVED_51 = 51,
  RC_RESERVED_52 = 52,
  RC_RESERVED_53 = 53,
  RC_SAME_VERSION = 54,
  RC_OLDER_VERSION = 55,
  RC_NEWER_VERSION = 56,
  RC_BIOS_RESTART = 57,       // the host restarts for a BIOS update
  RC_RESET_TO_DEFAULT_FAILED = 58,
  RC_RETRY_LIMIT = 256,
  RC_TIMEOUT_LIMIT = 512,
};

// Codes of the virtual USB layer that have no message of their own.
enum : int {
  RC_USB_SIZE_QUERY_FAILED = 46,
  RC_USB_NOT_FOUND = 52,
  RC_USB_COPY_FAILED = 53,
};

// What kind of message a caller writes; the output mode decides where it goes.
enum eRedirectModeTag : int32_t {
  eRedirectDiscard = 0,
  eRedirectNormal = 1,
  eRedirectError = 2,
  eRedirectDebug = 3,
  eRedirectPrompt = 4,
  eRedirectProgress = 5,
  eRedirectProgress2 = 6,
};

enum eOutputModeTag : int32_t {
  eOutputNormal = 0,
  eOutputQuiet = 1,
  eOutputRevisionOnly = 2,
  eOutputDebug = 5,
  eOutputDebugRevisionOnly = 7,
  eOutputXml = 10,
};

// Program settings; defaults in TConfigurationHandle, changed by options.
struct sProgramSettingsTag {
  uint16_t u16PhaseOneWaitingTime;      // seconds
  uint16_t u16PhaseTwoWaitingTime;      // seconds
  uint16_t u16FwUpdateWaitingTime;      // seconds
  uint16_t u16FwRebootWaitingTime;      // seconds
  uint8_t u8IPMICommandRetry;
  uint8_t u8USBDeviceSearchingRetry;
  uint16_t u16RemoteStatusEnableWaitingTime;  // seconds
  uint8_t u8ConnectionRetryInterval;    // units of 5 seconds
  uint8_t u8DelayTime;                  // seconds
  uint8_t u8ConfigurationRetry;
  uint8_t u8ConnectionRetry;
  uint8_t u8ResetBMCRetry;
  uint8_t u8EntityID;
  uint8_t u8CipherValue;                // 255: none given
};

// One IPMI request and its response. Callers zero it before filling it.
struct sIPMIReqRespTag {
  uint8_t u8CompletionCode;
  uint16_t u16ResponseLength;     // in: capacity (128); out: bytes received
  uint16_t u16RequestDataLength;
  uint8_t u8ResponseDataOffset;
  uint8_t u8RetryCount;           // retries after the first attempt
  uint16_t u16RetryDelay;         // milliseconds after a failed attempt
  uint8_t au8ResponseData[128];
  uint8_t au8RequestData[128];
};

// One image file's parsed 512-byte header plus its path and size.
struct sImageHeaderTag {
  uint32_t u32HeadCRC;
  uint8_t u8HeadVersion;
  uint32_t u32ImageType;
  uint8_t u8PartitionCount;
  uint8_t u8ReservedByte;
  uint8_t au8FwRevision[4];       // major, minor, revision high, revision low
  uint32_t u32ImageSize;
  uint8_t au8BootloaderInfo[4];
  uint8_t au8BootloaderVersion[4];
  char achBoardType[4];           // not terminated
  uint32_t u32ReservedWord;
  uint8_t u8HasBootloader;
  uint32_t u32FileSize;
  char achFileName[256];
  uint32_t u32CalculatedCRC;
};

enum eBMCStatus : uint32_t {
  eBMCSearching = 1,
  eBMCDetected = 2,
  eBMCImageMatched = 3,
  eBMCNotFound = 4,
  eBMCUpdate = 5,
  eBMCSameVersion = 6,
  eBMCImageNewer = 7,
};

enum eFwUpdateModeTag : int32_t {
  eFwUpdateModeNormal = 0,
  eFwUpdateModeForce = 1,
  eFwUpdateModeDowngrade = 2,
  eFwUpdateModeUpgradeOnly = 3,
  eFwUpdateModeRemote = 4,
};

// What the utility knows about the BMC it updates.
struct sBMCInformationTag {
  uint8_t u8SlaveAddress;
  uint32_t u32ImageIndex;
  uint32_t u32DeviceType;
  uint32_t u32Status;
  char achPlatformName[40];
  uint8_t au8FwRevision[4];       // major, minor, revision high, revision low
  uint8_t u8HasBootloader;
  uint8_t au8BootloaderInfo[4];
  uint8_t au8BootloaderVersion[4];
};

// The product family name, shown in headers, tables and the refusal text.
#define VRX_FAMILY_NAME "Stratovex"
#define VRX_PROGRAM_NAME "vrxfwul"
// The version comes from project(VERSION) in the top CMakeLists.txt.
#ifndef VRX_VERSION
#error "VRX_VERSION is defined by the build (project(VERSION) in CMakeLists.txt)"
#endif

#endif  // VRX_TYPES_H_

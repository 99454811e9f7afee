#include "common/return_code.h"

const sErrorMapTag asErrorMap[] = {
    {RC_SUCCESS, "Success"},
    {RC_FAILED, "Failed"},
    {RC_FILE_NOT_FOUND, "File not found"},
    {RC_OUT_OF_MEMORY, "Out of memory"},
    {RC_FILE_ERROR, "Error in file"},
    {RC_BAD_DATA, "Bad Data"},
    {RC_DEVICE_NOT_FOUND, "Device Not Found"},
    {RC_SILENT_FAILURE, ""},
    {RC_COMMAND_LINE_ERROR, ""},
    {RC_PLATFORM_NOT_SUPPORTED, "Platform Not Supported"},
    {RC_LOAD_LIBRARY_FAILED, "Failed to Load Library"},
    {RC_UPDATE_IN_PROGRESS, "Firmware update already in progress"},
    {RC_INSUFFICIENT_MEMORY, "Insufficient memory"},
    {RC_VMEDIA_ATTACH_FAILED, "vMedia attachment failed"},
    {RC_VMEDIA_DETACH_FAILED, "vMedia detachment failed"},
    {RC_INVALID_IMAGE_SIGNATURE, "Invalid image signature detected"},
    {RC_UPDATE_NOT_INITIATED, "Firmware update not initiated"},
    {RC_INTERNAL_UPDATE_ERROR, "Internal firmware update error"},
    {RC_IBMC_RESET_FAILED, "iBMC Reset Failed"},
    {RC_FW_UPDATE_FAILED, "Firmware Update Failed"},
    {RC_DETECT_USB_FAILED, "Detect Virtual USB Device Failed"},
    {RC_COPY_IMAGE_FAILED, "Failed to Copy Firmware Image File to USB"},
    {RC_PHASE1_FAILED, "Firmware Update Phase 1 Failed"},
    {RC_PHASE2_FAILED, "Firmware Update Phase 2 Failed"},
    {RC_PHASE3_FAILED, "Firmware Update Phase 3 Failed"},
    {RC_STANDBY_UPDATE_FAILED, "Update To Standby Image Failed"},
    {RC_GET_FW_VERSION_FAILED, "Get Firmware Version Failed"},
    {RC_SET_IMAGE_STATUS_FAILED, "Set Firmware Image Status Failed"},
    {RC_GET_DEVICE_ID_FAILED, "Get Device ID Failed"},
    {RC_COLD_RESET_FAILED, "Cold Reset Failed"},
    {RC_UPDATE_FIRMWARE_FAILED, "Update Firmware Failed"},
    {RC_GET_UPDATE_STATUS_FAILED, "Get Update Status Failed"},
    {RC_REMOTE_ENABLE_FAILED, "Remote Update Enable Failed"},
    {RC_ASSIGN_PROTOCOL_FAILED, "Assign Remote Update Protocol Failed"},
    {RC_ASSIGN_URI_FAILED, "Assign Remote Update URI Failed"},
    {RC_ASSIGN_RETRY_FAILED, "Assign Connection Retry Failed"},
    {RC_ASSIGN_INTERVAL_FAILED, "Assign Connection Retry Interval Failed"},
    {RC_ASSIGN_DELAY_FAILED, "Assign Remote Update Delay Time Failed"},
    {RC_RESET_BMC_FAILED, "Reset BMC Failed"},
    {RC_RESERVED_42, ""},
    {RC_OPEN_INPUT_FAILED, "\n   Failed to open input file"},
    {RC_RESERVED_44, ""},
    {RC_RESERVED_45, ""},
    {RC_RESERVED_46, ""},
    {RC_RESERVED_47, ""},
    {RC_RESERVED_48, ""},
    {RC_RESERVED_49, ""},
    {RC_RESERVED_50, ""},
    {RC_RESERVED_51, ""},
    {RC_RESERVED_52, ""},
    {RC_RESERVED_53, ""},
    {RC_SAME_VERSION,
     "Stop firmware update process : Image file has the same version as "
     "current firmware"},
    {RC_OLDER_VERSION,
     "Stop firmware update process : Image file is older than current "
     "firmware"},
    {RC_NEWER_VERSION,
     "Stop firmware downgrade process : Image file is newer than current "
     "firmware"},
    {RC_RETRY_LIMIT, "Retry Limit Reached"},
    {RC_TIMEOUT_LIMIT, "Timeout Limit Reached"},
};

const int kErrorMapSize = sizeof(asErrorMap) / sizeof(asErrorMap[0]);
static_assert(sizeof(asErrorMap) / sizeof(asErrorMap[0]) == 56,
              "the message table holds 56 records");

const char* ReturnCodeText(int code) {
  for (int i = 0; i < kErrorMapSize; ++i) {
    if (asErrorMap[i].eCode == code)
      return asErrorMap[i].pchMessage != nullptr ? asErrorMap[i].pchMessage
                                                 : "";
  }
  return "";
}

int MapOptionReturnCode(eReturnCodeTag code) {
  switch (code) {
    case RC_INVALID_NUMBER:
      return 8;  // PROPERTY INVALID FORMAT
    case RC_NUMBER_OUT_OF_RANGE:
      return 9;  // PROPERTY OUT OF RANGE
    default:
      return 0;  // OPTION VALID: other setter failures are not option errors
  }
}

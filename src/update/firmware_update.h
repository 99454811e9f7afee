// The update procedures: the three-phase and the virtual-USB update from an
// image file, the remote update from a URI, status polling and the BMC
// reset and wait. Each group below names the file that implements it; the
// steps the procedures share are in update_steps.h.
//
// Results are return codes (types.h): 0 for success, else the failing
// step's code, with RC_RETRY_LIMIT or RC_TIMEOUT_LIMIT added where the step
// ran out of attempts or time. An interrupted run ends in 128 + signal.
#ifndef VRX_UPDATE_FIRMWARE_UPDATE_H_
#define VRX_UPDATE_FIRMWARE_UPDATE_H_

#include <stdint.h>

#include "types.h"

class TFirmwareUpdate {
 public:
  TFirmwareUpdate();

  // Settings and credentials (firmware_update_settings.cc). The text
  // setters give 0, or -1 for a value longer than its field (left empty).
  void SetClearPsMode(bool on) { bClearPsMode = on; }
  bool GetClearPsMode() const { return bClearPsMode; }
  void SetUSBDeviceMinSize(const sImageHeaderTag* image);
  uint8_t GetUSBDeviceMinSize() const { return u8USBDeviceMinSize; }
  // Counted string: [0] = strlen (8 bits), then the characters.
  void SetURI(const char* uri);
  const char* GetURI() const { return pchURI; }
  int SetHostIP(const char* text);
  const char* GetHostIP() const { return achHostIP; }
  int SetUserName(const char* text);
  const char* GetUserName() const { return achUserName; }
  int SetPassWord(const char* text);
  const char* GetPassWord() const { return achPassWord; }
  int SetLanIF(const char* text);
  const char* GetLanIF() const { return achLanIF; }
  void SetFwUpdateSettings(const sProgramSettingsTag* settings);

  // Three-phase update over the system interface (three_phase_update.cc).
  int DoFwUpdate(const char* deviceName, const sImageHeaderTag* image);
  // Phase 1 until the BMC answers "in progress": 0, or the phase-1 code;
  // RC_TIMEOUT_LIMIT + RC_PHASE1_FAILED after the phase-one waiting time.
  int RequestAFwUpdate(uint8_t sizeMiB);
  // Phase 2 until it succeeds: 0, or RC_TIMEOUT_LIMIT + RC_PHASE2_FAILED.
  int AskBMCIfUSBIsReady();
  int DetectUSBDevice();
  int CopyFwImageFile(const char* path);
  int ClearPrivateStorage();
  int TransferringFwImageFileIsDone();
  int CheckFwUpdateStatus();

  // Status polling (status_polling.cc). The polls end in 0 when the task
  // completed, RC_FW_UPDATE_FAILED for a failure status, the request's
  // code, or RC_TIMEOUT_LIMIT + RC_FW_UPDATE_FAILED after the waiting time.
  // The verdict of a status code (0 running or finished, 1 failed, 42
  // unknown) and its text, which must hold 64 bytes.
  int CheckStatusCode(uint8_t code, char* text);
  int DoGetFwUpdateStatus();
  int DoUSBGetFwUpdateStatus(uint8_t taskId);
  int DoGetRemoteFwUpdateStatus(uint8_t taskId);
  int WaitResetToDefDone(uint8_t taskId);

  // Virtual-USB update (usb_update.cc): the task, the stick, the copy.
  int DoUSBFwUpdate(const sBMCInformationTag* bmc,
                    const sImageHeaderTag* image);
  int RequestUSBFwUpdateInit(uint8_t* taskId, uint8_t target);
  int RequestUSBFwUpdatePhaseOne(uint8_t taskId);
  int RequestUSBFwUpdatePhaseTwo(uint8_t taskId);
  int RequestUSBFwUpdateGetStatus(uint8_t taskId, uint8_t* status);

  // Remote URI update (remote_update.cc). Each assign step writes, reads
  // back and compares: 0, or RC_RETRY_LIMIT + its own code (for example
  // RC_ASSIGN_URI_FAILED); the enable step gives RC_TIMEOUT_LIMIT +
  // RC_REMOTE_ENABLE_FAILED.
  int DoRemoteFwUpdate(const sBMCInformationTag* bmc);
  int EnableRemoteFirmwareUpdate(uint8_t value);
  int AssignFirmwareUpdateProtocol(uint8_t value);
  int AssignFirmwareUpdateURI(const char* counted);
  int AssignFirmwareUpdateConnectionRetry(uint8_t value);
  int AssignFirmwareUpdateRetryInterval(uint8_t value);
  int AssignFirmwareUpdateDelayTime(uint8_t value);
  int FirmwareUpdateByNetworking(uint8_t* taskId, uint8_t target);

  // Reset and wait (reset_wait.cc): 0 once the BMC answers again, else
  // RC_TIMEOUT_LIMIT + RC_GET_FW_VERSION_FAILED or the reset's code.
  int WaitForiBMCComeUp(sBMCInformationTag* bmc);
  int DoRebootBMCAndWaitForItComesUp(const sBMCInformationTag* current,
                                     sBMCInformationTag* fill);
  int WaitForColdResetDone(const sBMCInformationTag* current,
                           const sBMCInformationTag* fill);

  // Read-only views of the copied settings, for tests.
  uint16_t PhaseOneWaitingTime() const { return u16PhaseOneWaitingTime; }
  uint16_t PhaseTwoWaitingTime() const { return u16PhaseTwoWaitingTime; }
  uint16_t FwUpdateWaitingTime() const { return u16FwUpdateWaitingTime; }
  uint16_t FwRebootWaitingTime() const { return u16FwRebootWaitingTime; }
  uint16_t USBSearchingRetry() const { return u16USBSearchingRetry; }
  uint8_t RetryInterval() const { return u8RetryInterval; }
  uint8_t DelayTime() const { return u8DelayTime; }
  uint8_t ConnectionRetry() const { return u8ConnectionRetry; }
  uint8_t ConfigurationRetry() const { return u8ConfigurationRetry; }
  uint8_t ResetRetry() const { return u8ResetRetry; }
  uint8_t UpdateTarget() const { return u8UpdateTarget; }

 private:
  bool bClearPsMode = false;
  uint8_t u8USBDeviceMinSize = 0;
  char achURI[256];
  const char* pchURI;
  char achHostIP[16];
  char achUserName[40];
  char achPassWord[40];
  char achLanIF[40];
  uint16_t u16PhaseOneWaitingTime = 0;
  uint16_t u16PhaseTwoWaitingTime = 0;
  uint16_t u16FwUpdateWaitingTime = 0;
  uint16_t u16FwRebootWaitingTime = 0;
  uint16_t u16USBSearchingRetry = 0;
  uint16_t u16RemoteStatusEnableWaitingTime = 0;
  uint8_t u8RetryInterval = 0;
  uint8_t u8DelayTime = 0;
  uint8_t u8ConnectionRetry = 0;
  uint8_t u8ConfigurationRetry = 0;
  uint8_t u8ResetRetry = 0;
  uint8_t u8UpdateTarget = 0;
};

extern TFirmwareUpdate* G_pFirmwareUpdate;
int FwUpdateConstructor();
int FwUpdateDestructor();

#endif  // VRX_UPDATE_FIRMWARE_UPDATE_H_

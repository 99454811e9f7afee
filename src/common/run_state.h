// What the driver decides for a run and the procedures below it read: the
// settings record in force and the run's flags. Kept below every layer that
// uses them, so that no procedure has to include the driver.
#ifndef VRX_COMMON_RUN_STATE_H_
#define VRX_COMMON_RUN_STATE_H_

#include <stdint.h>

#include "types.h"

// The settings in force (defaults, then the settings file, then the
// options), or null before the settings object exists. Owned by the
// driver's settings object, which registers it.
sProgramSettingsTag* CurrentSettings();
void SetCurrentSettings(sProgramSettingsTag* settings);

// Flags the driver sets for the update procedures.
extern uint8_t G_u8EntityID;            // firmware entity 0-5
extern uint8_t G_u8HostNeedRebootFlag;  // the host reboots after the upload
extern uint8_t G_u8BMCNeedReboot;       // the BMC is reset after the update
extern uint8_t G_ForceUpdateFlag;       // -f or -fml given
// A URI-update setting was given on the command line and is still to be
// written to the BMC.
extern uint8_t G_RetryCountFlag;
extern uint8_t G_RetryIntervalFlag;
extern uint8_t G_DelayTimeFlag;

#endif  // VRX_COMMON_RUN_STATE_H_

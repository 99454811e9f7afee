#include "common/run_state.h"

namespace {
sProgramSettingsTag* g_settings = nullptr;
}  // namespace

sProgramSettingsTag* CurrentSettings() { return g_settings; }

void SetCurrentSettings(sProgramSettingsTag* settings) { g_settings = settings; }

uint8_t G_u8EntityID = 0;
uint8_t G_u8HostNeedRebootFlag = 0;
uint8_t G_u8BMCNeedReboot = 0;
uint8_t G_ForceUpdateFlag = 0;
uint8_t G_RetryCountFlag = 0;
uint8_t G_RetryIntervalFlag = 0;
uint8_t G_DelayTimeFlag = 0;

// The update object's fields: settings copied per update, the counted URI
// and the LAN credentials.
#include <string.h>

#include <new>
#include <string>

#include "common/secret_text.h"
#include "ipmi/lan_transport.h"
#include "ipmi/request_trace.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

TFirmwareUpdate* G_pFirmwareUpdate = nullptr;

// A failed allocation is reported as 1, never thrown.
namespace {

// What the LAN transport sends to: the values the user gave.
sLanTargetTag LanTargetOfTheUpdate() {
  const TFirmwareUpdate* update = G_pFirmwareUpdate;
  if (update == nullptr) return sLanTargetTag{nullptr, nullptr, nullptr, nullptr};
  return sLanTargetTag{update->GetHostIP(), update->GetUserName(),
                       update->GetPassWord(), update->GetLanIF()};
}

}  // namespace

int FwUpdateConstructor() {
  G_pFirmwareUpdate = new (std::nothrow) TFirmwareUpdate();
  SetLanTargetSource(G_pFirmwareUpdate != nullptr ? LanTargetOfTheUpdate : nullptr);
  SetUSBDeviceMinSizeMB(0);
  return G_pFirmwareUpdate != nullptr ? 0 : 1;
}

int FwUpdateDestructor() {
  SetLanTargetSource(nullptr);
  SetUSBDeviceMinSizeMB(0);
  SetSecretUriSpan(0, 0);
  delete G_pFirmwareUpdate;
  G_pFirmwareUpdate = nullptr;
  return 0;
}

TFirmwareUpdate::TFirmwareUpdate() {
  memset(achURI, 0, sizeof(achURI));
  pchURI = achURI;
  memset(achHostIP, 0, sizeof(achHostIP));
  memset(achUserName, 0, sizeof(achUserName));
  memset(achPassWord, 0, sizeof(achPassWord));
  memset(achLanIF, 0, sizeof(achLanIF));
  SetLanIF("lan");
}

void TFirmwareUpdate::SetUSBDeviceMinSize(const sImageHeaderTag* image) {
  uint32_t size = image->u32ImageSize;
  uint32_t mib = size >> 20;
  if ((size & 0xFFFFF) != 0) ++mib;
  u8USBDeviceMinSize = static_cast<uint8_t>(mib);
  SetUSBDeviceMinSizeMB(u8USBDeviceMinSize);
}

void TFirmwareUpdate::SetURI(const char* uri) {
  memset(achURI, 0, sizeof(achURI));
  size_t length = strlen(uri);
  achURI[0] = static_cast<char>(static_cast<uint8_t>(length));
  // The length byte only counts up to 255 characters; the buffer holds that
  // many, so longer text is cut rather than overrunning it.
  if (length > sizeof(achURI) - 1) length = sizeof(achURI) - 1;
  memcpy(achURI + 1, uri, length);
  pchURI = achURI;
  // The URI lies in the store after its length byte.
  size_t begin = 0, end = 0;
  if (UriPasswordSpan(std::string(achURI + 1, length), &begin, &end))
    SetSecretUriSpan(static_cast<unsigned>(begin + 1), static_cast<unsigned>(end + 1));
  else
    SetSecretUriSpan(0, 0);
}

namespace {

// Clears the field, then refuses text longer than its limit.
int SetLimited(char* field, size_t size, const char* text) {
  memset(field, 0, size);
  if (text == nullptr) return -1;
  size_t length = strlen(text);
  if (length > size - 1) return -1;
  memcpy(field, text, length);
  return 0;
}

}  // namespace

int TFirmwareUpdate::SetHostIP(const char* text) {
  return SetLimited(achHostIP, sizeof(achHostIP), text);
}

int TFirmwareUpdate::SetUserName(const char* text) {
  return SetLimited(achUserName, sizeof(achUserName), text);
}

int TFirmwareUpdate::SetPassWord(const char* text) {
  return SetLimited(achPassWord, sizeof(achPassWord), text);
}

int TFirmwareUpdate::SetLanIF(const char* text) {
  return SetLimited(achLanIF, sizeof(achLanIF), text);
}

void TFirmwareUpdate::SetFwUpdateSettings(const sProgramSettingsTag* s) {
  u16PhaseOneWaitingTime = s->u16PhaseOneWaitingTime;
  u16PhaseTwoWaitingTime = s->u16PhaseTwoWaitingTime;
  u16FwUpdateWaitingTime = s->u16FwUpdateWaitingTime;
  u16FwRebootWaitingTime = s->u16FwRebootWaitingTime;
  u16USBSearchingRetry = s->u8USBDeviceSearchingRetry;
  u16RemoteStatusEnableWaitingTime = s->u16RemoteStatusEnableWaitingTime;
  u8RetryInterval = s->u8ConnectionRetryInterval;
  u8DelayTime = s->u8DelayTime;
  u8ConnectionRetry = s->u8ConnectionRetry;
  u8ConfigurationRetry = s->u8ConfigurationRetry;
  u8ResetRetry = s->u8ResetBMCRetry;
  u8UpdateTarget = s->u8EntityID;
}

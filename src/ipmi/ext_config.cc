// The extended configuration store (remote-update settings) and the FRU
// product name.
#include <string.h>

#include "ipmi/command_record.h"
#include "ipmi/commands.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"

using ipmi_detail::kNetFnOEM;
using ipmi_detail::kNetFnStorage;
using ipmi_detail::PrepareRecord;
using ipmi_detail::ResponseByte;
using ipmi_detail::Send;
using ipmi_detail::WithRetryBit;

namespace {

const uint8_t kCmdReserve = 0x01;
const uint8_t kCmdGet = 0x02;
const uint8_t kCmdSet = 0x03;
const uint8_t kCmdReadFRUData = 0x11;
// The OEM commands also accept completion code 0x01.
const uint8_t kExtConfigAcceptedCode = 0x01;

const uint8_t kCIDRemoteUpdate = 0x10;
const uint8_t kAIDEnable = 0x01;
const uint8_t kAIDProtocol = 0x02;
const uint8_t kAIDURI = 0x03;
const uint8_t kAIDConnectionRetry = 0x04;
const uint8_t kAIDRetryInterval = 0x05;
const uint8_t kAIDDelayTime = 0x06;

const uint16_t kURIChunk = 10;
// Another client taking the reservation makes every Get fail; a read that
// fails this often in a row gives up instead of spinning for ever.
const int kMaxFailedURIReads = 5;
const size_t kURIBufferSize = 256;
// Request bytes in front of the data of a Set request.
const size_t kSetHeaderLength = 7;
// Response bytes in front of the data of a Get response.
const size_t kGetHeaderLength = 4;

void TraceShortResponse(int needed) {
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectDebug, "   Response data length is less than %d\n", needed);
}

int ReadConfigItem(uint8_t reservationId, uint8_t aid, uint16_t offset,
                   uint8_t length, sGetExtConfigCmdRespTag* resp) {
  sGetExtConfigCmdReqTag req;
  req.u8ReservationID = reservationId;
  req.u8CID = kCIDRemoteUpdate;
  req.u8AID = aid;
  req.u8Index = 0;
  req.u16Offset = offset;
  req.u8Length = length;
  memset(resp, 0, sizeof(*resp));
  return GetExtendedConfiguration(&req, resp);
}

int WriteConfigItem(uint8_t reservationId, uint8_t aid, uint16_t offset,
                    uint8_t lastChunk, const uint8_t* data, uint8_t length) {
  sSetExtConfigCmdReqTag req;
  memset(&req, 0, sizeof(req));
  req.u8ReservationID = reservationId;
  req.u8CID = kCIDRemoteUpdate;
  req.u8AID = aid;
  req.u8Index = 0;
  req.u16Offset = offset;
  req.u8LastChunk = lastChunk;
  req.u8DataLength = length;
  memcpy(req.au8Data, data, length);
  sSetExtConfigCmdRespTag resp;
  memset(&resp, 0, sizeof(resp));
  return SetExtendedConfiguration(&req, &resp);
}

int GetOneByteConfig(uint8_t aid, unsigned char* value) {
  unsigned char reservationId = 0;
  int result = ReserveExtendedConfiguration(&reservationId);
  if (result != 0) return result;
  sGetExtConfigCmdRespTag resp;
  result = ReadConfigItem(reservationId, aid, 0, 1, &resp);
  if (result != 0) return result;
  if (resp.u8Length == 0) {
    TraceShortResponse(1);
    return 1;
  }
  *value = resp.au8Data[0];
  return 0;
}

int SetOneByteConfig(uint8_t aid, unsigned char value) {
  unsigned char reservationId = 0;
  int result = ReserveExtendedConfiguration(&reservationId);
  if (result == 0) result = WriteConfigItem(reservationId, aid, 0, 1, &value, 1);
  return result != 0 ? 1 : 0;
}

}  // namespace

int ReserveExtendedConfiguration(unsigned char* reservationId) {
  sIPMIReqRespTag record;
  PrepareRecord("\nReserve Extended Configuration Command\n", &record, {});
  int result = Send(kNetFnOEM, kCmdReserve, 0x00, &record);
  if (result == 0) *reservationId = record.au8ResponseData[0];
  return result;
}

int GetExtendedConfiguration(const sGetExtConfigCmdReqTag* req,
                             sGetExtConfigCmdRespTag* resp) {
  sIPMIReqRespTag record;
  PrepareRecord("\nGet Extended Configuration Command\n", &record,
                {req->u8ReservationID, req->u8CID, req->u8AID, req->u8Index,
                 static_cast<uint8_t>(req->u16Offset & 0xFF),
                 static_cast<uint8_t>(req->u16Offset >> 8), req->u8Length});
  int result = Send(kNetFnOEM, kCmdGet, kExtConfigAcceptedCode, &record);
  if (result != 0) return result;
  resp->u8CompletionCode = record.u8CompletionCode;
  resp->u8CID = ResponseByte(&record, 0);
  resp->u8AID = ResponseByte(&record, 1);
  resp->u8Index = ResponseByte(&record, 2);
  // The length byte is believed only as far as data actually arrived.
  size_t length = ResponseByte(&record, 3);
  size_t offset = record.u8ResponseDataOffset + kGetHeaderLength;
  size_t received = record.u16ResponseLength > offset
                        ? record.u16ResponseLength - offset
                        : 0;
  if (length > received) length = received;
  if (length > sizeof(resp->au8Data)) length = sizeof(resp->au8Data);
  resp->u8Length = static_cast<uint8_t>(length);
  memcpy(resp->au8Data, &record.au8ResponseData[offset], length);

  TOutputMessageHandle* out = G_pOutputMessageHandle;
  if (resp->u8CID != req->u8CID) {
    out->RedirectMessage(eRedirectDebug,
                         "   Response CID does not equal to Request CID\n");
    return 1;
  }
  if (resp->u8AID != req->u8AID) {
    out->RedirectMessage(eRedirectDebug,
                         "   Response AID does not equal to Request AID\n");
    return 1;
  }
  if (resp->u8Index != req->u8Index) {
    out->RedirectMessage(
        eRedirectDebug,
        "   Response Index field does not equal to Request Index field \n");
    return 1;
  }
  return 0;
}

int SetExtendedConfiguration(const sSetExtConfigCmdReqTag* req,
                             sSetExtConfigCmdRespTag* resp) {
  sIPMIReqRespTag record;
  PrepareRecord("\nSet Extended Configuration Command\n", &record,
                {req->u8ReservationID, req->u8CID, req->u8AID, req->u8Index,
                 static_cast<uint8_t>(req->u16Offset & 0xFF),
                 static_cast<uint8_t>(req->u16Offset >> 8), req->u8LastChunk});
  // Longer data would not fit behind the header in one request.
  size_t dataLength = req->u8DataLength;
  if (dataLength > sizeof(record.au8RequestData) - kSetHeaderLength) return 1;
  memcpy(&record.au8RequestData[kSetHeaderLength], req->au8Data, dataLength);
  record.u16RequestDataLength =
      static_cast<uint16_t>(dataLength + kSetHeaderLength);
  int result = Send(kNetFnOEM, kCmdSet, kExtConfigAcceptedCode, &record);
  if (result != 0) return result;
  resp->u8CompletionCode = record.u8CompletionCode;
  for (size_t i = 0; i < dataLength; ++i)
    resp->au8Data[i] = ResponseByte(&record, i);
  if (ResponseByte(&record, 0) != req->u8DataLength) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "   Response data length does not equal to 0x%02X\n",
        req->u8DataLength);
    return 1;
  }
  return 0;
}

int GetRemoteUpdateEnableConfig(unsigned char* value) {
  return GetOneByteConfig(kAIDEnable, value);
}

int SetRemoteUpdateEnableConfig(unsigned char value) {
  return SetOneByteConfig(kAIDEnable, value);
}

int GetProtocolConfig(unsigned char* value) {
  return GetOneByteConfig(kAIDProtocol, value);
}

int SetProtocolConfig(unsigned char value) {
  return SetOneByteConfig(kAIDProtocol, value);
}

int GetConnectionRetryConfig(unsigned char* value) {
  return GetOneByteConfig(kAIDConnectionRetry, value);
}

int SetConnectionRetryConfig(unsigned char value) {
  return SetOneByteConfig(kAIDConnectionRetry, value);
}

int GetRetryIntervalConfig(unsigned char* value) {
  return GetOneByteConfig(kAIDRetryInterval, value);
}

int SetRetryIntervalConfig(unsigned char value) {
  return SetOneByteConfig(kAIDRetryInterval, value);
}

int GetDelayTimeConfig(unsigned char* value) {
  return GetOneByteConfig(kAIDDelayTime, value);
}

int SetDelayTimeConfig(unsigned char value) {
  return SetOneByteConfig(kAIDDelayTime, value);
}

int GetURIConfig(char* buffer) {
  unsigned char reservationId = 0;
  int result = ReserveExtendedConfiguration(&reservationId);
  if (result != 0) return result;
  sGetExtConfigCmdRespTag resp;
  result = ReadConfigItem(reservationId, kAIDURI, 0, 1, &resp);
  if (result != 0) return result;
  if (resp.u8Length < 1) {
    TraceShortResponse(1);
    return 1;
  }
  uint16_t total = resp.au8Data[0];
  buffer[0] = static_cast<char>(total);
  uint16_t done = 0;
  int failedReads = 0;
  while (done < total) {
    uint16_t chunk = done + kURIChunk >= total ? total - done : kURIChunk;
    // A failed read is asked again as it was; each carries its own retries.
    result = ReadConfigItem(reservationId, kAIDURI, done + 1,
                            static_cast<uint8_t>(chunk), &resp);
    if (result != 0) {
      if (++failedReads < kMaxFailedURIReads) continue;
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectError,
          "\n   Reading the URI back failed %d times in a row (the "
          "reservation was lost, perhaps to another client); giving up\n",
          kMaxFailedURIReads);
      return 1;
    }
    failedReads = 0;
    if (resp.u8Length < chunk) {
      TraceShortResponse(chunk);
      return 1;
    }
    memcpy(buffer + 1 + done, resp.au8Data, chunk);
    done += chunk;
  }
  return result;
}

int SetURIConfig(const char* buffer) {
  // The length byte is signed: 128 to 254 characters give a total far past
  // the buffer, 255 gives nothing to write.
  uint16_t total = static_cast<uint16_t>(static_cast<int8_t>(buffer[0]) + 1);
  uint16_t done = 0;
  unsigned char reservationId = 0;
  int result = ReserveExtendedConfiguration(&reservationId);
  if (result != 0) return result;
  while (done < total) {
    uint16_t chunk = done + kURIChunk >= total ? total - done : kURIChunk;
    // Never read past the caller's 256 bytes: such a length cannot be sent.
    if (done + chunk > kURIBufferSize) return 1;
    uint8_t lastChunk = done + chunk >= total ? 1 : 0;
    result = WriteConfigItem(reservationId, kAIDURI, done, lastChunk,
                             reinterpret_cast<const uint8_t*>(buffer) + done,
                             static_cast<uint8_t>(chunk));
    if (result != 0) return 1;
    done += chunk;
  }
  return 0;
}

namespace {

const size_t kFRUHeaderSize = 8;
const uint8_t kFRUChunk = 16;
const size_t kNameSize = 32;

// One Read FRU Data request of FRU device 0; copies exactly count bytes or
// fails with 1 when fewer arrived.
int ReadFRU(uint8_t offset, uint8_t count, uint8_t* out) {
  // Every path leaves the caller's bytes defined, a failed read as zeros.
  memset(out, 0, count);
  sIPMIReqRespTag record;
  PrepareRecord("\nGet Device ID Command\n", &record, {0x00, offset, 0x00, count});
  int result = Send(kNetFnStorage, kCmdReadFRUData, 0x00, &record);
  if (result != 0) return WithRetryBit(result, RC_GET_DEVICE_ID_FAILED);
  size_t available = record.u16ResponseLength > record.u8ResponseDataOffset + 1u
                         ? record.u16ResponseLength - record.u8ResponseDataOffset - 1u
                         : 0u;
  if (ResponseByte(&record, 0) < count || available < count) return 1;
  for (uint8_t i = 0; i < count; ++i) out[i] = ResponseByte(&record, 1u + i);
  return 0;
}

}  // namespace

int GetFRUProductName(unsigned char* name) {
  uint8_t au8Header[kFRUHeaderSize];
  int result = ReadFRU(0, kFRUHeaderSize, au8Header);
  if (result != 0) return result;
  uint8_t u8Sum = 0;
  for (uint8_t byte : au8Header) u8Sum = static_cast<uint8_t>(u8Sum + byte);
  if (u8Sum != 0) return 1;
  // The offset is sent as one byte: an area from 256 on cannot be reached,
  // and 0 means the FRU has no product area.
  unsigned areaOffset = au8Header[4] * 8u;
  if (areaOffset == 0 || areaOffset > 0xFF) return 1;
  uint8_t u8Offset = static_cast<uint8_t>(areaOffset);

  uint8_t au8AreaHead[2];
  result = ReadFRU(u8Offset, 2, au8AreaHead);
  if (result != 0) return result;
  size_t areaLength = au8AreaHead[1] * 8u;
  // Only the last read decides the result: a chunk that failed before it
  // leaves its bytes zero.
  uint8_t au8Area[255 * 8];
  memset(au8Area, 0, sizeof(au8Area));
  size_t done = 0;
  while (areaLength - done > kFRUChunk) {
    ReadFRU(u8Offset, kFRUChunk, au8Area + done);
    u8Offset = static_cast<uint8_t>(u8Offset + kFRUChunk);
    done += kFRUChunk;
  }
  result = ReadFRU(u8Offset, static_cast<uint8_t>(areaLength - done),
                   au8Area + done);
  if (result != 0) return result;

  // Skip the manufacturer field; the name must lie inside the area.
  if (areaLength < 4) return 1;
  size_t i = (au8Area[3] & 0x3F) + 4u;
  if (i >= areaLength) return 1;
  size_t n = au8Area[i] & 0x3F;
  if (i + 1 + n > areaLength) return 1;
  if (n > kNameSize - 1) n = kNameSize - 1;
  memcpy(name, au8Area + i + 1, n);
  name[n] = '\0';
  return 0;
}

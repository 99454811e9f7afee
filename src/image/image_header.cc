// The 512-byte image header: its CRC-32, the parser into sImageHeaderTag
// and the validation rules.
#include <string.h>

#include "image/image_file.h"
#include "output/output.h"

const char achValidBoardType[2][5] = {"WEVB", "AEVB"};

const char* const au8EntityIDStr[6] = {
    "BMC Firmware ", "BIOS Firmware ", "FCB ", "PDB ", "SDR ", "Customer Def ",
};

namespace {

constexpr unsigned kHeaderSize = 512;
constexpr unsigned kCRCOffset = 4;
constexpr unsigned kPartitionTableOffset = 32;
constexpr unsigned kPartitionEntrySize = 12;
constexpr unsigned kPartitionSizeOffset = 4;  // within an entry
constexpr uint32_t kCRCPolynomial = 0x04C11DB7;

}  // namespace

uint32_t TImageFileHandle::ReadData(const uint8_t* p, int n) {
  uint32_t value = 0;
  for (int i = n - 1; i >= 0; --i) value = (value << 8) | p[i];
  return value;
}

uint32_t TImageFileHandle::ReverseBitOrder(uint32_t value, char bits) {
  uint32_t result = 0;
  for (int i = 0; i < bits && i < 32; ++i) {
    int target = bits - 1 - i;
    if ((value & (1u << i)) && target < 32) result |= 1u << target;
  }
  return result;
}

void TImageFileHandle::GenerateCRC32Table() {
  // The reflected table, built from the normal polynomial by bit reversal.
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c = ReverseBitOrder(i, 8) << 24;
    for (int bit = 0; bit < 8; ++bit) {
      c = (c & 0x80000000u) ? (c << 1) ^ kCRCPolynomial : c << 1;
    }
    au32CRCTable[i] = ReverseBitOrder(c, 32);
  }
}

uint32_t TImageFileHandle::CalculateHeaderCRC(const uint8_t* p,
                                              unsigned length) {
  uint32_t crc = 0xFFFFFFFFu;
  for (unsigned i = 0; i < length; ++i) {
    crc = au32CRCTable[(crc ^ p[i]) & 0xFF] ^ (crc >> 8);
  }
  return crc ^ 0xFFFFFFFFu;
}

int TImageFileHandle::ReadFwImageFileHeader(const uint8_t* block) {
  sImageHeaderTag* header = psCurrImageHeader;
  if (header == nullptr || block == nullptr) return 0;
  header->u32HeadCRC = ReadData(block + 0, 4);
  header->u8HeadVersion = static_cast<uint8_t>(ReadData(block + 4, 1));
  header->u32ImageType = ReadData(block + 5, 1);
  header->u8PartitionCount = static_cast<uint8_t>(ReadData(block + 6, 1));
  header->u8ReservedByte = static_cast<uint8_t>(ReadData(block + 7, 1));
  // Revision held high byte first, like the BMC record.
  header->au8FwRevision[0] = block[8];
  header->au8FwRevision[1] = block[9];
  header->au8FwRevision[2] = block[11];
  header->au8FwRevision[3] = block[10];
  header->u32ImageSize = ReadData(block + 12, 4);
  for (int i = 0; i < 4; ++i) {
    header->au8BootloaderInfo[i] = block[16 + i];
    header->au8BootloaderVersion[i] = block[20 + i];
    header->achBoardType[i] = static_cast<char>(block[24 + i]);
  }
  header->u32ReservedWord = ReadData(block + 28, 4);
  header->u32CalculatedCRC =
      CalculateHeaderCRC(block + kCRCOffset, kHeaderSize - kCRCOffset);
  header->u8HasBootloader = static_cast<uint8_t>(CheckFwImageUBootPartition());
  return header->u8HasBootloader;
}

int TImageFileHandle::CheckFwImageUBootPartition() {
  const sImageHeaderTag* header = psCurrImageHeader;
  if (header == nullptr || header->u8PartitionCount <= 2) return 0;
  for (int i = 0; i < 4; ++i) {
    if (header->au8BootloaderInfo[i] != 0) return 1;
  }
  for (int i = 0; i < 4; ++i) {
    if (header->au8BootloaderVersion[i] != 0) return 1;
  }
  return 0;
}

int TImageFileHandle::CheckFwImageBoardType() {
  const sImageHeaderTag* header = psCurrImageHeader;
  if (header == nullptr) return 0;
  for (const char* valid : achValidBoardType) {
    if (memcmp(header->achBoardType, valid, 4) == 0) {
      G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "OK\n");
      return 1;
    }
  }
  // The board type is advisory: warn, but never reject the image for it.
  char boardType[5];
  memcpy(boardType, header->achBoardType, 4);
  boardType[4] = '\0';
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectNormal, "   Warning: %s has invalid board type! %s \n",
      header->achFileName, boardType);
  return 0;
}

int TImageFileHandle::ValidateFwImagePartitionSize(const uint8_t* block) {
  return ValidateFwImagePartitionSize(block, kHeaderSize);
}

int TImageFileHandle::ValidateFwImagePartitionSize(const uint8_t* block,
                                                   size_t length) {
  const sImageHeaderTag* header = psCurrImageHeader;
  if (header == nullptr || block == nullptr) return RC_FILE_ERROR;
  bool valid = true;
  for (unsigned i = 0; i < header->u8PartitionCount; ++i) {
    size_t at = kPartitionTableOffset + kPartitionEntrySize * i +
                kPartitionSizeOffset;
    // An entry that the block does not hold cannot have a size.
    if (at + 4 > length || ReadData(block + at, 4) == 0) valid = false;
  }
  if (valid) return RC_SUCCESS;
  pchLastRefusal = "invalid partition size";
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectError, "\r   %s: invalid partition size !! \n",
      header->achFileName);
  return RC_FILE_ERROR;
}

int TImageFileHandle::ValidateFwImageFileHeader(const uint8_t* block) {
  return ValidateFwImageFileHeader(block, kHeaderSize);
}

int TImageFileHandle::ValidateFwImageFileHeader(const uint8_t* block,
                                                size_t length) {
  const sImageHeaderTag* header = psCurrImageHeader;
  if (header == nullptr || block == nullptr) return RC_FILE_ERROR;
  const char* name = header->achFileName;
  pchLastRefusal = nullptr;
  if (header->u32HeadCRC != header->u32CalculatedCRC) {
    pchLastRefusal = "invalid head CRC";
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectError, "\r   %s: invalid head CRC !! \n", name);
    return RC_FILE_ERROR;
  }
  if (header->u8HeadVersion != 1) {
    pchLastRefusal = "invalid head version";
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectError, "\r   %s: invalid head version !! \n", name);
    return RC_FILE_ERROR;
  }
  if (header->u32ImageType == 0 || header->u32ImageType == 0xAF) {
    pchLastRefusal = "invalid image type";
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectError, "\r   %s: invalid image type !! \n", name);
    return RC_FILE_ERROR;
  }
  if (header->u8ReservedByte != 0 || header->u32ReservedWord != 0) {
    pchLastRefusal = "invalid reserved byte";
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectError, "\r   %s: invalid reserved byte !! \n", name);
    return RC_FILE_ERROR;
  }
  int result = ValidateFwImagePartitionSize(block, length);
  CheckFwImageBoardType();
  return result;
}

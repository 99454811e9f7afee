#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "image/image_file.h"
#include "output/output.h"
#include "support/capture.h"

namespace {

using testing_support::CapturedOutput;

void PutLE32(std::vector<uint8_t>& block, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) block[at + i] = (value >> (8 * i)) & 0xFF;
}

class ImageHeaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cap_.OpenLog();
    ASSERT_EQ(0, handle_.CreateImageHeaderList(1));
    handle_.SetCurrImageHeader(0);
    snprintf(handle_.GetCurrImageHeader()->achFileName, 256, "%s",
             "fw image.bin");
  }

  // A header that passes every rule: version 1, type 0xAE, two partitions
  // of nonzero size, board type "AEVB", CRC over bytes 4..511.
  std::vector<uint8_t> ValidBlock(size_t size = 512) {
    std::vector<uint8_t> block(size, 0);
    block[4] = 1;
    block[5] = 0xAE;
    block[6] = 2;
    block[8] = 1;
    block[9] = 0x20;
    block[10] = 0x34;
    block[11] = 0x12;
    PutLE32(block, 12, 0x00100000);
    memcpy(&block[24], "AEVB", 4);
    PutLE32(block, 36, 0x1000);
    PutLE32(block, 48, 0x2000);
    Seal(block);
    return block;
  }

  void Seal(std::vector<uint8_t>& block) {
    PutLE32(block, 0, handle_.CalculateHeaderCRC(&block[4], 508));
  }

  int ParseAndValidate(const std::vector<uint8_t>& block) {
    handle_.ReadFwImageFileHeader(block.data());
    return handle_.ValidateFwImageFileHeader(block.data());
  }

  sImageHeaderTag* Header() { return handle_.GetCurrImageHeader(); }

  CapturedOutput cap_;
  TImageFileHandle handle_;
};

TEST_F(ImageHeaderTest, ReadDataIsLittleEndian) {
  const uint8_t bytes[] = {0x78, 0x56, 0x34, 0x12};
  EXPECT_EQ(0x12345678u, handle_.ReadData(bytes, 4));
  EXPECT_EQ(0x78u, handle_.ReadData(bytes, 1));
}

TEST_F(ImageHeaderTest, ReverseBitOrderMirrorsTheLowBits) {
  EXPECT_EQ(0x80u, handle_.ReverseBitOrder(0x01, 8));
  EXPECT_EQ(0x01u, handle_.ReverseBitOrder(0x80, 8));
  EXPECT_EQ(0x0Fu, handle_.ReverseBitOrder(0xFFF0, 8));  // bits above 8 ignored
  EXPECT_EQ(0x80000000u, handle_.ReverseBitOrder(1, 32));
  EXPECT_EQ(0xEDB88320u, handle_.ReverseBitOrder(0x04C11DB7, 32));
  EXPECT_EQ(0x6u, handle_.ReverseBitOrder(0x3, 3));
}

// Bit-at-a-time CRC-32, independent of any table.
uint32_t BitwiseCrc32(const uint8_t* p, size_t n) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < n; ++i) {
    crc ^= p[i];
    for (int k = 0; k < 8; ++k) crc = (crc & 1) ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
  }
  return crc ^ 0xFFFFFFFFu;
}

TEST_F(ImageHeaderTest, TableGivesTheReflectedCrc32) {
  for (unsigned b = 0; b < 256; ++b) {
    uint8_t byte = static_cast<uint8_t>(b);
    EXPECT_EQ(BitwiseCrc32(&byte, 1), handle_.CalculateHeaderCRC(&byte, 1)) << b;
  }
  std::vector<uint8_t> data(1000);
  uint32_t x = 12345;
  for (uint8_t& d : data) {
    x = x * 1103515245u + 12345u;
    d = static_cast<uint8_t>(x >> 16);
  }
  EXPECT_EQ(BitwiseCrc32(data.data(), data.size()),
            handle_.CalculateHeaderCRC(data.data(), data.size()));
}

TEST_F(ImageHeaderTest, CheckValueOf123456789) {
  const char* text = "123456789";
  EXPECT_EQ(0xCBF43926u, handle_.CalculateHeaderCRC(
                             reinterpret_cast<const uint8_t*>(text), 9));
}

TEST_F(ImageHeaderTest, CrcOf508ZeroBytes) {
  std::vector<uint8_t> zeros(508, 0);
  EXPECT_EQ(0x0FBB6D54u, handle_.CalculateHeaderCRC(zeros.data(), 508));
}

TEST_F(ImageHeaderTest, ParsesEveryField) {
  std::vector<uint8_t> block = ValidBlock();
  block[7] = 0;
  for (int i = 0; i < 4; ++i) {
    block[16 + i] = static_cast<uint8_t>(0xA0 + i);
    block[20 + i] = static_cast<uint8_t>(0xB0 + i);
  }
  PutLE32(block, 28, 0);
  Seal(block);
  handle_.ReadFwImageFileHeader(block.data());
  const sImageHeaderTag* h = Header();
  EXPECT_EQ(handle_.ReadData(block.data(), 4), h->u32HeadCRC);
  EXPECT_EQ(h->u32HeadCRC, h->u32CalculatedCRC);
  EXPECT_EQ(1, h->u8HeadVersion);
  EXPECT_EQ(0xAEu, h->u32ImageType);
  EXPECT_EQ(2, h->u8PartitionCount);
  EXPECT_EQ(0, h->u8ReservedByte);
  EXPECT_EQ(0x00100000u, h->u32ImageSize);
  EXPECT_EQ(0xA0, h->au8BootloaderInfo[0]);
  EXPECT_EQ(0xA3, h->au8BootloaderInfo[3]);
  EXPECT_EQ(0xB0, h->au8BootloaderVersion[0]);
  EXPECT_EQ(0xB3, h->au8BootloaderVersion[3]);
  EXPECT_EQ(0, memcmp(h->achBoardType, "AEVB", 4));
  EXPECT_EQ(0u, h->u32ReservedWord);
  EXPECT_STREQ("fw image.bin", h->achFileName);  // parsing keeps the name
}

TEST_F(ImageHeaderTest, RevisionBytesChangePlaces) {
  std::vector<uint8_t> block = ValidBlock();
  handle_.ReadFwImageFileHeader(block.data());
  const sImageHeaderTag* h = Header();
  EXPECT_EQ(1, h->au8FwRevision[0]);
  EXPECT_EQ(0x20, h->au8FwRevision[1]);
  EXPECT_EQ(0x12, h->au8FwRevision[2]);
  EXPECT_EQ(0x34, h->au8FwRevision[3]);
  EXPECT_EQ(4660, h->au8FwRevision[2] * 256 + h->au8FwRevision[3]);
}

TEST_F(ImageHeaderTest, BootloaderNeedsMoreThanTwoPartitions) {
  std::vector<uint8_t> block = ValidBlock();
  block[16] = 1;
  block[23] = 1;
  block[6] = 2;
  EXPECT_EQ(0, handle_.ReadFwImageFileHeader(block.data()));
  EXPECT_EQ(0, Header()->u8HasBootloader);

  block[6] = 3;
  std::fill(block.begin() + 16, block.begin() + 24, 0);
  EXPECT_EQ(0, handle_.ReadFwImageFileHeader(block.data()));
  EXPECT_EQ(0, Header()->u8HasBootloader);

  block[19] = 5;  // descriptor alone
  EXPECT_EQ(1, handle_.ReadFwImageFileHeader(block.data()));
  EXPECT_EQ(1, Header()->u8HasBootloader);

  block[19] = 0;
  block[22] = 7;  // version alone
  EXPECT_EQ(1, handle_.ReadFwImageFileHeader(block.data()));
  EXPECT_EQ(1, Header()->u8HasBootloader);
}

TEST_F(ImageHeaderTest, ValidHeaderPassesAndLogsOk) {
  std::vector<uint8_t> block = ValidBlock();
  EXPECT_EQ(0, ParseAndValidate(block));
  EXPECT_EQ("", cap_.Out());
  EXPECT_EQ("", cap_.Err());
  EXPECT_EQ("OK\n", cap_.Log());
}

TEST_F(ImageHeaderTest, ZeroBlockFailsTheCrcThenTheVersion) {
  std::vector<uint8_t> block(512, 0);
  EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block));
  EXPECT_EQ("\r   fw image.bin: invalid head CRC !! \n", cap_.Err());

  cap_.Clear();
  PutLE32(block, 0, 0x0FBB6D54);
  EXPECT_EQ(block[0], 0x54);
  EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block));
  EXPECT_EQ("\r   fw image.bin: invalid head version !! \n", cap_.Err());
}

TEST_F(ImageHeaderTest, ImageTypeRule) {
  std::vector<uint8_t> block = ValidBlock();
  for (int type : {0, 0xAF}) {
    cap_.Clear();
    block[5] = static_cast<uint8_t>(type);
    Seal(block);
    EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block)) << type;
    EXPECT_EQ("\r   fw image.bin: invalid image type !! \n", cap_.Err());
  }
  for (int type : {0xAE, 1, 0xFF}) {
    cap_.Clear();
    block[5] = static_cast<uint8_t>(type);
    Seal(block);
    EXPECT_EQ(0, ParseAndValidate(block)) << type;
    EXPECT_EQ("", cap_.Err());
  }
}

TEST_F(ImageHeaderTest, ReservedByteAndWordRule) {
  std::vector<uint8_t> block = ValidBlock();
  block[7] = 1;
  Seal(block);
  EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block));
  EXPECT_EQ("\r   fw image.bin: invalid reserved byte !! \n", cap_.Err());

  cap_.Clear();
  block[7] = 0;
  block[31] = 0x80;
  Seal(block);
  EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block));
  EXPECT_EQ("\r   fw image.bin: invalid reserved byte !! \n", cap_.Err());
}

TEST_F(ImageHeaderTest, PartitionCountZeroPassesWithoutTable) {
  std::vector<uint8_t> block = ValidBlock();
  block[6] = 0;
  PutLE32(block, 36, 0);
  PutLE32(block, 48, 0);
  Seal(block);
  EXPECT_EQ(0, ParseAndValidate(block));
  EXPECT_EQ("", cap_.Err());
}

TEST_F(ImageHeaderTest, TwoBadPartitionSizesGiveOneMessage) {
  std::vector<uint8_t> block = ValidBlock();
  block[6] = 3;
  PutLE32(block, 36, 0);
  PutLE32(block, 60, 0);
  Seal(block);
  EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block));
  EXPECT_EQ("\r   fw image.bin: invalid partition size !! \n", cap_.Err());
  // The board type is checked all the same.
  EXPECT_EQ("\r   fw image.bin: invalid partition size !! \nOK\n", cap_.Log());
}

TEST_F(ImageHeaderTest, OnlyTheLastPartitionBadStillFails) {
  std::vector<uint8_t> block = ValidBlock();
  block[6] = 3;
  PutLE32(block, 60, 0);
  Seal(block);
  EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block));
}

TEST_F(ImageHeaderTest, FortyPartitionsFitTheBlock) {
  std::vector<uint8_t> block = ValidBlock();
  block[6] = 40;
  for (int i = 0; i < 40; ++i) PutLE32(block, 36 + 12 * i, 1 + i);
  Seal(block);
  EXPECT_EQ(0, ParseAndValidate(block));
}

TEST_F(ImageHeaderTest, PartitionsBeyondTheBlockAreInvalid) {
  // 41 entries would need 524 bytes; only 512 are read.
  std::vector<uint8_t> block = ValidBlock();
  block[6] = 41;
  for (int i = 0; i < 40; ++i) PutLE32(block, 36 + 12 * i, 1 + i);
  Seal(block);
  EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block));
  EXPECT_EQ("\r   fw image.bin: invalid partition size !! \n", cap_.Err());

  cap_.Clear();
  block[6] = 255;
  Seal(block);
  EXPECT_EQ(RC_FILE_ERROR, ParseAndValidate(block));
  EXPECT_EQ("\r   fw image.bin: invalid partition size !! \n", cap_.Err());
}

TEST_F(ImageHeaderTest, LongerBlockHoldsMorePartitions) {
  std::vector<uint8_t> block = ValidBlock(32 + 12 * 60);
  block[6] = 60;
  for (int i = 0; i < 60; ++i) PutLE32(block, 36 + 12 * i, 1 + i);
  Seal(block);
  handle_.ReadFwImageFileHeader(block.data());
  EXPECT_EQ(0, handle_.ValidateFwImageFileHeader(block.data(), block.size()));
  EXPECT_EQ(0, handle_.ValidateFwImagePartitionSize(block.data(), block.size()));
  // The last size ends at byte 747: one byte less and it is not inside.
  EXPECT_EQ(0, handle_.ValidateFwImagePartitionSize(block.data(), 748));
  EXPECT_EQ(RC_FILE_ERROR,
            handle_.ValidateFwImagePartitionSize(block.data(), 747));
}

TEST_F(ImageHeaderTest, BoardTypeWarningIsAdvisory) {
  std::vector<uint8_t> block = ValidBlock();
  memcpy(&block[24], "ZZVB", 4);
  Seal(block);
  EXPECT_EQ(0, ParseAndValidate(block));
  EXPECT_EQ("   Warning: fw image.bin has invalid board type! ZZVB \n",
            cap_.Out());
  EXPECT_EQ("", cap_.Err());
  EXPECT_EQ(0, handle_.CheckFwImageBoardType());
}

TEST_F(ImageHeaderTest, BothBoardTypesAreValid) {
  std::vector<uint8_t> block = ValidBlock();
  for (const char* type : {"WEVB", "AEVB"}) {
    cap_.Clear();
    memcpy(&block[24], type, 4);
    Seal(block);
    handle_.ReadFwImageFileHeader(block.data());
    EXPECT_EQ(1, handle_.CheckFwImageBoardType()) << type;
    EXPECT_EQ("OK\n", cap_.Log());
    EXPECT_EQ("", cap_.Out());
  }
}

TEST_F(ImageHeaderTest, BoardTypeInDebugModeShowsOkOnConsole) {
  G_pOutputMessageHandle->SetOutputMode(eOutputDebug);
  std::vector<uint8_t> block = ValidBlock();
  EXPECT_EQ(0, ParseAndValidate(block));
  EXPECT_EQ("OK\n", cap_.Out());
}

TEST(ImageTables, EntityNamesAndBoardTypes) {
  EXPECT_STREQ("BMC Firmware ", au8EntityIDStr[0]);
  EXPECT_STREQ("BIOS Firmware ", au8EntityIDStr[1]);
  EXPECT_STREQ("FCB ", au8EntityIDStr[2]);
  EXPECT_STREQ("PDB ", au8EntityIDStr[3]);
  EXPECT_STREQ("SDR ", au8EntityIDStr[4]);
  EXPECT_STREQ("Customer Def ", au8EntityIDStr[5]);
  EXPECT_STREQ("WEVB", achValidBoardType[0]);
  EXPECT_STREQ("AEVB", achValidBoardType[1]);
}

}  // namespace

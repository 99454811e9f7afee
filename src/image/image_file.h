// Image files: the 512-byte header with its CRC-32 and validation rules,
// the list of image files named on the command line, and the copy onto the
// virtual USB device.
#ifndef VRX_IMAGE_IMAGE_FILE_H_
#define VRX_IMAGE_IMAGE_FILE_H_

#include <stddef.h>
#include <stdint.h>

#include "types.h"

extern const char achValidBoardType[2][5];
// Display names of the entities, each with its trailing blank.
extern const char* const au8EntityIDStr[6];

class TImageFileHandle {
 public:
  TImageFileHandle();
  ~TImageFileHandle();
  TImageFileHandle(const TImageFileHandle&) = delete;
  TImageFileHandle& operator=(const TImageFileHandle&) = delete;

  // Header format and CRC.
  uint32_t ReadData(const uint8_t* p, int n);
  void GenerateCRC32Table();
  uint32_t ReverseBitOrder(uint32_t value, char bits);
  uint32_t CalculateHeaderCRC(const uint8_t* p, unsigned length);
  // block must hold at least 512 bytes.
  int ReadFwImageFileHeader(const uint8_t* block);
  int CheckFwImageUBootPartition();
  int CheckFwImageBoardType();
  // Without a length the block is taken to be the 512-byte header; a
  // partition entry beyond the block's length counts as invalid.
  int ValidateFwImagePartitionSize(const uint8_t* block);
  int ValidateFwImagePartitionSize(const uint8_t* block, size_t length);
  int ValidateFwImageFileHeader(const uint8_t* block);
  int ValidateFwImageFileHeader(const uint8_t* block, size_t length);
  // Why the last validation refused the header ("invalid head CRC", ...),
  // or null after one that passed.
  const char* LastRefusal() const { return pchLastRefusal; }

  // Image list.
  int ReadValidateFwImageFileHeader(char** names, int count);
  int CreateImageHeaderList(int count);
  void ClearImageHeaderList();
  void ClearCurrImageHeader();
  int DeleteImageHeaderList();
  // An index outside the list selects no record (nullptr).
  void SetCurrImageHeader(int index);
  sImageHeaderTag* GetCurrImageHeader() { return psCurrImageHeader; }
  sImageHeaderTag* GetImageHeaderList() { return psImageHeaderList; }
  void SetFwImageFileCount(int count) { i32ImageFileCount = count; }
  int GetFwImageFileCount() const { return i32ImageFileCount; }

 private:
  uint32_t au32CRCTable[256];
  int i32ImageFileCount = 0;
  sImageHeaderTag* psImageHeaderList = nullptr;
  sImageHeaderTag* psCurrImageHeader = nullptr;
  int i32ImageListCapacity = 0;  // records allocated in the list
  const char* pchLastRefusal = nullptr;
};

extern TImageFileHandle* G_pImageFileHandle;
int ImageHandlerConstructor();
int ImageHandlerDestructor();

// 0 copied, 1 a file could not be opened/read/written/flushed, 3 no buffer.
int WriteFwImageFile(const char* src, const char* dst);
// Reads the 512-byte header block of an image file into block, without
// blocking on the open (image_probe.cc): 0, or 1 when the file cannot be
// opened or is shorter than the block.
int ReadImageHeaderBlock(const char* name, uint8_t* block);

// Removes the entries of a directory; always 0.
int ClearDisk(const char* path);

#endif  // VRX_IMAGE_IMAGE_FILE_H_

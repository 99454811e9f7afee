// Arbitrary bytes as an image header: the parser and every validation rule
// must stay inside the bytes they are given, whatever the partition count.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "fuzz_support.h"
#include "image/image_file.h"
#include "output/output.h"

namespace {

constexpr size_t kHeaderSize = 512;

void Check(TImageFileHandle* handle, const uint8_t* block, size_t length) {
  handle->ClearCurrImageHeader();
  snprintf(handle->GetCurrImageHeader()->achFileName, 256, "%s", "fuzz.bin");
  handle->ReadFwImageFileHeader(block);
  handle->ValidateFwImageFileHeader(block, length);
  handle->ValidateFwImagePartitionSize(block, length);
  handle->CheckFwImageBoardType();
  if (length >= kHeaderSize) {
    handle->ValidateFwImageFileHeader(block);
    handle->ValidateFwImagePartitionSize(block);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static TImageFileHandle* handle = [] {
    fuzzing::TheWorld();
    // XML output mode without a log: the rules' messages go nowhere.
    G_pOutputMessageHandle->SetOutputMode(eOutputXml);
    TImageFileHandle* h = new TImageFileHandle();
    h->CreateImageHeaderList(1);
    h->SetCurrImageHeader(0);
    return h;
  }();

  // A block of exactly the input's length (at least a header), so that any
  // read past its end is caught.
  std::vector<uint8_t> block(size < kHeaderSize ? kHeaderSize : size, 0);
  if (size > 0) memcpy(block.data(), data, size);
  Check(handle, block.data(), block.size());

  // The same block with a correct CRC, so the later rules are reached too.
  uint32_t crc = handle->CalculateHeaderCRC(block.data() + 4, kHeaderSize - 4);
  for (int i = 0; i < 4; ++i) block[i] = static_cast<uint8_t>(crc >> (8 * i));
  Check(handle, block.data(), block.size());
  return 0;
}

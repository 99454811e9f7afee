// Reading an image's header block on its own, for the pre-flight check.
#include <memory>

#include "image/image_file.h"
#include "platform/platform.h"

namespace {
const size_t kHeaderBlockSize = 512;
}  // namespace

int ReadImageHeaderBlock(const char* name, uint8_t* block) {
  // Without blocking: the name may be a FIFO that nobody writes.
  std::unique_ptr<platform::File> file = platform::GetEnv()->OpenForRead(name);
  if (file == nullptr) return 1;
  const size_t have = file->Read(reinterpret_cast<char*>(block), kHeaderBlockSize);
  file->Close();
  return have == kHeaderBlockSize ? 0 : 1;
}

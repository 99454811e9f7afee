// Reading an image's header block on its own, for the pre-flight check.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "image/image_file.h"

namespace {
const size_t kHeaderBlockSize = 512;
}  // namespace

int ReadImageHeaderBlock(const char* name, uint8_t* block) {
  // Without blocking: the name may be a FIFO that nobody writes.
  int fd = open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return 1;
  size_t have = 0;
  while (have < kHeaderBlockSize) {
    ssize_t n = read(fd, block + have, kHeaderBlockSize - have);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    have += static_cast<size_t>(n);
  }
  close(fd);
  return have == kHeaderBlockSize ? 0 : 1;
}

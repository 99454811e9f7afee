// A libopenraw.so that lacks RawIPMBRequest: loading must fail.
#include <stdint.h>

extern "C" __attribute__((visibility("default"))) uint32_t RawOpen(void) {
  return 1;
}

extern "C" __attribute__((visibility("default"))) int RawRequest(
    uint32_t, unsigned char, unsigned char, unsigned char*, unsigned char,
    unsigned char*, unsigned char*, unsigned short*) {
  return 0;
}

extern "C" __attribute__((visibility("default"))) void RawClose(uint32_t) {}

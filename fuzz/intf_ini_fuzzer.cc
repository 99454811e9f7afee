// Arbitrary bytes as the system-interface description that the KCS channel
// reads: names, numbers and separators, none read past its line.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "fuzz_support.h"
#include "ipmi/kcs_transport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::TheWorld();
  std::string path = fuzzing::WriteTempFile("intf.ini", data, size);
  TalkBMCviaKCS_OSA channel;
  // Lines missing from the file leave the values as the caller set them.
  SystemInterface intf = static_cast<SystemInterface>(0);
  unsigned short port = 0;
  RegisterSpacing spacing = static_cast<RegisterSpacing>(0);
  long fourth = 0;
  channel.GetConfig(path.c_str(), &intf, &port, &spacing, &fourth);
  return 0;
}

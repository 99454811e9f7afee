#include "fuzz_support.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "bmc/bmc_handle.h"
#include "driver/config.h"
#include "driver/options.h"
#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

namespace fuzzing {

World& TheWorld() {
  static World* world = [] {
    World* w = new World();
    OutputConstructor();
    FILE* null = fopen("/dev/null", "w");
    G_pOutputMessageHandle->SetConsoleStreams(null, null);
    ConfigConstructor();
    BMCHandlerConstructor();
    FwUpdateConstructor();
    CheckFlagsConstructor();
    WriteFirmwareConstructor();
    // Every command, whatever its line, prints the current input.
    w->env.handler = [w](const std::string&,
                         testing_support::CommandResult* result) {
      result->output = w->command_output;
      result->status = w->command_status;
      return true;
    };
    return w;
  }();
  return *world;
}

std::vector<uint8_t> Reader::Bytes(size_t n) {
  std::vector<uint8_t> out;
  while (n-- > 0 && pos_ < size_) out.push_back(data_[pos_++]);
  return out;
}

std::string Reader::Rest() {
  std::string out(reinterpret_cast<const char*>(data_ + pos_), size_ - pos_);
  pos_ = size_;
  return out;
}

std::string WriteTempFile(const char* tag, const uint8_t* data, size_t size) {
  static std::string dir = [] {
    char templ[] = "/tmp/vrxfuzz.XXXXXX";
    const char* made = mkdtemp(templ);
    return std::string(made != nullptr ? made : "/tmp");
  }();
  std::string path = dir + "/" + tag;
  FILE* f = fopen(path.c_str(), "wb");
  if (f != nullptr) {
    if (size > 0) fwrite(data, 1, size, f);
    fclose(f);
  }
  return path;
}

bool InstallKcsOnce(const RawEntryPoints& entries) {
  static const bool installed = [&entries] {
    TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(&entries);
    return InitKcsDriver() == 0;
  }();
  return installed;
}

}  // namespace fuzzing

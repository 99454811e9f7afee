// Shared set-up of the USB device suites: the scripted OS, captured output
// with a log, the update object (for the minimum device size) and a fresh
// write-firmware object, plus access to the recorded tool outputs.
#ifndef VRX_TESTS_USB_USB_FIXTURE_H_
#define VRX_TESTS_USB_USB_FIXTURE_H_

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/fake_env.h"
#include "types.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

namespace usb_testing {

// A file of tests/usb/recordings (see the README there).
inline std::string Recording(const std::string& name) {
  return testing_support::ReadFile(std::string(VRX_USB_RECORDINGS) + "/" +
                                   name);
}

// The lines of text, each with its line feed.
inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end + 1;
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

inline std::string Read(const std::string& line) {
  return "\n         Read \"" + line + "\"";
}

inline std::string SaveDisk(const std::string& name) {
  return "\n         Save disk name \"" + name + "\"";
}

inline std::string SavePartition(const std::string& name) {
  return "\n         Save partition name \"" + name + "\"";
}

// The debug text of one fdisk listing: every line shown as read, followed
// by the save message given for it, if any.
inline std::string ListingLog(const std::string& listing,
                            const std::map<std::string, std::string>& saves) {
  std::string log = "\n       Get Device List";
  for (const std::string& line : Lines(listing)) {
    log += Read(line);
    auto it = saves.find(line);
    if (it != saves.end()) log += it->second;
  }
  return log;
}

// The debug text of a report line whose type is neither msdos nor vfat.
inline std::string OtherType(const std::string& line) {
  return "\n       Check \"" + line + "\"" +
         "\n         search msdos: Type != msdos"
         "\n         search vfat: Type != vfat";
}

// The debug text of the lines of a report, all of another type.
inline std::string OtherTypes(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += OtherType(line);
  return text;
}

class UsbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cap.OpenLog();
    ASSERT_EQ(0, FwUpdateConstructor());
    ASSERT_EQ(0, WriteFirmwareConstructor());
    ResetMountFlagsForTest();
    G_astrDiskList.clear();
    G_astrPartitionList.clear();
  }
  void TearDown() override {
    WriteFirmwareDestructor();
    FwUpdateDestructor();
    ResetMountFlagsForTest();
    G_astrDiskList.clear();
    G_astrPartitionList.clear();
  }

  // The minimum device size in MB, as an image of that many MiB sets it.
  void SetMinSizeMB(uint32_t mib) {
    sImageHeaderTag image{};
    image.u32ImageSize = mib << 20;
    G_pFirmwareUpdate->SetUSBDeviceMinSize(&image);
  }

  TWriteFirmware& Wf() { return *G_pWriteFirmware; }
  std::string Log() { return cap.Log(); }

  testing_support::FakeEnv env;
  testing_support::CapturedOutput cap;
};

}  // namespace usb_testing

#endif  // VRX_TESTS_USB_USB_FIXTURE_H_

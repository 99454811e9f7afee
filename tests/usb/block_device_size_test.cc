// The size query against real block devices: a loop device attached to a
// file of known size (root only), and the failures on a plain file and a
// missing device. The disk-usage report stays scripted; the size request
// goes to the real operating system.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>

#include "platform/platform.h"
#include "support/capture.h"
#include "support/fake_env.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

namespace {

// Scripted shell, real block devices.
class RealDevicesEnv : public testing_support::FakeEnv {
 public:
  int BlockDeviceSectors(const std::string& path,
                         unsigned long* sectors) override {
    return platform::RealEnv()->BlockDeviceSectors(path, sectors);
  }
};

// A temporary file of the given size, removed afterwards.
class TempFile {
 public:
  explicit TempFile(off_t size) {
    char name[] = "/tmp/vrx-usb-size-XXXXXX";
    int fd = mkstemp(name);
    if (fd < 0) return;
    if (ftruncate(fd, size) == 0) path_ = name;
    close(fd);
    if (path_.empty()) unlink(name);
  }
  ~TempFile() {
    if (!path_.empty()) unlink(path_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A loop device attached to a file for the lifetime of the object; always
// detached again, whatever the test did.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& file) {
    platform::ProcessSpec spec;
    spec.argv = {"losetup", "-f", "--show", file};
    spec.output = platform::ChildOutput::kCaptureStdout;
    platform::TextReader pipe(platform::RealEnv()->RunProcess(spec).output);
    char line[256] = "";
    if (pipe.ReadLine(line, sizeof(line))) {
      line[strcspn(line, "\n")] = '\0';
      if (strncmp(line, "/dev/loop", 9) == 0) name_ = line;
    }
  }
  ~LoopDevice() {
    if (!name_.empty()) {
      platform::ProcessSpec spec;
      spec.argv = {"losetup", "-d", name_};
      platform::RealEnv()->RunProcess(spec);
    }
  }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

class RealSizeQuery : public ::testing::Test {
 protected:
  void SetUp() override {
    cap.OpenLog();
    ASSERT_EQ(0, FwUpdateConstructor());  // minimum size 0
    ASSERT_EQ(0, WriteFirmwareConstructor());
  }
  void TearDown() override {
    WriteFirmwareDestructor();
    FwUpdateDestructor();
  }
  // Finds device through a one-line report and returns the search result.
  int Find(const std::string& device) {
    env.Script("df -Th", device + " vfat 8.1M 0 8.1M 0% /media/scrtch\n");
    int result = G_pWriteFirmware->IsMountedOnDirectoryFound();
    std::string log = cap.Log();
    size_t at = log.find("\n       Open USB device");
    tail = at == std::string::npos ? log : log.substr(at);
    return result;
  }

  RealDevicesEnv env;
  testing_support::CapturedOutput cap;
  std::string tail;  // the size query's debug text
};

TEST_F(RealSizeQuery, LoopDeviceOfKnownSize) {
  if (geteuid() != 0)
    GTEST_SKIP() << "attaching a loop device needs root; skipped";
  const off_t kBytes = 8 * 1024 * 1024 + 4096;  // 16392 sectors
  TempFile file(kBytes);
  ASSERT_FALSE(file.path().empty());
  LoopDevice loop(file.path());
  if (loop.name().empty())
    GTEST_SKIP() << "no loop device could be attached (losetup -f --show "
                    "failed); skipped";
  EXPECT_EQ(0, Find(loop.name()));
  EXPECT_EQ(16392u, G_pWriteFirmware->SectorCount());
  EXPECT_EQ(512u, G_pWriteFirmware->SectorSize());
  EXPECT_EQ(loop.name(), G_pWriteFirmware->DeviceName());
  EXPECT_EQ(
      "\n       Open USB device"
      "\n       Get USB device size"
      "\n         USB device size = 8196 bytes",
      tail);
}

// A plain file opens, but is no block device: the size request fails.
TEST_F(RealSizeQuery, PlainFileIsNoBlockDevice) {
  TempFile file(4096);
  ASSERT_FALSE(file.path().empty());
  EXPECT_EQ(RC_USB_SIZE_QUERY_FAILED, Find(file.path()));
  EXPECT_EQ(
      "\n       Open USB device"
      "\n       Get USB device size"
      "\n         Get USB device size failed"
      "\n         USB device size <= 0",
      tail);
}

TEST_F(RealSizeQuery, MissingDeviceCannotBeOpened) {
  EXPECT_EQ(RC_USB_SIZE_QUERY_FAILED, Find("/dev/vrx-no-such-device"));
  EXPECT_EQ(
      "\n       Open USB device"
      "\n         Open device \"/dev/vrx-no-such-device\" failed"
      "\n         USB device size <= 0",
      tail);
}

}  // namespace

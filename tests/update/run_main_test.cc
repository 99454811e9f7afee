// The whole program in-process: RunMain with the scripted OS and the
// scripted BMC behind the KCS transport, updating from an image file over
// the virtual USB device.
#include <gtest/gtest.h>

#include "platform/signals.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>

#include "driver/driver.h"
#include "output/output.h"
#include "output/update_package.h"
#include "usb/write_firmware.h"
#include "fake_host.h"
#include "support/capture.h"
#include "update_fixture.h"

namespace update_testing {
namespace {

class RunMainUpdateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    COrvoUpdatePackage::ResetForTest();
    ResetMountFlagsForTest();
    platform::InstallSignalPolicy();
    platform::ClearSignalForTest();
    G_astrDiskList.clear();
    G_astrPartitionList.clear();
    image_ = "/home/op/images/firmimg.vrx";
    host.fs.AddFile(image_, std::string(3000, 'i'));
  }
  void TearDown() override {
    platform::ClearSignalForTest();
    COrvoUpdatePackage::ResetForTest();
    ResetMountFlagsForTest();
  }
  int Run(const std::vector<std::string>& args) {
    return testing_support::RunMainCaptured(args, &out_, &err_);
  }

  testing_support::FakeEnv env;
  FakeHost host{&env};
  testing_support::ScriptedBmc bmc;
  TaskBmc task{&bmc, &host};
  testing_support::InstalledBmc installed{&bmc};
  std::string image_, out_, err_;
};

std::string Detect16() {
  std::string s;
  for (int i = 0; i < 16; ++i) s += Spin(32767 - i, "  Detecting USB Device ...");
  return s;
}

TEST_F(RunMainUpdateTest, ForcedBmcFirmwareUpdateFromAnImageFile) {
  EXPECT_EQ(0, Run({"-f", "-e=0", "-i=" + image_}));
  std::string checking;
  for (int i = 0; i < 11; ++i) checking += Spin(32767 - i, "  Checking new firmware version ...  ");
  EXPECT_EQ(std::string("\n   Stratovex Firmware Update Utility \n") + kMakerNotice +
                "\n   Searching For Devices " + kClearLine +
                "\n   Initiate Update Firmware Command :  OK\n"
                "\r   Issue USB Firmware Update Command Phase 1 :  OK\n" +
                Detect16() + "\r   Detecting USB Device :  OK" +
                "\n   Uploading Firmware Image ... " + kClearLine +
                "\r   Copy file status: 0 percent\r   Copy file status: 34 percent"
                "\r   Copy file status: 68 percent\r   Copy file status: 100 percent" +
                "\n   Uploading Firmware Image OK!\n" +
                "\r   Issue USB Firmware Update Command Phase 2 :  OK\n" +
                "\n   Get Firmware Update Status" + kClearLine +
                "\r   Firmware Update Status: Completed\n" + Spin(32767, "  Reset BMC ...") +
                checking + "\r" + std::string(40, ' ') + "\r" +
                "   BMC Firmware Version: 2.10.3 \n" + "   Firmware Update Successfully\n",
            out_);
  EXPECT_EQ("", err_);
  EXPECT_EQ(std::string(3000, 'i'), host.Copied());
  EXPECT_FALSE(host.mounted);
  const std::vector<std::string> requests = bmc.RequestLines();
  const std::vector<std::string> update(requests.end() - 23, requests.end());
  EXPECT_EQ(Join({{"08 01 03 80", "08 04 07 00"}, Times(16, "08 02 07"),
                  {"08 04 07 01", "08 02 07", "06 02", "06 01", "08 01 aa 02"}}),
            update);
}

TEST_F(RunMainUpdateTest, InterruptedUpdateExitsWith130AndLeavesNothingMounted) {
  host.on_command = [](const std::string& command) {
    if (command == "mount /dev/loop1p1 /tmp/scrtch") raise(SIGINT);
  };
  EXPECT_EQ(130, Run({"-f", "-e=0", "-i=" + image_}));
  EXPECT_FALSE(host.mounted);
  EXPECT_EQ("rm -rf /tmp/scrtch", env.commands[env.commands.size() - 2]);
  // The interrupt line takes the place of the return code's message.
  EXPECT_EQ(
      "\n   Interrupted by SIGINT: nothing is left mounted, the BMC's update "
      "task was left to end on its own\n",
      err_);
  EXPECT_FALSE(task.phase2_sent);
}

}  // namespace
}  // namespace update_testing

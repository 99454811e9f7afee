// The virtual-media update end to end against the scripted BMC task and
// the scripted host shell, with the copy into the scratch directory made on
// the host's in-memory files.
#include <gtest/gtest.h>

#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "driver/driver.h"
#include "ipmi/ipmi_exec.h"
#include "update/firmware_update.h"
#include "platform/signals.h"
#include "usb/write_firmware.h"
#include "fake_host.h"
#include "update_fixture.h"

namespace update_testing {
namespace {

const std::string kDetectSpin = "  Detecting USB Device ...";

// An image file on the host.
class TempImage {
 public:
  TempImage(testing_support::FakeFiles* fs, size_t size) {
    static int count = 0;
    path_ = "/home/op/images/bmc" + std::to_string(++count) + ".img";
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 7 + 3);
    fs->AddFile(path_, data);
    content_ = data;
  }
  const std::string& path() const { return path_; }
  const std::string& content() const { return content_; }

 private:
  std::string path_, content_;
};

// The copy's progress line for an image of `size` bytes, as the copy in
// chunks of 1024 bytes shows it; a copy that fails after `limit` bytes
// stops showing at that point.
std::string CopyProgress(size_t size, size_t limit = SIZE_MAX) {
  std::string text = kClearLine + "\r   Copy file status: 0 percent";
  unsigned shown = 0;
  for (size_t copied = 0; copied < size;) {
    size_t chunk = size - copied < 1024 ? size - copied : 1024;
    if (copied + chunk > limit) break;
    copied += chunk;
    unsigned percent = static_cast<unsigned>(copied * 100 / size);
    if (percent > shown) {
      shown = percent;
      text += "\r   Copy file status: " + std::to_string(percent) + " percent";
    }
  }
  return text;
}

class UsbUpdateTest : public UpdateTest {
 protected:
  void SetUp() override {
    UpdateTest::SetUp();
    ASSERT_FALSE(image.path().empty());
    snprintf(header.achFileName, sizeof(header.achFileName), "%s", image.path().c_str());
    header.u32ImageSize = static_cast<uint32_t>(image.content().size());
    snprintf(bmcInfo.achPlatformName, sizeof(bmcInfo.achPlatformName), "Stratovex");
  }
  void SetEntity(int entity) {
    G_u8EntityID = static_cast<uint8_t>(entity);
    Settings().u8EntityID = static_cast<uint8_t>(entity);
  }
  int Run() { return G_pFirmwareUpdate->DoUSBFwUpdate(&bmcInfo, &header); }

  static std::string DetectSpinner(int attempts) {
    std::string s;
    for (int i = 0; i < attempts; ++i) s += Spin(32767 - i, kDetectSpin);
    return s;
  }
  // Console text up to the phase 2 request of an update that mounted the
  // device after 16 detection attempts.
  static std::string UntilPhaseTwo() {
    return "\n   Initiate Update Firmware Command :  OK\n"
           "\r   Issue USB Firmware Update Command Phase 1 :  OK\n" +
           DetectSpinner(16) + "\r   Detecting USB Device :  OK" +
           "\n   Uploading Firmware Image ... " + CopyProgress(4096) +
           "\n   Uploading Firmware Image OK!\n" +
           "\r   Issue USB Firmware Update Command Phase 2 :  OK\n";
  }
  static std::string CompletedPoll() {
    return "\n   Get Firmware Update Status" + kClearLine +
           "\r   Firmware Update Status: Completed" + "\n";
  }
  static std::vector<std::string> Requests(uint8_t target) {
    char init[32];
    snprintf(init, sizeof(init), "08 01 03 %02x", target);
    return Join({{init, "08 04 07 00"}, update_testing::Times(16, "08 02 07"),
                 {"08 04 07 01", "08 02 07"}});
  }
  std::vector<std::string> Requests() const { return UpdateTest::Requests(); }
  static std::vector<std::string> MountCommands() {
    return {"/sbin/fdisk -l", "mkdir /media", "mkdir /mnt", "mkdir /tmp/scrtch",
            "mount /dev/loop1p1 /tmp/scrtch"};
  }
  static std::vector<std::string> UnmountCommands() {
    return {"df -Th", "umount /tmp/scrtch", "rm -rf /tmp/scrtch", "df -Th"};
  }
  static std::vector<std::string> HappyCommands() {
    return Join({{"/sbin/fdisk -l"}, update_testing::Times(16, "df -Th"), MountCommands(),
                 {"df -Th"}, UnmountCommands()});
  }

  FakeHost host{&env};
  TaskBmc task{&bmc, &host};
  TempImage image{&host.fs, 4096};
  sImageHeaderTag header{};
  sBMCInformationTag bmcInfo{};
};

class UsbEntityTest : public UsbUpdateTest, public ::testing::WithParamInterface<int> {};

TEST_P(UsbEntityTest, HappyPathWithoutReset) {
  const int entity = GetParam();
  SetEntity(entity);
  EXPECT_EQ(0, Run());
  EXPECT_EQ(UntilPhaseTwo() + CompletedPoll() + "   Firmware Update Successfully\n", Out());
  EXPECT_EQ("", Err());
  EXPECT_EQ(Requests(static_cast<uint8_t>(0x80 | entity)), Requests());
  EXPECT_EQ(HappyCommands(), env.commands);
  EXPECT_EQ(image.content(), host.Copied());
  EXPECT_FALSE(host.mounted);
  // 1 + 1 s around the first phase, 16 polls, 16 detection attempts, 2 s
  // before phase 2 and one status poll.
  EXPECT_EQ(37, Clock());
  const std::string copy = "\n     Copy " + image.path() + " to /tmp/scrtch/firmimg.k9 :  OK";
  EXPECT_TRUE(InOrder(
      Log(),
      Join({{"\n   Initiate Update Firmware Command : ", " OK\n",
             "\n   Get Device Name List Before Doing Phase 1 : ",
             "\n   Get Device Name List Before Doing Phase 1 OK\n",
             "\r   Issue USB Firmware Update Command Phase 1 : ", " OK\n"},
            Times(16, "   Status = 0x3\n"), Times(16, "\n   Detecting USB Device"),
            {"\n     Mount /dev/loop1p1 /tmp/scrtch OK\n",
             "\n   Uploading Firmware Image ... ", copy,
             "\n   Uploading Firmware Image OK!\n",
             "\n   Check if USB device was unmounted automatically",
             "\n   Unmount /tmp/scrtch OK", "\n     USB device has been unmounted manually\n",
             "\r   Issue USB Firmware Update Command Phase 2 : ",
             "\n   Get Firmware Update Status", "\tElapsed time =  1 seconds\n",
             "   Firmware Update Successfully\n"}})));
}

INSTANTIATE_TEST_SUITE_P(Entities, UsbEntityTest, ::testing::Range(0, 6));

TEST_F(UsbUpdateTest, BmcFirmwareWithResetShowsTheNewVersion) {
  SetEntity(0);
  G_u8BMCNeedReboot = 1;
  EXPECT_EQ(0, Run());
  std::string checking;
  for (int i = 0; i < 11; ++i) checking += Spin(32767 - i, "  Checking new firmware version ...  ");
  EXPECT_EQ(UntilPhaseTwo() + CompletedPoll() + Spin(32767, "  Reset BMC ...") + checking +
                "\r" + std::string(40, ' ') + "\r" + "   BMC Firmware Version: 2.10.3 \n" +
                "   Firmware Update Successfully\n",
            Out());
  EXPECT_EQ(Join({Requests(0x80), {"06 02", "06 01", "08 01 aa 02"}}), Requests());
  EXPECT_EQ(47, Clock());
}

TEST_F(UsbUpdateTest, BiosUpdateRestartsNothingItself) {
  SetEntity(1);
  G_u8HostNeedRebootFlag = 1;
  EXPECT_EQ(0, Run());
  EXPECT_EQ(UntilPhaseTwo() + CompletedPoll() + "   Firmware Update Successfully\n", Out());
  EXPECT_EQ(Requests(0x81), Requests());
}

TEST_F(UsbUpdateTest, CustomerDefaultsResetToDefaultsExactlyOnce) {
  SetEntity(5);
  G_u8BMCNeedReboot = 1;
  task.version = "5.0.1";
  EXPECT_EQ(0, Run());
  EXPECT_EQ(1u, bmc.RequestsFor(0x30, 0x04).size());
  EXPECT_EQ(Join({Requests(0x85), {"30 04 ff", "30 05 09", "06 02", "06 01", "08 01 aa 02"}}),
            Requests());
  EXPECT_TRUE(InOrder(Out(), {CompletedPoll() + "   Reset To Default : Done\n",
                              "   Customer Def Version: 5.0.1 \n",
                              "   Firmware Update Successfully\n"}));
}

TEST_F(UsbUpdateTest, CustomerDefaultsWithClearPsResetOnceInTheClearStep) {
  SetEntity(5);
  G_u8BMCNeedReboot = 1;
  G_pFirmwareUpdate->SetClearPsMode(true);
  EXPECT_EQ(0, Run());
  EXPECT_EQ(1u, bmc.RequestsFor(0x30, 0x04).size());
  EXPECT_EQ(Join({Requests(0x85), {"30 04 ff", "30 05 09", "06 02", "06 01", "08 01 aa 02"}}),
            Requests());
  EXPECT_TRUE(InOrder(Out(), {CompletedPoll() + "   Clear Private Storage : Done\n" +
                              Spin(32767, "  Reset BMC ...")}));
  EXPECT_EQ(std::string::npos, Out().find("Reset To Default"));
}

TEST_F(UsbUpdateTest, ClearPsModeWithoutReset) {
  G_pFirmwareUpdate->SetClearPsMode(true);
  EXPECT_EQ(0, Run());
  EXPECT_EQ(UntilPhaseTwo() + CompletedPoll() + "   Clear Private Storage : Done\n" +
                "   Firmware Update Successfully\n",
            Out());
  EXPECT_EQ(Join({Requests(0x80), {"30 04 ff", "30 05 09"}}), Requests());
}

TEST_F(UsbUpdateTest, ClearPsRefusedIsTheResult) {
  G_pFirmwareUpdate->SetClearPsMode(true);
  G_u8BMCNeedReboot = 1;
  bmc.On(0x30, 0x04, {BmcAnswer::Code(0xC1)});
  auto previous = bmc.handler;
  bmc.handler = [previous](const BmcRequest& r, BmcAnswer* a) {
    if (r.netfn == 0x30 && r.cmd == 0x04) return false;
    return previous(r, a);
  };
  EXPECT_EQ(RC_RESET_TO_DEFAULT_FAILED + RC_RETRY_LIMIT, Run());
  EXPECT_EQ(UntilPhaseTwo() + CompletedPoll() + "   Clear Private Storage Failed \n", Out());
  EXPECT_TRUE(bmc.RequestsFor(0x06, 0x02).empty());
}

TEST_F(UsbUpdateTest, ReadyStateIsAwaitedWithoutLimit) {
  task.ready_answers = std::vector<BmcAnswer>(19, BmcAnswer::Reply({0x04}));
  task.ready_answers.push_back(BmcAnswer::Reply({0x03}));
  EXPECT_EQ(0, Run());
  EXPECT_EQ(20u + 1u, bmc.RequestsFor(0x08, 0x02).size());
  EXPECT_EQ(41, Clock());
}

TEST_F(UsbUpdateTest, FailedPollsDoNotEndTheWaitButTheLastResultCounts) {
  task.ready_answers = {BmcAnswer::Code(0xC1), BmcAnswer::Reply({0x03})};
  EXPECT_EQ(0, Run());
  EXPECT_EQ(16u + 1u, bmc.RequestsFor(0x08, 0x02).size());
}

// Ready seen, then the BMC stops answering: the 16th poll's failure ends
// the wait and the update.

TEST_F(UsbUpdateTest, ReadyThenSilentEndsWithTheLastPollsFailure) {
  task.ready_answers = std::vector<BmcAnswer>(15, BmcAnswer::Reply({0x03}));
  task.ready_answers.push_back(BmcAnswer::Silent());
  EXPECT_EQ(RC_GET_UPDATE_STATUS_FAILED + RC_RETRY_LIMIT, Run());
  EXPECT_EQ(16u, bmc.RequestsFor(0x08, 0x02).size());
  EXPECT_EQ((std::vector<std::string>{"/sbin/fdisk -l", "df -Th"}), env.commands);
  EXPECT_EQ(
      "\n   Initiate Update Firmware Command :  OK\n"
      "\r   Issue USB Firmware Update Command Phase 1 :  OK\n",
      Out());
}

TEST_F(UsbUpdateTest, CopyFailsThenSucceedsOnRetryThree) {
  // The device shows in the report only from the fourth copy attempt on.
  host.df_hides_stick = 3;
  EXPECT_EQ(0, Run());
  EXPECT_TRUE(InOrder(Out(), {"\r   Detecting USB Device :  OK",
                              "\n   Uploading Firmware Image ... "
                              "\n   Uploading Firmware Image ... retry 1\n"
                              "\n   Uploading Firmware Image ... retry 2\n"
                              "\n   Uploading Firmware Image ... retry 3\n" +
                                  CopyProgress(4096) + "\n   Uploading Firmware Image OK!\n"}));
  EXPECT_EQ(image.content(), host.Copied());
  EXPECT_EQ(Requests(0x80), Requests());
}

TEST_F(UsbUpdateTest, CopyFailingForLackOfSpace) {
  // A full device: writes beyond 1 MiB fail (the image is 2 MiB).
  TempImage big(&host.fs, 2 << 20);
  snprintf(header.achFileName, sizeof(header.achFileName), "%s", big.path().c_str());
  host.fs.file_size_limit = 1 << 20;
  const int rc = Run();

  EXPECT_EQ(22, rc);
  const std::string failed = CopyProgress(2 << 20, 1 << 20) + "\r   Copy " + big.path() +
                             " to /tmp/scrtch/firmimg.k9 Failed\n";
  std::string uploads = "\n   Uploading Firmware Image ... " + failed;
  for (int i = 1; i <= 5; ++i)
    uploads += "\n   Uploading Firmware Image ... retry " + std::to_string(i) + "\n" + failed;
  EXPECT_EQ("\n   Initiate Update Firmware Command :  OK\n"
            "\r   Issue USB Firmware Update Command Phase 1 :  OK\n" +
                DetectSpinner(16) + "\r   Detecting USB Device :  OK" + uploads,
            Out());
  EXPECT_EQ("\n   Uploading Firmware Image Failed!\n", Err());
  // The clean-up unmounts and removes the scratch directory; no phase 2.
  EXPECT_EQ(Join({{"/sbin/fdisk -l"}, Times(16, "df -Th"), MountCommands(), Times(6, "df -Th"),
                  UnmountCommands()}),
            env.commands);
  EXPECT_FALSE(host.mounted);
  EXPECT_FALSE(task.phase2_sent);
  EXPECT_TRUE(InOrder(Log(), {"\n   Check if USB device does not exist",
                              "\n     USB device does exist", "\n   Unmount /tmp/scrtch OK"}));
}

TEST_F(UsbUpdateTest, DeviceNotFound) {
  task.attaches = false;
  EXPECT_EQ(0x100 + 21, Run());
  EXPECT_EQ("\n   Initiate Update Firmware Command :  OK\n"
            "\r   Issue USB Firmware Update Command Phase 1 :  OK\n" +
                DetectSpinner(16) + "\r   Detecting USB Device retry limit is reached\n",
            Out());
  EXPECT_EQ("   USB Device is not found\n", Err());
  EXPECT_EQ(Join({{"/sbin/fdisk -l"}, Times(16, "df -Th"), {"/sbin/fdisk -l", "df -Th"}}),
            env.commands);
  EXPECT_TRUE(InOrder(Log(), {"\n     Cannot find any new device after Phase One\n",
                              "   Detecting USB Device retry limit is reached\n",
                              "   USB Device is not found\n",
                              "\n   Check if USB device does not exist",
                              "\n     USB device does not exist"}));
  EXPECT_EQ(Join({{"08 01 03 80", "08 04 07 00"}, Times(16, "08 02 07")}), Requests());
}

TEST_F(UsbUpdateTest, MountFailing) {
  host.mount_status = 32 << 8;
  EXPECT_EQ(0x100 + 21, Run());
  EXPECT_EQ("   USB Device is not found\n", Err());
  EXPECT_TRUE(InOrder(Log(), {"\n     Mount /dev/loop1p1 /tmp/scrtch failed\n"}));
}

TEST_F(UsbUpdateTest, UpdateTaskRefused) {
  task.init_answer = BmcAnswer::Code(0xC1);
  EXPECT_EQ(RC_UPDATE_FIRMWARE_FAILED + RC_RETRY_LIMIT, Run());
  EXPECT_EQ("\n   Initiate Update Firmware Command :  FAILED\n", Out());
  EXPECT_EQ(std::vector<std::string>{"08 01 03 80"}, Requests());
  // Only the clean-up's look for a mounted device.
  EXPECT_EQ(std::vector<std::string>{"df -Th"}, env.commands);
  EXPECT_EQ(2, Clock());
}

TEST_F(UsbUpdateTest, BmcBusyRefusesPhaseOne) {
  task.phase1_answer = BmcAnswer::Code(0x81);
  EXPECT_EQ(RC_UPDATE_IN_PROGRESS + RC_RETRY_LIMIT, Run());
  EXPECT_EQ("\n   Initiate Update Firmware Command :  OK\n"
            "\r   Issue USB Firmware Update Command Phase 1 :  FAILED\n",
            Out());
  EXPECT_EQ((std::vector<std::string>{"08 01 03 80", "08 04 07 00"}), Requests());
  EXPECT_EQ((std::vector<std::string>{"/sbin/fdisk -l", "df -Th"}), env.commands);
}

TEST_F(UsbUpdateTest, DiskListThatCannotBeTakenLeavesTheMountAlone) {
  host.fdisk_fails = true;
  EXPECT_EQ(1, Run());
  EXPECT_EQ("\n   Initiate Update Firmware Command :  OK\n"
            "\n   Get Device Name List Before Doing Phase 1 Failed\n",
            Out());
  EXPECT_EQ(std::vector<std::string>{"/sbin/fdisk -l"}, env.commands);
  EXPECT_EQ(std::vector<std::string>{"08 01 03 80"}, Requests());
}

TEST_F(UsbUpdateTest, MissingImageName) {
  header.achFileName[0] = '\0';
  EXPECT_EQ(2, Run());
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ(std::vector<std::string>{"df -Th"}, env.commands);
  EXPECT_EQ("", Out());
}

TEST_F(UsbUpdateTest, DeviceThatStaysMountedIsADetachmentFailure) {
  host.umount_status = 32 << 8;
  EXPECT_EQ(16, Run());
  EXPECT_FALSE(task.phase2_sent);
  EXPECT_TRUE(InOrder(Log(), {"\n   Unmount /tmp/scrtch Failed\n"}));
}

TEST_F(UsbUpdateTest, FailingResetAfterASuccessfulTask) {
  G_u8BMCNeedReboot = 1;
  bmc.On(0x06, 0x02, {BmcAnswer::Code(0xC1)});
  EXPECT_EQ(RC_COLD_RESET_FAILED + RC_RETRY_LIMIT, Run());
  EXPECT_EQ(5u, bmc.RequestsFor(0x06, 0x02).size());  // reset retry 4
  EXPECT_EQ(std::string::npos, Out().find("Successfully"));
}

TEST_F(UsbUpdateTest, BmcThatNeverComesBackAfterTheReset) {
  G_u8BMCNeedReboot = 1;
  bmc.On(0x06, 0x01, {BmcAnswer::Silent()});
  EXPECT_EQ(540, Run());
  const std::string tail = "\r   Checking new firmware version timeout  ";
  EXPECT_EQ(tail, Out().substr(Out().size() - tail.size()));
  EXPECT_EQ(Out().find(tail), Out().size() - tail.size());  // once
}

TEST_F(UsbUpdateTest, TaskFailureReasonFailsTheUpdate) {
  G_u8BMCNeedReboot = 1;
  task.task_answers = {BmcAnswer::Reply({0x01}), BmcAnswer::Reply({0x84})};
  EXPECT_EQ(20, Run());
  EXPECT_EQ(UntilPhaseTwo() + "\n   Get Firmware Update Status" + kClearLine +
                "\r   Firmware Update Status: Validating Image" + kClearLine +
                "\r   Firmware Update Status: Checksum Error" + "\n",
            Out());
  EXPECT_TRUE(bmc.RequestsFor(0x06, 0x02).empty());
}

TEST_F(UsbUpdateTest, GarbageStatusCode) {
  task.task_answers = {BmcAnswer::Reply({0x7E})};
  EXPECT_EQ(20, Run());
  EXPECT_TRUE(InOrder(Out(), {"\r\tUnrecognized status code: 0x7E\n"}));
}

TEST_F(UsbUpdateTest, BmcThatStopsAnsweringMidUpdate) {
  G_u8BMCNeedReboot = 1;
  task.task_answers = {BmcAnswer::Reply({0x02, 30}), BmcAnswer::Silent()};
  EXPECT_EQ(RC_GET_UPDATE_STATUS_FAILED + RC_RETRY_LIMIT, Run());
  EXPECT_TRUE(InOrder(Out(), {"\r\tFirmware Update Status: Programming 30 percent\n"}));
  EXPECT_TRUE(bmc.RequestsFor(0x06, 0x02).empty());
}

TEST_F(UsbUpdateTest, OverLanTheColdResetIsSentOnceWithoutWaiting) {
  UinitKcsDriver();
  G_EnableIPMILan = 1;
  G_u8BMCNeedReboot = 1;
  G_pFirmwareUpdate->SetHostIP("127.0.0.1");
  G_pFirmwareUpdate->SetUserName("admin");
  G_pFirmwareUpdate->SetPassWord("secret");
  host.ServeIpmitool(&bmc);
  EXPECT_EQ(0, Run());
  EXPECT_EQ(UntilPhaseTwo() + CompletedPoll() + "   Cold Reset : Done\n" +
                "   Firmware Update Successfully\n",
            Out());
  EXPECT_EQ(Join({Requests(0x80), {"06 02"}}), Requests());
  EXPECT_EQ(image.content(), host.Copied());
}

// ---- interrupted updates ----

TEST_F(UsbUpdateTest, InterruptWhileMountingReleasesTheDevice) {
  host.on_command = [](const std::string& command) {
    if (command == "mount /dev/loop1p1 /tmp/scrtch") raise(SIGINT);
  };
  EXPECT_EQ(130, Run());
  EXPECT_FALSE(host.mounted);
  EXPECT_EQ(Join({{"/sbin/fdisk -l"}, Times(16, "df -Th"), MountCommands(),
                  UnmountCommands()}),
            env.commands);
  EXPECT_EQ(
      "\n   Interrupted by SIGINT: nothing is left mounted, the BMC's update "
      "task was left to end on its own\n",
      Err());
  EXPECT_FALSE(task.phase2_sent);
  EXPECT_TRUE(host.Copied().empty());
  EXPECT_EQ("\n   Initiate Update Firmware Command :  OK\n"
            "\r   Issue USB Firmware Update Command Phase 1 :  OK\n" +
                DetectSpinner(16) + "\r   Detecting USB Device :  OK",
            Out());
  EXPECT_TRUE(InOrder(Log(), {"\n   Check if USB device does not exist",
                              "\n   Unmount /tmp/scrtch OK",
                              "\n   Interrupted by SIGINT: nothing is left mounted"}));
}

TEST_F(UsbUpdateTest, TerminationDuringTheCopyStopsAfterIt) {
  int dfAfterMount = 0;
  host.on_command = [this, &dfAfterMount](const std::string& command) {
    if (command == "df -Th" && host.mounted && ++dfAfterMount == 1) raise(SIGTERM);
  };
  EXPECT_EQ(143, Run());
  EXPECT_FALSE(host.mounted);
  EXPECT_FALSE(task.phase2_sent);
  EXPECT_EQ(Join({{"/sbin/fdisk -l"}, Times(16, "df -Th"), MountCommands(), {"df -Th"},
                  UnmountCommands()}),
            env.commands);
  EXPECT_EQ(
      "\n   Interrupted by SIGTERM: nothing is left mounted, the BMC's update "
      "task was left to end on its own\n",
      Err());
}

TEST_F(UsbUpdateTest, InterruptBetweenCopyRetriesStopsRetrying) {
  host.df_hides_stick = 2;
  int hidden = 0;
  host.on_command = [this, &hidden](const std::string& command) {
    if (command == "df -Th" && host.mounted && ++hidden == 2)
      platform::RecordSignalForTest(SIGINT);
  };
  EXPECT_EQ(130, Run());
  EXPECT_TRUE(InOrder(Out(), {"\n   Uploading Firmware Image ... "
                              "\n   Uploading Firmware Image ... retry 1\n"}));
  EXPECT_EQ(std::string::npos, Out().find("retry 2"));
  EXPECT_EQ(std::string::npos, Err().find("Uploading Firmware Image Failed"));
  EXPECT_FALSE(host.mounted);
}

TEST_F(UsbUpdateTest, InterruptDuringTheUnmountLeavesNothingBehind) {
  host.on_command = [this](const std::string& command) {
    if (command == "umount /tmp/scrtch" && task.phase2_sent == false) raise(SIGINT);
  };
  EXPECT_EQ(130, Run());
  EXPECT_FALSE(host.mounted);
  EXPECT_FALSE(task.phase2_sent);
  // The regular unmount ran; the clean-up finds nothing left.
  EXPECT_EQ(Join({HappyCommands(), {"df -Th"}}), env.commands);
}

TEST_F(UsbUpdateTest, InterruptBeforeAnythingIsMounted) {
  int df = 0;
  host.on_command = [&df](const std::string& command) {
    if (command == "df -Th" && ++df == 3) raise(SIGINT);
  };
  EXPECT_EQ(130, Run());
  // Detection stops at once; nothing is mounted, nothing is removed.
  EXPECT_EQ((std::vector<std::string>{"/sbin/fdisk -l", "df -Th", "df -Th", "df -Th", "df -Th"}),
            env.commands);
  EXPECT_FALSE(task.phase2_sent);
}

}  // namespace
}  // namespace update_testing

// The three-phase update over the system interface, against a scripted BMC
// that follows the phases and the scripted host shell.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>

#include "update/firmware_update.h"
#include "fake_host.h"
#include "update_fixture.h"

namespace update_testing {
namespace {

const char kGracefulReset[] = "2e cc 5e 2b 00 06 43 00";

class ThreePhaseBmc {
 public:
  ThreePhaseBmc(testing_support::ScriptedBmc* bmc, FakeHost* host) : host_(host) {
    bmc->handler = [this](const BmcRequest& r, BmcAnswer* a) { return Answer(r, a); };
  }
  BmcAnswer idle_status = BmcAnswer::Code(0x86);  // no update under way
  bool refuses_second_start = true;
  BmcAnswer phase2 = BmcAnswer::Reply({});
  BmcAnswer phase3 = BmcAnswer::Reply({});
  std::vector<uint8_t> version{2, 10, 0, 3};
  int percent_polls = 0;

 private:
  bool Answer(const BmcRequest& r, BmcAnswer* a) {
    if (r.netfn == 0x2E) {
      *a = BmcAnswer::Reply({0x5E, 0x2B, 0x00});
      return true;
    }
    if (r.netfn != 0x08) return false;
    switch (r.cmd) {
      case 0x12:
        *a = phase3_done_ ? BmcAnswer::Reply({100}) : idle_status;
        if (phase3_done_) ++percent_polls;
        return true;
      case 0x10:
        *a = started_ && refuses_second_start ? BmcAnswer::Code(0x81) : BmcAnswer::Reply({});
        started_ = true;
        return true;
      case 0x11:
        *a = phase2;
        if (a->completion_code == 0 && a->kind == BmcAnswer::kReply) host_->attached = true;
        return true;
      case 0x21:
        *a = phase3;
        phase3_done_ = a->completion_code == 0 && a->kind == BmcAnswer::kReply;
        return true;
      case 0x16:
        *a = BmcAnswer::Reply({});
        return true;
      case 0x13:
        *a = r.data[0] == 0 ? BmcAnswer::Reply(version)
                            : BmcAnswer::Reply({1, 2, 3, 0, 1, 2, 3, 0});
        return true;
    }
    return false;
  }
  FakeHost* host_;
  bool started_ = false;
  bool phase3_done_ = false;
};

class ThreePhaseTest : public UpdateTest {
 protected:
  void SetUp() override {
    UpdateTest::SetUp();
    path_ = "/home/op/images/image.bin";
    host.fs.AddFile(path_, std::string(2048, 'x'));
    snprintf(header.achFileName, sizeof(header.achFileName), "%s", path_.c_str());
    header.u32ImageSize = 3u << 20;
    const uint8_t revision[4] = {2, 10, 0, 3};
    memcpy(header.au8FwRevision, revision, 4);
  }
  int Run() { return G_pFirmwareUpdate->DoFwUpdate("Stratovex", &header); }

  FakeHost host{&env};
  ThreePhaseBmc model{&bmc, &host};
  sImageHeaderTag header{};
  std::string path_;
};

TEST_F(ThreePhaseTest, HappyPath) {
  EXPECT_EQ(0, Run());
  EXPECT_EQ((std::vector<std::string>{"08 12 01", "08 10 04", "08 10 04", "08 11", "08 21",
                                      "08 12 01", kGracefulReset, "08 13 00", "08 13 01"}),
            Requests());
  EXPECT_EQ(std::string(2048, 'x'), host.Copied());
  EXPECT_FALSE(host.mounted);
  EXPECT_TRUE(InOrder(Out(), {"\r   Detecting USB Device ... OK \n",
                              "\n   Uploading Firmware Image ... ",
                              "\n   Uploading Firmware Image OK!\n",
                              "\n   Get Firmware Update Status ",
                              "\r   Firmware update status: 100 percent\n",
                              "\n   Check new firmware version\n", "Firmware Version",
                              "\n   Firmware update successfully\n"}));
  EXPECT_EQ("", Err());
  EXPECT_TRUE(InOrder(Log(), {"\n   Get Device Name List Before Doing Phase 1 OK\n",
                              "\n   FW Update Phase 1 : ",
                              "\n   Check whether Phase 1 is ready : ",
                              "   Start checking where Phase 1 is ready at " + At(start + 1),
                              "   Elapsed time =  2 seconds\n", "   FW Update Phase 1 OK\n",
                              "\n   FW Update Phase 2 : ", "   FW Update Phase 2 OK\n",
                              "\n   Uploading Firmware Image OK!\n",
                              "\n     USB device has been unmounted manually\n",
                              "\n   FW Update Phase 3 : ", "   FW Update Phase 3 OK\n",
                              "   Get Firmware Update Status OK\n", "   iBMC Graceful Reset OK\n",
                              "   Get FW Version OK\n", "\n   Firmware update successfully\n"}));
}

// The BMC needs fixed pauses after the copy: before the status poll and
// again before the reset. Sleeps are summed per gap between requests so the
// check holds however a wait is sliced.
TEST_F(ThreePhaseTest, FixedPausesBeforeTheStatusPollAndTheReset) {
  std::map<size_t, unsigned> slept_before;  // request index -> ms slept before it
  env.on_sleep = [&](unsigned ms) { slept_before[bmc.RequestLines().size()] += ms; };
  ASSERT_EQ(0, Run());
  const std::vector<std::string> all = Requests();
  const size_t phase3 = std::find(all.begin(), all.end(), "08 21") - all.begin();
  ASSERT_LT(phase3 + 2, all.size());
  ASSERT_EQ("08 12 01", all[phase3 + 1]);
  ASSERT_EQ(kGracefulReset, all[phase3 + 2]);
  // The fixed pause, then the status poll's own second before its request.
  EXPECT_EQ(5000u + 1000u, slept_before[phase3 + 1]);
  EXPECT_EQ(3000u, slept_before[phase3 + 2]);
}

// Phase 1 is ready only when the BMC refuses a second start as already
// under way; a retry refused for another reason is not.
TEST_F(ThreePhaseTest, PhaseOneRetryWithAnotherErrorIsNotReady) {
  Settings().u16PhaseOneWaitingTime = 3;
  int starts = 0;
  bmc.handler = [&, inner = bmc.handler](const BmcRequest& r, BmcAnswer* a) {
    if (r.netfn == 0x08 && r.cmd == 0x10 && starts++ > 0) {
      *a = BmcAnswer::Code(0xC0);  // busy, not "in progress"
      return true;
    }
    return inner(r, a);
  };
  EXPECT_EQ(0x200 + 24, Run());
  EXPECT_EQ("\r   FW Update Phase 1: Timeout\n", Out());
}

TEST_F(ThreePhaseTest, PhaseOneAsksOneMiBMoreThanTheImage) {
  header.u32ImageSize = (3u << 20) + 1;
  G_pFirmwareUpdate->SetUSBDeviceMinSize(&header);
  EXPECT_EQ(4, G_pFirmwareUpdate->GetUSBDeviceMinSize());
  EXPECT_EQ(0, Run());
  EXPECT_EQ("08 10 05", Requests()[1]);
}

TEST_F(ThreePhaseTest, BusyBmcIsLeftAlone) {
  model.idle_status = BmcAnswer::Reply({40});
  EXPECT_EQ(13, Run());
  EXPECT_EQ(std::vector<std::string>{"08 12 01"}, Requests());
  EXPECT_TRUE(env.commands.empty());
}

TEST_F(ThreePhaseTest, DiskListFailureLeavesBmcAndMountAlone) {
  host.fdisk_fails = true;
  EXPECT_EQ(1, Run());
  EXPECT_EQ("\n   Get Device Name List Before Doing Phase 1 Failed\n", Out());
  EXPECT_EQ(std::vector<std::string>{"08 12 01"}, Requests());
  EXPECT_EQ(std::vector<std::string>{"/sbin/fdisk -l"}, env.commands);
}

TEST_F(ThreePhaseTest, PhaseOneTimeOutCleansUpAndResets) {
  Settings().u16PhaseOneWaitingTime = 3;
  model.refuses_second_start = false;
  EXPECT_EQ(0x200 + 24, Run());
  EXPECT_EQ("\r   FW Update Phase 1: Timeout\n", Out());
  EXPECT_EQ((std::vector<std::string>{"08 12 01", "08 10 04", "08 10 04", "08 10 04",
                                      "08 10 04", "08 10 04", kGracefulReset}),
            Requests());
  EXPECT_EQ((std::vector<std::string>{"/sbin/fdisk -l", "df -Th"}), env.commands);
  EXPECT_TRUE(InOrder(Log(), {"   Elapsed time =  4 seconds\n", "   FW Update Phase 1 timeout\n"}));
}

TEST_F(ThreePhaseTest, PhaseTwoTimeOut) {
  Settings().u16PhaseTwoWaitingTime = 2;
  model.phase2 = BmcAnswer::Code(0xC0);
  EXPECT_EQ(0x200 + 25, Run());
  EXPECT_EQ("\r   FW Update Phase 2: Timeout\n", Out());
  EXPECT_EQ(kGracefulReset, Requests().back());
  EXPECT_EQ(2u, bmc.RequestsFor(0x08, 0x11).size());
}

TEST_F(ThreePhaseTest, PhaseThreeFailureCarriesTheTimeoutFlag) {
  model.phase3 = BmcAnswer::Code(0xC0);
  EXPECT_EQ(0x200 + 26, Run());
  EXPECT_TRUE(InOrder(Out(), {"\n   Uploading Firmware Image OK!\n",
                              "\r   FW Update Phase 3: Failed\n"}));
  EXPECT_EQ(kGracefulReset, Requests().back());
  EXPECT_FALSE(host.mounted);
}

TEST_F(ThreePhaseTest, VersionMismatchFailsAndResetsOnceMore) {
  model.version = {2, 9, 0, 1};
  EXPECT_EQ(1, Run());
  EXPECT_TRUE(InOrder(Out(), {"\n   Check new firmware version\n",
                              "   Current Firmware version and Image Firmware version are "
                              "not the same!!\n"}));
  EXPECT_EQ(std::string::npos, Out().find("successfully"));
  const std::vector<std::string> all = Requests();
  EXPECT_EQ(kGracefulReset, all.back());
  EXPECT_EQ(2, std::count(all.begin(), all.end(), kGracefulReset));
}

TEST_F(ThreePhaseTest, ClearPsSetsTheImageStatusBeforeTheUnmount) {
  G_pFirmwareUpdate->SetClearPsMode(true);
  EXPECT_EQ(0, Run());
  EXPECT_EQ((std::vector<std::string>{"08 12 01", "08 10 04", "08 10 04", "08 11", "08 16 01 00",
                                      "08 21", "08 12 01", kGracefulReset, "08 13 00",
                                      "08 13 01"}),
            Requests());
  EXPECT_TRUE(InOrder(Log(), {"\n   Uploading Firmware Image OK!\n",
                              "\n   Set Firmware Image Status : ",
                              "   Set Firmware Image Status OK\n",
                              "\n   Check if USB device was unmounted automatically"}));
}

TEST_F(ThreePhaseTest, SearchRetryZeroDetectsOnce) {
  Settings().u8USBDeviceSearchingRetry = 0;
  EXPECT_EQ(0, Run());
  EXPECT_EQ((std::vector<std::string>{"/sbin/fdisk -l", "df -Th", "/sbin/fdisk -l"}),
            std::vector<std::string>(env.commands.begin(), env.commands.begin() + 3));
  EXPECT_TRUE(InOrder(Out(), {Spin(32767, "  Detecting USB Device ...") +
                              "\r   Detecting USB Device ... OK \n"}));
}

TEST_F(ThreePhaseTest, MissingImageNameResetsAsEveryLaterFailure) {
  header.achFileName[0] = '\0';
  EXPECT_EQ(2, Run());
  EXPECT_EQ(std::vector<std::string>{kGracefulReset}, Requests());
  EXPECT_EQ(std::vector<std::string>{"df -Th"}, env.commands);
}

TEST_F(ThreePhaseTest, InterruptReleasesTheDeviceAndResetsTheBmcOutOfUpdateMode) {
  host.on_command = [](const std::string& command) {
    if (command == "mount /dev/loop1p1 /tmp/scrtch") raise(SIGTERM);
  };
  EXPECT_EQ(143, Run());
  EXPECT_FALSE(host.mounted);
  // The failure path of the procedure: the graceful reset, nothing else.
  EXPECT_EQ((std::vector<std::string>{"08 12 01", "08 10 04", "08 10 04", "08 11",
                                      kGracefulReset}),
            Requests());
  EXPECT_EQ(
      "\n   Interrupted by SIGTERM: nothing is left mounted, the BMC was reset "
      "to leave its update mode\n",
      Err());
  EXPECT_EQ("rm -rf /tmp/scrtch", env.commands[env.commands.size() - 2]);
}

}  // namespace
}  // namespace update_testing

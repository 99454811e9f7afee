// The whole run through RunMain, over the LAN channel with a scripted
// ipmitool: a BMC that answers Get Device ID and refuses everything else,
// so that the questions and flags can be checked before the update fails.
#include "driver/driver.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bmc/bmc_handle.h"
#include "driver/config.h"
#include "driver/options.h"
#include "ipmi/request_kind.h"
#include "image/image_file.h"
#include "ipmi/ipmi_exec.h"
#include "ipmi/lan_transport.h"
#include "output/output.h"
#include "output/update_package.h"
#include "support/capture.h"
#include "support/fake_env.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

namespace {

using testing_support::CommandResult;
using testing_support::FakeEnv;

const std::string kHeader =
    std::string("\n   Stratovex Firmware Update Utility \n") + kMakerNotice;
const std::string kSearch =
    "\n   Searching For Devices \r" + std::string(74, ' ') + "\r";
const std::string kResetNotice =
    "\n   After firmware update, BMC need to be reset so firmware can take "
    "effect.\n";
const std::string kResetQuestion = "Do you want to reset BMC (Y/N) ?";
const std::string kBiosNotice =
    "\n   BIOS firmware update will reboot system after uploading image.\n";
const std::string kBiosQuestion =
    "Are you sure to continue BIOS firmware update (Y/N) ?";
const std::string kBiosCanceled = "\n   BIOS firmware update canceled\n";
const std::string kDefaultNotice =
    "\n   Restore to default and reset BMC are necessary after doing\n"
    "customer default firmware update to make new default value take "
    "effect.\n";
const std::string kDefaultQuestion =
    "Do you want to restore to defule and reset BMC (Y/N) ?";

const char kLan[] = "-H=192.0.2.20";
const char kUser[] = "-U=admin";
const char kPass[] = "-P=secret";
const char kUri[] = "-uri=http://192.0.2.10/firmimg.vrx";

class RunMainTest : public ::testing::Test {
 protected:
  void SetUp() override {
    COrvoUpdatePackage::ResetForTest();
    env_.handler = [](const std::string& cmd, CommandResult* r) {
      if (cmd.find(" raw 0x06 0x01") != std::string::npos) {
        r->output = " 20 01 02 05 02 bf 57 01 00 00 00 00 00 00 00\n";
      } else {
        r->output = "Error: Unable to establish LAN session\n";
        r->status = 256;
      }
      return true;
    };
  }
  void TearDown() override { COrvoUpdatePackage::ResetForTest(); }

  int Run(const std::vector<std::string>& args) {
    return testing_support::RunMainCaptured(args, &out_, &err_);
  }

  int CountCommands(const std::string& part) {
    int n = 0;
    for (const std::string& c : env_.commands)
      if (c.find(part) != std::string::npos) ++n;
    return n;
  }

  FakeEnv env_;
  std::string out_, err_;
};

TEST_F(RunMainTest, NoArgumentIsCommandLineError) {
  EXPECT_EQ(8, Run({}));
  EXPECT_EQ("", out_);
  EXPECT_EQ("\n   NO OPTION\n   \n", err_);
  EXPECT_TRUE(env_.commands.empty());
}

TEST_F(RunMainTest, HelpAloneEndsWithBlankReturnCodeLine) {
  EXPECT_EQ(7, Run({"-h"}));
  EXPECT_EQ(0u, out_.find(kHeader + "\n   Valid options are:\n"));
  EXPECT_EQ("   \n", err_);
  EXPECT_TRUE(env_.commands.empty());
}

TEST_F(RunMainTest, HelpWithForceWarnsBeforeTheReturnCodeLine) {
  EXPECT_EQ(7, Run({"-h", "-f"}));
  const std::string warning =
      "\n   Incorrect option combination.  [-f/-force] is ignored.\n";
  ASSERT_GE(out_.size(), warning.size());
  EXPECT_EQ(warning, out_.substr(out_.size() - warning.size()));
}

TEST_F(RunMainTest, CommandLineErrorSkipsTheCombinationWarning) {
  EXPECT_EQ(8, Run({"-h", "-f", "-x"}));
  EXPECT_EQ("", out_);
  EXPECT_EQ("\n   OPTION INVALID   [-x]\n   \n", err_);
}

TEST_F(RunMainTest, VersionAlone) {
  EXPECT_EQ(7, Run({"-version"}));
  EXPECT_EQ(std::string("\n   Stratovex Firmware Update Utility Version:  "
                        "2.0.0.5 \n") +
                kMakerNotice,
            out_);
  EXPECT_EQ("   \n", err_);
}

TEST_F(RunMainTest, BiosRefusedEndsAtOnceWithStatusZero) {
  env_.input = "N\n";
  EXPECT_EQ(0, Run({"-e=1", kUri, kLan, kUser, kPass}));
  EXPECT_EQ(kHeader + kSearch + kBiosNotice + kBiosQuestion + kBiosCanceled,
            out_);
  EXPECT_EQ("", err_);  // no return-code line
  EXPECT_EQ(1u, env_.commands.size());
  EXPECT_EQ(0, G_u8HostNeedRebootFlag);
  EXPECT_EQ(1, G_u8EntityID);
  // The refused run left its objects; the next run starts clean.
  EXPECT_NE(nullptr, G_pOutputMessageHandle);
  env_.commands.clear();
  EXPECT_EQ(8, Run({}));
  EXPECT_EQ("\n   NO OPTION\n   \n", err_);
  EXPECT_EQ(nullptr, G_pOutputMessageHandle);
}

TEST_F(RunMainTest, BiosAcceptedSetsHostRebootAndUpdates) {
  env_.input = "y\n";
  int rc = Run({"-e=1", kUri, kLan, kUser, kPass});
  EXPECT_NE(0, rc);
  EXPECT_EQ(0u, out_.find(kHeader + kSearch + kBiosNotice + kBiosQuestion));
  EXPECT_EQ(std::string::npos, out_.find(kBiosCanceled));
  EXPECT_EQ(1, G_u8HostNeedRebootFlag);
  EXPECT_EQ(0, G_u8BMCNeedReboot);
  EXPECT_GT(env_.commands.size(), 1u);
}

TEST_F(RunMainTest, BiosInQuietModeIsCanceledSilently) {
  env_.input = "y\n";
  EXPECT_EQ(0, Run({"-q", "-e=1", kUri, kLan, kUser, kPass}));
  EXPECT_EQ("", out_);
  EXPECT_EQ("", err_);
  EXPECT_EQ(1u, env_.commands.size());
  EXPECT_EQ(0u, env_.input_pos);
}

TEST_F(RunMainTest, BiosQuestionRepeatsUntilOneLetter) {
  env_.input = "yes\n\nn\n";
  EXPECT_EQ(0, Run({"-e=1", kUri, kLan, kUser, kPass}));
  EXPECT_EQ(kHeader + kSearch + kBiosNotice + kBiosQuestion + kBiosQuestion +
                kBiosQuestion + kBiosCanceled,
            out_);
}

TEST_F(RunMainTest, BmcEntityAnsweredYesSetsBmcReboot) {
  env_.input = "Y\n";
  EXPECT_NE(0, Run({"-e=0", kUri, kLan, kUser, kPass}));
  EXPECT_EQ(0u, out_.find(kHeader + kSearch + kResetNotice + kResetQuestion));
  EXPECT_EQ(1, G_u8BMCNeedReboot);
  EXPECT_EQ(0, G_u8HostNeedRebootFlag);
  EXPECT_GT(env_.commands.size(), 1u);
  // A remote update never opens the (absent) default image file.
  EXPECT_EQ(std::string::npos, err_.find("Failed to open input file"));
}

TEST_F(RunMainTest, DecliningTheResetStillUpdates) {
  for (const char* entity : {"-e=0", "-e=2", "-e=3", "-e=4"}) {
    SCOPED_TRACE(entity);
    env_.commands.clear();
    env_.input = "n\n";
    env_.input_pos = 0;
    EXPECT_NE(0, Run({entity, kUri, kLan, kUser, kPass}));
    EXPECT_EQ(0u, out_.find(kHeader + kSearch + kResetNotice + kResetQuestion));
    EXPECT_EQ(0, G_u8BMCNeedReboot);
    EXPECT_GT(env_.commands.size(), 1u);
  }
}

TEST_F(RunMainTest, CustomerDefaultsHaveTheirOwnNotice) {
  env_.input = "N\n";
  EXPECT_NE(0, Run({"-e=5", kUri, kLan, kUser, kPass}));
  EXPECT_EQ(0u,
            out_.find(kHeader + kSearch + kDefaultNotice + kDefaultQuestion));
  EXPECT_EQ(0, G_u8BMCNeedReboot);
  EXPECT_EQ(5, G_u8EntityID);
  EXPECT_GT(env_.commands.size(), 1u);
}

TEST_F(RunMainTest, ForceAsksNothingAndSetsBothFlags) {
  env_.input = "n\n";
  EXPECT_NE(0, Run({"-f", "-e=1", kUri, kLan, kUser, kPass}));
  EXPECT_EQ(std::string::npos, out_.find("(Y/N)"));
  EXPECT_EQ(1, G_u8BMCNeedReboot);
  EXPECT_EQ(1, G_u8HostNeedRebootFlag);
  EXPECT_EQ(0u, env_.input_pos);
}

TEST_F(RunMainTest, FmlForcesAndPrintsTheFailureDocument) {
  EXPECT_NE(0, Run({"-fml", "-e=0", kUri, kLan, kUser, kPass}));
  EXPECT_EQ(1, G_u8BMCNeedReboot);
  EXPECT_EQ(std::string::npos, out_.find("(Y/N)"));
  EXPECT_NE(std::string::npos,
            out_.find("<Message id=\"33\" >Update Firmware Failed</Message>"));
  EXPECT_EQ("", err_);
}

TEST_F(RunMainTest, XmlInventoryAsksNothingAndUpdatesNothing) {
  env_.input = "y\n";
  EXPECT_EQ(0, Run({"-xml", kLan, kUser, kPass}));
  EXPECT_EQ(std::string::npos, out_.find("(Y/N)"));
  EXPECT_EQ(0u, out_.find("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                          "<SVMInventory lang=\"en\">\n"));
  EXPECT_EQ("", err_);
  // The search and the document's own version read, nothing else.
  EXPECT_EQ(2u, env_.commands.size());
  EXPECT_EQ(2, CountCommands(" raw 0x06 0x01"));
  EXPECT_EQ(0u, env_.input_pos);
}

TEST_F(RunMainTest, ASecondRunAgainstTheSameBmcIsRefusedAtOnce) {
  const std::string lock = "/run/lock/vrxfwul-lan-192.0.2.20.lock";
  env_.locks_held_elsewhere.insert(lock);
  EXPECT_EQ(13, Run({"-f", "-e=0", kUri, kLan, kUser, kPass}));
  EXPECT_EQ("\n   Another vrxfwul run is updating this BMC (lock " + lock + ")\n"
            "   Firmware update already in progress\n",
            err_);
  // Only the search's reads reached the BMC.
  EXPECT_EQ(static_cast<int>(env_.commands.size()), CountCommands(" raw 0x06 0x01"));
  // An inventory changes nothing and needs no lock.
  EXPECT_EQ(0, Run({"-xml", kLan, kUser, kPass}));
}

TEST_F(RunMainTest, TheLockIsHeldForTheUpdateAndReleasedAtTheEnd) {
  int seenHeld = 0;
  env_.handler = [this, &seenHeld](const std::string& cmd, CommandResult* r) {
    if (env_.locks.count("/run/lock/vrxfwul-lan-h_x.lock") != 0) ++seenHeld;
    r->output = cmd.find(" raw 0x06 0x01") != std::string::npos
                    ? " 20 01 02 05 02 bf 57 01 00 00 00 00 00 00 00\n"
                    : "Error: Unable to establish LAN session\n";
    r->status = cmd.find(" raw 0x06 0x01") != std::string::npos ? 0 : 256;
    return true;
  };
  Run({"-f", "-e=0", kUri, "-H=h;x", kUser, kPass});
  EXPECT_GT(seenHeld, 0);
  EXPECT_TRUE(env_.locks.empty());
}

TEST_F(RunMainTest, FailedSearchSkipsQuestionsAndUpdate) {
  env_.handler = [](const std::string&, CommandResult* r) {
    r->output = "Error: Unable to establish LAN session\n";
    r->status = 256;
    return true;
  };
  env_.input = "y\n";
  EXPECT_EQ(6, Run({"-e=0", kUri, kLan, kUser, kPass}));
  EXPECT_EQ(std::string::npos, out_.find("(Y/N)"));
  EXPECT_EQ(
      "\n   Error: Unable to establish LAN session\n   Device Not Found\n",
      err_);
  EXPECT_EQ(1u, env_.commands.size());
}

TEST_F(RunMainTest, CipherAppliesFromTheFirstRequestOn) {
  env_.input = "y\n";
  EXPECT_NE(0, Run({"-e=0", kUri, kLan, kUser, kPass, "-L=lanplus", "-C=3"}));
  ASSERT_GT(env_.commands.size(), 1u);
  // The BMC search already runs with the cipher: lanplus needs it at once.
  EXPECT_EQ(0u, env_.commands[0].find("ipmitool -C 3 -I lanplus"));
  EXPECT_EQ(0u, env_.commands[1].find("ipmitool -C 3 -I lanplus"));
  EXPECT_EQ(3, G_u8CipherValue);
}

TEST_F(RunMainTest, CipherDoesNotLeakIntoTheNextRun) {
  env_.input = "y\ny\n";
  EXPECT_NE(0, Run({"-e=0", kUri, kLan, kUser, kPass, "-C=3"}));
  env_.commands.clear();
  EXPECT_NE(0, Run({"-e=0", kUri, kLan, kUser, kPass}));
  for (const std::string& c : env_.commands)
    EXPECT_EQ(std::string::npos, c.find("-C ")) << c;
}

TEST_F(RunMainTest, RunsAreRepeatable) {
  env_.input = "n\nn\n";
  int first = Run({"-e=0", kUri, kLan, kUser, kPass});
  std::string out1 = out_, err1 = err_;
  size_t commands1 = env_.commands.size();
  int second = Run({"-e=0", kUri, kLan, kUser, kPass});
  EXPECT_EQ(first, second);
  EXPECT_EQ(out1, out_);
  EXPECT_EQ(err1, err_);
  EXPECT_EQ(2 * commands1, env_.commands.size());
}

TEST_F(RunMainTest, QuietFailureStillShowsErrors) {
  env_.handler = [](const std::string&, CommandResult* r) {
    r->output = "Error: Unable to establish LAN session\n";
    return true;
  };
  EXPECT_EQ(6, Run({"-q", "-e=0", kUri, kLan, kUser, kPass}));
  EXPECT_EQ("", out_);
  EXPECT_NE(std::string::npos, err_.find("   Device Not Found\n"));
}

TEST_F(RunMainTest, DebugShowsTheSettings) {
  env_.handler = [](const std::string&, CommandResult* r) {
    r->output = "Error: Unable to establish LAN session\n";
    return true;
  };
  EXPECT_EQ(6, Run({"-debugmsg", "-e=0", kUri, kLan, kUser, kPass, "-R=3",
                    "-I=10", "-D=0"}));
  EXPECT_EQ(0u, out_.find(kHeader +
                          "   IPMI Command Retry Count          = 15 \n"
                          "   Remote Status Enable Waiting Time = 30 \n"
                          "   Connection Retry Count            = 3 \n"
                          "   Connection Retry Interval         = 10 \n"
                          "   Connection Delay Time             = 0 \n"
                          "   Reset BMC Retry Count             = 4 \n"));
}

TEST_F(RunMainTest, SettingsFileIsReadBeforeTheOptions) {
  char dir[] = "/tmp/vrxrunXXXXXX";
  ASSERT_NE(nullptr, mkdtemp(dir));
  char old[4096];
  ASSERT_NE(nullptr, getcwd(old, sizeof(old)));
  ASSERT_EQ(0, chdir(dir));
  FILE* f = fopen("bmcfwu.cfg", "w");
  ASSERT_NE(nullptr, f);
  fputs("IPMICommandRetry = 2\nR=9\nD=40\n", f);
  fclose(f);
  env_.handler = [](const std::string&, CommandResult* r) {
    r->output = "Error: Unable to establish LAN session\n";
    return true;
  };
  int rc = Run({"-debugmsg", "-e=0", kUri, kLan, kUser, kPass, "-D=7"});
  unlink("bmcfwu.cfg");
  ASSERT_EQ(0, chdir(old));
  rmdir(dir);
  EXPECT_EQ(6, rc);
  EXPECT_NE(std::string::npos,
            out_.find("   IPMI Command Retry Count          = 2 \n"));
  EXPECT_NE(std::string::npos,
            out_.find("   Connection Retry Count            = 9 \n"));
  EXPECT_NE(std::string::npos,
            out_.find("   Connection Delay Time             = 7 \n"));
}

TEST(FileNameList, CreateGivesOneZeroFilledName) {
  char** list = nullptr;
  ASSERT_EQ(0, CreateFwImageFilenameList(&list));
  ASSERT_NE(nullptr, list);
  ASSERT_NE(nullptr, list[0]);
  for (int i = 0; i < kFwImageFileNameSize; ++i) EXPECT_EQ('\0', list[0][i]);
  EXPECT_EQ(0, DeleteFwImageFilenameList(&list));
  EXPECT_EQ(nullptr, list);
}

TEST(FileNameList, DeleteToleratesNull) {
  char** list = nullptr;
  EXPECT_EQ(0, DeleteFwImageFilenameList(&list));
  EXPECT_EQ(0, DeleteFwImageFilenameList(nullptr));
}

TEST(MainObjects, ConstructorMakesEveryHandleDestructorClearsThem) {
  MainConstructor();
  EXPECT_NE(nullptr, G_pOutputMessageHandle);
  EXPECT_NE(nullptr, G_pConfigHandle);
  EXPECT_NE(nullptr, G_pBMCHandle);
  EXPECT_NE(nullptr, G_pImageFileHandle);
  EXPECT_NE(nullptr, G_pWriteFirmware);
  EXPECT_NE(nullptr, G_pFirmwareUpdate);
  EXPECT_EQ(30, G_pConfigHandle->GetSettings()->u16PhaseOneWaitingTime);
  GetOneOptionProerty(eOptForce)->u8Present = 1;
  MainDestructor();
  EXPECT_EQ(nullptr, G_pOutputMessageHandle);
  EXPECT_EQ(nullptr, G_pConfigHandle);
  EXPECT_EQ(nullptr, G_pBMCHandle);
  EXPECT_EQ(nullptr, G_pImageFileHandle);
  EXPECT_EQ(nullptr, G_pWriteFirmware);
  EXPECT_EQ(nullptr, G_pFirmwareUpdate);
  EXPECT_EQ(0, GetOneOptionProerty(eOptForce)->u8Present);
}

}  // namespace

namespace {

// Over the LAN with a BMC that answers every read and whose task is idle.
class CheckRunTest : public RunMainTest {
 protected:
  void SetUp() override {
    RunMainTest::SetUp();
    env_.handler = [](const std::string& cmd, CommandResult* r) {
      if (cmd.find(" raw 0x06 0x01") != std::string::npos)
        r->output = " 20 01 02 05 02 bf 57 01 00 00 00 00 00 00 00\n";
      else if (cmd.find(" raw 0x08 0x01 0xaa 0x02") != std::string::npos)
        r->output = " 06 32 2e 30 35 2e 31\n";
      else if (cmd.find(" raw 0x08 0x01 0xaa 0x03") != std::string::npos)
        r->output = " 00\n";
      else
        r->output = " 00\n";
      return true;
    };
  }
};

TEST_F(CheckRunTest, AnIdleBmcPassesAndOnlyReadsAreSent) {
  EXPECT_EQ(0, Run({"-check", "-e=0", kUri, kLan, kUser, kPass}));
  EXPECT_NE(std::string::npos, out_.find("   Check passed: the update would go ahead\n"));
  EXPECT_EQ("", err_);
  for (const std::string& c : env_.commands)
    EXPECT_TRUE(c.find(" raw 0x06 0x01") != std::string::npos ||
                c.find(" raw 0x08 0x01 0xaa") != std::string::npos)
        << c;
  EXPECT_TRUE(env_.locks.empty());
}

TEST_F(CheckRunTest, AHeldLockIsTheFirstFailure) {
  env_.locks_held_elsewhere.insert("/run/lock/vrxfwul-lan-192.0.2.20.lock");
  EXPECT_EQ(13, Run({"-check", "-e=0", kUri, kLan, kUser, kPass}));
  EXPECT_NE(std::string::npos,
            out_.find("   Lock                 : FAILED, another vrxfwul run is updating "
                      "this BMC (/run/lock/vrxfwul-lan-192.0.2.20.lock)\n"));
  // The other checks still run and report.
  EXPECT_NE(std::string::npos, out_.find("   Update task          : OK, none under way\n"));
  EXPECT_NE(std::string::npos, out_.find("   Check failed: the update would not go ahead\n"));
}

TEST_F(CheckRunTest, TheChannelIsWritableAgainAfterTheCheck) {
  Run({"-check", "-e=0", kUri, kLan, kUser, kPass});
  EXPECT_FALSE(ReadOnlyChannel());
}

}  // namespace

#include "output/output.h"

#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/fake_env.h"

#include <unistd.h>

namespace {

using testing_support::CapturedOutput;
using testing_support::FakeEnv;

struct ModeRow {
  int mode;
  bool out, err, log;
};

// Every redirect mode against every output mode, as the routing table says.
TEST(RedirectMessage, RoutesEveryModeAsTabled) {
  const int outputModes[] = {0, 1, 2, 5, 7, 10};
  for (int om : outputModes) {
    bool quietOrXml = om == 1 || om == 10;
    bool debug = om >= 5 && om <= 9;
    ModeRow rows[] = {
        {0, false, false, false},
        {1, !quietOrXml, false, true},
        {2, false, om != 10, true},
        {3, debug, false, true},
        {4, !quietOrXml, false, true},
        {5, !quietOrXml, false, false},
        {6, !quietOrXml, false, false},
        {7, false, false, false},
    };
    for (const ModeRow& row : rows) {
      CapturedOutput cap;
      cap.OpenLog();
      G_pOutputMessageHandle->SetOutputMode(static_cast<eOutputModeTag>(om));
      G_pOutputMessageHandle->RedirectMessage(
          static_cast<eRedirectModeTag>(row.mode), "m%d", row.mode);
      std::string expect = "m" + std::to_string(row.mode);
      SCOPED_TRACE("output mode " + std::to_string(om) + " redirect " +
                   std::to_string(row.mode));
      EXPECT_EQ(row.out ? expect : "", cap.Out());
      EXPECT_EQ(row.err ? expect : "", cap.Err());
      EXPECT_EQ(row.log ? expect : "", cap.Log());
    }
  }
}

TEST(RedirectMessage, LongTextIsNeverCut) {
  CapturedOutput cap;
  std::string longText(1000, 'x');
  G_pOutputMessageHandle->RedirectMessage(eRedirectNormal, "%s|", longText.c_str());
  EXPECT_EQ(longText + "|", cap.Out());
}

TEST(RedirectMessage, PercentInArgumentIsData) {
  CapturedOutput cap;
  G_pOutputMessageHandle->RedirectMessage(eRedirectNormal, "%s", "%s%n%d");
  EXPECT_EQ("%s%n%d", cap.Out());
}

TEST(SetOutputMode, IgnoresValuesAboveTen) {
  CapturedOutput cap;
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  G_pOutputMessageHandle->SetOutputMode(static_cast<eOutputModeTag>(11));
  EXPECT_EQ(eOutputQuiet, G_pOutputMessageHandle->GetOutputMode());
}

TEST(ReturnCode, ZeroPrintsNothing) {
  CapturedOutput cap;
  G_pOutputMessageHandle->OutputReturnCode(0);
  EXPECT_EQ("", cap.Err());
}

TEST(ReturnCode, CommandLineErrorPrintsThreeBlanks) {
  CapturedOutput cap;
  G_pOutputMessageHandle->OutputReturnCode(8);
  EXPECT_EQ("   \n", cap.Err());
}

TEST(ReturnCode, CodesWithoutRecordPrintEmptyMessage) {
  for (int code : {9, 10, 23, 57, 100, 255}) {
    CapturedOutput cap;
    G_pOutputMessageHandle->OutputReturnCode(code);
    EXPECT_EQ("   \n", cap.Err()) << code;
  }
}

TEST(ReturnCode, QualifierLinesFollowTheCode) {
  CapturedOutput cap;
  G_pOutputMessageHandle->OutputReturnCode(0x114);
  EXPECT_EQ("   Firmware Update Failed\n   Retry Limit Reached\n", cap.Err());
  cap.Clear();
  G_pOutputMessageHandle->OutputReturnCode(256);
  EXPECT_EQ("   Success\n   Retry Limit Reached\n", cap.Err());
  cap.Clear();
  G_pOutputMessageHandle->OutputReturnCode(0x200 | 32);
  EXPECT_EQ("   Cold Reset Failed\n   Timeout Limit Reached\n", cap.Err());
}

TEST(ReturnCode, XmlModeSendsReturnCodeOnlyToLog) {
  CapturedOutput cap;
  cap.OpenLog();
  G_pOutputMessageHandle->SetOutputMode(eOutputXml);
  G_pOutputMessageHandle->OutputReturnCode(6);
  EXPECT_EQ("", cap.Err());
  EXPECT_EQ("", cap.Out());
  EXPECT_EQ("   Device Not Found\n", cap.Log());
}

TEST(ReturnCode, MessagesKeptAsTheyAre) {
  CapturedOutput cap;
  EXPECT_STREQ("\n   Failed to open input file",
               G_pOutputMessageHandle->GetReturnCodeMessage(43));
  EXPECT_STREQ("iBMC Reset Failed",
               G_pOutputMessageHandle->GetReturnCodeMessage(29));
  EXPECT_STREQ("", G_pOutputMessageHandle->GetReturnCodeMessage(7));
  EXPECT_STREQ("", G_pOutputMessageHandle->GetReturnCodeMessage(-1));
}

TEST(Prompt, YesNoAndRepeat) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = "y\n";
  EXPECT_EQ(0, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, "Q?"));
  EXPECT_EQ("Q?", cap.Out());
  cap.Clear();
  env.input = "n\n";
  env.input_pos = 0;
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, "Q?"));
  cap.Clear();
  env.input = "yes\n\nY\n";
  env.input_pos = 0;
  EXPECT_EQ(0, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, "Q?"));
  EXPECT_EQ("Q?Q?Q?", cap.Out());
}

TEST(Prompt, LongAnswerIsReadWithoutOverflow) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = std::string(500, 'a') + "\nN\n";
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, "Q?"));
  EXPECT_EQ("Q?Q?", cap.Out());
}

TEST(Prompt, EndOfInputIsAskedOnceMoreThenDeclined) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = "";
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, "Q?"));
  EXPECT_EQ("Q?Q?", cap.Out());
  cap.Clear();
  env.input = "maybe";  // an unfinished line, then nothing more
  env.input_pos = 0;
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, "Q?"));
  EXPECT_EQ("Q?Q?", cap.Out());
  cap.Clear();
  env.input = "y";  // a last answer without its line feed still counts
  env.input_pos = 0;
  EXPECT_EQ(0, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, "Q?"));
  EXPECT_EQ("Q?", cap.Out());
}

TEST(Prompt, QuietAndRevisionOnlyAnswerNoSilently) {
  for (int mode : {1, 2, 7}) {
    FakeEnv env;
    CapturedOutput cap;
    env.input = "y\n";
    G_pOutputMessageHandle->SetOutputMode(static_cast<eOutputModeTag>(mode));
    EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, "Q?"));
    EXPECT_EQ("", cap.Out());
    EXPECT_EQ(0u, env.input_pos);
  }
}

TEST(Spinner, CountsAndClear) {
  CapturedOutput cap;
  G_pOutputMessageHandle->BeautifyDelayPrintout(5, "x");
  EXPECT_EQ("\r x /", cap.Out());
  cap.Clear();
  G_pOutputMessageHandle->BeautifyDelayPrintout(4, "x");
  G_pOutputMessageHandle->BeautifyDelayPrintout(6, "x");
  G_pOutputMessageHandle->BeautifyDelayPrintout(7, "x");
  EXPECT_EQ("\r x -\r x |\r x \\", cap.Out());
  cap.Clear();
  G_pOutputMessageHandle->BeautifyDelayPrintout(0, "x");
  EXPECT_EQ("\r" + std::string(74, ' ') + "\r", cap.Out());
}

TEST(Header, PrintedOncePerRun) {
  CapturedOutput cap;
  G_pOutputMessageHandle->OutputUtilityHeaderVersion();
  G_pOutputMessageHandle->OutputUtilityHeader();
  EXPECT_EQ(std::string("\n   Stratovex Firmware Update Utility Version:  2.0.0.5 \n") +
                kMakerNotice,
            cap.Out());
}

TEST(Settings, SixLinesInDebugMode) {
  CapturedOutput cap;
  sProgramSettingsTag s = {};
  s.u8IPMICommandRetry = 15;
  s.u16RemoteStatusEnableWaitingTime = 30;
  s.u8ConnectionRetry = 12;
  s.u8ConnectionRetryInterval = 1;
  s.u8DelayTime = 255;
  s.u8ResetBMCRetry = 4;
  G_pOutputMessageHandle->OutuptUtilityConfiguration(&s);
  EXPECT_EQ("", cap.Out());
  G_pOutputMessageHandle->SetOutputMode(eOutputDebug);
  G_pOutputMessageHandle->OutuptUtilityConfiguration(&s);
  EXPECT_EQ(
      "   IPMI Command Retry Count          = 15 \n"
      "   Remote Status Enable Waiting Time = 30 \n"
      "   Connection Retry Count            = 12 \n"
      "   Connection Retry Interval         = 5 \n"
      "   Connection Delay Time             = 255 \n"
      "   Reset BMC Retry Count             = 4 \n",
      cap.Out());
}

TEST(LogFile, WritesCommandLineAndReportsFailure) {
  FakeEnv env;
  testing_support::FakeFiles fs;
  env.fs = &fs;
  fs.AddDirectory("/var/log");
  CapturedOutput cap;
  char a0[] = "vrxfwul", a1[] = "-l=x.log", a2[] = "-q";
  char* argv[] = {a0, a1, a2};
  std::string path = "/var/log/vrx_output_test.log";
  ASSERT_EQ(0, G_pOutputMessageHandle->OpenLogFile(path.c_str(), 3, argv));
  G_pOutputMessageHandle->RedirectMessage(eRedirectNormal, "hello\n");
  G_pOutputMessageHandle->CloseLogFile();
  EXPECT_EQ("vrxfwul -l=x.log -q \nhello\n", fs.Content(path));
  EXPECT_EQ(0600u, fs.Find(path)->mode);
  EXPECT_EQ(4, G_pOutputMessageHandle->OpenLogFile("/no/such/dir/x.log", 3, argv));
  EXPECT_EQ(" Cannot create /no/such/dir/x.log \n", cap.Err());
  EXPECT_FALSE(G_pOutputMessageHandle->HasLogFile());
}

// Every line reaches the log as it is written, so a run that is killed
// leaves a log that ends with its last message.
TEST(LogFile, EachMessageIsFlushedAtOnce) {
  FakeEnv env;
  testing_support::FakeFiles fs;
  env.fs = &fs;
  CapturedOutput cap;
  char a0[] = "vrxfwul";
  char* argv[] = {a0};
  ASSERT_EQ(0, G_pOutputMessageHandle->OpenLogFile("/run.log", 1, argv));
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "step %d\n", 1);
  EXPECT_EQ("vrxfwul \nstep 1\n", fs.Content("/run.log"));
  G_pOutputMessageHandle->CloseLogFile();
}

// The log is never written through a symbolic link nor into anything but a
// regular file; what is there stays untouched.
TEST(LogFile, RefusesLinksFifosAndDirectories) {
  FakeEnv env;
  testing_support::FakeFiles fs;
  env.fs = &fs;
  fs.AddFile("/etc/shadow", "secret");
  fs.AddSymlink("/tmp/link.log", "/etc/shadow");
  fs.AddFifo("/tmp/pipe.log");
  fs.AddDirectory("/tmp/dir.log");
  CapturedOutput cap;
  char a0[] = "vrxfwul";
  char* argv[] = {a0};
  for (const char* path : {"/tmp/link.log", "/tmp/pipe.log", "/tmp/dir.log"}) {
    cap.Clear();
    EXPECT_EQ(4, G_pOutputMessageHandle->OpenLogFile(path, 1, argv)) << path;
    EXPECT_EQ(std::string(" Cannot create ") + path + " \n", cap.Err());
    EXPECT_FALSE(G_pOutputMessageHandle->HasLogFile());
  }
  EXPECT_EQ("secret", fs.Content("/etc/shadow"));
}

}  // namespace

#include "platform/platform.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/fake_env.h"

namespace {

using testing_support::FakeEnv;

TEST(ShellQuote, OrdinaryValuesStayAsGiven) {
  EXPECT_EQ("192.0.2.20", platform::ShellQuoteIfNeeded("192.0.2.20"));
  EXPECT_EQ("admin", platform::ShellQuoteIfNeeded("admin"));
  EXPECT_EQ("lanplus", platform::ShellQuoteIfNeeded("lanplus"));
}

TEST(ShellQuote, ShellCharactersAreQuoted) {
  EXPECT_EQ("'a;rm -rf /'", platform::ShellQuoteIfNeeded("a;rm -rf /"));
  EXPECT_EQ("'it'\\''s'", platform::ShellQuoteIfNeeded("it's"));
  EXPECT_EQ("'$(id)'", platform::ShellQuoteIfNeeded("$(id)"));
  EXPECT_EQ("''", platform::ShellQuoteIfNeeded(""));
}

TEST(RealEnv, RunsShellCommandsAndReadsTheirLines) {
  platform::Env* env = platform::RealEnv();
  using platform::ChildOutput;
  EXPECT_EQ(0, env->RunProcess(platform::ShellCommand("true", ChildOutput::kInherit)).status);
  EXPECT_NE(0, env->RunProcess(platform::ShellCommand("false", ChildOutput::kInherit)).status);
  platform::ProcessResult r = env->RunProcess(platform::ShellCommand(
      "printf 'one\\ntwo'; echo hidden >&2", ChildOutput::kCaptureStdout));
  ASSERT_TRUE(r.started);
  EXPECT_EQ("one\ntwo", r.output);
  platform::TextReader pipe(r.output);
  char line[16];
  ASSERT_TRUE(pipe.ReadLine(line, sizeof line));
  EXPECT_STREQ("one\n", line);
  ASSERT_TRUE(pipe.ReadLine(line, sizeof line));
  EXPECT_STREQ("two", line);
  EXPECT_FALSE(pipe.ReadLine(line, sizeof line));
  EXPECT_TRUE(env->IsDirectory("/"));
  EXPECT_FALSE(env->IsDirectory("/definitely/not/here"));
  unsigned long sectors = 0;
  EXPECT_EQ(-1, env->BlockDeviceSectors("/definitely/not/here", &sectors));
}

TEST(FakeEnvTest, SleepAdvancesVirtualClock) {
  FakeEnv env;
  time_t start = platform::GetEnv()->Now();
  platform::GetEnv()->SleepMs(1000);
  platform::GetEnv()->SleepMs(500);
  platform::GetEnv()->SleepMs(500);
  EXPECT_EQ(start + 2, platform::GetEnv()->Now());
  EXPECT_EQ((std::vector<unsigned>{1000, 500, 500}), env.sleeps);
}

TEST(FakeEnvTest, ScriptedCommandsRepeatLastAndRecord) {
  FakeEnv env;
  env.Script("df -Th", "first\n");
  env.Script("df -Th", "second\n");
  using platform::ChildOutput;
  platform::ProcessSpec df = platform::ShellCommand("df -Th", ChildOutput::kCaptureStdout);
  EXPECT_EQ("first\n", platform::GetEnv()->RunProcess(df).output);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ("second\n", platform::GetEnv()->RunProcess(df).output);
  EXPECT_EQ(3, env.RunCount("df -Th"));
  EXPECT_EQ(127 << 8, platform::GetEnv()
                          ->RunProcess(platform::ShellCommand("unknown", ChildOutput::kInherit))
                          .status);
}

TEST(ShellCommandTest, RunsThroughTheShellWithItsTimeLimit) {
  platform::ProcessSpec spec =
      platform::ShellCommand("mount /dev/sdb1 /media/scrtch", platform::ChildOutput::kInherit);
  EXPECT_EQ((std::vector<std::string>{"/bin/sh", "-c", "mount /dev/sdb1 /media/scrtch"}),
            spec.argv);
  EXPECT_EQ(300000u, spec.timeout_ms);
  EXPECT_EQ("mount /dev/sdb1 /media/scrtch", platform::CommandText(spec));
  EXPECT_EQ("   Command timed out after 300 s: mount /dev/sdb1 /media/scrtch\n",
            platform::TimeoutLine(spec));
}

TEST(RealEnvProcess, InheritedOutputIsNotCaptured) {
  platform::ProcessSpec spec = platform::ShellCommand("exit 4", platform::ChildOutput::kInherit);
  platform::ProcessResult r = platform::RealEnv()->RunProcess(spec);
  ASSERT_TRUE(r.started);
  EXPECT_EQ(4, WEXITSTATUS(r.status));
  EXPECT_EQ("", r.output);
}

TEST(FakeEnvTest, RestoresRealEnvOnDestruction) {
  {
    FakeEnv env;
    EXPECT_EQ(&env, platform::GetEnv());
  }
  EXPECT_EQ(platform::RealEnv(), platform::GetEnv());
}

}  // namespace

namespace {

TEST(RealEnvProcess, RunsArgvWithoutAShellAndJoinsBothStreams) {
  platform::ProcessSpec spec;
  // The words reach the child as they stand: no shell sees "$HOME" or ";".
  spec.argv = {"sh", "-c", "printf '%s|' \"$0\" \"$1\"; echo err >&2", "$HOME;x", "a b"};
  platform::ProcessResult r = platform::RealEnv()->RunProcess(spec);
  ASSERT_TRUE(r.started);
  EXPECT_FALSE(r.timed_out);
  EXPECT_TRUE(WIFEXITED(r.status));
  EXPECT_EQ(0, WEXITSTATUS(r.status));
  EXPECT_EQ("$HOME;x|a b|err\n", r.output);
}

TEST(RealEnvProcess, PassesExtraEnvironmentToTheChildOnly) {
  platform::ProcessSpec spec;
  spec.argv = {"sh", "-c", "printf %s \"$VRX_TEST_SECRET\""};
  spec.env = {"VRX_TEST_SECRET=s3cr3t"};
  platform::ProcessResult r = platform::RealEnv()->RunProcess(spec);
  EXPECT_EQ("s3cr3t", r.output);
  EXPECT_EQ(nullptr, getenv("VRX_TEST_SECRET"));
}

TEST(RealEnvProcess, KeepsOnlyTheOutputLimitButReadsToTheEnd) {
  platform::ProcessSpec spec;
  spec.argv = {"sh", "-c", "head -c 100000 /dev/zero | tr '\\0' x; exit 3"};
  spec.output_limit = 10;
  platform::ProcessResult r = platform::RealEnv()->RunProcess(spec);
  EXPECT_EQ("xxxxxxxxxx", r.output);
  EXPECT_EQ(3, WEXITSTATUS(r.status));
}

TEST(RealEnvProcess, MissingProgramIsNotStarted) {
  platform::ProcessSpec spec;
  spec.argv = {"vrx-no-such-program-anywhere"};
  EXPECT_FALSE(platform::RealEnv()->RunProcess(spec).started);
}

TEST(RealEnvProcess, RunsInAProcessGroupOfItsOwn) {
  platform::ProcessSpec spec;
  spec.argv = {"sh", "-c", "ps -o pgid= -p $$"};
  platform::ProcessResult r = platform::RealEnv()->RunProcess(spec);
  ASSERT_TRUE(r.started);
  EXPECT_NE(static_cast<long>(getpgrp()), atol(r.output.c_str()));
}

TEST(RealEnvProcess, TimeLimitKillsTheWholeGroup) {
  platform::ProcessSpec spec;
  spec.argv = {"sh", "-c", "sleep 30 & sleep 30"};
  spec.timeout_ms = 200;
  platform::ProcessResult r = platform::RealEnv()->RunProcess(spec);
  ASSERT_TRUE(r.started);
  EXPECT_TRUE(r.timed_out);
  EXPECT_TRUE(WIFSIGNALED(r.status));
}

TEST(FakeEnvProcess, AnswersFromTheScriptsAndRecordsTheSpec) {
  FakeEnv env;
  env.Script("ipmitool raw 0x06 0x01", " 20 01\n", 0);
  platform::ProcessSpec spec;
  spec.argv = {"ipmitool", "raw", "0x06", "0x01"};
  spec.env = {"IPMI_PASSWORD=x"};
  platform::ProcessResult r = platform::GetEnv()->RunProcess(spec);
  EXPECT_TRUE(r.started);
  EXPECT_EQ(" 20 01\n", r.output);
  ASSERT_EQ(1u, env.processes.size());
  EXPECT_EQ("IPMI_PASSWORD=x", env.processes[0].env.at(0));
  EXPECT_EQ(1, env.RunCount("ipmitool raw 0x06 0x01"));
}

}  // namespace

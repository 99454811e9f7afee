#include "platform/platform.h"

#include <gtest/gtest.h>

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

TEST(RealEnv, RunsCommandsAndPipes) {
  platform::Env* env = platform::RealEnv();
  EXPECT_EQ(0, env->RunCommand("true"));
  EXPECT_NE(0, env->RunCommand("false"));
  auto pipe = env->OpenPipe("printf 'one\\ntwo'");
  ASSERT_TRUE(pipe);
  char line[16];
  ASSERT_TRUE(pipe->ReadLine(line, sizeof line));
  EXPECT_STREQ("one\n", line);
  ASSERT_TRUE(pipe->ReadLine(line, sizeof line));
  EXPECT_STREQ("two", line);
  EXPECT_FALSE(pipe->ReadLine(line, sizeof line));
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
  char buf[32];
  auto p1 = platform::GetEnv()->OpenPipe("df -Th");
  ASSERT_TRUE(p1->ReadLine(buf, sizeof buf));
  EXPECT_STREQ("first\n", buf);
  for (int i = 0; i < 2; ++i) {
    auto p = platform::GetEnv()->OpenPipe("df -Th");
    ASSERT_TRUE(p->ReadLine(buf, sizeof buf));
    EXPECT_STREQ("second\n", buf);
  }
  EXPECT_EQ(3, env.RunCount("df -Th"));
  EXPECT_EQ(127 << 8, platform::GetEnv()->RunCommand("unknown"));
}

TEST(FakeEnvTest, RestoresRealEnvOnDestruction) {
  {
    FakeEnv env;
    EXPECT_EQ(&env, platform::GetEnv());
  }
  EXPECT_EQ(platform::RealEnv(), platform::GetEnv());
}

}  // namespace

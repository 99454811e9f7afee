// The yes/no questions as the driver asks them, answered through scripted
// standard input.
#include <gtest/gtest.h>

#include "output/output.h"
#include "support/capture.h"
#include "support/fake_env.h"

namespace {

using testing_support::CapturedOutput;
using testing_support::FakeEnv;

const char kQuestion[] = "Do you want to reset BMC (Y/N) ?";

TEST(Prompt, LowerCaseYesIsYes) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = "y\n";
  EXPECT_EQ(0, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, kQuestion));
  EXPECT_EQ(kQuestion, cap.Out());
}

TEST(Prompt, UpperCaseYesIsYes) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = "Y\n";
  EXPECT_EQ(0, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, kQuestion));
}

TEST(Prompt, NoIsNo) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = "n\n";
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, kQuestion));
  EXPECT_EQ(kQuestion, cap.Out());
}

TEST(Prompt, ThreeLettersAskAgain) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = "yes\nN\n";
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, kQuestion));
  EXPECT_EQ(std::string(kQuestion) + kQuestion, cap.Out());
}

TEST(Prompt, EmptyLineAndOtherLettersAskAgain) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = "\nx\ny\n";
  EXPECT_EQ(0, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, kQuestion));
  EXPECT_EQ(std::string(kQuestion) + kQuestion + kQuestion, cap.Out());
}

TEST(Prompt, QuietAnswersNoWithoutPrinting) {
  FakeEnv env;
  CapturedOutput cap;
  cap.OpenLog();
  env.input = "y\n";
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, kQuestion));
  EXPECT_EQ("", cap.Out());
  EXPECT_EQ("", cap.Log());
  EXPECT_EQ(0u, env.input_pos);
}

TEST(Prompt, RevisionOnlyAnswersNo) {
  FakeEnv env;
  CapturedOutput cap;
  env.input = "y\n";
  G_pOutputMessageHandle->SetOutputMode(eOutputRevisionOnly);
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, kQuestion));
  G_pOutputMessageHandle->SetOutputMode(eOutputDebugRevisionOnly);
  EXPECT_EQ(1, G_pOutputMessageHandle->PromptUser(eRedirectPrompt, kQuestion));
  EXPECT_EQ("", cap.Out());
}

}  // namespace

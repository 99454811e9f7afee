#include "platform/signals.h"

#include <gtest/gtest.h>
#include <signal.h>

namespace {

struct SavedDispositions {
  SavedDispositions() {
    for (int i = 0; i < 5; ++i) sigaction(kSignals[i], nullptr, &saved[i]);
  }
  ~SavedDispositions() {
    for (int i = 0; i < 5; ++i) sigaction(kSignals[i], &saved[i], nullptr);
    platform::ClearSignalForTest();
  }
  static constexpr int kSignals[5] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};
  struct sigaction saved[5];
};
constexpr int SavedDispositions::kSignals[5];

TEST(SignalPolicy, RecordsTheFirstStopRequestAndTheProcessGoesOn) {
  SavedDispositions keep;
  platform::ClearSignalForTest();
  platform::InstallSignalPolicy();
  EXPECT_EQ(0, platform::PendingSignal());
  raise(SIGTERM);
  EXPECT_EQ(SIGTERM, platform::PendingSignal());
  // A second signal during the clean-up neither kills nor replaces it.
  raise(SIGINT);
  raise(SIGQUIT);
  EXPECT_EQ(SIGTERM, platform::PendingSignal());
}

TEST(SignalPolicy, ABrokenPipeIsIgnored) {
  SavedDispositions keep;
  platform::InstallSignalPolicy();
  raise(SIGPIPE);
  EXPECT_EQ(0, platform::PendingSignal());
  struct sigaction now;
  sigaction(SIGPIPE, nullptr, &now);
  EXPECT_EQ(SIG_IGN, now.sa_handler);
}

TEST(SignalPolicy, ASignalIgnoredAtStartStaysIgnored) {
  SavedDispositions keep;
  signal(SIGHUP, SIG_IGN);  // as under nohup
  platform::InstallSignalPolicy();
  struct sigaction now;
  sigaction(SIGHUP, nullptr, &now);
  EXPECT_EQ(SIG_IGN, now.sa_handler);
  raise(SIGHUP);
  EXPECT_EQ(0, platform::PendingSignal());
}

TEST(SignalPolicy, ExitCodesAndNames) {
  EXPECT_EQ(130, platform::ExitCodeForSignal(SIGINT));
  EXPECT_EQ(143, platform::ExitCodeForSignal(SIGTERM));
  EXPECT_EQ(129, platform::ExitCodeForSignal(SIGHUP));
  EXPECT_EQ(131, platform::ExitCodeForSignal(SIGQUIT));
  EXPECT_STREQ("SIGINT", platform::SignalName(SIGINT));
  EXPECT_STREQ("SIGTERM", platform::SignalName(SIGTERM));
  EXPECT_STREQ("SIGHUP", platform::SignalName(SIGHUP));
  EXPECT_STREQ("SIGQUIT", platform::SignalName(SIGQUIT));
}

}  // namespace

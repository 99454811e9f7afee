#include "update/interrupt_guard.h"

#include <signal.h>
#include <string.h>

namespace update_interrupt {
namespace {

volatile sig_atomic_t g_pendingSignal = 0;

const int kGuardedSignals[] = {SIGINT, SIGTERM, SIGHUP};
const int kGuardedCount = sizeof(kGuardedSignals) / sizeof(kGuardedSignals[0]);
struct sigaction g_previous[kGuardedCount];

// Async-signal-safe: only a flag is written; the main flow does the rest.
extern "C" void RecordSignal(int sig) { g_pendingSignal = sig; }

}  // namespace

TMountedWindowGuard::TMountedWindowGuard() {
  g_pendingSignal = 0;
  struct sigaction action;
  memset(&action, 0, sizeof(action));
  action.sa_handler = RecordSignal;
  sigemptyset(&action.sa_mask);
  // Restarted calls let the copy or the shell command in progress finish;
  // the flag is checked right after it.
  action.sa_flags = SA_RESTART;
  for (int i = 0; i < kGuardedCount; ++i) {
    sigaction(kGuardedSignals[i], &action, &g_previous[i]);
  }
  bInstalled = true;
}

TMountedWindowGuard::~TMountedWindowGuard() {
  if (!bInstalled) return;
  for (int i = 0; i < kGuardedCount; ++i) {
    sigaction(kGuardedSignals[i], &g_previous[i], nullptr);
  }
}

int PendingSignal() { return g_pendingSignal; }

void ClearPendingSignal() { g_pendingSignal = 0; }

int ExitCodeForSignal(int sig) { return 128 + sig; }

const char* SignalName(int sig) {
  switch (sig) {
    case SIGINT:
      return "SIGINT";
    case SIGTERM:
      return "SIGTERM";
    case SIGHUP:
      return "SIGHUP";
    default:
      return "signal";
  }
}

void RecordSignalForTest(int sig) { RecordSignal(sig); }

}  // namespace update_interrupt

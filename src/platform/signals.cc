#include "platform/signals.h"

#include <signal.h>
#include <string.h>

namespace platform {
namespace {

volatile sig_atomic_t g_pendingSignal = 0;

const int kRecordedSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// Async-signal-safe: only the first signal is kept; the main flow does the
// rest at its next safe point.
extern "C" void RecordSignal(int sig) {
  if (g_pendingSignal == 0) g_pendingSignal = sig;
}

}  // namespace

void InstallSignalPolicy() {
  struct sigaction action;
  memset(&action, 0, sizeof(action));
  sigemptyset(&action.sa_mask);
  // Restarted reads and writes let the step in progress finish; waits and
  // sleeps still return early, so the run reacts within a second.
  action.sa_flags = SA_RESTART;
  action.sa_handler = RecordSignal;
  for (int sig : kRecordedSignals) {
    struct sigaction previous;
    if (sigaction(sig, nullptr, &previous) != 0) continue;
    // Ignored at start (nohup, a service manager): the caller meant it.
    if (previous.sa_handler == SIG_IGN) continue;
    sigaction(sig, &action, nullptr);
  }
  signal(SIGPIPE, SIG_IGN);
  // A child started by the runner gets default dispositions back, so none
  // of this reaches mount, df or ipmitool.
}

int PendingSignal() { return g_pendingSignal; }

const char* SignalName(int sig) {
  switch (sig) {
    case SIGINT:
      return "SIGINT";
    case SIGTERM:
      return "SIGTERM";
    case SIGHUP:
      return "SIGHUP";
    case SIGQUIT:
      return "SIGQUIT";
    default:
      return "signal";
  }
}

int ExitCodeForSignal(int sig) { return 128 + sig; }

void RecordSignalForTest(int sig) { RecordSignal(sig); }

void ClearSignalForTest() { g_pendingSignal = 0; }

}  // namespace platform

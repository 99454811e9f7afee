// Ctrl-C or a termination request while the virtual USB device is mounted
// must not leave the scratch device mounted: during that window the signal
// is only recorded, and the update releases the device before it stops.
#ifndef VRX_UPDATE_INTERRUPT_GUARD_H_
#define VRX_UPDATE_INTERRUPT_GUARD_H_

namespace update_interrupt {

// Installs the recording handler for SIGINT, SIGTERM and SIGHUP for its
// lifetime and restores the previous dispositions afterwards.
class TMountedWindowGuard {
 public:
  TMountedWindowGuard();
  ~TMountedWindowGuard();
  TMountedWindowGuard(const TMountedWindowGuard&) = delete;
  TMountedWindowGuard& operator=(const TMountedWindowGuard&) = delete;

 private:
  bool bInstalled = false;
};

// The signal recorded in the window, or 0.
int PendingSignal();
void ClearPendingSignal();
// Exit status for a run stopped by sig: 128 + sig (130 for SIGINT).
int ExitCodeForSignal(int sig);
const char* SignalName(int sig);

// Tests: the same bookkeeping the handler does when a signal arrives.
void RecordSignalForTest(int sig);

}  // namespace update_interrupt

#endif  // VRX_UPDATE_INTERRUPT_GUARD_H_

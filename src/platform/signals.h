// The run's one signal policy. SIGINT, SIGTERM, SIGHUP and SIGQUIT are
// recorded from start to exit (those ignored when the program started, as
// under nohup, stay ignored); nothing is done inside the handler. The
// procedures look at PendingSignal() at their safe points, take the failure
// path of the step they are in, and the driver reports the signal and exits
// with 128 + its number. Further signals are recorded but never cut the
// clean-up short. SIGPIPE is ignored: output to a closed pipe is dropped and
// the run goes on.
#ifndef VRX_PLATFORM_SIGNALS_H_
#define VRX_PLATFORM_SIGNALS_H_

namespace platform {

// Installs the policy; called once at start-up.
void InstallSignalPolicy();

// The first signal recorded, or 0.
int PendingSignal();

// "SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT"; "signal" for any other.
const char* SignalName(int sig);
// Exit status of a run stopped by sig: 128 + sig.
int ExitCodeForSignal(int sig);

// Tests: what the handler does when sig arrives, and a fresh start.
void RecordSignalForTest(int sig);
void ClearSignalForTest();

}  // namespace platform

#endif  // VRX_PLATFORM_SIGNALS_H_

// Starts a command inside the full-system guest as a terminal would start a
// foreground job: its own process group, the default action for the
// signals a terminal sends (a shell's background job would ignore SIGINT
// and SIGQUIT), nothing blocked. A test tool, never installed.
//
//   vrx-spawn COMMAND [ARGS...]      (its pid is its process group)
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: vrx-spawn COMMAND [ARGS...]\n");
    return 2;
  }
  const int kSignals[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE};
  for (int sig : kSignals) signal(sig, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  if (setpgid(0, 0) != 0) perror("vrx-spawn: setpgid");
  execvp(argv[1], argv + 1);
  perror("vrx-spawn: exec");
  return 127;
}

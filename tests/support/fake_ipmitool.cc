// A stand-in for the `ipmitool` command: runs "raw" requests against the
// scripted BMC named by VRX_SCRIPTED_BMC and prints like the real tool.
// Each run is a new process, so the BMC's state lives in "<script>.state".
// VRX_FAKE_IPMITOOL_ARGV names a file that gets every run's arguments, one
// per line, each run ended by "--"; VRX_FAKE_IPMITOOL_PASSWORD one that gets
// the IPMI_PASSWORD each run saw.
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/scripted_bmc.h"

namespace {

std::string ReadText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  if (in) text << in.rdbuf();
  return text.str();
}

}  // namespace

int main(int argc, char** argv) {
  testing_support::ScriptedBmc bmc;
  std::string statePath;
  const char* script = getenv("VRX_SCRIPTED_BMC");
  if (script != nullptr && *script != '\0') {
    std::string error;
    if (!bmc.LoadFile(script, &error)) {
      fprintf(stderr, "scripted BMC: %s\n", error.c_str());
      return 1;
    }
    statePath = std::string(script) + ".state";
    bmc.LoadState(ReadText(statePath));
  }
  const char* log = getenv("VRX_SCRIPTED_BMC_LOG");
  if (log != nullptr) bmc.log_path = log;
  // Tests of quoting see each argument exactly as the shell passed it.
  const char* argvLog = getenv("VRX_FAKE_IPMITOOL_ARGV");
  if (argvLog != nullptr && *argvLog != '\0') {
    std::ofstream args(argvLog, std::ios::app);
    for (int i = 1; i < argc; ++i) args << argv[i] << "\n";
    args << "--\n";
  }

  // -E: the password comes from the environment, as with the real tool.
  const char* passwordLog = getenv("VRX_FAKE_IPMITOOL_PASSWORD");
  const char* password = getenv("IPMI_PASSWORD");
  if (passwordLog != nullptr && *passwordLog != '\0') {
    std::ofstream passwords(passwordLog, std::ios::app);
    passwords << (password != nullptr ? password : "(unset)") << "\n";
  }

  std::string out, err;
  int code = bmc.RunIpmitool(std::vector<std::string>(argv + 1, argv + argc),
                             &out, &err);
  if (!statePath.empty()) {
    std::ofstream state(statePath, std::ios::trunc);
    state << bmc.SaveState();
  }
  fputs(out.c_str(), stdout);
  fputs(err.c_str(), stderr);
  return code;
}

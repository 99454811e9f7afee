#include "driver/driver.h"
#include "platform/signals.h"

int main(int argc, char** argv) {
  platform::InstallSignalPolicy();
  return RunMain(argc, argv);
}

// The run from start to end: module singletons, the command line, the
// channel to the BMC, the questions, the dispatch and the common ending.
#ifndef VRX_DRIVER_DRIVER_H_
#define VRX_DRIVER_DRIVER_H_

#include <stdint.h>

// The run's flags (G_u8EntityID and the others) live one layer down.
#include "common/run_state.h"
#include "driver/options.h"

void MainConstructor();
void MainDestructor();

// The file-name list (its size is in options.h): one zero-filled name.
int CreateFwImageFilenameList(char*** list);
int DeleteFwImageFilenameList(char*** list);

// Everything main() does; returns the final code (exit status is its low
// eight bits).
int RunMain(int argc, char** argv);

#endif  // VRX_DRIVER_DRIVER_H_

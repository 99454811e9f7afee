// The run from start to end: module singletons, the command line, the
// channel to the BMC, the questions, the dispatch and the common ending.
#ifndef VRX_DRIVER_DRIVER_H_
#define VRX_DRIVER_DRIVER_H_

#include <stdint.h>

// The run's flags (G_u8EntityID and the others) live one layer down.
#include "common/run_state.h"

void MainConstructor();
void MainDestructor();

// The file-name list: one zero-filled name of 256 characters.
constexpr int kFwImageFileListCapacity = 1;
constexpr int kFwImageFileNameSize = 256;
int CreateFwImageFilenameList(char*** list);
int DeleteFwImageFilenameList(char*** list);

// Everything main() does; returns the final code (exit status is its low
// eight bits).
int RunMain(int argc, char** argv);

#endif  // VRX_DRIVER_DRIVER_H_

// Steps shared by the update procedures of this directory; not part of the
// update class's interface.
#ifndef VRX_UPDATE_UPDATE_STEPS_H_
#define VRX_UPDATE_UPDATE_STEPS_H_

#include <stdint.h>
#include <time.h>

#include "types.h"

class TFirmwareUpdate;

namespace update_steps {

// Starting value of every spinner counter; it falls by one per pass.
constexpr int kSpinnerStart = 32767;

// Whole seconds between two clock readings.
double Elapsed(time_t later, time_t earlier);

// The clock of one wait on the BMC (update_steps.cc): its start, the latest
// reading and the seconds between, read from the platform clock, and the
// lines each wait prints when it ends.
class PollClock {
 public:
  PollClock();  // starts now
  void Tick();  // takes a new reading
  time_t Start() const { return tStart; }
  time_t Latest() const { return tLatest; }
  double Seconds() const { return dElapsed; }
  // "<indent><startText> at <ctime of the start>" and the same for the
  // latest reading (debug output and log).
  void PrintTimes(const char* indent, const char* startText,
                  const char* stopText) const;
  // "<indent>Elapsed time = NN seconds\n" (debug output and log).
  void PrintElapsed(const char* indent) const;

 private:
  time_t tStart;
  time_t tLatest;
  double dElapsed = 0;
};

// Takes the host's disk list before the BMC attaches its device, with the
// progress lines; returns the listing's result.
int TakeDiskListBeforePhaseOne();

// Finds the virtual USB device (by its mount, else by mounting it once).
// The three-phase update and the virtual-media update differ only in the
// success line.
enum eDetectStyleTag { eDetectThreePhase, eDetectVirtualMedia };
int DetectOrMountUSBDevice(TFirmwareUpdate* update, eDetectStyleTag style);

// The unmount after the copy: a clean-up after a failure (only when the
// device may have been touched), a release check after success.
int UnmountAfterCopy(int result, bool unmountOnFailure);

// True once a signal asked the run to stop (see platform/signals.h): the
// loops and steps of the procedures stop at their next safe point.
bool Interrupted();
// The safe point between two steps: a successful result becomes a failure
// once the run was interrupted, so the procedure takes its failure path.
int Checkpoint(int result);

// Mounted window: detection, copy, an optional step while the device is
// still mounted, and the unmount. An interrupt anywhere in it releases the
// device and makes the result a failure.
typedef int (*MountedStep)(TFirmwareUpdate* update);
int RunMountedWindow(TFirmwareUpdate* update, int result,
                     bool unmountOnFailure, eDetectStyleTag style,
                     const char* imagePath, MountedStep afterCopy);

// What an interrupted run leaves behind, noted as the procedure goes.
void NoteUpdateStarted();   // the BMC accepted a request that starts an update
void NoteBmcReset();        // the failure path reset the BMC out of update mode
void ResetInterruptNotes();
// An interrupted run's end: one line "   Interrupted by SIGxxx: <state>"
// on standard error and in the log, and 128 + signal. Any other run's
// result is returned unchanged.
int ReportIfInterrupted(int result);

// Clear-PS, reset to defaults and the BMC reset after a finished task.
int FinishAfterTask(TFirmwareUpdate* update, const sBMCInformationTag* bmc,
                    sBMCInformationTag* local, int result);

// Final line of a procedure; 57 (host restarts for the BIOS) is success.
enum eFinalStyleTag { eFinalVirtualMedia, eFinalRemote };
int ReportFinalResult(int result, eFinalStyleTag style);

// The one copy of a device name into a record's name field, bounded.
void CopyDeviceName(sBMCInformationTag* record, const char* name);

}  // namespace update_steps

#endif  // VRX_UPDATE_UPDATE_STEPS_H_

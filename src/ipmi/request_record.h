// -record=FILE: every attempt of every IPMI request of a run, KCS or LAN,
// written to a file line by line as it happens, so that a field run can be
// replayed against the simulated BMC (sim/module, "vrx replay FILE").
//
// The file is opened like the log: never through a symbolic link, only as
// a regular file, created with mode 0600, and never the -i image or the -l
// log. Each line goes out with one write(2), so a run that is stopped
// leaves a file that is complete up to its last answer.
//
// Line format, version 1 (fields separated by one blank; hexadecimal bytes
// as two lower-case digits; T is milliseconds since the recording started,
// on the monotonic clock; S.A is the request's number in the run and the
// attempt's number, both from 1):
//
//   vrxfwul-recording 1 kcs
//   vrxfwul-recording 1 lan host=HOST interface=IFACE
//   T req S.A sa=SA netfn=NN lun=L cmd=CC [mask=uri ]data=BYTES
//   T rsp S.A ms=D cc=CC [mask=uri|mask=uri-other ]data=BYTES
//   T none S.A ms=D status=N|nostart|timeout
//   T tool S.A ms=D exit=N|signal=N text=TEXT
//
// req is the request as sent; rsp its answer (over the LAN cc is always
// 00: ipmitool turns any other code into an error); none means no answer
// arrived (KCS library status N, or ipmitool could not be started or met
// its time limit); tool is ipmitool's error, with its exit status and the
// first line it printed. D is the attempt's duration in milliseconds.
// BYTES are blank-separated, empty for no data. HOST, IFACE and TEXT have
// every byte outside '!'..'~' and every '%' written as %XX. No password
// and no user name is written.
//
// The remote-update URI in the settings store (netfn 30 cmd 03 and 02,
// class 10 item 03) may hold "user:password@". It travels in 10-byte
// chunks, so no single line shows whether a ':' starts a password: its
// bytes are always replaced by a single "*" (data after the 7-byte header
// of a write, after the 4-byte header of a read's answer) and the line is
// marked mask=uri. An answer marked mask=uri gave back exactly what this
// run wrote at those places; mask=uri-other means it gave something else.
#ifndef VRX_IPMI_REQUEST_RECORD_H_
#define VRX_IPMI_REQUEST_RECORD_H_

#include <stdint.h>

#include <string>

#include "types.h"

// Opens path and writes the header line: KCS when lanHost is null, else
// the LAN with that host and interface. images are the -i names. Returns
// "" when recording, otherwise why path is refused, e.g. "is a symbolic
// link; ...".
std::string OpenRequestRecording(const char* path, char* const* images,
                                 int imageCount, const char* lanHost,
                                 const char* lanInterface);
// Ends the recording (nothing without one).
void CloseRequestRecording();
bool RequestRecordingOpen();

// The transports' hooks, one call each per attempt; attempt counts from 0.
// Nothing happens without a recording.
void RecordRequestAttempt(unsigned char slaveAddress, unsigned char netFnLun,
                          unsigned char command, const sIPMIReqRespTag* record,
                          int attempt);
// The answer: completion code and data as in record.
void RecordAnswer(const sIPMIReqRespTag* record);
// No answer: the KCS library's status.
void RecordNoAnswer(int status);
// No answer over the LAN: ipmitool could not start, or met its time limit.
void RecordToolNotRun(bool timedOut);
// ipmitool failed: its wait status and the first line of its output.
void RecordToolError(int waitStatus, const std::string& firstLine);

#endif  // VRX_IPMI_REQUEST_RECORD_H_

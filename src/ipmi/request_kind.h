// Which requests leave the BMC as it was. The pre-flight check may send
// only those, and the update history counts a run from its first request
// that is not one of them.
#ifndef VRX_IPMI_REQUEST_KIND_H_
#define VRX_IPMI_REQUEST_KIND_H_

#include <stddef.h>

// True for every request that is not on the list of known reads (identity,
// FRU, versions, task and update status, reading the settings store), so a
// request this list does not know counts as a change.
bool ChangesBmcState(unsigned char netFnLun, unsigned char command,
                     const unsigned char* data, size_t length);

// While on, ExecuteCommand refuses (without sending) any request that
// changes the BMC, and says so in the debug output and the log.
void SetReadOnlyChannel(bool on);
bool ReadOnlyChannel();

// Whether this run has sent a request that changes the BMC; cleared by
// ResetStateChangeNote() at the start of a run.
bool StateChangingRequestSent();
void NoteStateChangingRequest();
void ResetStateChangeNote();

#endif  // VRX_IPMI_REQUEST_KIND_H_

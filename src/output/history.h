// The update history: one record per run that sent the BMC a request that
// changes it, appended to a private file, and shown by -history as a table
// or an XML document. Implemented in history.cc.
//
// The file (HistoryPath()) holds one line per run, fields separated by tabs:
//   1 TIME TARGET ENTITY KIND SOURCE SHA256 BEFORE AFTER RC SECONDS SIGNAL
// 1 is the format's version; TIME the run's start in UTC (ISO 8601); TARGET
// "kcs" or "lan:HOST"; KIND "image" (SOURCE its path, SHA256 its digest) or
// "uri" (SOURCE the URI with any password masked, SHA256 "-"); BEFORE and
// AFTER the BMC firmware versions (or "-"); RC the exit status; SECONDS the
// run's duration; SIGNAL the signal that interrupted it, or "-". A field's
// backslash, tab, line feed and other control characters are written as
// \\, \t, \n and \xNN, so a line always stays one record.
#ifndef VRX_OUTPUT_HISTORY_H_
#define VRX_OUTPUT_HISTORY_H_

#include <string>

struct sHistoryRecordTag {
  std::string time;           // "2026-11-24T14:00:00Z"
  std::string target;         // "kcs" or "lan:HOST"
  unsigned entity = 0;
  bool remote = false;        // a URI rather than an image file
  std::string source;         // the image path or the masked URI
  std::string sha256;         // of the image; "" for a URI
  std::string versionBefore;  // "" when unknown
  std::string versionAfter;   // "" when unknown
  int returnCode = 0;
  long seconds = 0;
  std::string interruptedBy;  // "SIGTERM", or "" for a run that ended itself
};

// $VRXFWUL_HISTORY_FILE when set; else /var/lib/vrxfwul/history for root
// and ~/.local/state/vrxfwul/history for any other user.
std::string HistoryPath();

// The record's line, with its line feed.
std::string FormatHistoryRecord(const sHistoryRecordTag& record);
// One line (without its line feed) back into a record: false when it is no
// record of this format.
bool ParseHistoryRecord(const std::string& line, sHistoryRecordTag* record);

// Appends the record to the history. A file that cannot or may not be
// written is left as it is: one line on standard error and in the log
// ("   Update history not written: PATH: REASON"), and 1; else 0. The run's
// own result never depends on it.
int AppendHistoryRecord(const sHistoryRecordTag& record);

// -history: the records as a table, oldest first (or one XML document),
// malformed lines skipped and counted. 0, or RC_FILE_ERROR with one line
// when the file is there but is refused or cannot be read.
int ShowHistory(bool xml);

#endif  // VRX_OUTPUT_HISTORY_H_

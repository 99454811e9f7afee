// Every line the utility prints passes through TOutputMessageHandle: the
// caller names the kind of message (redirect mode) and the output mode
// chosen on the command line decides which of standard output, standard
// error and the log file receive it.
#ifndef VRX_OUTPUT_OUTPUT_H_
#define VRX_OUTPUT_OUTPUT_H_

#include <stdio.h>

#include <memory>
#include <string>

#include "platform/files.h"
#include "types.h"

class TOutputMessageHandle {
 public:
  TOutputMessageHandle();
  ~TOutputMessageHandle();
  TOutputMessageHandle(const TOutputMessageHandle&) = delete;
  TOutputMessageHandle& operator=(const TOutputMessageHandle&) = delete;

  // Formats the message and writes it to the destinations of mode. The
  // format is always a literal of the program; outside text goes in as an
  // argument.
  void RedirectMessage(eRedirectModeTag mode, const char* format, ...)
      __attribute__((format(printf, 3, 4)));
  void WriteString(FILE* stream, const char* text);
  // A whole document (XML) for standard output, whatever the output mode;
  // it is not logged.
  void WriteDocument(const std::string& text);

  int OpenLogFile(const char* path, int argc, char** argv);
  void CloseLogFile();
  bool HasLogFile() const { return pLogFile != nullptr; }
  // The log's descriptor (-1 without a log), to tell another file from it.
  // What stat() says of the open log; false without one.
  bool LogFileInfo(platform::FileInfo* info) const {
    return pLogFile != nullptr && pLogFile->Stat(info);
  }

  void SetOutputMode(eOutputModeTag mode);
  eOutputModeTag GetOutputMode() const { return eOutputMode; }
  bool IsOutputRevisionOnly() const;

  // 0 for yes, 1 for no.
  int PromptUser(eRedirectModeTag mode, const char* question);
  void ClearOneLine(eRedirectModeTag mode);
  void BeautifyDelayPrintout(int count, const char* text);

  void OutputUtilityHeader();
  void OutputUtilityHeaderVersion();
  void OutuptUtilityConfiguration(const sProgramSettingsTag* settings);

  const char* GetReturnCodeMessage(int code);
  void OutputReturnCode(int code);

  // Version tables, current firmware against an image.
  void OutputFirmwareRevisions(const sBMCInformationTag* bmc,
                               const sImageHeaderTag* image);
  void OutputFirmwareRevisionsAfterFwUpdate(const sImageHeaderTag* image,
                                            const sBMCInformationTag* bmc);
  void OutputBMCFirmwareRevisions(const sBMCInformationTag* bmc);
  void OutputBMCFirmwareRevisionsAfterRemoteFwUpdate(
      const sBMCInformationTag* oldInfo, const sBMCInformationTag* newInfo);

  // Tests point the console at their own streams; nullptr restores
  // stdout/stderr.
  void SetConsoleStreams(FILE* out, FILE* err);

 private:
  FILE* ConsoleOut() const;
  FILE* ConsoleErr() const;

  void WriteLog(const char* text);

  std::unique_ptr<platform::File> pLogFile;
  std::string achMessageBuffer;  // every message is formatted here first
  eOutputModeTag eOutputMode = eOutputNormal;
  uint8_t u8HeaderShown = 0;
  FILE* pOut = nullptr;  // null: stdout
  FILE* pErr = nullptr;  // null: stderr
};

extern TOutputMessageHandle* G_pOutputMessageHandle;

// The output object in force, for the modules that write through it; it
// exists from the start of a run to its end.
inline TOutputMessageHandle& Out() { return *G_pOutputMessageHandle; }

int OutputConstructor();
int OutputDestructor();

// The maker notice printed under the header.
extern const char* const kMakerNotice;

#endif  // VRX_OUTPUT_OUTPUT_H_

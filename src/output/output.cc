#include "output/output.h"

#include <ctype.h>
#include <stdarg.h>
#include <string.h>

#include "common/return_code.h"
#include "common/text_format.h"
#include "platform/platform.h"

TOutputMessageHandle* G_pOutputMessageHandle = nullptr;

const char* const kMakerNotice =
    "   Copyright (C) 2026 Stratovex Platform Tools. All rights reserved.\n";

int OutputConstructor() {
  G_pOutputMessageHandle = new TOutputMessageHandle();
  return 0;
}

int OutputDestructor() {
  delete G_pOutputMessageHandle;
  G_pOutputMessageHandle = nullptr;
  return 0;
}

TOutputMessageHandle::TOutputMessageHandle() { achMessageBuffer.reserve(320); }

TOutputMessageHandle::~TOutputMessageHandle() { CloseLogFile(); }

FILE* TOutputMessageHandle::ConsoleOut() const {
  return pOut != nullptr ? pOut : stdout;
}

FILE* TOutputMessageHandle::ConsoleErr() const {
  return pErr != nullptr ? pErr : stderr;
}

void TOutputMessageHandle::SetConsoleStreams(FILE* out, FILE* err) {
  pOut = out;
  pErr = err;
}

void TOutputMessageHandle::WriteString(FILE* stream, const char* text) {
  if (stream == nullptr) return;
  fprintf(stream, "%s", text);
  fflush(stream);
}

void TOutputMessageHandle::WriteLog(const char* text) {
  if (!pLogFile) return;
  pLogFile->Write(text, strlen(text));
  pLogFile->Flush();
}

void TOutputMessageHandle::RedirectMessage(eRedirectModeTag mode,
                                           const char* format, ...) {
  // Sized to the message, so a long path or argument can never overrun it.
  va_list args;
  va_start(args, format);
  achMessageBuffer = StringVPrintf(format, args);
  va_end(args);
  const char* text = achMessageBuffer.c_str();

  const int out = eOutputMode;
  const bool consoleShown = out != eOutputQuiet && out != eOutputXml;
  const bool debug = out >= 5 && out <= 9;
  FILE* console = nullptr;
  bool toLog = false;
  switch (mode) {
    case eRedirectNormal:
    case eRedirectPrompt:
      if (consoleShown) console = ConsoleOut();
      toLog = true;
      break;
    case eRedirectError:
      if (out != eOutputXml) console = ConsoleErr();
      toLog = true;
      break;
    case eRedirectDebug:
      if (debug) console = ConsoleOut();
      toLog = true;
      break;
    case eRedirectProgress:
    case eRedirectProgress2:
      if (consoleShown) console = ConsoleOut();
      break;
    default:
      break;
  }
  WriteString(console, text);
  if (toLog) WriteLog(text);
}

void TOutputMessageHandle::WriteDocument(const std::string& text) {
  WriteString(ConsoleOut(), text.c_str());
}

int TOutputMessageHandle::OpenLogFile(const char* path, int argc,
                                      char** argv) {
  // Never through a symbolic link, never anything but a regular file, and
  // readable by its owner only: the log holds the BMC conversation.
  pLogFile = platform::GetEnv()->CreateForWrite(path);
  if (pLogFile == nullptr) {
    RedirectMessage(eRedirectError, " Cannot create %s \n", path);
    return RC_FILE_ERROR;
  }
  for (int i = 0; i < argc; ++i) RedirectMessage(eRedirectDebug, "%s ", argv[i]);
  RedirectMessage(eRedirectDebug, "\n");
  return RC_SUCCESS;
}

void TOutputMessageHandle::CloseLogFile() {
  if (pLogFile == nullptr) return;
  pLogFile->Flush();
  pLogFile->Close();
  pLogFile.reset();
}

void TOutputMessageHandle::SetOutputMode(eOutputModeTag mode) {
  if (static_cast<int>(mode) > 10) return;
  eOutputMode = mode;
}

bool TOutputMessageHandle::IsOutputRevisionOnly() const {
  return eOutputMode == eOutputRevisionOnly ||
         eOutputMode == eOutputDebugRevisionOnly;
}

int TOutputMessageHandle::PromptUser(eRedirectModeTag mode,
                                     const char* question) {
  if (eOutputMode == eOutputQuiet || IsOutputRevisionOnly()) return 1;
  platform::Env* env = platform::GetEnv();
  env->DiscardPendingInput();
  char answer = ' ';
  bool inputEnded = false;
  while (toupper(static_cast<unsigned char>(answer)) != 'Y' &&
         toupper(static_cast<unsigned char>(answer)) != 'N') {
    RedirectMessage(mode, "%s", question);
    // Nobody is left to answer (cron, a closed pipe): asking again would
    // never end, so the question counts as declined.
    if (inputEnded) {
      answer = 'N';
      break;
    }
    char line[81];
    int count = 0;
    for (;;) {
      int c = env->ReadInputChar();
      if (c == EOF) inputEnded = true;
      if (c == EOF || c == '\n') break;
      if (count < 80) line[count] = static_cast<char>(c);
      ++count;
    }
    if (count == 1) answer = line[0];
    env->DiscardPendingInput();
  }
  return (answer == 'Y' || answer == 'y') ? 0 : 1;
}

void TOutputMessageHandle::ClearOneLine(eRedirectModeTag mode) {
  RedirectMessage(mode, "\r%74s\r", "");
}

void TOutputMessageHandle::BeautifyDelayPrintout(int count, const char* text) {
  if (count < 1) {
    ClearOneLine(eRedirectProgress);
    return;
  }
  switch (count % 4) {
    case 0:
      RedirectMessage(eRedirectProgress, "\r %s -", text);
      break;
    case 1:
      RedirectMessage(eRedirectProgress, "\r %s /", text);
      break;
    case 2:
      RedirectMessage(eRedirectProgress, "\r %s |", text);
      break;
    default:
      RedirectMessage(eRedirectProgress, "\r %s \\", text);
      break;
  }
}

void TOutputMessageHandle::OutputUtilityHeader() {
  if (u8HeaderShown) return;
  u8HeaderShown = 1;
  RedirectMessage(eRedirectNormal, "\n   %s %s \n", VRX_FAMILY_NAME,
                  "Firmware Update Utility");
  RedirectMessage(eRedirectNormal, "%s", kMakerNotice);
}

void TOutputMessageHandle::OutputUtilityHeaderVersion() {
  if (u8HeaderShown) return;
  u8HeaderShown = 1;
  RedirectMessage(eRedirectNormal, "\n   %s %s Version:  %s \n",
                  VRX_FAMILY_NAME, "Firmware Update Utility", VRX_VERSION);
  RedirectMessage(eRedirectNormal, "%s", kMakerNotice);
}

void TOutputMessageHandle::OutuptUtilityConfiguration(
    const sProgramSettingsTag* s) {
  RedirectMessage(eRedirectDebug, "   IPMI Command Retry Count          = %d \n",
                  s->u8IPMICommandRetry);
  RedirectMessage(eRedirectDebug, "   Remote Status Enable Waiting Time = %d \n",
                  s->u16RemoteStatusEnableWaitingTime);
  RedirectMessage(eRedirectDebug, "   Connection Retry Count            = %d \n",
                  s->u8ConnectionRetry);
  RedirectMessage(eRedirectDebug, "   Connection Retry Interval         = %d \n",
                  s->u8ConnectionRetryInterval * 5);
  RedirectMessage(eRedirectDebug, "   Connection Delay Time             = %d \n",
                  s->u8DelayTime);
  RedirectMessage(eRedirectDebug, "   Reset BMC Retry Count             = %d \n",
                  s->u8ResetBMCRetry);
}

const char* TOutputMessageHandle::GetReturnCodeMessage(int code) {
  return ReturnCodeText(code);
}

void TOutputMessageHandle::OutputReturnCode(int code) {
  if (code == 0) return;
  RedirectMessage(eRedirectError, "   %s\n", GetReturnCodeMessage(code & 0xFF));
  if ((code & 0xFF00) != 0)
    RedirectMessage(eRedirectError, "   %s\n",
                    GetReturnCodeMessage(code & 0xFF00));
}

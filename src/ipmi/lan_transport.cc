// Carries one request to a remote BMC by running ipmitool's "raw" command
// (directly, without a shell) and reading back the bytes it prints.
#include "ipmi/lan_transport.h"

#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "ipmi/request_record.h"
#include "ipmi/request_trace.h"
#include "output/output.h"
#include "platform/platform.h"

uint8_t G_u8CipherValue = 0xFF;

namespace {

const char kToolName[] = "ipmitool";
const size_t kOutputSize = 256;
const int kMaxTokens = 100;

std::string Text(const char* text) { return text != nullptr ? text : ""; }

sLanTargetTag (*g_targetSource)() = nullptr;

// The request as an argument vector. The password never joins it: ipmitool
// reads it from IPMI_PASSWORD (its -E option), so no process listing shows
// it. *shown gets the same words as the trace prints them.
platform::ProcessSpec BuildRequest(unsigned char netFnLun, unsigned char command,
                                   const sIPMIReqRespTag* record,
                                   std::string* shown) {
  const sLanTargetTag target = CurrentLanTarget();
  platform::ProcessSpec spec;
  std::vector<std::string>& argv = spec.argv;
  argv.push_back(kToolName);
  if (G_u8CipherValue != 0xFF) {
    argv.push_back("-C");
    argv.push_back(std::to_string(G_u8CipherValue));
  }
  argv.insert(argv.end(), {"-I", Text(target.pchInterface), "-U",
                           Text(target.pchUser), "-E", "-H",
                           Text(target.pchHost), "raw"});
  spec.env = {"IPMI_PASSWORD=" + Text(target.pchPassword)};
  char achByte[10];
  snprintf(achByte, sizeof(achByte), "0x%02x", netFnLun >> 2);
  argv.push_back(achByte);
  snprintf(achByte, sizeof(achByte), "0x%02x", command);
  argv.push_back(achByte);
  size_t count = record->u16RequestDataLength;
  if (count > sizeof(record->au8RequestData))
    count = sizeof(record->au8RequestData);
  for (size_t i = 0; i < count; ++i) {
    snprintf(achByte, sizeof(achByte), "0x%02x", record->au8RequestData[i]);
    argv.push_back(achByte);
  }
  spec.output = platform::ChildOutput::kCaptureBoth;
  spec.output_limit = kOutputSize;
  spec.timeout_ms = platform::kToolTimeoutMs;

  // Shown as a shell would need it, each word followed by a blank.
  shown->clear();
  for (const std::string& word : argv)
    *shown += platform::ShellQuoteIfNeeded(word) + " ";
  return spec;
}

bool IsToolError(const char* output) {
  return strstr(output, "Unable to") != nullptr ||
         strstr(output, "failed") != nullptr ||
         strstr(output, "Error") != nullptr;
}

// The first non-empty line of the tool's output.
std::string FirstLine(const char* output) {
  const char* pStart = output + strspn(output, "\n");
  return std::string(pStart, strcspn(pStart, "\n"));
}

// A token of the tool's answer: hexadecimal digits, possibly followed by
// the line feed that ends a line of bytes. Blank-only tokens carry nothing.
enum eTokenKind { eTokenByte, eTokenBlank, eTokenJunk };
eTokenKind ClassifyToken(const char* token) {
  if (token[0] == '0' && (token[1] == 'x' || token[1] == 'X')) token += 2;
  size_t digits = strspn(token, "0123456789abcdefABCDEF");
  size_t rest = strspn(token + digits, "\r\n");
  if (token[digits + rest] != '\0') return eTokenJunk;
  return digits > 0 ? eTokenByte : eTokenBlank;
}

// Splits the printed bytes on blanks into the response data. Returns false
// when a token is no hexadecimal byte: such output is not an answer.
bool ParseResponse(char* output, sIPMIReqRespTag* record) {
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "   fpBuff = %s\n",
                                          output);
  uint16_t u16Length = 0;
  char* pSave = nullptr;
  int tokens = 0;
  for (char* pToken = strtok_r(output, " ", &pSave);
       pToken != nullptr && tokens < kMaxTokens;
       pToken = strtok_r(nullptr, " ", &pSave), ++tokens) {
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "   ptr = %s\n",
                                            pToken);
    eTokenKind kind = ClassifyToken(pToken);
    if (kind == eTokenJunk) return false;
    if (kind == eTokenBlank) continue;
    unsigned int value = 0;
    if (sscanf(pToken, "%x", &value) != 1) continue;
    record->au8ResponseData[u16Length++] = static_cast<uint8_t>(value);
  }
  record->u16ResponseLength = u16Length;
  record->u8CompletionCode = 0;
  return true;
}

// The tool has spoken: retrying would not change its answer. Errors of
// command 0x02 (a reset dropping the session) are expected.
int ReportToolError(unsigned char command, const char* output, int waitStatus) {
  std::string strLine1 = FirstLine(output);
  RecordToolError(waitStatus, strLine1);
  G_pOutputMessageHandle->RedirectMessage(
      command == 0x02 ? eRedirectDebug : eRedirectError, "\n   %s\n",
      strLine1.c_str());
  return 1;
}

}  // namespace

int DoIPMILanCommand(unsigned char netFnLun, unsigned char command,
                     sIPMIReqRespTag* record, unsigned char slaveAddress,
                     bool* retryLimitReached) {
  (void)slaveAddress;  // the target is the host named on the command line
  char achOutput[kOutputSize + 1];
  memset(achOutput, 0, sizeof(achOutput));
  uint8_t u8Counter = static_cast<uint8_t>(record->u8RetryCount + 1);
  record->u8ResponseDataOffset = 0;
  int status = 0;
  TOutputMessageHandle* out = G_pOutputMessageHandle;
  const bool signalledAtStart = SignalPending();
  for (;;) {
    --u8Counter;
    if (u8Counter == 0xFF) break;
    int attempt = record->u8RetryCount - u8Counter;
    if (attempt > 0) out->RedirectMessage(eRedirectDebug, "   Retry %d\n", attempt);
    LogRequestData(0x20, netFnLun, command, record);
    RecordRequestAttempt(0x20, netFnLun, command, record, attempt);
    std::string shown;
    platform::ProcessSpec spec = BuildRequest(netFnLun, command, record, &shown);
    out->RedirectMessage(eRedirectDebug, "   excute cmd: %s\n", shown.c_str());
    platform::ProcessResult run = platform::GetEnv()->RunProcess(spec);
    if (!run.started) {
      RecordToolNotRun(false);
      out->RedirectMessage(eRedirectDebug, "   Error to execute command\n");
      // Without a shell nobody else says why nothing answers.
      if (u8Counter == 0)
        out->RedirectMessage(eRedirectError,
                             "\n   Cannot run %s: is it installed and on the "
                             "search path?\n",
                             kToolName);
      status = 1;
    } else if (run.timed_out) {
      RecordToolNotRun(true);
      out->RedirectMessage(eRedirectError, "\n%s",
                           platform::TimeoutLine(spec).c_str());
      return 1;
    } else {
      size_t n = run.output.size() < kOutputSize ? run.output.size() : kOutputSize;
      memcpy(achOutput, run.output.data(), n);
      achOutput[n] = '\0';
      // Only a successful run prints an answer; anything else it printed
      // is its reason ("Could not open socket", a user name too long).
      const bool exitedOk = WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0;
      if (!exitedOk) return ReportToolError(command, achOutput, run.status);
      if (n == 0) {
        record->u8CompletionCode = 0;
        record->u16ResponseLength = 0;
        status = 0;
      } else if (IsToolError(achOutput)) {
        return ReportToolError(command, achOutput, run.status);
      } else {
        char achParsed[kOutputSize + 1];
        memcpy(achParsed, achOutput, n + 1);
        if (!ParseResponse(achParsed, record)) {
          return ReportToolError(command, achOutput, run.status);
        }
        status = 0;
      }
    }
    if (status == 0) {
      LogResponseData(record);
      RecordAnswer(record);
      return 0;
    }
    LogErrorResponseData(status, record);
    if (StopRetrying(signalledAtStart)) return status;
    DelayMS(record->u16RetryDelay);
    record->u16ResponseLength = 128;
  }
  if (status != 0) *retryLimitReached = true;
  return status;
}

void SetLanTargetSource(sLanTargetTag (*source)()) { g_targetSource = source; }

sLanTargetTag CurrentLanTarget() {
  if (g_targetSource != nullptr) return g_targetSource();
  return sLanTargetTag{nullptr, nullptr, nullptr, nullptr};
}

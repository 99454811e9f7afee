// Carries one request to a remote BMC by running ipmitool's "raw" command
// and reading back the bytes it prints.
#include "ipmi/lan_transport.h"

#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <memory>
#include <string>

#include "ipmi/ipmi_exec.h"
#include "output/output.h"
#include "platform/platform.h"
#include "update/firmware_update.h"

uint8_t G_u8CipherValue = 0xFF;

namespace {

const char kToolName[] = "ipmitool";
const size_t kOutputSize = 256;
const int kMaxTokens = 100;

// Values typed by the user reach a shell: quote them when needed.
std::string Quoted(const char* text) {
  return platform::ShellQuoteIfNeeded(text != nullptr ? text : "");
}

std::string BuildCommandLine(unsigned char netFnLun, unsigned char command,
                             const sIPMIReqRespTag* record) {
  const TFirmwareUpdate* pUpdate = G_pFirmwareUpdate;
  std::string strIF = Quoted(pUpdate ? pUpdate->GetLanIF() : nullptr);
  std::string strUser = Quoted(pUpdate ? pUpdate->GetUserName() : nullptr);
  std::string strPass = Quoted(pUpdate ? pUpdate->GetPassWord() : nullptr);
  std::string strHost = Quoted(pUpdate ? pUpdate->GetHostIP() : nullptr);
  std::string strLine = kToolName;
  if (G_u8CipherValue != 0xFF)
    strLine += " -C " + std::to_string(G_u8CipherValue);
  strLine += " -I " + strIF + " -U " + strUser + " -P " + strPass + " -H " +
             strHost + " raw ";
  char achByte[10];
  snprintf(achByte, sizeof(achByte), "0x%02x ", netFnLun >> 2);
  strLine += achByte;
  snprintf(achByte, sizeof(achByte), "0x%02x ", command);
  strLine += achByte;
  size_t count = record->u16RequestDataLength;
  if (count > sizeof(record->au8RequestData))
    count = sizeof(record->au8RequestData);
  for (size_t i = 0; i < count; ++i) {
    snprintf(achByte, sizeof(achByte), "0x%02x ", record->au8RequestData[i]);
    strLine += achByte;
  }
  return strLine;
}

// Exit status 127 is the shell's "command not found". Only a command that
// has printed all its output is waited for here.
bool IsToolMissing(platform::Pipe* pipe) {
  int status = pipe->Close();
  return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 127;
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

// Splits the printed bytes on blanks into the response data. A token that
// is no hexadecimal number (such as the lone line feed of an empty answer)
// is not a byte.
void ParseResponse(char* output, sIPMIReqRespTag* record) {
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
    unsigned int value = 0;
    if (sscanf(pToken, "%x", &value) != 1) continue;
    record->au8ResponseData[u16Length++] = static_cast<uint8_t>(value);
  }
  record->u16ResponseLength = u16Length;
  record->u8CompletionCode = 0;
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
  for (;;) {
    --u8Counter;
    if (u8Counter == 0xFF) break;
    int attempt = record->u8RetryCount - u8Counter;
    if (attempt > 0) out->RedirectMessage(eRedirectDebug, "   Retry %d\n", attempt);
    LogRequestData(0x20, netFnLun, command, record);
    std::string strLine = BuildCommandLine(netFnLun, command, record);
    out->RedirectMessage(eRedirectDebug, "   excute cmd: %s\n", strLine.c_str());
    strLine += " 2>&1";
    std::unique_ptr<platform::Pipe> pipe =
        platform::GetEnv()->OpenPipe(strLine);
    if (pipe == nullptr) {
      out->RedirectMessage(eRedirectDebug, "   Error to execute command\n");
      status = 1;
    } else {
      size_t n = pipe->Read(achOutput, kOutputSize);
      achOutput[n] = '\0';
      if (IsToolMissing(pipe.get())) {
        // The shell could not find the tool; its "not found" line must not
        // be read as response bytes.
        out->RedirectMessage(eRedirectError, "\n   %s\n",
                             FirstLine(achOutput).c_str());
        return 1;
      }
      if (n == 0) {
        record->u8CompletionCode = 0;
        record->u16ResponseLength = 0;
        status = 0;
      } else if (IsToolError(achOutput)) {
        // The tool has spoken: retrying would not change its answer. Errors
        // of command 0x02 (a reset dropping the session) are expected.
        std::string strLine1 = FirstLine(achOutput);
        out->RedirectMessage(command == 0x02 ? eRedirectDebug : eRedirectError,
                             "\n   %s\n", strLine1.c_str());
        return 1;
      } else {
        ParseResponse(achOutput, record);
        status = 0;
      }
    }
    if (status == 0) {
      LogResponseData(record);
      return 0;
    }
    LogErrorResponseData(status, record);
    DelayMS(record->u16RetryDelay);
    record->u16ResponseLength = 128;
  }
  if (status != 0) *retryLimitReached = true;
  return status;
}

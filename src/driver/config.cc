#include "driver/config.h"

#include <limits.h>
#include <string.h>

#include <memory>
#include <new>
#include <string>

#include "output/output.h"
#include "platform/platform.h"

TConfigurationHandle* G_pConfigHandle = nullptr;

namespace {

const char kConfigFileName[] = "bmcfwu.cfg";
// A settings file is a few lines; anything larger is not one of ours.
const size_t kMaxConfigFileSize = 1024 * 1024;

const sProgramSettingsTag kDefaultSettings = {
    30,    // u16PhaseOneWaitingTime
    180,   // u16PhaseTwoWaitingTime
    1200,  // u16FwUpdateWaitingTime
    90,    // u16FwRebootWaitingTime
    15,    // u8IPMICommandRetry
    15,    // u8USBDeviceSearchingRetry
    30,    // u16RemoteStatusEnableWaitingTime
    1,     // u8ConnectionRetryInterval (units of 5 s)
    255,   // u8DelayTime
    4,     // u8ConfigurationRetry
    12,    // u8ConnectionRetry
    4,     // u8ResetBMCRetry
    0,     // u8EntityID
    255,   // u8CipherValue: none given
};

// Parses text and checks it against [0, max]; on success *value holds it.
int ParseInRange(const char* text, int max, int* value) {
  int rc = StringToInteger(text, value);
  if (rc != RC_SUCCESS) return rc;
  if (*value < 0 || *value > max) return RC_NUMBER_OUT_OF_RANGE;
  return RC_SUCCESS;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The leading decimal number of text as the file reader takes it: the low
// 16 bits, and whether the number is non-zero (digits past any width count).
struct LeadingNumber {
  uint16_t u16Value = 0;
  bool bNonZero = false;
};

LeadingNumber ReadLeadingNumber(const char* text) {
  LeadingNumber n;
  for (const char* p = text; *p >= '0' && *p <= '9'; ++p) {
    n.u16Value = static_cast<uint16_t>(n.u16Value * 10 + (*p - '0'));
    if (*p != '0') n.bNonZero = true;
  }
  return n;
}

bool IsSeparator(char c) { return c == ' ' || c == '\t' || c == '='; }

// Splits off the next piece of line at blanks and "=" (strtok style).
std::string NextPiece(const std::string& line, size_t* pos) {
  size_t i = *pos;
  while (i < line.size() && IsSeparator(line[i])) ++i;
  size_t start = i;
  while (i < line.size() && !IsSeparator(line[i])) ++i;
  *pos = i;
  return line.substr(start, i - start);
}

}  // namespace

int ConfigConstructor() {
  G_pConfigHandle = new (std::nothrow) TConfigurationHandle();
  if (G_pConfigHandle == nullptr || !G_pConfigHandle->HasSettings()) return 1;
  SetCurrentSettings(G_pConfigHandle->GetSettings());
  return 0;
}

int ConfigDestructor() {
  SetCurrentSettings(nullptr);
  delete G_pConfigHandle;
  G_pConfigHandle = nullptr;
  return 0;
}

TConfigurationHandle::TConfigurationHandle() {
  psSettings = new (std::nothrow) sProgramSettingsTag(kDefaultSettings);
}

TConfigurationHandle::~TConfigurationHandle() { delete psSettings; }

int TConfigurationHandle::SaveConnectionRetryCount(const char* text) {
  int value = 0;
  int rc = ParseInRange(text, 255, &value);
  if (rc == RC_SUCCESS) psSettings->u8ConnectionRetry = static_cast<uint8_t>(value);
  return rc;
}

int TConfigurationHandle::SaveConnectionRetryInterval(const char* text) {
  int value = 0;
  int rc = ParseInRange(text, 255, &value);
  if (rc == RC_SUCCESS && value % 5 != 0) rc = RC_NUMBER_OUT_OF_RANGE;
  if (rc == RC_SUCCESS)
    psSettings->u8ConnectionRetryInterval = static_cast<uint8_t>(value / 5);
  return rc;
}

int TConfigurationHandle::SaveDelayTime(const char* text) {
  int value = 0;
  int rc = ParseInRange(text, 255, &value);
  if (rc == RC_SUCCESS) psSettings->u8DelayTime = static_cast<uint8_t>(value);
  return rc;
}

int TConfigurationHandle::SaveEntityID(const char* text) {
  int value = 0;
  int rc = ParseInRange(text, 15, &value);
  if (rc == RC_SUCCESS) psSettings->u8EntityID = static_cast<uint8_t>(value);
  return rc;
}

int TConfigurationHandle::SaveCipherValue(const char* text) {
  int value = 0;
  int rc = ParseInRange(text, 15, &value);
  if (rc == RC_SUCCESS) psSettings->u8CipherValue = static_cast<uint8_t>(value);
  return rc;
}

int StringToInteger(const char* text, int* value) {
  if (text == nullptr) return RC_FAILED;
  // Numbers past INT_MAX saturate so that the range checks refuse them.
  long long number = 0;
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    if (strlen(text) < 3) return RC_INVALID_NUMBER;
    for (const char* p = text + 2; *p != '\0'; ++p) {
      int digit = HexDigit(*p);
      if (digit < 0) return RC_INVALID_NUMBER;
      if (number <= INT_MAX) number = number * 16 + digit;
    }
  } else {
    if (text[0] == '\0') return RC_INVALID_NUMBER;
    for (const char* p = text; *p != '\0'; ++p) {
      if (*p < '0' || *p > '9') return RC_INVALID_NUMBER;
      if (number <= INT_MAX) number = number * 10 + (*p - '0');
    }
  }
  *value = number > INT_MAX ? INT_MAX : static_cast<int>(number);
  return RC_SUCCESS;
}

bool IsZero(const char* text) {
  if (text == nullptr) return false;
  return strcmp(text, "0") == 0 || strcmp(text, "0\r") == 0;
}

int TConfigurationHandle::ReadConfigFile() {
  return ReadConfigFile(kConfigFileName);
}

namespace {

void ReportCannotFind(const char* name) {
  if (G_pOutputMessageHandle == nullptr) return;
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                          "\n   Cannot find %s\n", name);
}

void ReportNoMemory() {
  if (G_pOutputMessageHandle == nullptr) return;
  G_pOutputMessageHandle->RedirectMessage(eRedirectDebug, "%s",
                                          "\n   Allocate memory failed\n");
}

void ReportReadError(const char* name, size_t readLength, size_t fileSize) {
  if (G_pOutputMessageHandle == nullptr) return;
  unsigned readShown =
      readLength > UINT_MAX ? UINT_MAX : static_cast<unsigned>(readLength);
  unsigned sizeShown =
      fileSize > UINT_MAX ? UINT_MAX : static_cast<unsigned>(fileSize);
  G_pOutputMessageHandle->RedirectMessage(
      eRedirectDebug, "\n   Reading %s error. (read length=%u, file size=%u)\n",
      name, readShown, sizeShown);
}

// Reads the whole regular file at path into text: 0, 1 (cannot open or
// short read, already reported), 3 (no memory) or 4 (not a regular file).
int LoadFile(const char* path, std::string* text) {
  // Non-blocking so that a FIFO in place of the file cannot hang the start.
  std::unique_ptr<platform::File> file = platform::GetEnv()->OpenForRead(path);
  platform::FileInfo st;
  if (file && (!file->Stat(&st) || st.type != platform::FileType::kRegular)) {
    file.reset();
    // Something else by that name is refused, never read as settings.
    if (G_pOutputMessageHandle != nullptr)
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectError, "   %s: is not a regular file\n", path);
    return RC_FILE_ERROR;
  }
  if (!file) {
    ReportCannotFind(path);
    return RC_FAILED;
  }
  size_t size = static_cast<size_t>(st.size);
  if (size > kMaxConfigFileSize) {
    ReportReadError(path, 0, size);
    return RC_FAILED;
  }
  char* buffer = new (std::nothrow) char[size + 1];
  if (buffer == nullptr) {
    ReportNoMemory();
    return RC_OUT_OF_MEMORY;
  }
  size_t got = file->Read(buffer, size);
  file.reset();
  if (got < size) {
    delete[] buffer;
    ReportReadError(path, got, size);
    return RC_FAILED;
  }
  text->assign(buffer, got);
  delete[] buffer;
  return RC_SUCCESS;
}

// Keys whose value is a plain decimal number stored straight into a field.
// Returns false for any other key. The phase waiting times and the two
// retry counts keep only the low byte of the number.
bool StoreNumberKey(sProgramSettingsTag* s, const std::string& key,
                    const char* value) {
  uint16_t* wide = nullptr;
  uint16_t* narrowWide = nullptr;
  uint8_t* narrow = nullptr;
  if (key == "FwUpdateWaitingTime") {
    wide = &s->u16FwUpdateWaitingTime;
  } else if (key == "FwRebootWaitingTime") {
    wide = &s->u16FwRebootWaitingTime;
  } else if (key == "PhaseOneWaitingTime") {
    narrowWide = &s->u16PhaseOneWaitingTime;
  } else if (key == "PhaseTwoWaitingTime") {
    narrowWide = &s->u16PhaseTwoWaitingTime;
  } else if (key == "IPMICommandRetry") {
    narrow = &s->u8IPMICommandRetry;
  } else if (key == "USBDeviceSearchingRetry") {
    narrow = &s->u8USBDeviceSearchingRetry;
  } else {
    return false;
  }
  LeadingNumber n = ReadLeadingNumber(value);
  // A zero result counts only when the text really says "0".
  if (!n.bNonZero && !IsZero(value)) return true;
  const uint8_t low = static_cast<uint8_t>(n.u16Value & 0xFF);
  if (wide != nullptr) *wide = n.u16Value;
  if (narrowWide != nullptr) *narrowWide = low;
  if (narrow != nullptr) *narrow = low;
  return true;
}

}  // namespace

int TConfigurationHandle::ReadConfigFile(const char* path) {
  if (path == nullptr || psSettings == nullptr) return RC_FAILED;
  std::string text;
  int rc = LoadFile(path, &text);
  if (rc != RC_SUCCESS) return rc;

  size_t lineStart = 0;
  while (lineStart < text.size()) {
    size_t lineEnd = text.find('\n', lineStart);
    if (lineEnd == std::string::npos) lineEnd = text.size();
    std::string line = text.substr(lineStart, lineEnd - lineStart);
    lineStart = lineEnd + 1;
    // A NUL byte ends the line's text, as it would for any C string.
    line = line.substr(0, line.find('\0'));
    line = line.substr(0, line.find('#'));
    size_t pos = 0;
    std::string key = NextPiece(line, &pos);
    std::string value = NextPiece(line, &pos);
    if (key.empty() || value.empty()) continue;
    if (StoreNumberKey(psSettings, key, value.c_str())) continue;
    std::string cut = value.substr(0, value.find('\r'));
    if (key == "R") {
      SaveConnectionRetryCount(cut.c_str());
    } else if (key == "I") {
      SaveConnectionRetryInterval(cut.c_str());
    } else if (key == "D") {
      SaveDelayTime(cut.c_str());
    }
  }
  return RC_SUCCESS;
}

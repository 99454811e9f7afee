// Carries one request over the system interface through libopenraw.so,
// which is loaded at run time so that the utility starts (and runs over
// the LAN) on hosts without it.
#include "ipmi/kcs_transport.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"

const char* const SysIntfStr[] = {"NULL", "KCS", "SMIC", "BT"};
const char* const RegSpaceStr[] = {"ByteBoundary", "ThirtyTwoBitBoundary",
                                   "SixteenBitBoundary", "Reserved"};

namespace {

const char kLibraryName[] = "libopenraw.so";

bool g_bUseTestEntries = false;
RawEntryPoints g_sTestEntries = {nullptr, nullptr, nullptr, nullptr};

// The library's diagnostic hook; it is silent in this build but keeps the
// texts checked against their arguments.
void DebugTrace(const char*, ...) __attribute__((format(printf, 1, 2)));
void DebugTrace(const char*, ...) {}

#ifndef VRX_PRIVATE_LIBDIR
#define VRX_PRIVATE_LIBDIR "../lib/vrxfwul"
#endif

// The directory of the running executable, where the library may be
// shipped next to the utility. Never the current directory.
std::string ExecutableDirectory() {
  char achPath[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", achPath, sizeof(achPath) - 1);
  if (n <= 0) return std::string();
  achPath[n] = '\0';
  char* pSlash = strrchr(achPath, '/');
  if (pSlash == nullptr) return std::string();
  *pSlash = '\0';
  return achPath;
}

std::string LastLoaderError() {
  const char* pError = dlerror();
  return pError != nullptr ? pError : "unknown reason";
}

// Tries, in order: the loader's own search (LD_LIBRARY_PATH, ld.so.cache,
// /lib, /usr/lib), the executable's own directory, the program's private
// library directory (relative to the executable, or absolute). Each
// failed try adds a line with the loader's reason to report.
void* OpenLibrary(std::string* path, std::string* report) {
  std::string strDir = ExecutableDirectory();
  std::vector<std::string> tries = {kLibraryName};
  if (!strDir.empty()) tries.push_back(strDir + "/" + kLibraryName);
  // The open library goes last, so a vendor library placed as before wins.
  if (VRX_PRIVATE_LIBDIR[0] == '/')
    tries.push_back(std::string(VRX_PRIVATE_LIBDIR) + "/" + kLibraryName);
  else if (!strDir.empty())
    tries.push_back(strDir + "/" VRX_PRIVATE_LIBDIR "/" + kLibraryName);
  for (const std::string& strTry : tries) {
    void* pHandle = dlopen(strTry.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (pHandle != nullptr) {
      *path = strTry;
      return pHandle;
    }
    // The loader's reason names the file it tried.
    std::string strReason = LastLoaderError();
    if (strTry == kLibraryName)
      strReason = "the loader's search path: " + strReason;
    else if (strReason.compare(0, strTry.size(), strTry) != 0)
      strReason = strTry + ": " + strReason;
    *report += "     " + strReason + "\n";
  }
  return nullptr;
}

const char* TableName(const char* const* table, int count, int value) {
  if (value < 0 || value >= count) return "NULL";
  return table[value];
}

// Replaces the line ending so that a line holds only its text.
void ChopLine(char* line) { line[strcspn(line, "\r\n")] = '\0'; }

}  // namespace

TalkBMCviaKCS_OSA::TalkBMCviaKCS_OSA() {}

TalkBMCviaKCS_OSA::~TalkBMCviaKCS_OSA() {
  // A channel that never opened has nothing to close.
  if (u32Handle != 0 && sRaw.pfnRawClose != nullptr) sRaw.pfnRawClose(u32Handle);
  u32Handle = 0;
  UnloadLibrary();
}

void TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(
    const RawEntryPoints* entries) {
  g_bUseTestEntries = entries != nullptr;
  if (entries != nullptr) {
    g_sTestEntries = *entries;
  } else {
    g_sTestEntries = RawEntryPoints{nullptr, nullptr, nullptr, nullptr};
  }
}

int TalkBMCviaKCS_OSA::LoadLibrary() {
  if (g_bUseTestEntries) {
    sRaw = g_sTestEntries;
  } else {
    std::string strTried;
    pLibrary = OpenLibrary(&strLibraryPath, &strTried);
    if (pLibrary == nullptr) {
      strLoadReport = std::string("   ") + kLibraryName +
                      " could not be loaded; tried, in order:\n" + strTried;
      return 0;
    }
    dlerror();  // a null entry point then reports this lookup's reason
    std::string strMissing;
    auto Lookup = [&](const char* name) {
      void* pSymbol = dlsym(pLibrary, name);
      if (pSymbol == nullptr) strMissing += "     " + LastLoaderError() + "\n";
      return pSymbol;
    };
    sRaw.pfnRawOpen = reinterpret_cast<RawOpenFn>(Lookup("RawOpen"));
    sRaw.pfnRawRequest = reinterpret_cast<RawRequestFn>(Lookup("RawRequest"));
    sRaw.pfnRawIPMBRequest =
        reinterpret_cast<RawIPMBRequestFn>(Lookup("RawIPMBRequest"));
    sRaw.pfnRawClose = reinterpret_cast<RawCloseFn>(Lookup("RawClose"));
    if (!strMissing.empty())
      strLoadReport = std::string("   ") + kLibraryName + " loaded from " +
                      strLibraryPath + " lacks an entry point:\n" + strMissing;
  }
  if (sRaw.pfnRawOpen == nullptr || sRaw.pfnRawRequest == nullptr ||
      sRaw.pfnRawIPMBRequest == nullptr || sRaw.pfnRawClose == nullptr) {
    UnloadLibrary();
    return 0;
  }
  return 1;
}

void TalkBMCviaKCS_OSA::UnloadLibrary() {
  sRaw = RawEntryPoints{nullptr, nullptr, nullptr, nullptr};
  if (pLibrary != nullptr) dlclose(pLibrary);
  pLibrary = nullptr;
}

int TalkBMCviaKCS_OSA::Init() {
  if (u32Handle != 0) return 1;
  strLoadReport.clear();
  if (sRaw.pfnRawOpen == nullptr && LoadLibrary() == 0) return 0;
  u32Handle = sRaw.pfnRawOpen();
  if (u32Handle == 0) {
    DebugTrace("oops ... RawOpen failed!!\n");
    strLoadReport = std::string("   ") + kLibraryName +
                    (strLibraryPath.empty() ? std::string()
                                            : " loaded from " + strLibraryPath) +
                    ": RawOpen returned no handle\n";
    return 0;
  }
  return 1;
}

int TalkBMCviaKCS_OSA::requestBMC(unsigned char netFn, unsigned char command,
                                  unsigned char lun,
                                  unsigned char* requestData,
                                  unsigned char requestLength,
                                  unsigned char* responseData,
                                  unsigned short* responseLength) {
  unsigned char netFnLun = static_cast<unsigned char>((netFn << 2) | lun);
  u8CompletionCode = 0xFF;
  unsigned short u16Capacity = *responseLength & 0xFF;
  unsigned short u16Length = u16Capacity;
  if (!IsKCSChannel_OK()) return 1;
  DebugTrace("Send Command [%d] NetFn [%d] :\n", command, netFn);
  int status = sRaw.pfnRawRequest(u32Handle, netFnLun, command, requestData,
                                  requestLength, &u8CompletionCode,
                                  responseData, &u16Length);
  if (status != 0) {
    DebugTrace("RawRequst failed: status = %d\n", status);
    return status;
  }
  // A count beyond the capacity cannot be in the buffer: keep what fits.
  if (u16Length > u16Capacity) u16Length = u16Capacity;
  *responseLength = u16Length & 0xFF;
  DebugTrace("CompletCode = %d\tResponse Length = %d\n", u8CompletionCode,
             *responseLength);
  DebugTrace("\n************* End of RspData. ********\n\n\n");
  return status;
}

int TalkBMCviaKCS_OSA::requestIPMB(unsigned char slaveAddress,
                                   unsigned char netFn, unsigned char command,
                                   unsigned char lun,
                                   unsigned char* requestData,
                                   unsigned char requestLength,
                                   unsigned char* responseData,
                                   unsigned short* responseLength) {
  unsigned char netFnLun = static_cast<unsigned char>((netFn << 2) | lun);
  u8CompletionCode = 0xFF;
  u8RequestFlag = 0;
  unsigned short u16Capacity = *responseLength;
  if (!IsKCSChannel_OK()) return 1;
  DebugTrace("Send Command [%d] NetFn [%d] :\n", command, netFn);
  int status = sRaw.pfnRawIPMBRequest(u32Handle, slaveAddress, netFnLun,
                                      command, requestData, requestLength,
                                      &u8CompletionCode, responseData,
                                      responseLength);
  if (*responseLength > u16Capacity) *responseLength = u16Capacity;
  if (status != 0) {
    DebugTrace("RawRequst failed: status = %d\n", status);
    return status;
  }
  DebugTrace("CompletCode = %d\tResponse Length = %d\n", u8CompletionCode,
             *responseLength);
  DebugTrace("\n************* End of RspData. ********\n\n\n");
  return status;
}

const char* TalkBMCviaKCS_OSA::ErrorMessage(int n) {
  switch (n) {
    case 1:
      return "KCS was failed!!";
    case 2:
      return "Error occured at sending request to KCS driver!!";
    case 3:
      return "Error occured at receiving response from KCS driver!!";
    case 4:
      return "BMC didn't accept the data you sent!!";
    default:
      return nullptr;
  }
}

int ConvertIntfType(const char* name) {
  if (name == nullptr) return -1;
  if (strcasecmp(name, "KCS") == 0) return KCS;
  if (strcasecmp(name, "SMIC") == 0) return SMIC;
  if (strcasecmp(name, "BT") == 0) return BT;
  return -1;
}

int ConvertRegSpace(const char* name) {
  if (name == nullptr) return -1;
  if (strcasecmp(name, "ByteBoundary") == 0) return ByteBoundary;
  if (strcasecmp(name, "SixteenBitBoundary") == 0) return SixteenBitBoundary;
  if (strcasecmp(name, "ThirtyTwoBitBoundary") == 0)
    return ThirtyTwoBitBoundary;
  if (strcasecmp(name, "Reserved") == 0) return Reserved;
  return -1;
}

int TalkBMCviaKCS_OSA::GetConfig(SystemInterface* intf,
                                 unsigned short* portAddress,
                                 RegisterSpacing* spacing, long* fourthValue) {
  return GetConfig("intf.ini", intf, portAddress, spacing, fourthValue);
}

int TalkBMCviaKCS_OSA::GetConfig(const char* path, SystemInterface* intf,
                                 unsigned short* portAddress,
                                 RegisterSpacing* spacing, long* fourthValue) {
  static const char kSeparators[] = " _\r\n";
  std::unique_ptr<platform::File> pFile = platform::GetEnv()->OpenFile(path);
  if (!pFile) {
    DebugTrace("Cannot find %s, abort.\n", path);
    return 1;
  }
  char achLine[64];
  char* pSave = nullptr;
  if (pFile->ReadLine(achLine, sizeof(achLine))) {
    int value = ConvertIntfType(strtok_r(achLine, kSeparators, &pSave));
    if (value < 0) {
      DebugTrace("Error config: %s ==> not a valid System interface type.\n",
                 achLine);
      return 1;
    }
    *intf = static_cast<SystemInterface>(value);
  }
  if (pFile->ReadLine(achLine, sizeof(achLine))) {
    unsigned long value = strtoul(achLine, nullptr, 16);
    if (value < 1 || value > 0xFFFE) {
      ChopLine(achLine);
      DebugTrace("Error config: %s ==> not a valid Port Address.\n", achLine);
      return 1;
    }
    *portAddress = static_cast<unsigned short>(value);
  }
  if (pFile->ReadLine(achLine, sizeof(achLine))) {
    int value = ConvertRegSpace(strtok_r(achLine, kSeparators, &pSave));
    if (value < 0) {
      DebugTrace("Error config: %s ==> not a valid Register Spacing type.\n",
                 achLine);
      return 1;
    }
    *spacing = static_cast<RegisterSpacing>(value);
  }
  *fourthValue = 0x3000;
  if (pFile->ReadLine(achLine, sizeof(achLine)))
    *fourthValue = strtol(achLine, nullptr, 16);
  pFile.reset();
  DebugTrace("Read Config:\nSysIntf = %s, PortAddr = 0x%.3X, RegSpace = %s\n",
             TableName(SysIntfStr, 4, *intf), *portAddress,
             TableName(RegSpaceStr, 4, *spacing));
  return 0;
}

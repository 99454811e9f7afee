// Carries one request over the host's system interface by calling the
// raw-access library libopenraw.so, loaded at run time.
#ifndef VRX_IPMI_KCS_TRANSPORT_H_
#define VRX_IPMI_KCS_TRANSPORT_H_

#include <stdint.h>

#include <string>

enum SystemInterface { KCS = 1, SMIC = 2, BT = 3 };
enum RegisterSpacing {
  ByteBoundary = 0,
  ThirtyTwoBitBoundary = 1,
  SixteenBitBoundary = 2,
  Reserved = 3
};

// C entry points of libopenraw.so. The handle is an unsigned 32-bit value
// (0: not open); lengths, NetFn/LUN and command are single bytes; the
// response length holds the capacity on entry and the received count on
// return. Requests return 0 on success, a library status otherwise.
extern "C" {
typedef uint32_t (*RawOpenFn)(void);
typedef int (*RawRequestFn)(uint32_t handle, unsigned char netFnLun,
                            unsigned char command, unsigned char* requestData,
                            unsigned char requestLength,
                            unsigned char* completionCode,
                            unsigned char* responseData,
                            unsigned short* responseLength);
typedef int (*RawIPMBRequestFn)(uint32_t handle, unsigned char slaveAddress,
                                unsigned char netFnLun, unsigned char command,
                                unsigned char* requestData,
                                unsigned char requestLength,
                                unsigned char* completionCode,
                                unsigned char* responseData,
                                unsigned short* responseLength);
typedef void (*RawCloseFn)(uint32_t handle);
}

struct RawEntryPoints {
  RawOpenFn pfnRawOpen;
  RawRequestFn pfnRawRequest;
  RawIPMBRequestFn pfnRawIPMBRequest;
  RawCloseFn pfnRawClose;
};

extern const char* const SysIntfStr[];
extern const char* const RegSpaceStr[];

class TalkBMCviaKCS_OSA {
 public:
  TalkBMCviaKCS_OSA();
  ~TalkBMCviaKCS_OSA();
  TalkBMCviaKCS_OSA(const TalkBMCviaKCS_OSA&) = delete;
  TalkBMCviaKCS_OSA& operator=(const TalkBMCviaKCS_OSA&) = delete;

  // Loads the library and opens the channel: 1 on success, 0 otherwise.
  int Init();
  bool IsKCSChannel_OK() const { return u32Handle != 0; }
  unsigned char CompletionCode() const { return u8CompletionCode; }

  int requestBMC(unsigned char netFn, unsigned char command, unsigned char lun,
                 unsigned char* requestData, unsigned char requestLength,
                 unsigned char* responseData, unsigned short* responseLength);
  int requestIPMB(unsigned char slaveAddress, unsigned char netFn,
                  unsigned char command, unsigned char lun,
                  unsigned char* requestData, unsigned char requestLength,
                  unsigned char* responseData,
                  unsigned short* responseLength);

  static const char* ErrorMessage(int n);
  int GetConfig(SystemInterface* intf, unsigned short* portAddress,
                RegisterSpacing* spacing, long* fourthValue);
  int GetConfig(const char* path, SystemInterface* intf,
                unsigned short* portAddress, RegisterSpacing* spacing,
                long* fourthValue);

  // Tests hand in the entry points directly; Init then loads no library.
  // nullptr restores loading libopenraw.so. The struct is copied.
  static void SetRawEntryPointsForTesting(const RawEntryPoints* entries);

  // Why the last Init failed: the library name, each path tried and the
  // loader's reason, one line each; empty after a success.
  const std::string& LoadReport() const { return strLoadReport; }

 private:
  int LoadLibrary();
  void UnloadLibrary();

  uint32_t u32Handle = 0;
  uint8_t u8RequestFlag = 0;
  uint8_t u8CompletionCode = 0xFF;
  void* pLibrary = nullptr;  // dlopen handle
  RawEntryPoints sRaw = {nullptr, nullptr, nullptr, nullptr};
  std::string strLibraryPath;  // the path that loaded, as tried
  std::string strLoadReport;
};

int ConvertIntfType(const char* name);
int ConvertRegSpace(const char* name);

#endif  // VRX_IPMI_KCS_TRANSPORT_H_

// Shared set-up of the IPMI suites: the virtual clock, captured output with
// a log, the settings, and the scripted BMC behind the KCS transport.
#ifndef VRX_TESTS_IPMI_IPMI_FIXTURE_H_
#define VRX_TESTS_IPMI_IPMI_FIXTURE_H_

#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include <memory>
#include <string>
#include <vector>

#include "driver/config.h"
#include "ipmi/ipmi_exec.h"
#include "ipmi/kcs_transport.h"
#include "ipmi/lan_transport.h"
#include "output/output.h"
#include "support/capture.h"
#include "support/fake_env.h"
#include "support/scripted_bmc.h"
#include "update/firmware_update.h"

namespace ipmi_testing {

using testing_support::BmcAnswer;
using testing_support::BmcRequest;

// " 0x%02X" (upper) or " 0x%02x" (lower) of one byte.
inline std::string Hex(bool upper, unsigned value) {
  char buf[16];
  if (upper) {
    snprintf(buf, sizeof(buf), " 0x%02X", value);
  } else {
    snprintf(buf, sizeof(buf), " 0x%02x", value);
  }
  return buf;
}

// The request trace of one attempt.
inline std::string RequestTrace(uint8_t slave, uint8_t netFnLun, uint8_t cmd,
                                const std::vector<uint8_t>& data) {
  char buf[128];
  snprintf(buf, sizeof(buf),
           "   slave addr = 0x%02X  netfcn+lun = 0x%02X  command = 0x%02X\n",
           slave, netFnLun, cmd);
  std::string text = std::string("   Request Info:\n") + buf +
                     "   request data length = " +
                     std::to_string(data.size()) + ", data =";
  for (uint8_t b : data) text += Hex(true, b);
  return text + "\n";
}

// The trace of a response that the transport delivered.
inline std::string ResponseTrace(uint8_t cc, const std::vector<uint8_t>& data) {
  char buf[128];
  snprintf(buf, sizeof(buf),
           "   Completion Code = 0x%02x  Response Length = 0x%02x\n", cc,
           static_cast<unsigned>(data.size()));
  std::string text = std::string("   Response Info:\n") + buf +
                     "   Response Data:";
  for (uint8_t b : data) text += Hex(false, b);
  return text + "\n";
}

inline std::string ErrorTrace(int status, uint8_t cc, unsigned length) {
  char buf[128];
  snprintf(buf, sizeof(buf),
           "   Cmd Status = 0x%02x  IPMI Completion Code = 0x%02x  Response "
           "Len = 0x%02x\n",
           status, cc, length);
  return std::string("   Response Error\n") + buf;
}

// Title, request and response of one successful exchange with the BMC.
inline std::string Exchange(const std::string& title, uint8_t netfn,
                            uint8_t cmd, const std::vector<uint8_t>& request,
                            uint8_t cc, const std::vector<uint8_t>& response) {
  return title + RequestTrace(0x20, static_cast<uint8_t>(netfn << 2), cmd,
                              request) +
         ResponseTrace(cc, response);
}

inline sIPMIReqRespTag NewRecord(uint8_t retries,
                                 const std::vector<uint8_t>& data = {}) {
  sIPMIReqRespTag record;
  memset(&record, 0, sizeof(record));
  record.u8RetryCount = retries;
  record.u16RetryDelay = 1000;
  record.u16ResponseLength = 128;
  for (size_t i = 0; i < data.size(); ++i) record.au8RequestData[i] = data[i];
  record.u16RequestDataLength = static_cast<uint16_t>(data.size());
  return record;
}

inline std::vector<uint8_t> Bytes(const sIPMIReqRespTag& record) {
  return std::vector<uint8_t>(
      record.au8ResponseData,
      record.au8ResponseData + std::min<size_t>(record.u16ResponseLength, 128));
}

// KCS over the in-process scripted BMC, with settings and a log.
class IpmiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cap.OpenLog();
    ASSERT_EQ(0, ConfigConstructor());
    Settings().u8IPMICommandRetry = 2;
    installed_.reset(new testing_support::InstalledBmc(&bmc));
    ASSERT_EQ(0, InitKcsDriver());
    cap.Clear();
  }
  void TearDown() override {
    UinitKcsDriver();
    installed_.reset();
    FwUpdateDestructor();
    ConfigDestructor();
    G_EnableIPMILan = 0;
    G_chBMCAddress = 0;
    G_u8CipherValue = 0xFF;
  }
  sProgramSettingsTag& Settings() { return *G_pConfigHandle->GetSettings(); }
  std::vector<std::string> Requests() const { return bmc.RequestLines(); }
  std::string Log() { return cap.Log(); }

  // Switches to the LAN transport, served by the same scripted BMC.
  void UseLan() {
    UinitKcsDriver();
    FwUpdateConstructor();
    G_pFirmwareUpdate->SetHostIP("10.0.0.5");
    G_pFirmwareUpdate->SetUserName("admin");
    G_pFirmwareUpdate->SetPassWord("secret");
    G_pFirmwareUpdate->SetLanIF("lanplus");
    G_EnableIPMILan = 1;
    bmc.ServeIpmitool(&env);
  }

  testing_support::FakeEnv env;
  testing_support::CapturedOutput cap;
  testing_support::ScriptedBmc bmc;

 private:
  std::unique_ptr<testing_support::InstalledBmc> installed_;
};

}  // namespace ipmi_testing

#endif  // VRX_TESTS_IPMI_IPMI_FIXTURE_H_

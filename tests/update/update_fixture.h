// Shared set-up of the update procedure suites: the scripted OS on the
// virtual clock, captured output with a log, the settings, the update and
// write-firmware objects, and the scripted BMC behind the KCS transport.
#ifndef VRX_TESTS_UPDATE_UPDATE_FIXTURE_H_
#define VRX_TESTS_UPDATE_UPDATE_FIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/fake_env.h"
#include "support/scripted_bmc.h"
#include "types.h"

namespace update_testing {

using testing_support::BmcAnswer;
using testing_support::BmcRequest;

// What ClearOneLine prints.
extern const std::string kClearLine;
// One spinner step as BeautifyDelayPrintout prints it for count and text.
std::string Spin(int count, const std::string& text);
// ctime() text of the fake clock at t.
std::string At(time_t t);
// Count copies of one line.
std::vector<std::string> Times(int count, const std::string& line);
std::vector<std::string> Join(std::initializer_list<std::vector<std::string>> parts);
// True when every piece occurs in text, in this order, without overlap.
::testing::AssertionResult InOrder(const std::string& text,
                                   const std::vector<std::string>& pieces);

// The trace of one IPMI exchange in the log (a request answered with a
// completion code and data).
std::string Trace(const std::string& title, uint8_t netfn, uint8_t cmd,
                  const std::vector<uint8_t>& request, uint8_t cc,
                  const std::vector<uint8_t>& response);

class UpdateTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  sProgramSettingsTag& Settings();
  std::vector<std::string> Requests() const { return bmc.RequestLines(); }
  std::string Out() { return cap.Out(); }
  std::string Err() { return cap.Err(); }
  std::string Log() { return cap.Log(); }
  // Seconds of the virtual clock since the test began.
  long Clock() const { return static_cast<long>(env.now - start); }

  testing_support::FakeEnv env;
  testing_support::CapturedOutput cap;
  testing_support::ScriptedBmc bmc;
  time_t start = 0;

 private:
  std::unique_ptr<testing_support::InstalledBmc> installed_;
};

}  // namespace update_testing

#endif  // VRX_TESTS_UPDATE_UPDATE_FIXTURE_H_

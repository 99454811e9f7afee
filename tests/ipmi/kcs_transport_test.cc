// The KCS transport over injected library entry points: what reaches the
// library, lengths it reports, a channel that never opened, the name
// tables and the "intf.ini" reader.
#include "ipmi/kcs_transport.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>

#include "ipmi_fixture.h"

namespace ipmi_testing {
namespace {

// A library double that records its arguments and answers as told.
struct Library {
  uint32_t open_handle = 0x1234;
  int status = 0;
  uint8_t cc = 0x00;
  unsigned short reported_length = 0;
  uint8_t fill = 0xA5;
  int requests = 0, ipmb_requests = 0, opens = 0, closes = 0;
  uint32_t handle = 0;
  uint8_t slave = 0, netfn_lun = 0, command = 0, request_length = 0;
  unsigned short capacity = 0;
  std::vector<uint8_t> request;
};
Library* g_lib = nullptr;

uint32_t TestOpen() {
  ++g_lib->opens;
  return g_lib->open_handle;
}

int Answer(unsigned char* requestData, unsigned char requestLength,
           unsigned char* cc, unsigned char* response,
           unsigned short* length) {
  g_lib->request.assign(requestData, requestData + requestLength);
  g_lib->request_length = requestLength;
  g_lib->capacity = *length;
  if (g_lib->status != 0) return g_lib->status;
  *cc = g_lib->cc;
  // A well-behaved library never writes beyond the capacity it was given,
  // whatever count it then reports.
  memset(response, g_lib->fill, *length);
  *length = g_lib->reported_length;
  return 0;
}

int TestRequest(uint32_t handle, unsigned char netFnLun, unsigned char command,
                unsigned char* requestData, unsigned char requestLength,
                unsigned char* cc, unsigned char* response,
                unsigned short* length) {
  ++g_lib->requests;
  g_lib->handle = handle;
  g_lib->netfn_lun = netFnLun;
  g_lib->command = command;
  return Answer(requestData, requestLength, cc, response, length);
}

int TestIPMBRequest(uint32_t handle, unsigned char slave,
                    unsigned char netFnLun, unsigned char command,
                    unsigned char* requestData, unsigned char requestLength,
                    unsigned char* cc, unsigned char* response,
                    unsigned short* length) {
  ++g_lib->ipmb_requests;
  g_lib->handle = handle;
  g_lib->slave = slave;
  g_lib->netfn_lun = netFnLun;
  g_lib->command = command;
  return Answer(requestData, requestLength, cc, response, length);
}

void TestClose(uint32_t handle) {
  ++g_lib->closes;
  g_lib->handle = handle;
}

class KcsTransportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lib = &lib;
    RawEntryPoints entries = {TestOpen, TestRequest, TestIPMBRequest,
                              TestClose};
    TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(&entries);
  }
  void TearDown() override {
    TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(nullptr);
    g_lib = nullptr;
  }
  Library lib;
};

TEST_F(KcsTransportTest, InitOpensAndDestructorCloses) {
  {
    TalkBMCviaKCS_OSA talk;
    EXPECT_FALSE(talk.IsKCSChannel_OK());
    EXPECT_EQ(1, talk.Init());
    EXPECT_TRUE(talk.IsKCSChannel_OK());
    EXPECT_EQ(1, lib.opens);
    EXPECT_EQ(0, lib.closes);
  }
  EXPECT_EQ(1, lib.closes);
  EXPECT_EQ(0x1234u, lib.handle);
}

TEST_F(KcsTransportTest, RawOpenZeroFailsAndRequestsNeverReachTheLibrary) {
  lib.open_handle = 0;
  TalkBMCviaKCS_OSA talk;
  EXPECT_EQ(0, talk.Init());
  EXPECT_FALSE(talk.IsKCSChannel_OK());
  unsigned char response[128];
  unsigned short length = 128;
  EXPECT_EQ(1, talk.requestBMC(0x06, 0x01, 0, nullptr, 0, response, &length));
  EXPECT_EQ(0xFF, talk.CompletionCode());
  EXPECT_EQ(1, talk.requestIPMB(0x2C, 0x06, 0x01, 0, nullptr, 0, response,
                                &length));
  EXPECT_EQ(0xFF, talk.CompletionCode());
  EXPECT_EQ(0, lib.requests + lib.ipmb_requests);
  EXPECT_EQ(128, length);
}

TEST_F(KcsTransportTest, RequestBMCPassesTheLibraryItsBytes) {
  TalkBMCviaKCS_OSA talk;
  ASSERT_EQ(1, talk.Init());
  unsigned char request[3] = {0x11, 0x22, 0x33};
  unsigned char response[128];
  unsigned short length = 0x0180;  // only the low byte is the capacity
  lib.cc = 0xC9;
  lib.reported_length = 5;
  EXPECT_EQ(0, talk.requestBMC(0x08, 0x13, 0x01, request, 3, response, &length));
  EXPECT_EQ(1, lib.requests);
  EXPECT_EQ(0x1234u, lib.handle);
  EXPECT_EQ((0x08 << 2) | 0x01, lib.netfn_lun);
  EXPECT_EQ(0x13, lib.command);
  EXPECT_EQ((std::vector<uint8_t>{0x11, 0x22, 0x33}), lib.request);
  EXPECT_EQ(0x80, lib.capacity);
  EXPECT_EQ(5, length);
  EXPECT_EQ(0xC9, talk.CompletionCode());
}

TEST_F(KcsTransportTest, FailedRequestLeavesTheLengthAndReturnsTheStatus) {
  TalkBMCviaKCS_OSA talk;
  ASSERT_EQ(1, talk.Init());
  unsigned char response[128];
  unsigned short length = 128;
  lib.status = 4;
  EXPECT_EQ(4, talk.requestBMC(0x06, 0x01, 0, nullptr, 0, response, &length));
  EXPECT_EQ(128, length);
  EXPECT_EQ(0xFF, talk.CompletionCode());
}

TEST_F(KcsTransportTest, IPMBRequestCarriesTheSlaveAddress) {
  TalkBMCviaKCS_OSA talk;
  ASSERT_EQ(1, talk.Init());
  unsigned char request[1] = {0x09};
  unsigned char response[128];
  unsigned short length = 128;
  lib.reported_length = 2;
  EXPECT_EQ(0, talk.requestIPMB(0x2C, 0x06, 0x01, 0x00, request, 1, response,
                                &length));
  EXPECT_EQ(1, lib.ipmb_requests);
  EXPECT_EQ(0x2C, lib.slave);
  EXPECT_EQ(0x18, lib.netfn_lun);
  EXPECT_EQ(2, length);
}

TEST_F(KcsTransportTest, LengthBeyondTheCapacityIsCutToIt) {
  TalkBMCviaKCS_OSA talk;
  ASSERT_EQ(1, talk.Init());
  unsigned char response[128];
  for (unsigned short reported : {129, 200, 255, 256, 300, 65535}) {
    unsigned short length = 128;
    lib.reported_length = reported;
    EXPECT_EQ(0, talk.requestBMC(0x06, 0x01, 0, nullptr, 0, response, &length));
    EXPECT_EQ(128, length) << reported;
    length = 128;
    EXPECT_EQ(0, talk.requestIPMB(0x2C, 0x06, 0x01, 0, nullptr, 0, response,
                                  &length));
    EXPECT_EQ(128, length) << reported;
  }
}

// Through the whole request layer: a library claiming more than 128 bytes
// yields a record of 128 bytes, and the trace shows no more than that.
TEST_F(KcsTransportTest, OversizedLengthNeverReadsPastTheRecord) {
  testing_support::CapturedOutput cap;
  cap.OpenLog();
  ASSERT_EQ(0, InitKcsDriver());
  lib.reported_length = 600;
  lib.fill = 0x3C;
  sIPMIReqRespTag record = NewRecord(0);
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x18, 0x01, &record));
  EXPECT_EQ(128, record.u16ResponseLength);
  std::string expected =
      "   Response Info:\n"
      "   Completion Code = 0x00  Response Length = 0x80\n"
      "   Response Data:";
  for (int i = 0; i < 128; ++i) expected += " 0x3c";
  expected += "\n";
  EXPECT_NE(std::string::npos, cap.Log().find(expected));
  UinitKcsDriver();
}

TEST_F(KcsTransportTest, CapacityAboveTheRecordIsNotPassedOn) {
  ASSERT_EQ(0, InitKcsDriver());
  sIPMIReqRespTag record = NewRecord(0);
  record.u16ResponseLength = 500;
  lib.reported_length = 1;
  testing_support::CapturedOutput cap;
  EXPECT_EQ(0, ExecuteCommand(0x20, 0x18, 0x01, &record));
  EXPECT_EQ(128, lib.capacity);
  UinitKcsDriver();
}

TEST_F(KcsTransportTest, MissingEntryPointFailsInit) {
  RawEntryPoints entries = {TestOpen, TestRequest, nullptr, TestClose};
  TalkBMCviaKCS_OSA::SetRawEntryPointsForTesting(&entries);
  TalkBMCviaKCS_OSA talk;
  EXPECT_EQ(0, talk.Init());
  EXPECT_EQ(0, lib.opens);
  EXPECT_EQ(12, [] {
    int rc = InitKcsDriver();
    UinitKcsDriver();
    return rc;
  }());
}

TEST(KcsErrorMessage, Table) {
  EXPECT_STREQ("KCS was failed!!", TalkBMCviaKCS_OSA::ErrorMessage(1));
  EXPECT_STREQ("Error occured at sending request to KCS driver!!",
               TalkBMCviaKCS_OSA::ErrorMessage(2));
  EXPECT_STREQ("Error occured at receiving response from KCS driver!!",
               TalkBMCviaKCS_OSA::ErrorMessage(3));
  EXPECT_STREQ("BMC didn't accept the data you sent!!",
               TalkBMCviaKCS_OSA::ErrorMessage(4));
  EXPECT_EQ(nullptr, TalkBMCviaKCS_OSA::ErrorMessage(0));
  EXPECT_EQ(nullptr, TalkBMCviaKCS_OSA::ErrorMessage(5));
  EXPECT_EQ(nullptr, TalkBMCviaKCS_OSA::ErrorMessage(-1));
}

TEST(KcsNames, Tables) {
  EXPECT_STREQ("NULL", SysIntfStr[0]);
  EXPECT_STREQ("KCS", SysIntfStr[1]);
  EXPECT_STREQ("SMIC", SysIntfStr[2]);
  EXPECT_STREQ("BT", SysIntfStr[3]);
  EXPECT_STREQ("ByteBoundary", RegSpaceStr[0]);
  EXPECT_STREQ("ThirtyTwoBitBoundary", RegSpaceStr[1]);
  EXPECT_STREQ("SixteenBitBoundary", RegSpaceStr[2]);
  EXPECT_STREQ("Reserved", RegSpaceStr[3]);
}

TEST(KcsNames, ConvertIntfType) {
  EXPECT_EQ(-1, ConvertIntfType(nullptr));
  EXPECT_EQ(1, ConvertIntfType("KCS"));
  EXPECT_EQ(1, ConvertIntfType("kcs"));
  EXPECT_EQ(2, ConvertIntfType("SmIc"));
  EXPECT_EQ(3, ConvertIntfType("bt"));
  EXPECT_EQ(-1, ConvertIntfType("NULL"));
  EXPECT_EQ(-1, ConvertIntfType(""));
  EXPECT_EQ(-1, ConvertIntfType("KCS2"));
}

TEST(KcsNames, ConvertRegSpace) {
  EXPECT_EQ(-1, ConvertRegSpace(nullptr));
  EXPECT_EQ(0, ConvertRegSpace("ByteBoundary"));
  EXPECT_EQ(0, ConvertRegSpace("byteboundary"));
  EXPECT_EQ(1, ConvertRegSpace("ThirtyTwoBitBoundary"));
  EXPECT_EQ(2, ConvertRegSpace("SIXTEENBITBOUNDARY"));
  EXPECT_EQ(3, ConvertRegSpace("reserved"));
  EXPECT_EQ(-1, ConvertRegSpace("Byte"));
  EXPECT_EQ(-1, ConvertRegSpace(""));
}

class IntfIniTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/vrxintfXXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    dir_ = dir;
    path_ = dir_ + "/intf.ini";
  }
  void TearDown() override {
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }
  void Write(const std::string& text) {
    std::ofstream(path_, std::ios::trunc) << text;
  }
  int Read() { return talk.GetConfig(path_.c_str(), &intf, &port, &spacing, &fourth); }

  std::string dir_, path_;
  TalkBMCviaKCS_OSA talk;
  SystemInterface intf = BT;
  unsigned short port = 0x1111;
  RegisterSpacing spacing = Reserved;
  long fourth = 7;
};

TEST_F(IntfIniTest, ValidFile) {
  Write("KCS\nCA2\nByteBoundary\n");
  EXPECT_EQ(0, Read());
  EXPECT_EQ(KCS, intf);
  EXPECT_EQ(0xCA2, port);
  EXPECT_EQ(ByteBoundary, spacing);
  EXPECT_EQ(0x3000, fourth);
}

TEST_F(IntfIniTest, FourthLineIsHex) {
  Write("SMIC\r\n0x62\r\nSixteenBitBoundary\r\n1F00\r\n");
  EXPECT_EQ(0, Read());
  EXPECT_EQ(SMIC, intf);
  EXPECT_EQ(0x62, port);
  EXPECT_EQ(SixteenBitBoundary, spacing);
  EXPECT_EQ(0x1F00, fourth);
}

TEST_F(IntfIniTest, MissingFile) {
  EXPECT_EQ(1, Read());
  EXPECT_EQ(BT, intf);
  EXPECT_EQ(7, fourth);
}

TEST_F(IntfIniTest, UnderscoreEndsTheInterfaceName) {
  Write("kcs_extra\nCA2\nByteBoundary\n");
  EXPECT_EQ(0, Read());
  EXPECT_EQ(KCS, intf);
}

TEST_F(IntfIniTest, BlankEndsTheInterfaceName) {
  Write("BT with comment\nE4\nreserved_x\n");
  EXPECT_EQ(0, Read());
  EXPECT_EQ(BT, intf);
  EXPECT_EQ(Reserved, spacing);
}

TEST_F(IntfIniTest, PortZeroAndFFFFAreRejected) {
  for (const char* portText : {"0", "FFFF", "0000", "10000", "xyz", ""}) {
    Write(std::string("KCS\n") + portText + "\nByteBoundary\n");
    port = 0x1111;
    EXPECT_EQ(1, Read()) << portText;
    EXPECT_EQ(0x1111, port) << portText;
  }
}

TEST_F(IntfIniTest, PortLimitsAccepted) {
  Write("KCS\n1\nByteBoundary\n");
  EXPECT_EQ(0, Read());
  EXPECT_EQ(1, port);
  Write("KCS\nFFFE\nByteBoundary\n");
  EXPECT_EQ(0, Read());
  EXPECT_EQ(0xFFFE, port);
}

TEST_F(IntfIniTest, BadInterfaceOrSpacing) {
  Write("NULL\nCA2\nByteBoundary\n");
  EXPECT_EQ(1, Read());
  Write("\nCA2\nByteBoundary\n");
  EXPECT_EQ(1, Read());
  Write("KCS\nCA2\nWordBoundary\n");
  EXPECT_EQ(1, Read());
  EXPECT_EQ(0xCA2, port);  // earlier lines were taken
  EXPECT_EQ(Reserved, spacing);
}

TEST_F(IntfIniTest, MissingLinesLeaveOutputsUnchanged) {
  Write("KCS\n");
  EXPECT_EQ(0, Read());
  EXPECT_EQ(KCS, intf);
  EXPECT_EQ(0x1111, port);
  EXPECT_EQ(Reserved, spacing);
  EXPECT_EQ(0x3000, fourth);
  Write("");
  intf = SMIC;
  EXPECT_EQ(0, Read());
  EXPECT_EQ(SMIC, intf);
}

TEST_F(IntfIniTest, LinesAreReadIn64ByteBuffers) {
  // The rest of an overlong first line is read as the second line.
  Write("KCS" + std::string(70, ' ') + "\nCA2\nByteBoundary\n");
  EXPECT_EQ(1, Read());
  EXPECT_EQ(KCS, intf);
}

TEST_F(IntfIniTest, DefaultNameIsReadFromTheCurrentDirectory) {
  Write("BT\nE4\nThirtyTwoBitBoundary\n");
  char cwd[4096];
  ASSERT_NE(nullptr, getcwd(cwd, sizeof(cwd)));
  ASSERT_EQ(0, chdir(dir_.c_str()));
  int rc = talk.GetConfig(&intf, &port, &spacing, &fourth);
  ASSERT_EQ(0, chdir(cwd));
  EXPECT_EQ(0, rc);
  EXPECT_EQ(BT, intf);
  EXPECT_EQ(0xE4, port);
  EXPECT_EQ(ThirtyTwoBitBoundary, spacing);
}

}  // namespace
}  // namespace ipmi_testing

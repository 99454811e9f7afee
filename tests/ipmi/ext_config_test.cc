// The extended configuration commands, their per-item wrappers, the URI in
// chunks and the FRU product name.
#include <gtest/gtest.h>

#include "ipmi/commands.h"
#include "ipmi/request_trace.h"
#include "ipmi_fixture.h"

namespace ipmi_testing {
namespace {

using ExtConfigTest = IpmiTest;

sGetExtConfigCmdReqTag GetReq(uint8_t res, uint8_t cid, uint8_t aid,
                              uint8_t index, uint16_t offset, uint8_t length) {
  sGetExtConfigCmdReqTag req;
  req.u8ReservationID = res;
  req.u8CID = cid;
  req.u8AID = aid;
  req.u8Index = index;
  req.u16Offset = offset;
  req.u8Length = length;
  return req;
}

sSetExtConfigCmdReqTag SetReq(uint8_t res, uint8_t aid, uint16_t offset,
                              uint8_t last, const std::vector<uint8_t>& data) {
  sSetExtConfigCmdReqTag req;
  memset(&req, 0, sizeof(req));
  req.u8ReservationID = res;
  req.u8CID = 0x10;
  req.u8AID = aid;
  req.u8Index = 0;
  req.u16Offset = offset;
  req.u8LastChunk = last;
  req.u8DataLength = static_cast<uint8_t>(data.size());
  for (size_t i = 0; i < data.size(); ++i) req.au8Data[i] = data[i];
  return req;
}

// A counted URI buffer: [0] = length, then the characters.
std::vector<char> Counted(const std::string& uri, uint8_t lengthByte) {
  std::vector<char> buffer(256, 0);
  buffer[0] = static_cast<char>(lengthByte);
  for (size_t i = 0; i < uri.size() && i < 255; ++i) buffer[1 + i] = uri[i];
  return buffer;
}
std::vector<char> Counted(const std::string& uri) {
  return Counted(uri, static_cast<uint8_t>(uri.size()));
}

std::string Uri(size_t length) {
  std::string uri = "http://10.1.2.3/";
  while (uri.size() < length) uri += static_cast<char>('a' + uri.size() % 26);
  return uri.substr(0, length);
}

TEST_F(ExtConfigTest, ReserveGivesTheId) {
  bmc.On(0x30, 0x01, {BmcAnswer::Reply({0x2A})});
  unsigned char id = 0;
  EXPECT_EQ(0, ReserveExtendedConfiguration(&id));
  EXPECT_EQ(0x2A, id);
  EXPECT_EQ(Exchange("\nReserve Extended Configuration Command\n", 0x30, 0x01,
                     {}, 0x00, {0x2A}),
            Log());
}

TEST_F(ExtConfigTest, ReserveFailurePassesTheResult) {
  bmc.On(0x30, 0x01, {BmcAnswer::Code(0x01)});  // 0x01 is not accepted here
  unsigned char id = 0x55;
  EXPECT_EQ(RC_RETRY_LIMIT, ReserveExtendedConfiguration(&id));
  EXPECT_EQ(0x55, id);
}

TEST_F(ExtConfigTest, GetSendsSevenBytesAndParses) {
  bmc.On(0x30, 0x02, {BmcAnswer::Reply({0x10, 0x03, 0x00, 0x03, 'a', 'b', 'c'})});
  sGetExtConfigCmdReqTag req = GetReq(0x07, 0x10, 0x03, 0x00, 0x1234, 0x03);
  sGetExtConfigCmdRespTag resp;
  memset(&resp, 0, sizeof(resp));
  EXPECT_EQ(0, GetExtendedConfiguration(&req, &resp));
  EXPECT_EQ(std::vector<std::string>{"30 02 07 10 03 00 34 12 03"}, Requests());
  EXPECT_EQ(0x00, resp.u8CompletionCode);
  EXPECT_EQ(0x10, resp.u8CID);
  EXPECT_EQ(0x03, resp.u8AID);
  EXPECT_EQ(0x00, resp.u8Index);
  EXPECT_EQ(3, resp.u8Length);
  EXPECT_EQ("abc", std::string(reinterpret_cast<char*>(resp.au8Data), 3));
  EXPECT_EQ(0u, Log().find("\nGet Extended Configuration Command\n"));
}

TEST_F(ExtConfigTest, GetAcceptsCompletionCodeOne) {
  bmc.On(0x30, 0x02, {BmcAnswer::Reply({0x10, 0x01, 0x00, 0x01, 0x09}, 0x01)});
  sGetExtConfigCmdReqTag req = GetReq(1, 0x10, 0x01, 0, 0, 1);
  sGetExtConfigCmdRespTag resp;
  EXPECT_EQ(0, GetExtendedConfiguration(&req, &resp));
  EXPECT_EQ(0x01, resp.u8CompletionCode);
  EXPECT_EQ(0x09, resp.au8Data[0]);
  EXPECT_EQ(1u, Requests().size());
}

TEST_F(ExtConfigTest, GetEchoChecksInOrder) {
  struct {
    std::vector<uint8_t> answer;
    const char* message;
  } cases[] = {
      {{0x11, 0x09, 0x05, 0}, "   Response CID does not equal to Request CID\n"},
      {{0x10, 0x09, 0x05, 0}, "   Response AID does not equal to Request AID\n"},
      {{0x10, 0x01, 0x05, 0},
       "   Response Index field does not equal to Request Index field \n"},
  };
  for (auto& c : cases) bmc.On(0x30, 0x02, {BmcAnswer::Reply(c.answer)});
  for (auto& c : cases) {
    cap.Clear();
    sGetExtConfigCmdReqTag req = GetReq(1, 0x10, 0x01, 0x00, 0, 1);
    sGetExtConfigCmdRespTag resp;
    EXPECT_EQ(1, GetExtendedConfiguration(&req, &resp));
    std::string log = Log();
    EXPECT_EQ(log.size() - strlen(c.message), log.find(c.message)) << c.message;
    EXPECT_EQ(std::string::npos, log.find("does not", log.find("does not") + 1));
  }
  EXPECT_EQ(3u, Requests().size());  // a mismatch is not retried
}

TEST_F(ExtConfigTest, GetLengthIsBelievedOnlyAsFarAsDataArrived) {
  bmc.On(0x30, 0x02, {BmcAnswer::Reply({0x10, 0x03, 0x00, 0x0A, 'x', 'y'})});
  sGetExtConfigCmdReqTag req = GetReq(1, 0x10, 0x03, 0, 0, 10);
  sGetExtConfigCmdRespTag resp;
  EXPECT_EQ(0, GetExtendedConfiguration(&req, &resp));
  EXPECT_EQ(2, resp.u8Length);
}

TEST_F(ExtConfigTest, GetWithAFullRecordStaysInside) {
  std::vector<uint8_t> answer(128, 'z');
  answer[0] = 0x10;
  answer[1] = 0x03;
  answer[2] = 0x00;
  answer[3] = 0xFF;
  bmc.On(0x30, 0x02, {BmcAnswer::Reply(answer)});
  sGetExtConfigCmdReqTag req = GetReq(1, 0x10, 0x03, 0, 0, 0xFF);
  sGetExtConfigCmdRespTag resp;
  EXPECT_EQ(0, GetExtendedConfiguration(&req, &resp));
  EXPECT_EQ(124, resp.u8Length);
}

TEST_F(ExtConfigTest, SetSendsHeaderFlagAndData) {
  bmc.On(0x30, 0x03, {BmcAnswer::Reply({0x03})});
  sSetExtConfigCmdReqTag req = SetReq(0x05, 0x03, 0x0102, 1, {'a', 'b', 'c'});
  sSetExtConfigCmdRespTag resp;
  memset(&resp, 0, sizeof(resp));
  EXPECT_EQ(0, SetExtendedConfiguration(&req, &resp));
  EXPECT_EQ(std::vector<std::string>{"30 03 05 10 03 00 02 01 01 61 62 63"},
            Requests());
  EXPECT_EQ(0, resp.u8CompletionCode);
  EXPECT_EQ(0x03, resp.au8Data[0]);
  EXPECT_NE(std::string::npos,
            Log().find("   request data length = 10, data ="));
}

TEST_F(ExtConfigTest, SetWrittenLengthMismatch) {
  bmc.On(0x30, 0x03, {BmcAnswer::Reply({0x00})});
  sSetExtConfigCmdReqTag req = SetReq(1, 0x01, 0, 1, {0x01});
  sSetExtConfigCmdRespTag resp;
  EXPECT_EQ(1, SetExtendedConfiguration(&req, &resp));
  std::string log = Log();
  const char kMessage[] = "   Response data length does not equal to 0x01\n";
  EXPECT_EQ(log.size() - strlen(kMessage), log.find(kMessage));
}

TEST_F(ExtConfigTest, SetAcceptsCompletionCodeOne) {
  bmc.On(0x30, 0x03, {BmcAnswer::Reply({0x01}, 0x01)});
  sSetExtConfigCmdReqTag req = SetReq(1, 0x01, 0, 1, {0x01});
  sSetExtConfigCmdRespTag resp;
  EXPECT_EQ(0, SetExtendedConfiguration(&req, &resp));
  EXPECT_EQ(0x01, resp.u8CompletionCode);
}

TEST_F(ExtConfigTest, SetRefusesDataThatCannotFitOneRequest) {
  sSetExtConfigCmdReqTag req = SetReq(1, 0x03, 0, 1, {});
  req.u8DataLength = 122;
  sSetExtConfigCmdRespTag resp;
  EXPECT_EQ(1, SetExtendedConfiguration(&req, &resp));
  EXPECT_TRUE(Requests().empty());
}

TEST_F(ExtConfigTest, OneByteWrappersUseTheirItems) {
  struct {
    int (*set)(unsigned char);
    int (*get)(unsigned char*);
    uint8_t aid;
  } items[] = {
      {SetRemoteUpdateEnableConfig, GetRemoteUpdateEnableConfig, 0x01},
      {SetProtocolConfig, GetProtocolConfig, 0x02},
      {SetConnectionRetryConfig, GetConnectionRetryConfig, 0x04},
      {SetRetryIntervalConfig, GetRetryIntervalConfig, 0x05},
      {SetDelayTimeConfig, GetDelayTimeConfig, 0x06},
  };
  uint8_t reservation = 0;
  for (auto& item : items) {
    bmc.ClearRequests();
    uint8_t value = static_cast<uint8_t>(0x40 + item.aid);
    EXPECT_EQ(0, item.set(value));
    unsigned char read = 0;
    EXPECT_EQ(0, item.get(&read));
    EXPECT_EQ(value, read);
    BmcRequest set, get;
    set.netfn = get.netfn = 0x30;
    set.cmd = 0x03;
    set.data = {++reservation, 0x10, item.aid, 0, 0, 0, 1, value};
    get.cmd = 0x02;
    get.data = {++reservation, 0x10, item.aid, 0, 0, 0, 1};
    EXPECT_EQ((std::vector<std::string>{"30 01", set.ToString(), "30 01",
                                        get.ToString()}),
              Requests());
    EXPECT_EQ(std::vector<uint8_t>{value}, bmc.ConfigItem(0x10, item.aid, 0));
  }
}

TEST_F(ExtConfigTest, GetWrapperWithEmptyAnswer) {
  bmc.On(0x30, 0x02, {BmcAnswer::Reply({0x10, 0x06, 0x00, 0x00})});
  unsigned char value = 0x77;
  EXPECT_EQ(1, GetDelayTimeConfig(&value));
  EXPECT_EQ(0x77, value);
  std::string log = Log();
  const char kMessage[] = "   Response data length is less than 1\n";
  EXPECT_EQ(log.size() - strlen(kMessage), log.find(kMessage));
}

TEST_F(ExtConfigTest, GetWrapperPassesEarlierFailures) {
  bmc.On(0x30, 0x01, {BmcAnswer::Code(0xC0)});
  unsigned char value = 0;
  EXPECT_EQ(RC_RETRY_LIMIT, GetProtocolConfig(&value));
  EXPECT_EQ(3u, Requests().size());  // the Get was never sent
}

TEST_F(ExtConfigTest, GetWrapperEchoMismatchIsOne) {
  bmc.On(0x30, 0x02, {BmcAnswer::Reply({0x10, 0x02, 0x00, 0x01, 0x05})});
  unsigned char value = 0;
  EXPECT_EQ(1, GetRetryIntervalConfig(&value));
}

TEST_F(ExtConfigTest, SetWrapperTurnsEveryFailureIntoOne) {
  bmc.On(0x30, 0x01, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(1, SetProtocolConfig(2));
  bmc.On(0x30, 0x01, {BmcAnswer::Model()});
  bmc.On(0x30, 0x03, {BmcAnswer::Code(0xCC)});
  EXPECT_EQ(1, SetProtocolConfig(2));
  bmc.On(0x30, 0x03, {BmcAnswer::Reply({0x02})});
  EXPECT_EQ(1, SetProtocolConfig(2));  // written-length mismatch
}

// The URI writes, as "offset flag length" each.
std::vector<std::string> UriWrites(const testing_support::ScriptedBmc& bmc) {
  std::vector<std::string> writes;
  for (const BmcRequest& r : bmc.RequestsFor(0x30, 0x03)) {
    if (r.data.size() < 7 || r.data[2] != 0x03) continue;
    writes.push_back(std::to_string(r.data[4] | (r.data[5] << 8)) + " " +
                     std::to_string(r.data[6]) + " " +
                     std::to_string(r.data.size() - 7));
  }
  return writes;
}

// The URI reads, as "offset length" each.
std::vector<std::string> UriReads(const testing_support::ScriptedBmc& bmc) {
  std::vector<std::string> reads;
  for (const BmcRequest& r : bmc.RequestsFor(0x30, 0x02)) {
    if (r.data.size() < 7 || r.data[2] != 0x03) continue;
    reads.push_back(std::to_string(r.data[4] | (r.data[5] << 8)) + " " +
                    std::to_string(r.data[6]));
  }
  return reads;
}

std::vector<uint8_t> StoredBytes(const std::vector<char>& buffer, size_t n) {
  return std::vector<uint8_t>(buffer.begin(), buffer.begin() + n);
}

TEST_F(ExtConfigTest, UriOf25CharactersIsWrittenInThreeChunks) {
  std::vector<char> buffer = Counted(Uri(25));
  EXPECT_EQ(0, SetURIConfig(buffer.data()));
  EXPECT_EQ((std::vector<std::string>{"0 0 10", "10 0 10", "20 1 6"}),
            UriWrites(bmc));
  EXPECT_EQ(1u, bmc.RequestsFor(0x30, 0x01).size());  // one reservation
  std::vector<BmcRequest> sets = bmc.RequestsFor(0x30, 0x03);
  ASSERT_EQ(3u, sets.size());
  EXPECT_EQ(std::vector<uint8_t>(buffer.begin(), buffer.begin() + 10),
            std::vector<uint8_t>(sets[0].data.begin() + 7, sets[0].data.end()));
  EXPECT_EQ(std::vector<uint8_t>(buffer.begin() + 20, buffer.begin() + 26),
            std::vector<uint8_t>(sets[2].data.begin() + 7, sets[2].data.end()));
  EXPECT_EQ(StoredBytes(buffer, 26), bmc.ConfigItem(0x10, 0x03, 0));
}

TEST_F(ExtConfigTest, APasswordInTheUriNeverReachesTheTrace) {
  // "ftp://bob:s3cret@h/f": the password is at URI 10..15, store 11..16.
  const std::string uri = "ftp://bob:s3cret@h/f";
  SetSecretUriSpan(11, 17);
  std::vector<char> buffer = Counted(uri);
  ASSERT_EQ(0, SetURIConfig(buffer.data()));
  std::vector<char> read(256, 0);
  ASSERT_EQ(0, GetURIConfig(read.data()));
  SetSecretUriSpan(0, 0);
  EXPECT_EQ(buffer, read);  // the BMC got the URI as it is
  const std::string log = Log();
  EXPECT_EQ(std::string::npos, log.find("0x73 0x33 0x63"));  // "s3c", written
  EXPECT_EQ(std::string::npos, log.find("0x73 0x33"));       // nor read back
  EXPECT_EQ(std::string::npos, log.find("0x72 0x65 0x74"));  // "ret"
  EXPECT_NE(std::string::npos, log.find("0x3A 0x** 0x** 0x** 0x** 0x** 0x** 0x40"))
      << log;  // ':' ****** '@' in the request trace
  EXPECT_NE(std::string::npos, log.find(" 0x** 0x** 0x** 0x** 0x** 0x** 0x40"));
}

TEST_F(ExtConfigTest, UriOf25CharactersIsReadBack) {
  std::vector<char> buffer = Counted(Uri(25));
  ASSERT_EQ(0, SetURIConfig(buffer.data()));
  bmc.ClearRequests();
  std::vector<char> read(256, 0);
  EXPECT_EQ(0, GetURIConfig(read.data()));
  EXPECT_EQ((std::vector<std::string>{"0 1", "1 10", "11 10", "21 5"}),
            UriReads(bmc));
  EXPECT_EQ(1u, bmc.RequestsFor(0x30, 0x01).size());
  EXPECT_EQ(buffer, read);
}

TEST_F(ExtConfigTest, EmptyUriWritesOnlyItsLength) {
  std::vector<char> buffer = Counted("");
  EXPECT_EQ(0, SetURIConfig(buffer.data()));
  EXPECT_EQ(std::vector<std::string>{"0 1 1"}, UriWrites(bmc));
  EXPECT_EQ(std::vector<uint8_t>{0}, bmc.ConfigItem(0x10, 0x03, 0));
  bmc.ClearRequests();
  std::vector<char> read(256, 'q');
  EXPECT_EQ(0, GetURIConfig(read.data()));
  EXPECT_EQ(std::vector<std::string>{"0 1"}, UriReads(bmc));
  EXPECT_EQ(0, read[0]);
  EXPECT_EQ('q', read[1]);
}

TEST_F(ExtConfigTest, UriOfTenCharactersEndsWithOneByte) {
  std::vector<char> buffer = Counted(Uri(10));
  EXPECT_EQ(0, SetURIConfig(buffer.data()));
  EXPECT_EQ((std::vector<std::string>{"0 0 10", "10 1 1"}), UriWrites(bmc));
}

TEST_F(ExtConfigTest, UriOf127CharactersRoundTrips) {
  std::vector<char> buffer = Counted(Uri(127));
  EXPECT_EQ(0, SetURIConfig(buffer.data()));
  std::vector<std::string> writes = UriWrites(bmc);
  ASSERT_EQ(13u, writes.size());
  EXPECT_EQ("110 0 10", writes[11]);
  EXPECT_EQ("120 1 8", writes[12]);
  std::vector<char> read(256, 0);
  EXPECT_EQ(0, GetURIConfig(read.data()));
  EXPECT_EQ(buffer, read);
}

TEST_F(ExtConfigTest, UriOf128CharactersStopsAtTheEndOfTheBuffer) {
  // The signed length byte makes the total 65409; the write goes on while
  // its source lies in the 256-byte buffer and then fails.
  std::vector<char> buffer = Counted(Uri(128));
  EXPECT_EQ(1, SetURIConfig(buffer.data()));
  std::vector<std::string> writes = UriWrites(bmc);
  ASSERT_EQ(25u, writes.size());
  EXPECT_EQ("0 0 10", writes[0]);
  EXPECT_EQ("240 0 10", writes[24]);
  std::vector<BmcRequest> sets = bmc.RequestsFor(0x30, 0x03);
  EXPECT_EQ(std::vector<uint8_t>(buffer.begin() + 240, buffer.begin() + 250),
            std::vector<uint8_t>(sets[24].data.begin() + 7, sets[24].data.end()));
}

TEST_F(ExtConfigTest, UriOf254CharactersStopsAtTheEndOfTheBuffer) {
  std::vector<char> buffer = Counted(Uri(254));
  EXPECT_EQ(1, SetURIConfig(buffer.data()));
  EXPECT_EQ(25u, UriWrites(bmc).size());
}

TEST_F(ExtConfigTest, UriOf255CharactersWritesNothing) {
  std::vector<char> buffer = Counted(Uri(255));
  EXPECT_EQ(0, SetURIConfig(buffer.data()));
  EXPECT_TRUE(UriWrites(bmc).empty());
  EXPECT_EQ(1u, bmc.RequestsFor(0x30, 0x01).size());
}

TEST_F(ExtConfigTest, UriOf255CharactersCanBeRead) {
  std::string uri = Uri(255);
  std::vector<uint8_t>& item = bmc.ConfigItem(0x10, 0x03, 0);
  item.assign(1, 255);
  item.insert(item.end(), uri.begin(), uri.end());
  std::vector<char> read(256, 0);
  EXPECT_EQ(0, GetURIConfig(read.data()));
  EXPECT_EQ(Counted(uri), read);
  std::vector<std::string> reads = UriReads(bmc);
  ASSERT_EQ(27u, reads.size());
  EXPECT_EQ("251 5", reads.back());
}

TEST_F(ExtConfigTest, UriSetFailuresEndTheWriteWithOne) {
  bmc.On(0x30, 0x03, {0x01, 0x10, 0x03, 0x00, 0x0A},
         {BmcAnswer::Code(0xC0)});
  std::vector<char> buffer = Counted(Uri(25));
  EXPECT_EQ(1, SetURIConfig(buffer.data()));
  EXPECT_EQ((std::vector<std::string>{"0 0 10", "10 0 10", "10 0 10",
                                      "10 0 10"}),
            UriWrites(bmc));
  bmc.ClearRequests();
  bmc.On(0x30, 0x01, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(RC_RETRY_LIMIT, SetURIConfig(buffer.data()));  // the reservation's code
  EXPECT_TRUE(UriWrites(bmc).empty());
}

TEST_F(ExtConfigTest, UriReadRepeatsAFailedChunk) {
  Settings().u8IPMICommandRetry = 0;
  bmc.ConfigItem(0x10, 0x03, 0) = {0x0C, 'a', 'b', 'c', 'd', 'e', 'f',
                                   'g', 'h', 'i', 'j', 'k', 'l'};
  bmc.On(0x30, 0x02, {0x01, 0x10, 0x03, 0x00, 0x0B},
         {BmcAnswer::Silent(), BmcAnswer::Code(0xC0), BmcAnswer::Model()});
  std::vector<char> read(256, 0);
  EXPECT_EQ(0, GetURIConfig(read.data()));
  EXPECT_EQ((std::vector<std::string>{"0 1", "1 10", "11 2", "11 2", "11 2"}),
            UriReads(bmc));
  EXPECT_EQ("abcdefghijkl", std::string(read.data() + 1));
}

TEST_F(ExtConfigTest, UriReadShortChunk) {
  bmc.ConfigItem(0x10, 0x03, 0) = {0x05, 'a', 'b'};
  std::vector<char> read(256, 0);
  EXPECT_EQ(1, GetURIConfig(read.data()));
  std::string log = Log();
  const char kMessage[] = "   Response data length is less than 5\n";
  EXPECT_EQ(log.size() - strlen(kMessage), log.find(kMessage));
  EXPECT_EQ(5, read[0]);
}

TEST_F(ExtConfigTest, UriReadOfAnEmptyItem) {
  bmc.ConfigItem(0x10, 0x03, 0).clear();
  std::vector<char> read(256, 0);
  EXPECT_EQ(1, GetURIConfig(read.data()));
  EXPECT_NE(std::string::npos,
            Log().find("   Response data length is less than 1\n"));
}

TEST_F(ExtConfigTest, UriReadFirstFailurePasses) {
  bmc.On(0x30, 0x02, {BmcAnswer::Code(0xC0)});
  std::vector<char> read(256, 0);
  EXPECT_EQ(RC_RETRY_LIMIT, GetURIConfig(read.data()));
  bmc.On(0x30, 0x01, {BmcAnswer::Code(0xC0)});
  EXPECT_EQ(RC_RETRY_LIMIT, GetURIConfig(read.data()));
}

TEST_F(ExtConfigTest, UriReadLongerAnswerCopiesOnlyTheChunk) {
  bmc.On(0x30, 0x02, {0x01, 0x10, 0x03, 0x00, 0x01},
         {BmcAnswer::Reply({0x10, 0x03, 0x00, 0x0C, 'a', 'b', 'c', 'd', 'e',
                            'f', 'g', 'h', 'i', 'j', 'k', 'l'})});
  bmc.ConfigItem(0x10, 0x03, 0) = {0x03, 'x', 'y', 'z'};
  std::vector<char> read(256, 0);
  EXPECT_EQ(0, GetURIConfig(read.data()));
  EXPECT_EQ("abc", std::string(read.data() + 1));
}

// --- FRU product name ---

// A FRU image: header pointing at a product area at offset 8 * areaBlock.
std::vector<uint8_t> Fru(const std::vector<uint8_t>& area, uint8_t areaBlock) {
  std::vector<uint8_t> image(areaBlock * 8u, 0);
  image[0] = 0x01;
  image[4] = areaBlock;
  uint8_t sum = 0;
  for (int i = 0; i < 7; ++i) sum = static_cast<uint8_t>(sum + image[i]);
  image[7] = static_cast<uint8_t>(0x100 - sum);
  image.insert(image.end(), area.begin(), area.end());
  return image;
}

// A product area of `blocks` 8-byte blocks with the given fields.
std::vector<uint8_t> Area(uint8_t blocks, const std::string& maker,
                          uint8_t nameTypeLength, const std::string& name) {
  std::vector<uint8_t> area = {0x01, blocks, 0x00};
  area.push_back(static_cast<uint8_t>(0xC0 | maker.size()));
  area.insert(area.end(), maker.begin(), maker.end());
  area.push_back(nameTypeLength);
  area.insert(area.end(), name.begin(), name.end());
  area.resize(blocks * 8u, 0);
  return area;
}

std::vector<std::string> FruReads(const testing_support::ScriptedBmc& bmc) {
  std::vector<std::string> reads;
  for (const BmcRequest& r : bmc.RequestsFor(0x0A, 0x11))
    reads.push_back(r.ToString());
  return reads;
}

TEST_F(ExtConfigTest, ProductNameFromTheDefaultFru) {
  unsigned char name[32];
  memset(name, 0, sizeof(name));
  EXPECT_EQ(0, GetFRUProductName(name));
  EXPECT_STREQ("Stratovex", reinterpret_cast<char*>(name));
  EXPECT_EQ((std::vector<std::string>{"0a 11 00 00 00 08", "0a 11 00 08 00 02",
                                      "0a 11 00 08 00 10", "0a 11 00 18 00 08"}),
            FruReads(bmc));
  EXPECT_EQ(0u, Log().find("\nGet Device ID Command\n"));
  size_t titles = 0;
  for (size_t at = Log().find("\nGet Device ID Command\n");
       at != std::string::npos;
       at = Log().find("\nGet Device ID Command\n", at + 1))
    ++titles;
  EXPECT_EQ(4u, titles);
}

TEST_F(ExtConfigTest, ProductAreaReadInSixteenByteChunks) {
  bmc.SetFru(Fru(Area(5, "Maker", 0xC4, "Name"), 2));
  unsigned char name[32] = {0};
  EXPECT_EQ(0, GetFRUProductName(name));
  EXPECT_STREQ("Name", reinterpret_cast<char*>(name));
  EXPECT_EQ((std::vector<std::string>{"0a 11 00 00 00 08", "0a 11 00 10 00 02",
                                      "0a 11 00 10 00 10", "0a 11 00 20 00 10",
                                      "0a 11 00 30 00 08"}),
            FruReads(bmc));
}

TEST_F(ExtConfigTest, AreaOfExactlySixteenIsOneRead) {
  bmc.SetFru(Fru(Area(2, "M", 0xC3, "abc"), 1));
  unsigned char name[32] = {0};
  EXPECT_EQ(0, GetFRUProductName(name));
  EXPECT_STREQ("abc", reinterpret_cast<char*>(name));
  EXPECT_EQ(3u, FruReads(bmc).size());
}

TEST_F(ExtConfigTest, AreaOffsetAdvancesInEightBits) {
  // An area at 248 running past 255: the next chunk's offset wraps to 8.
  std::vector<uint8_t> image = Fru(Area(3, "M", 0xC2, "xy"), 31);
  bmc.SetFru(image);
  unsigned char name[32] = {0};
  GetFRUProductName(name);
  EXPECT_EQ((std::vector<std::string>{"0a 11 00 00 00 08", "0a 11 00 f8 00 02",
                                      "0a 11 00 f8 00 10", "0a 11 00 08 00 08"}),
            FruReads(bmc));
}

TEST_F(ExtConfigTest, BadHeaderChecksumFails) {
  std::vector<uint8_t> image = Fru(Area(2, "M", 0xC3, "abc"), 1);
  image[7] ^= 0x01;
  bmc.SetFru(image);
  unsigned char name[32];
  memset(name, 'n', sizeof(name));
  EXPECT_EQ(1, GetFRUProductName(name));
  EXPECT_EQ(std::string(32, 'n'), std::string(reinterpret_cast<char*>(name), 32));
  EXPECT_EQ(1u, FruReads(bmc).size());
}

TEST_F(ExtConfigTest, NoProductAreaFails) {
  std::vector<uint8_t> image = {0x01, 0, 0, 0, 0, 0, 0, 0xFF};
  bmc.SetFru(image);
  unsigned char name[32] = {0};
  EXPECT_EQ(1, GetFRUProductName(name));
  EXPECT_EQ(1u, FruReads(bmc).size());
}

TEST_F(ExtConfigTest, AreaBeyondOneByteOffsetFails) {
  std::vector<uint8_t> image = Fru(Area(2, "M", 0xC3, "abc"), 32);
  bmc.SetFru(image);
  unsigned char name[32] = {0};
  EXPECT_EQ(1, GetFRUProductName(name));
  EXPECT_EQ(1u, FruReads(bmc).size());
}

TEST_F(ExtConfigTest, NameLongerThanTheAreaFails) {
  // The name's type/length byte claims 40 bytes in a 16-byte area.
  bmc.SetFru(Fru(Area(2, "M", 0xC0 | 40, "abc"), 1));
  unsigned char name[32];
  memset(name, 'n', sizeof(name));
  EXPECT_EQ(1, GetFRUProductName(name));
  EXPECT_EQ('n', name[0]);
}

TEST_F(ExtConfigTest, MakerFieldLeavingTheAreaFails) {
  std::vector<uint8_t> area = Area(2, "M", 0xC3, "abc");
  area[3] = 0xC0 | 20;
  bmc.SetFru(Fru(area, 1));
  unsigned char name[32] = {0};
  EXPECT_EQ(1, GetFRUProductName(name));
}

TEST_F(ExtConfigTest, EmptyAreaFails) {
  bmc.SetFru(Fru({0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}, 1));
  unsigned char name[32] = {0};
  EXPECT_EQ(1, GetFRUProductName(name));
}

TEST_F(ExtConfigTest, NameIsCutToThirtyOneCharacters) {
  std::string longName(50, 'L');
  bmc.SetFru(Fru(Area(9, "M", 0xC0 | 50, longName), 1));
  unsigned char name[40];
  memset(name, 'n', sizeof(name));
  EXPECT_EQ(0, GetFRUProductName(name));
  EXPECT_EQ(std::string(31, 'L'), std::string(reinterpret_cast<char*>(name)));
  EXPECT_EQ('n', name[32]);
}

TEST_F(ExtConfigTest, ShortFruAnswerFails) {
  // The BMC returns fewer bytes than asked: nothing beyond them is used.
  bmc.On(0x0A, 0x11, {0x00, 0x00, 0x00, 0x08},
         {BmcAnswer::Reply({0x04, 0x01, 0x00, 0x00, 0x00})});
  unsigned char name[32] = {0};
  EXPECT_EQ(1, GetFRUProductName(name));
  bmc.On(0x0A, 0x11, {0x00, 0x00, 0x00, 0x08},
         {BmcAnswer::Reply({0x08, 0x01, 0x00, 0x00})});  // count says 8
  EXPECT_EQ(1, GetFRUProductName(name));
}

TEST_F(ExtConfigTest, ShortAreaAnswerFails) {
  bmc.On(0x0A, 0x11, {0x00, 0x18, 0x00, 0x08}, {BmcAnswer::Reply({0x02, 1, 2})});
  unsigned char name[32];
  memset(name, 'n', sizeof(name));
  EXPECT_EQ(1, GetFRUProductName(name));
  EXPECT_EQ('n', name[0]);
}

TEST_F(ExtConfigTest, FruReadFailureCodes) {
  bmc.On(0x0A, 0x11, {BmcAnswer::Code(0xC0)});
  unsigned char name[32] = {0};
  EXPECT_EQ(287, GetFRUProductName(name));
  // The last read of the area decides the result.
  bmc.On(0x0A, 0x11, {0x00, 0x00}, {BmcAnswer::Model()});
  bmc.On(0x0A, 0x11, {0x00, 0x08}, {BmcAnswer::Model()});
  bmc.On(0x0A, 0x11, {0x00, 0x18}, {BmcAnswer::Silent()});
  bmc.ClearRequests();
  EXPECT_EQ(287, GetFRUProductName(name));
  EXPECT_EQ((std::vector<std::string>{"0a 11 00 00 00 08", "0a 11 00 08 00 02",
                                      "0a 11 00 08 00 10", "0a 11 00 18 00 08",
                                      "0a 11 00 18 00 08", "0a 11 00 18 00 08"}),
            FruReads(bmc));
}

TEST_F(ExtConfigTest, FailedChunkBeforeTheLastDoesNotDecide) {
  // The name lies in the first chunk; the second chunk fails, the last one
  // is answered: the read goes on and succeeds.
  bmc.SetFru(Fru(Area(5, "Maker", 0xC4, "Name"), 2));
  bmc.On(0x0A, 0x11, {0x00, 0x20, 0x00, 0x10}, {BmcAnswer::Silent()});
  unsigned char name[32];
  memset(name, 'n', sizeof(name));
  EXPECT_EQ(0, GetFRUProductName(name));
  EXPECT_STREQ("Name", reinterpret_cast<char*>(name));
  EXPECT_EQ((std::vector<std::string>{"0a 11 00 00 00 08", "0a 11 00 10 00 02",
                                      "0a 11 00 10 00 10", "0a 11 00 20 00 10",
                                      "0a 11 00 20 00 10", "0a 11 00 20 00 10",
                                      "0a 11 00 30 00 08"}),
            FruReads(bmc));
}

TEST_F(ExtConfigTest, FailedChunkHoldingTheNameLeavesItEmpty) {
  // The default FRU's name lies in the first area chunk, which fails; the
  // last chunk is answered, so the result is success with an empty name.
  bmc.On(0x0A, 0x11, {0x00, 0x08, 0x00, 0x10}, {BmcAnswer::Code(0xC0)});
  unsigned char name[32];
  memset(name, 'n', sizeof(name));
  EXPECT_EQ(0, GetFRUProductName(name));
  EXPECT_EQ('\0', name[0]);
  EXPECT_EQ((std::vector<std::string>{"0a 11 00 00 00 08", "0a 11 00 08 00 02",
                                      "0a 11 00 08 00 10", "0a 11 00 08 00 10",
                                      "0a 11 00 08 00 10", "0a 11 00 18 00 08"}),
            FruReads(bmc));
}

class FruWithoutRetryLimitTest : public IpmiTest {};

TEST_F(FruWithoutRetryLimitTest, FailedReadWithoutTheLimitIs31) {
  UinitKcsDriver();  // neither transport: ExecuteCommand gives 1
  unsigned char name[32] = {0};
  EXPECT_EQ(31, GetFRUProductName(name));
}

}  // namespace
}  // namespace ipmi_testing

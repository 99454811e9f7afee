#include "ipmi/request_kind.h"

#include <gtest/gtest.h>

#include "ipmi/command_record.h"

namespace {

using ipmi_detail::kNetFnApp;
using ipmi_detail::kNetFnChassis;
using ipmi_detail::kNetFnFirmware;
using ipmi_detail::kNetFnGroup;
using ipmi_detail::kNetFnOEM;
using ipmi_detail::kNetFnStorage;

bool Changes(unsigned char netFn, unsigned char command,
             std::initializer_list<unsigned char> data = {}) {
  return ChangesBmcState(static_cast<unsigned char>(netFn << 2), command,
                         data.begin(), data.size());
}

TEST(RequestKind, TheReadsChangeNothing) {
  EXPECT_FALSE(Changes(kNetFnApp, 0x01));
  EXPECT_FALSE(Changes(kNetFnFirmware, 0x02, {0x05}));
  EXPECT_FALSE(Changes(kNetFnFirmware, 0x12, {0x01}));
  EXPECT_FALSE(Changes(kNetFnFirmware, 0x13, {0x00}));
  EXPECT_FALSE(Changes(kNetFnStorage, 0x11, {0x00, 0x00, 0x00, 0x08}));
  EXPECT_FALSE(Changes(kNetFnOEM, 0x01));
  EXPECT_FALSE(Changes(kNetFnOEM, 0x02));
  EXPECT_FALSE(Changes(kNetFnOEM, 0x05, {0x01}));
  EXPECT_FALSE(Changes(kNetFnFirmware, 0x01, {0xAA, 0x02}));
  EXPECT_FALSE(Changes(kNetFnFirmware, 0x01, {0xAA, 0x03}));
}

TEST(RequestKind, UpdatesResetsAndSettingsChangeTheBmc) {
  EXPECT_TRUE(Changes(kNetFnFirmware, 0x01, {0x01, 0x80}));
  EXPECT_TRUE(Changes(kNetFnFirmware, 0x01));
  EXPECT_TRUE(Changes(kNetFnFirmware, 0x04, {0x00, 0x00}));
  EXPECT_TRUE(Changes(kNetFnFirmware, 0x10, {0x00}));
  EXPECT_TRUE(Changes(kNetFnFirmware, 0x11));
  EXPECT_TRUE(Changes(kNetFnFirmware, 0x16));
  EXPECT_TRUE(Changes(kNetFnFirmware, 0x21));
  EXPECT_TRUE(Changes(kNetFnApp, 0x02));
  EXPECT_TRUE(Changes(kNetFnChassis, 0x02, {0x03}));
  EXPECT_TRUE(Changes(kNetFnGroup, 0xCC));
  EXPECT_TRUE(Changes(kNetFnOEM, 0x03));
  EXPECT_TRUE(Changes(kNetFnOEM, 0x04, {0xFF}));
  EXPECT_TRUE(Changes(kNetFnOEM, 0x21, {0x05}));
}

TEST(RequestKind, AnUnknownRequestCountsAsAChange) {
  EXPECT_TRUE(Changes(0x3F, 0x7E));
  EXPECT_TRUE(Changes(kNetFnApp, 0x40));
}

TEST(RequestKind, TheLunDoesNotHideARead) {
  EXPECT_FALSE(ChangesBmcState((kNetFnApp << 2) | 0x03, 0x01, nullptr, 0));
}

TEST(RequestKind, NotesAreClearedPerRun) {
  ResetStateChangeNote();
  EXPECT_FALSE(StateChangingRequestSent());
  NoteStateChangingRequest();
  EXPECT_TRUE(StateChangingRequestSent());
  ResetStateChangeNote();
  EXPECT_FALSE(StateChangingRequestSent());
}

}  // namespace

// The update object's construction: its defaults, and an allocation that
// fails is reported as 1 instead of ending the run.
#include <gtest/gtest.h>

#include <new>

#include "update/firmware_update.h"

namespace {

bool g_failNextNothrowNew = false;

}  // namespace

// Only the next nothrow allocation fails; every other one is the ordinary
// allocation, so the rest of the binary is unaffected.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (g_failNextNothrowNew) {
    g_failNextNothrowNew = false;
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}

namespace {

TEST(FwUpdateConstructor, DefaultsAreTheLanInterfaceAndClearPsOff) {
  ASSERT_EQ(0, FwUpdateConstructor());
  ASSERT_NE(nullptr, G_pFirmwareUpdate);
  EXPECT_STREQ("lan", G_pFirmwareUpdate->GetLanIF());
  EXPECT_FALSE(G_pFirmwareUpdate->GetClearPsMode());
  EXPECT_EQ(0, FwUpdateDestructor());
  EXPECT_EQ(nullptr, G_pFirmwareUpdate);
}

TEST(FwUpdateConstructor, FailedAllocationReturnsOne) {
  g_failNextNothrowNew = true;
  const int rc = FwUpdateConstructor();
  const bool consumed = !g_failNextNothrowNew;
  g_failNextNothrowNew = false;
  EXPECT_TRUE(consumed);
  EXPECT_EQ(1, rc);
  EXPECT_EQ(nullptr, G_pFirmwareUpdate);
  EXPECT_EQ(0, FwUpdateDestructor());
}

}  // namespace

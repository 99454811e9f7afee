// The pre-flight view of the scratch directory, on the scripted OS.
#include <gtest/gtest.h>

#include "support/fake_env.h"
#include "usb/write_firmware.h"

namespace {

struct Plan {
  int rc;
  std::string path;
  bool create;
  std::string reason;
};

Plan PlanIt() {
  Plan plan{0, "", false, ""};
  plan.rc = PlanScratchDirectory(&plan.path, &plan.create, &plan.reason);
  return plan;
}

TEST(ScratchPlan, AFreshMachineGetsItMadeUnderMedia) {
  testing_support::FakeEnv env;
  env.directories = {"/media", "/mnt", "/tmp"};
  Plan plan = PlanIt();
  EXPECT_EQ(0, plan.rc);
  EXPECT_EQ("/media/scrtch", plan.path);
  EXPECT_TRUE(plan.create);
}

TEST(ScratchPlan, AMissingParentIsMadeAsWell) {
  testing_support::FakeEnv env;
  Plan plan = PlanIt();
  EXPECT_EQ(0, plan.rc);
  EXPECT_EQ("/media/scrtch", plan.path);
  EXPECT_TRUE(plan.create);
}

TEST(ScratchPlan, AnExistingDirectoryIsUsed) {
  testing_support::FakeEnv env;
  env.directories = {"/media", "/media/scrtch"};
  Plan plan = PlanIt();
  EXPECT_EQ(0, plan.rc);
  EXPECT_EQ("/media/scrtch", plan.path);
  EXPECT_FALSE(plan.create);
}

TEST(ScratchPlan, SomeoneElsesFileSendsItToTheNextParent) {
  testing_support::FakeEnv env;
  env.directories = {"/media", "/mnt"};
  env.files = {"/media/scrtch"};
  Plan plan = PlanIt();
  EXPECT_EQ(0, plan.rc);
  EXPECT_EQ("/mnt/scrtch", plan.path);
}

TEST(ScratchPlan, ALeftOverMountIsAFailure) {
  testing_support::FakeEnv env;
  env.directories = {"/media", "/media/scrtch"};
  env.mount_points = {"/media/scrtch"};
  Plan plan = PlanIt();
  EXPECT_EQ(1, plan.rc);
  EXPECT_EQ("/media/scrtch is already a mount point; release it with: umount /media/scrtch",
            plan.reason);
}

TEST(ScratchPlan, NoParentCanHoldIt) {
  testing_support::FakeEnv env;
  env.directories = {"/media", "/mnt", "/tmp"};
  env.files = {"/media/scrtch", "/mnt/scrtch", "/tmp/scrtch"};
  Plan plan = PlanIt();
  EXPECT_EQ(1, plan.rc);
  EXPECT_EQ("no scratch directory can be made under /media, /mnt or /tmp", plan.reason);
}

TEST(ScratchPlan, NothingIsRunOrMade) {
  testing_support::FakeEnv env;
  PlanIt();
  EXPECT_TRUE(env.commands.empty());
}

}  // namespace

// The host side of a virtual-media update for the procedure suites: the
// fdisk and df outputs recorded on a real machine, a device that the BMC
// attaches and the utility mounts, and in-memory files for the images and
// the copy. Plus a scripted BMC update task that follows the protocol.
#ifndef VRX_TESTS_UPDATE_FAKE_HOST_H_
#define VRX_TESTS_UPDATE_FAKE_HOST_H_

#include <functional>
#include <string>
#include <vector>

#include "support/fake_env.h"
#include "support/scripted_bmc.h"

namespace update_testing {

// A file of tests/usb/recordings.
std::string Recording(const std::string& name);

// The shell of the host: before the BMC attaches its device fdisk lists
// one stick (loop0); afterwards a second one (loop1 with loop1p1). The
// utility cannot create /media or /mnt here, so it mounts on /tmp/scrtch.
// Its files are in memory: "mkdir" and "rm -rf" make and remove the
// scratch directory, and what is copied there while the stick is mounted
// stays on the stick.
class FakeHost {
 public:
  explicit FakeHost(testing_support::FakeEnv* env);
  testing_support::FakeFiles fs;  // installed as env's file system
  // Routes ipmitool command lines to bmc as well (LAN runs).
  void ServeIpmitool(testing_support::ScriptedBmc* bmc) { lan_bmc_ = bmc; }

  bool attached = false;     // the BMC attached its device
  bool mounted = false;      // the device is mounted on /tmp/scrtch
  int mount_status = 0;      // wait status of "mount"
  int umount_status = 0;     // wait status of "umount"
  bool fdisk_fails = false;  // "/sbin/fdisk -l" cannot be started
  // How many more "df -Th" reports fail to show the stick although it is
  // mounted (a slow device).
  int df_hides_stick = 0;
  // Runs for every command line before it is answered.
  std::function<void(const std::string&)> on_command;

  static const char kDevice[];
  static const char kMount[];
  static std::string StickLine();
  std::string Df() const;
  // The copied image on the stick (or still in the scratch directory), or "".
  std::string Copied();

 private:
  bool Answer(const std::string& command, testing_support::CommandResult* r);
  void MoveFiles(const std::string& from, const std::string& to);
  testing_support::FakeEnv* env_;
  testing_support::ScriptedBmc* lan_bmc_ = nullptr;
};

// The BMC's update task for the virtual-media update: the start command
// hands out the task, phase 1 attaches the device, the status answers
// "Ready to Accept Image" until phase 2 and then follows task_answers.
class TaskBmc {
 public:
  TaskBmc(testing_support::ScriptedBmc* bmc, FakeHost* host);
  uint8_t task = 7;
  testing_support::BmcAnswer init_answer;
  testing_support::BmcAnswer phase1_answer = testing_support::BmcAnswer::Reply({});
  testing_support::BmcAnswer phase2_answer = testing_support::BmcAnswer::Reply({});
  std::vector<testing_support::BmcAnswer> ready_answers;  // last repeats
  std::vector<testing_support::BmcAnswer> task_answers;   // last repeats
  std::string version = "2.10.3";
  bool phase2_sent = false;
  bool attaches = true;  // phase 1 makes the device appear

 private:
  bool Answer(const testing_support::BmcRequest& r, testing_support::BmcAnswer* a);
  static testing_support::BmcAnswer Next(std::vector<testing_support::BmcAnswer>* list,
                                         size_t* pos);
  FakeHost* host_;
  size_t ready_pos_ = 0, task_pos_ = 0;
};

}  // namespace update_testing

#endif  // VRX_TESTS_UPDATE_FAKE_HOST_H_

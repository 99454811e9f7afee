#include "fake_host.h"

#include "support/capture.h"

namespace update_testing {

using testing_support::BmcAnswer;
using testing_support::BmcRequest;
using testing_support::CommandResult;

std::string Recording(const std::string& name) {
  return testing_support::ReadFile(std::string(VRX_USB_RECORDINGS) + "/" + name);
}

const char FakeHost::kDevice[] = "/dev/loop1p1";
const char FakeHost::kMount[] = "/tmp/scrtch";

// The stick's line of a real report, moved to the new device and mount.
std::string FakeHost::StickLine() {
  std::string line = Recording("df_scrtch_vfat.txt");
  line = line.substr(line.rfind("/dev/loop0"));
  line.replace(0, 12, "/dev/loop1p1");
  line.replace(line.find("/media/scrtch"), 13, kMount);
  return line;
}

std::string FakeHost::Df() const {
  return Recording("df_none.txt") + (mounted ? StickLine() : "");
}

// The stick's own files, while it is not mounted.
static const char kStick[] = "/stick";

FakeHost::FakeHost(testing_support::FakeEnv* env) : env_(env) {
  env_->directories = {"/tmp"};
  env_->fs = &fs;
  fs.AddDirectory("/tmp");
  fs.AddDirectory(kStick);
  // 63 MiB partition.
  env_->block_devices[kDevice] = 129024;
  env_->handler = [this](const std::string& command, CommandResult* r) {
    return Answer(command, r);
  };
}

void FakeHost::MoveFiles(const std::string& from, const std::string& to) {
  for (const std::string& name : fs.List(from)) {
    fs.AddFile(to + "/" + name, fs.Content(from + "/" + name));
    fs.RemoveFile(from + "/" + name);
  }
}

std::string FakeHost::Copied() {
  const std::string name = "/firmimg.k9";
  if (fs.Exists(std::string(kMount) + name)) return fs.Content(kMount + name);
  return fs.Content(kStick + name);
}

bool FakeHost::Answer(const std::string& command, CommandResult* r) {
  if (on_command) on_command(command);
  if (lan_bmc_ != nullptr &&
      lan_bmc_->AnswerIpmitoolCommandLine(command, &r->output, &r->status))
    return true;
  r->status = 0;
  r->output.clear();
  if (command == "/sbin/fdisk -l") {
    r->start_fails = fdisk_fails;
    r->output = Recording(attached ? "fdisk_after_partitioned.txt" : "fdisk_before.txt");
  } else if (command == "df -Th") {
    if (mounted && df_hides_stick > 0) {
      --df_hides_stick;
      r->output = Recording("df_none.txt");
    } else {
      r->output = Df();
    }
  } else if (command == "mkdir /media" || command == "mkdir /mnt") {
    r->status = 1 << 8;
  } else if (command == std::string("mkdir ") + kMount) {
    r->status = 0;
    fs.AddDirectory(kMount);
  } else if (command == std::string("mount ") + kDevice + " " + kMount) {
    r->status = attached ? mount_status : 32 << 8;
    if (r->status == 0) {
      mounted = true;
      MoveFiles(kStick, kMount);
    }
  } else if (command == std::string("umount ") + kMount) {
    r->status = mounted ? umount_status : 32 << 8;
    if (r->status == 0) {
      mounted = false;
      MoveFiles(kMount, kStick);
    }
  } else if (command == std::string("rm -rf ") + kMount) {
    r->status = 0;
    for (const std::string& name : fs.List(kMount))
      fs.RemoveFile(std::string(kMount) + "/" + name);
    fs.RemoveFile(kMount);
  } else {
    return false;
  }
  return true;
}

TaskBmc::TaskBmc(testing_support::ScriptedBmc* bmc, FakeHost* host) : host_(host) {
  init_answer = BmcAnswer::Reply({task});
  bmc->handler = [this](const BmcRequest& r, BmcAnswer* a) { return Answer(r, a); };
}

BmcAnswer TaskBmc::Next(std::vector<BmcAnswer>* list, size_t* pos) {
  BmcAnswer a = (*list)[*pos];
  if (*pos + 1 < list->size()) ++*pos;
  return a;
}

bool TaskBmc::Answer(const BmcRequest& r, BmcAnswer* a) {
  if (r.netfn == 0x08 && r.cmd == 0x01 && !r.data.empty() && r.data[0] == 0x03) {
    *a = init_answer;
    if (a->kind == BmcAnswer::kReply && a->completion_code == 0 && !a->data.empty())
      task = a->data[0];
    return true;
  }
  if (r.netfn == 0x08 && r.cmd == 0x04 && r.data.size() == 2) {
    if (r.data[1] == 0x00) {
      *a = phase1_answer;
      if (a->kind == BmcAnswer::kReply && a->completion_code == 0 && attaches)
        host_->attached = true;
    } else {
      *a = phase2_answer;
      phase2_sent = true;
    }
    return true;
  }
  if (r.netfn == 0x08 && r.cmd == 0x02) {
    if (ready_answers.empty()) ready_answers.push_back(BmcAnswer::Reply({0x03}));
    if (task_answers.empty()) task_answers.push_back(BmcAnswer::Reply({0xFF}));
    *a = phase2_sent ? Next(&task_answers, &task_pos_) : Next(&ready_answers, &ready_pos_);
    return true;
  }
  if (r.netfn == 0x08 && r.cmd == 0x01 && r.data.size() == 2 && r.data[0] == 0xAA &&
      r.data[1] == 0x02) {
    std::vector<uint8_t> data{static_cast<uint8_t>(version.size())};
    data.insert(data.end(), version.begin(), version.end());
    *a = BmcAnswer::Reply(data);
    return true;
  }
  if (r.netfn == 0x30 && r.cmd == 0x04) {
    *a = BmcAnswer::Reply({0x09});
    return true;
  }
  if (r.netfn == 0x30 && r.cmd == 0x05) {
    *a = BmcAnswer::Reply({0x01});
    return true;
  }
  return false;
}

}  // namespace update_testing

// ipmi_sim module: plugs the simulated BMC into OpenIPMI's simulator. It
// registers the command handlers, a 100 ms tick, the "vrx" console command,
// and channel hooks that log every request and drop or fail it on demand.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

extern "C" {
#include <OpenIPMI/lanserv.h>
#include <OpenIPMI/mcserv.h>
#include <OpenIPMI/msg.h>
}

#include "bmc_state.h"

namespace {

constexpr uint32_t kEnterpriseNumber = 0x002B5E;
constexpr long kTickMs = 100;

class SimHost : public simbmc::Host {
 public:
  explicit SimHost(sys_data_t* sys) : sys_(sys) {}

  int64_t NowMs() override {
    struct timeval tv;
    sys_->get_monotonic_time(sys_, &tv);
    return static_cast<int64_t>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
  }

  int Spawn(const std::vector<std::string>& argv,
            const std::string& outputLog) override;
  int PollJob(int job, int* code) override;

  void Log(const std::string& line) override {
    if (log_ == nullptr) return;
    int64_t ms = NowMs();
    std::fprintf(log_, "%lld.%03lld %s\n", static_cast<long long>(ms / 1000),
                 static_cast<long long>(ms % 1000), line.c_str());
    std::fflush(log_);
  }

  bool OpenLog(const std::string& path) override {
    FILE* f = std::fopen(path.c_str(), "a");
    if (f == nullptr) return false;
    if (log_ != nullptr) std::fclose(log_);
    log_ = f;
    return true;
  }

 private:
  struct Job {
    pid_t pid = 0;
    std::string statusFile;
  };
  sys_data_t* sys_;
  FILE* log_ = nullptr;
  std::map<int, Job> jobs_;
  int nextJob_ = 1;
};

// The child's exit status travels through a file, because ipmi_sim may reap
// children itself; the shell writes it once the command has ended.
int SimHost::Spawn(const std::vector<std::string>& argv,
                   const std::string& outputLog) {
  if (argv.empty()) return -1;
  int job = nextJob_++;
  char name[64];
  std::snprintf(name, sizeof(name), "/vrxsim-job-%d-%d.status",
                static_cast<int>(getpid()), job);
  std::string dir = outputLog.substr(0, outputLog.rfind('/'));
  Job entry;
  entry.statusFile = (dir.empty() ? std::string("/tmp") : dir) + name;
  unlink(entry.statusFile.c_str());

  std::vector<std::string> args = {
      "sh", "-c",
      "f=$1; shift; \"$@\"; s=$?; echo $s >\"$f.tmp\" && mv \"$f.tmp\" \"$f\"",
      "sh", entry.statusFile};
  args.insert(args.end(), argv.begin(), argv.end());
  std::vector<char*> cargs;
  for (std::string& a : args) cargs.push_back(&a[0]);
  cargs.push_back(nullptr);

  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    int in = open("/dev/null", O_RDONLY);
    int out = open(outputLog.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (in >= 0) dup2(in, 0);
    if (out >= 0) {
      dup2(out, 1);
      dup2(out, 2);
    }
    for (int fd = 3; fd < 1024; ++fd) close(fd);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execv("/bin/sh", cargs.data());
    _exit(127);
  }
  entry.pid = pid;
  jobs_[job] = entry;
  return job;
}

int SimHost::PollJob(int job, int* code) {
  auto it = jobs_.find(job);
  if (it == jobs_.end()) return -1;
  int status = 0;
  waitpid(it->second.pid, &status, WNOHANG);
  FILE* f = std::fopen(it->second.statusFile.c_str(), "r");
  if (f == nullptr) {
    // The shell died without writing its status (killed): count as failure.
    if (kill(it->second.pid, 0) != 0 && errno == ESRCH) {
      *code = 255;
      jobs_.erase(it);
      return 1;
    }
    return 0;
  }
  int value = 255;
  if (std::fscanf(f, "%d", &value) != 1) value = 255;
  std::fclose(f);
  unlink(it->second.statusFile.c_str());
  jobs_.erase(it);
  *code = value;
  return 1;
}

sys_data_t* g_sys = nullptr;
SimHost* g_host = nullptr;
simbmc::Bmc* g_bmc = nullptr;
ipmi_timer_t* g_timer = nullptr;

struct ChannelHooks {
  int (*handleMsg)(channel_t*, msg_t*) = nullptr;
  int (*handleRsp)(channel_t*, msg_t*, rsp_msg_t*) = nullptr;
};
std::map<channel_t*, ChannelHooks> g_previous;

std::string Bytes(const unsigned char* data, unsigned len) {
  std::string text;
  char b[4];
  for (unsigned i = 0; i < len; ++i) {
    std::snprintf(b, sizeof(b), " %02x", data[i]);
    text += b;
  }
  return text;
}

std::string Head(const char* what, channel_t* chan, unsigned netfn,
                 unsigned cmd) {
  char text[64];
  std::snprintf(text, sizeof(text), "%s ch=%u %02x %02x", what,
                chan->channel_num, netfn, cmd);
  return text;
}

// LAN requests pass this hook before the command handlers run; requests on
// the serial (system interface) channel do not, so OnCommand covers those.
bool g_requestSeen = false;
bool g_dropReply = false;

void SendCompletionCode(channel_t* chan, msg_t* msg, unsigned char cc) {
  unsigned char data[4] = {cc, 0, 0, 0};
  unsigned short len = 1;
  if ((msg->netfn == 0x2E || msg->netfn == 0x2F) && msg->len >= 3) {
    std::memcpy(data + 1, msg->data, 3);
    len = 4;
  }
  rsp_msg_t rsp;
  rsp.netfn = static_cast<uint8_t>(msg->netfn | 1);
  rsp.cmd = msg->cmd;
  rsp.data = data;
  rsp.data_len = len;
  chan->return_rsp(chan, msg, &rsp);
}

// What ipmitool sends on its own (the session, the PICMG and HPM.x probes
// of group extension 0x2C); a recording of the program holds none of them
// unless the program sent such a request itself, so the simulator answers.
bool IsToolOwnRequest(const msg_t* msg, const simbmc::Replay* replay) {
  const bool own = (msg->netfn == 0x06 && ((msg->cmd >= 0x38 && msg->cmd <= 0x3C) ||
                                           msg->cmd == 0x54)) ||
                   msg->netfn == 0x2C;
  return own && !replay->Knows(static_cast<uint8_t>(msg->netfn),
                               static_cast<uint8_t>(msg->cmd));
}

constexpr unsigned kSystemInterfaceChannel = 15;

// ipmitool opens every session with a Get Device ID of its own, before the
// program's request: the simulator answers that first one, as it did while
// the run was recorded.
uint32_t g_probedSession = 0;
bool g_probedAny = false;
bool IsSessionProbe(const msg_t* msg) {
  if (msg->netfn != 0x06 || msg->cmd != 0x01) return false;
  if (g_probedAny && g_probedSession == msg->sid) return false;
  g_probedAny = true;
  g_probedSession = msg->sid;
  return true;
}

simbmc::ReplayAnswer Replayed(simbmc::Replay* replay, unsigned channel,
                              msg_t* msg, uint32_t session) {
  simbmc::ReplayAnswer answer =
      replay->Answer(static_cast<uint8_t>(msg->netfn),
                     static_cast<uint8_t>(msg->cmd), msg->data, msg->len, session);
  if (answer.kind == simbmc::ReplayAnswer::kUnknown) {
    char head[80];
    std::snprintf(head, sizeof(head), "replay-unknown ch=%u %02x %02x", channel,
                  msg->netfn, msg->cmd);
    g_host->Log(head + Bytes(msg->data, msg->len) +
                " (not in the recording: cc d5)");
  }
  return answer;
}

int OnRequest(channel_t* chan, msg_t* msg) {
  g_host->Log(Head("req", chan, msg->netfn, msg->cmd) +
              Bytes(msg->data, msg->len));
  simbmc::Replay* replay = g_bmc->ReplayMode();
  if (replay != nullptr && replay->Lan() && !IsToolOwnRequest(msg, replay) &&
      !IsSessionProbe(msg)) {
    simbmc::ReplayAnswer answer = Replayed(replay, chan->channel_num, msg, msg->sid);
    if (answer.kind == simbmc::ReplayAnswer::kNoAnswer) {
      g_host->Log(Head("drop", chan, msg->netfn, msg->cmd));
      return 1;
    }
    std::vector<unsigned char> data = {answer.cc};
    data.insert(data.end(), answer.data.begin(), answer.data.end());
    rsp_msg_t rsp;
    rsp.netfn = static_cast<uint8_t>(msg->netfn | 1);
    rsp.cmd = msg->cmd;
    rsp.data = data.data();
    rsp.data_len = static_cast<unsigned short>(data.size());
    chan->return_rsp(chan, msg, &rsp);
    return 1;
  }
  unsigned char cc = 0;
  simbmc::Hook hook = g_bmc->Intercept(msg->netfn, msg->cmd, &cc);
  if (hook == simbmc::Hook::kDrop) {
    g_host->Log(Head("drop", chan, msg->netfn, msg->cmd));
    return 1;
  }
  if (hook == simbmc::Hook::kCompletionCode) {
    SendCompletionCode(chan, msg, cc);
    return 1;
  }
  g_requestSeen = true;
  auto it = g_previous.find(chan);
  if (it != g_previous.end() && it->second.handleMsg != nullptr)
    return it->second.handleMsg(chan, msg);
  return 0;
}

int OnResponse(channel_t* chan, msg_t* msg, rsp_msg_t* rsp) {
  g_requestSeen = false;
  if (g_dropReply || g_bmc->IsDown()) {
    g_dropReply = false;
    g_host->Log(Head("drop", chan, msg->netfn, msg->cmd));
    return 1;
  }
  g_host->Log(Head("rsp", chan, rsp->netfn, rsp->cmd) +
              Bytes(rsp->data, rsp->data_len));
  auto it = g_previous.find(chan);
  if (it != g_previous.end() && it->second.handleRsp != nullptr)
    return it->second.handleRsp(chan, msg, rsp);
  return 0;
}

void OnCommand(lmc_data_t*, msg_t* msg, unsigned char* rdata,
               unsigned int* rdata_len, void*) {
  unsigned channel = msg->orig_channel ? msg->orig_channel->channel_num
                                       : msg->channel;
  simbmc::Replay* replay = g_bmc->ReplayMode();
  if (replay != nullptr && !replay->Lan() && channel == kSystemInterfaceChannel) {
    // The system interface: each request is the program's own attempt.
    g_requestSeen = false;
    char head[64];
    std::snprintf(head, sizeof(head), "req ch=%u %02x %02x", channel,
                  msg->netfn, msg->cmd);
    g_host->Log(head + Bytes(msg->data, msg->len));
    simbmc::ReplayAnswer answer = Replayed(replay, channel, msg, 0);
    g_dropReply = answer.kind == simbmc::ReplayAnswer::kNoAnswer;
    rdata[0] = g_dropReply ? 0xFF : answer.cc;
    std::memcpy(rdata + 1, answer.data.data(), answer.data.size());
    *rdata_len = static_cast<unsigned>(1 + answer.data.size());
    return;
  }
  if (!g_requestSeen) {
    char head[64];
    std::snprintf(head, sizeof(head), "req ch=%u %02x %02x", channel,
                  msg->netfn, msg->cmd);
    g_host->Log(head + Bytes(msg->data, msg->len));
    unsigned char cc = 0;
    simbmc::Hook hook = g_bmc->Intercept(msg->netfn, msg->cmd, &cc);
    if (hook != simbmc::Hook::kNone) {
      g_dropReply = hook == simbmc::Hook::kDrop;
      rdata[0] = hook == simbmc::Hook::kDrop ? 0xFF : cc;
      *rdata_len = 1;
      return;
    }
  }
  g_requestSeen = false;
  simbmc::Reply reply;
  g_bmc->Handle(msg->netfn, msg->cmd, msg->data, msg->len, &reply);
  rdata[0] = reply.cc;
  std::memcpy(rdata + 1, reply.data, reply.len);
  *rdata_len = 1 + reply.len;
}

void OnTick(void*) {
  g_bmc->Tick();
  struct timeval tv = {0, kTickMs * 1000};
  g_sys->start_timer(g_timer, &tv);
}

int OnConsole(emu_out_t* out, emu_data_t*, lmc_data_t*, char** toks) {
  std::vector<std::string> words;
  for (;;) {
    const char* word = mystrtok(nullptr, " \t\n", toks);
    if (word == nullptr) break;
    words.emplace_back(word);
  }
  std::string answer = g_bmc->Command(words);
  if (!answer.empty())
    out->eprintf(out, const_cast<char*>("%s"), answer.c_str());
  g_host->Log("console " + std::string(words.empty() ? "" : words[0]) +
              (answer.rfind("**", 0) == 0 ? " failed" : ""));
  return answer.rfind("**", 0) == 0 ? EINVAL : 0;
}

void HookChannels(lmc_data_t* mc) {
  if (mc == nullptr || g_sys->mc_get_channelset == nullptr) return;
  channel_t** channels = g_sys->mc_get_channelset(mc);
  if (channels == nullptr) return;
  for (int i = 0; i < IPMI_MAX_CHANNELS; ++i) {
    channel_t* chan = channels[i];
    if (chan == nullptr || g_previous.count(chan) != 0) continue;
    ChannelHooks previous;
    previous.handleMsg = chan->oem.oem_handle_msg;
    previous.handleRsp = chan->oem.oem_handle_rsp;
    g_previous[chan] = previous;
    chan->oem.oem_handle_msg = OnRequest;
    chan->oem.oem_handle_rsp = OnResponse;
  }
}

const unsigned char kHandled[][2] = {
    {0x06, 0x01}, {0x06, 0x02}, {0x0A, 0x10}, {0x0A, 0x11}, {0x08, 0x01},
    {0x08, 0x02}, {0x08, 0x04}, {0x08, 0x12}, {0x08, 0x13}, {0x08, 0x16},
    {0x30, 0x01}, {0x30, 0x02}, {0x30, 0x03}, {0x30, 0x04}, {0x30, 0x05},
    {0x30, 0x21},
};

}  // namespace

extern "C" {

int ipmi_sim_module_print_version(sys_data_t* sys, char*) {
  sys->log(sys, INFO, nullptr, "vrx simulated BMC module 1.0");
  return 0;
}

int ipmi_sim_module_init(sys_data_t* sys, const char*) {
  g_sys = sys;
  g_host = new SimHost(sys);
  g_bmc = new simbmc::Bmc(g_host);
  setenv("MTOOLS_SKIP_CHECK", "1", 1);
  for (const auto& c : kHandled) {
    int rv = ipmi_emu_register_cmd_handler(c[0], c[1], OnCommand, nullptr);
    if (rv != 0) return rv;
  }
  int rv = ipmi_emu_register_iana_handler(kEnterpriseNumber, OnCommand, nullptr);
  if (rv != 0) return rv;
  rv = ipmi_emu_add_cmd("vrx", NOMC, OnConsole);
  if (rv != 0) return rv;
  rv = sys->alloc_timer(sys, OnTick, nullptr, &g_timer);
  if (rv != 0) return rv;
  struct timeval tv = {0, kTickMs * 1000};
  return sys->start_timer(g_timer, &tv);
}

int ipmi_sim_module_post_init(sys_data_t* sys) {
  for (int addr = 0; addr < IPMI_MAX_MCS; ++addr)
    HookChannels(sys->ipmb_addrs[addr]);
  return 0;
}

}  // extern "C"

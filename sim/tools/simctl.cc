// vrx-simctl: sends commands to the simulated BMC's control console and
// prints the answers. Exit status 1 when a command was refused ("**").
// Usage: vrx-simctl [-p PORT] COMMAND... (PORT defaults to $VRX_SIM_CONSOLE)
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kTimeoutMs = 5000;

long long NowMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec * 1000LL + ts.tv_nsec / 1000000;
}

bool SendAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Drops telnet negotiation (IAC sequences) and carriage returns.
std::string Clean(const std::string& raw) {
  std::string out;
  for (size_t i = 0; i < raw.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(raw[i]);
    if (c == 255) {
      i += 2;
      continue;
    }
    if (c != '\r') out += static_cast<char>(c);
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  int first = 1;
  const char* portText = std::getenv("VRX_SIM_CONSOLE");
  if (argc > 2 && std::strcmp(argv[1], "-p") == 0) {
    portText = argv[2];
    first = 3;
  }
  if (portText == nullptr || first >= argc) {
    std::fprintf(stderr, "usage: vrx-simctl [-p PORT] COMMAND...\n");
    return 2;
  }
  int port = std::atoi(portText);
  if (port <= 0 || port > 65535) {
    std::fprintf(stderr, "vrx-simctl: bad port %s\n", portText);
    return 2;
  }
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  struct sockaddr_in addr;
  std::memset(&addr, 0, sizeof(addr));
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
    std::fprintf(stderr, "vrx-simctl: cannot reach the console on port %d\n", port);
    return 2;
  }
  std::string request = "noecho\n";
  for (int i = first; i < argc; ++i) request += std::string(argv[i]) + "\n";
  if (!SendAll(fd, request)) {
    std::fprintf(stderr, "vrx-simctl: send failed\n");
    close(fd);
    return 2;
  }
  // One prompt greets us, one follows "noecho" and one each command.
  size_t wanted = static_cast<size_t>(argc - first) + 2;
  std::string raw;
  long long deadline = NowMs() + kTimeoutMs;
  size_t prompts = 0;
  while (prompts < wanted) {
    long long left = deadline - NowMs();
    if (left <= 0) break;
    struct pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, static_cast<int>(left)) <= 0) break;
    char buffer[4096];
    ssize_t n = recv(fd, buffer, sizeof(buffer), 0);
    if (n <= 0) break;
    raw.append(buffer, static_cast<size_t>(n));
    prompts = 0;
    for (size_t pos = raw.find("> "); pos != std::string::npos;
         pos = raw.find("> ", pos + 2))
      ++prompts;
  }
  close(fd);
  std::string text = Clean(raw);
  // Keep what came after the prompt that answered "noecho".
  size_t cut = 0;
  for (int k = 0; k < 2; ++k) {
    size_t pos = text.find("> ", cut);
    if (pos == std::string::npos) break;
    cut = pos + 2;
  }
  std::string answers;
  for (size_t pos = cut; pos < text.size();) {
    size_t next = text.find("> ", pos);
    answers += text.substr(pos, next == std::string::npos ? std::string::npos
                                                          : next - pos);
    if (next == std::string::npos) break;
    pos = next + 2;
  }
  std::fputs(answers.c_str(), stdout);
  if (prompts < wanted) {
    std::fprintf(stderr, "vrx-simctl: the console did not answer in time\n");
    return 2;
  }
  return answers.find("**") != std::string::npos ? 1 : 0;
}

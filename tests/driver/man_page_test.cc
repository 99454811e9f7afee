// The manual page's EXIT STATUS lists exactly the return codes and messages
// of the program's one table, so the two cannot drift apart.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "common/return_code.h"

namespace {

std::string Trim(const std::string& text) {
  size_t begin = text.find_first_not_of(" \n");
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(" \n") - begin + 1);
}

// Code -> message of every ".TP / .B <code> / text" entry of EXIT STATUS.
std::map<int, std::string> ManPageExitStatus() {
  std::ifstream in(std::string(VRX_SOURCE_DIR) + "/docs/vrxfwul.8");
  std::map<int, std::string> entries;
  std::string line;
  bool inSection = false;
  int code = -1;
  while (std::getline(in, line)) {
    if (line.compare(0, 4, ".SH ") == 0) {
      inSection = line == ".SH EXIT STATUS";
      code = -1;
      continue;
    }
    if (!inSection) continue;
    if (line == ".TP") {
      code = -1;
    } else if (line.compare(0, 3, ".B ") == 0 && code < 0) {
      const std::string number = line.substr(3);
      code = number.find_first_not_of("0123456789") == std::string::npos
                 ? std::stoi(number)
                 : -2;
    } else if (code >= 0 && !line.empty() && line[0] != '.') {
      std::string& text = entries[code];
      text += (text.empty() ? "" : " ") + line;
    }
  }
  return entries;
}

TEST(ManPage, ExitStatusMatchesTheReturnCodeTable) {
  std::map<int, std::string> page = ManPageExitStatus();
  ASSERT_FALSE(page.empty()) << "no EXIT STATUS entries found";
  std::map<int, std::string> table;
  for (int i = 0; i < kErrorMapSize; ++i) {
    const int code = asErrorMap[i].eCode;
    const std::string message = Trim(asErrorMap[i].pchMessage);
    // The two limit flags are added to another code; the page says so.
    if (message.empty() || code == RC_RETRY_LIMIT || code == RC_TIMEOUT_LIMIT) continue;
    table[code] = message;
  }
  EXPECT_EQ(table, page);
}

}  // namespace

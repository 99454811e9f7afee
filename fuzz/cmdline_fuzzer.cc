// Arbitrary bytes as the command line (words split at NUL bytes): the
// option parser and the settings it fills must accept or refuse any word.
#include <stddef.h>
#include <stdint.h>

#include <dirent.h>
#include <sys/stat.h>
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bmc/bmc_handle.h"
#include "driver/config.h"
#include "driver/driver.h"
#include "driver/options.h"
#include "fuzz_support.h"
#include "output/output.h"
#include "update/firmware_update.h"

namespace {

// A log name may create a file: keep every such file in one private
// directory (no '/' reaches the parser) and empty it after each input.
void RemoveCreatedFiles() {
  DIR* dir = opendir(".");
  if (dir == nullptr) return;
  while (struct dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') unlink(entry->d_name);
  }
  closedir(dir);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::TheWorld();
  static bool in_private_dir = [] {
    std::string dir = fuzzing::WriteTempFile("cmdline", nullptr, 0) + ".d";
    mkdir(dir.c_str(), 0700);
    return chdir(dir.c_str()) == 0;
  }();
  if (!in_private_dir) return 0;
  std::vector<std::string> words{"vrxfwul"};
  std::string word;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0) {
      words.push_back(word);
      word.clear();
    } else {
      word += data[i] == '/' ? '_' : static_cast<char>(data[i]);
    }
  }
  if (!word.empty()) words.push_back(word);
  if (words.size() > 64) words.resize(64);

  // Writable copies, as the program's own argv is.
  std::vector<std::vector<char>> storage;
  for (const std::string& w : words) {
    storage.emplace_back(w.begin(), w.end());
    storage.back().push_back('\0');
  }
  std::vector<char*> argv;
  for (std::vector<char>& s : storage) argv.push_back(s.data());
  argv.push_back(nullptr);

  ConfigDestructor();
  ConfigConstructor();
  FwUpdateDestructor();
  FwUpdateConstructor();
  CheckFlagsDestructor();
  CheckFlagsConstructor();
  char** fileList = nullptr;
  if (CreateFwImageFilenameList(&fileList) != 0) return 0;
  int fileCount = 0;
  ParseCommandArguments(static_cast<int>(words.size()), argv.data(), fileList,
                        &fileCount);
  DeleteFwImageFilenameList(&fileList);
  G_pOutputMessageHandle->CloseLogFile();
  RemoveCreatedFiles();
  return 0;
}

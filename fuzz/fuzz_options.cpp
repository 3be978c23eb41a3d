// SPDX-License-Identifier: Apache-2.0
// Command lines of any words, one a line: understood, answered, or refused.
#include <sstream>

#include "options.h"
#include "support/input.h"

using namespace kelnn_fuzz;
using namespace kelnn_cli;

namespace {

CommandLine parsed(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return parse(static_cast<int>(words.size()), arguments.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static std::FILE* const nowhere = std::fopen("/dev/null", "w");
  std::vector<std::string> words = {"kelnn"};
  std::istringstream lines(std::string(data, data + size));
  for (std::string word; std::getline(lines, word);) words.push_back(word.c_str());
  std::FILE* const messages = std::exchange(stderr, nowhere);
  const CommandLine line = parsed(words);
  stderr = messages;
  EXPECT(line.exit_code == kFine || (!line.command && line.exit_code == kBadUsage));
  return 0;
}

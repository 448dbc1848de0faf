// The whole client with a hostile modem: commands of tovi, one a line, and what the modem and its
// name service say to them. The first byte tells whether threads change at random.
#include <stdio.h>
#include <unistd.h>

#include <vector>

#include "fuzz.h"
#include "hostile_modem.h"
#include "mbn/pdc_utils.h"
#include "turns.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

void renew_extension_client();

namespace {

std::vector<std::string> words_of(std::string_view line) {
  std::vector<std::string> words = {"tovi"};
  while (!line.empty()) {
    const size_t end = std::min(line.find(' '), line.size());
    if (end > 0) words.emplace_back(line.substr(0, end));
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  return words;
}

// Not those that run a shell, or wait for longer than the clock counts.
bool is_wanted(const std::vector<std::string>& words) {
  if (words.size() < 2 || words[1].find('\0') != std::string::npos) return false;
  const int module = velmor_atoi(words[1].c_str());
  if (module == 8) return false;
  return module != 11 || words.size() < 4 || velmor_atoi(words[3].c_str()) >> 12 == 0;
}

void run(std::string_view line) {
  auto words = words_of(line);
  if (!is_wanted(words)) return;
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  for (const TestModule& module : velmor_test_modules()) {
    if (module.number != velmor_atoi(argv[1]) || module.enter == nullptr) continue;
    module.enter(static_cast<int>(words.size()), argv.data());
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::keep_apart();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  turns::begin(input.byte());
  std::string_view lines = fuzz::text_of(input.block());
  fuzz::HostileModem& modem = fuzz::HostileModem::instance();
  modem.begin(input);
  for (int i = 0; i < 4 && !lines.empty(); ++i) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    run(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  modem.end();
  renew_extension_client();
  pdc_clean();
  turns::pass(1000);
  return 0;
}

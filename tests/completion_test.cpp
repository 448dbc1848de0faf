// The shell completion as bash runs it, and the manual, against the program's own help.
#include <stdio.h>

#include <regex>
#include <sstream>

#include "gtest/gtest.h"
#include "support/tool.h"
#include "velmor_efs_files.h"

namespace testing_support {
namespace {

// What is offered for the last of `words`; with its lines of help where bash only `lists` them.
std::vector<std::string> offered(const std::string& words, bool lists) {
  const std::string script =
      "source " TOVI_BUILD_FOLDER "/completion/tovi; COMP_TYPE=" + std::string(lists ? "63" : "9") +
      "; COMP_WORDS=(tovi " + words +
      "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); COLUMNS=200; _tovi;"
      "((${#COMPREPLY[@]})) && printf \"%s\\n\" \"${COMPREPLY[@]}\"";
  FILE* pipe = popen(("bash -c '" + script + "'").c_str(), "r");
  std::string out;
  for (int c; (c = fgetc(pipe)) != EOF;) out += static_cast<char>(c);
  pclose(pipe);
  std::istringstream lines(out);
  std::vector<std::string> all;
  for (std::string line; std::getline(lines, line);) all.push_back(line);
  return all;
}

using Words = std::vector<std::string>;

TEST(Completion, OffersWhatFitsWithAListOfItsHelp) {
  const struct {
    const char* typed;
    bool lists;
    Words want;
  } rows[] = {
      {"4 4", true, {"4"}},
      {"1", false, {"1", "10", "11", "12"}},
      {"7 \"\"", true, {"0  modem stats diag-parsed test", "1  get the debug info of modem stats"}},
      {"9 2",
       true,
       {"2   4G SCC2 rssi, sub: 0 - sub0; 1 - sub1", "20  WCDMA rssi, sub: 0 - sub0; 1 - sub1",
        "21  GSM rssi, sub: 0 - sub0; 1 - sub1"}},
      {"4 4 \"\"", true, {"0  subscription 0", "1  subscription 1"}},
      {"10 0 \"\"", false, {"1", "2", "3"}},
      {"4 5 1 /s", true, {"/skarn/skarn_print_mask"}},
      {"4 1 0 \"\"", false, {}},
      {"11 0 \"\"", false, {}},
      {"6 \"\"", false, {}},
      {"13 \"\"", false, {}},
  };
  for (const auto& row : rows) EXPECT_EQ(offered(row.typed, row.lists), row.want) << row.typed;
  EXPECT_EQ(offered("4 6 0 \"\"", false).size(), std::size(kKnownEfsFiles));
}

// The help's commands by module, in its order.
std::vector<std::pair<std::string, Words>> commands_of_the_help() {
  const std::string help = read_file(TOVI_TEST_DATA "/golden/help.txt");
  std::istringstream lines(help);
  std::vector<std::pair<std::string, Words>> modules;
  std::smatch match;
  for (std::string line; std::getline(lines, line);) {
    if (std::regex_search(line, match, std::regex("^([0-9]+): ")))
      modules.push_back({match[1], {}});
    if (std::regex_search(line, match, std::regex("^ +tovi [0-9]+ ([0-9]+) "))) {
      Words& commands = modules.back().second;
      if (commands.empty() || commands.back() != match[1]) commands.push_back(match[1]);
    }
  }
  return modules;
}

TEST(Completion, OffersEveryCommandOfTheHelp) {
  Words numbers;
  for (const auto& [module, commands] : commands_of_the_help()) {
    numbers.push_back(module);
    EXPECT_EQ(offered(module + " \"\"", false), commands) << module;
    for (const std::string& line : offered(module + " \"\"", true)) {
      EXPECT_GT(line.size(), 8u) << module << ": " << line;
    }
  }
  EXPECT_EQ(numbers.size(), 11u);
  EXPECT_EQ(offered("\"\"", false), numbers);
}

TEST(Manual, HasEveryCommandOfTheHelpThatWorks) {
  const std::string manual = read_file(TOVI_TEST_DATA "/../docs/man/tovi.1");
  for (const auto& [module, commands] : commands_of_the_help()) {
    for (const std::string& command : commands) {
      if (module == "1") continue;
      const std::regex item("\n\\.It Cm " + module + " " + command + "[ \n]");
      EXPECT_TRUE(std::regex_search(manual, item)) << module << " " << command;
    }
  }
}

}  // namespace
}  // namespace testing_support

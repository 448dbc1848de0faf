#include "verbs_of_tovictl.h"

#include "tovictl/command_line.h"

void fuzz::parse_command_line(const std::vector<std::string>& words) {
  ctl::Settings settings;
  ctl::Run run;
  const auto app = ctl::make_command_line(settings, run);
  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  try {
    app->parse(static_cast<int>(argv.size()), argv.data());
  } catch (const CLI::ParseError& error) {
    [[maybe_unused]] const std::string said = error.what() + app->help();
  }
}

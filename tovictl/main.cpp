// tovictl: verdicts, files and data for scripts and engineers.
#include <errno.h>
#include <signal.h>
#include <string.h>

#include "command_line.h"
#include "results.h"
#include "standard_descriptors.h"

namespace {

using namespace ctl;

int report(const Outcome& outcome, const Settings& settings) {
  Verdict verdict = outcome.verdict;
  if (settings.json && !outcome.values.is_null()) {
    Json object = outcome.values;
    object["status"] = static_cast<int>(verdict.status);
    object["verdict"] = status_word(verdict.status);
    object["cause"] = verdict.cause;
    results::print(object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
  }
  if (!results::flush() && verdict.ok()) {
    verdict = {Status::Usage, std::string("standard output: ") + strerror(errno)};
  }
  if (!verdict.ok() || !verdict.cause.empty() || outcome.always_said) results::say(verdict.text());
  return static_cast<int>(verdict.status);
}

std::string problem_of(const CLI::App& app, const CLI::ParseError& error) {
  if (!app.get_subcommands().empty()) return error.what();
  for (const std::string& word : app.remaining()) {
    if (!word.starts_with('-')) return word + ": no such verb; tovictl --help names them";
  }
  return "which verb? tovictl --help names them";
}

}  // namespace

int main(int argc, char** argv) {
  fill_standard_descriptors();
  signal(SIGPIPE, SIG_IGN);
  // How a program that this one runs has ended would be lost.
  signal(SIGCHLD, SIG_DFL);
  if (!results::begin()) {
    results::say(Verdict{Status::Usage, std::string("standard output: ") + strerror(errno)}.text());
    return static_cast<int>(Status::Usage);
  }

  Settings settings;
  Run run;
  const auto app = make_command_line(settings, run);
  try {
    app->parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    // Of the verb that was named.
    const auto picked = app->get_subcommands();
    results::print(picked.empty() ? app->help() : picked[0]->help("tovictl"));
    return report(Outcome({}, nullptr), settings);
  } catch (const CLI::CallForVersion& version) {
    results::print(std::string(version.what()) + "\n");
    return report(Outcome({}, nullptr), settings);
  } catch (const CLI::ParseError& error) {
    return report(Verdict{Status::Usage, problem_of(*app, error)}, settings);
  }
  try {
    return report(run(), settings);
  } catch (const std::exception& error) {
    return report(Verdict{Status::Usage, error.what()}, settings);  // no memory, most likely
  }
}

#include "command_line.h"

namespace ctl {
namespace {

std::string status_list() {
  std::string out = "Exit status:\n";
  for (int i = 0; i < kStatuses; ++i) {
    const auto status = static_cast<Status>(i);
    out += "  " + std::to_string(i) + "  " + status_word(status) + ": " + status_meaning(status) +
           "\n";
  }
  return out;
}

void add_settings(CLI::App& app, Settings& settings) {
  Words words(app);
  words.flag("--json", settings.json, "results as JSON on standard output");
  words.optional("--timeout", "SECONDS", settings.timeout_s, 0.001, 86400,
                 "for an answer or an outcome; 10 by default");
  words.flag("--yes", settings.yes,
             "do what deletes, switches, restarts or changes a configuration");
  words.flag("--wait", settings.wait, "wait while another tovictl is changing this modem");
  app.set_help_flag("-h,--help", "print this help, or that of a verb");
}

}  // namespace

void Words::flag(const char* name, bool& given, const char* does) {
  app_.add_flag(name, given, does);
}

void Words::required(const char* name, const char* kind, std::string& word, const char* does) {
  app_.add_option(name, word, does)->required()->type_name(kind);
}

void Words::required(const char* name, const char* kind, std::vector<std::string>& rest,
                     const char* does) {
  app_.add_option(name, rest, does)->required()->type_name(kind);
}

void Words::optional(const char* name, const char* kind, std::string& word, const char* does) {
  app_.add_option(name, word, does)->type_name(kind);
}

void Words::optional(const char* name, const char* kind, std::vector<std::string>& rest,
                     const char* does) {
  app_.add_option(name, rest, does)->type_name(kind);
}

void Words::optional(const char* name, const char* kind, uint64_t& number, const char* does) {
  app_.add_option(name, number, does)->type_name(kind);
}

void Words::optional(const char* name, const char* kind, double& number, double least, double most,
                     const char* does) {
  app_.add_option(name, number, does)->check(CLI::Range(least, most))->type_name(kind);
}

void Words::subscription(unsigned int& sub) {
  app_.add_option("--sub", sub, "the subscription, 0 or 1")
      ->check(CLI::Range(0, 1).description(""))
      ->type_name("SUB");
}

void Words::target(std::string& target, unsigned int& sub) {
  required("target", "TARGET", target, "NV item (a number) or EFS file (/path)");
  subscription(sub);
}

std::unique_ptr<CLI::App> make_command_line(Settings& settings, Run& chosen) {
  auto app =
      std::make_unique<CLI::App>("Verdicts, files and data of a modem that speaks QMI.", "tovictl");
  add_settings(*app, settings);
  app->set_version_flag("--version", "tovictl " TOVI_VERSION);
  app->require_subcommand(1);
  app->get_formatter()->label("SUBCOMMAND", "VERB ...");
  app->get_formatter()->label("Subcommands", "Verbs");
  app->footer(status_list());
  for (const Verb& verb : verbs()) {
    CLI::App* sub = app->add_subcommand(verb.name, verb.does);
    sub->footer(verb.more);
    sub->set_help_flag("-h,--help", "print this help");
    sub->fallthrough();
    Words words(*sub);
    const Run run = verb.declare(words, settings);
    sub->callback([&chosen, run] { chosen = run; });
  }
  return app;
}

}  // namespace ctl

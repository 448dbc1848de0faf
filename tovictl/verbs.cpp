#include "verbs.h"

namespace ctl {
namespace {

// clang-format off
constexpr Verb kVerbs[] = {
  { "run", "run a command of tovi and tell whether it worked",
    "Its bytes go to standard output, the verdict to standard error and into the exit status. What\n"
    "deletes, switches, restarts or changes a configuration needs --yes. Words for numbers and other\n"
    "arguments that tovi would misread are refused before anything is sent.",
    declare_run },
  { "get", "read an NV item or a whole EFS file",
    "Hexadecimal on a terminal, the bytes themselves to a file or a pipe.",
    declare_get },
  { "put", "write an NV item or a whole EFS file",
    "It is read back and compared; then the modem is asked to commit.",
    declare_put },
  { "rm", "delete an NV item or an EFS file",
    "Needs --yes. What is absent already is said, and done.",
    declare_rm },
  { "save", "back up NV items and EFS files into a folder",
    "The folder is a state folder of the simulated modem: TOVI_STATE=DIR tovi answers out of it. A\n"
    "save that was interrupted continues.",
    declare_save },
  { "diff", "compare the modem, or another backup, with a backup",
    "What differs is listed; the status is then 7.",
    declare_diff },
  { "restore", "make the modem hold what a backup holds",
    "Needs --yes. Only what differs is written, and read back; diff tells it beforehand.",
    declare_restore },
  { "watch", "show radio statistics as they change",
    "A restart of the modem is told and outlived. Ends with Ctrl-C, or after --count.",
    declare_watch },
  { "doctor", "find out what is wrong between here and the modem",
    "The last line names the cause. Nothing is changed; without --ask no service is asked anything.",
    declare_doctor },
};
// clang-format on

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
  app.add_flag("--json", settings.json, "results as JSON on standard output");
  app.add_option("--timeout", settings.timeout_s, "for an answer or an outcome; 10 by default")
      ->check(CLI::Range(0.001, 86400.0))
      ->type_name("SECONDS");
  app.add_flag("--yes", settings.yes,
               "do what deletes, switches, restarts or changes a configuration");
  app.add_flag("--wait", settings.wait, "wait while another tovictl is changing this modem");
  app.set_help_flag("-h,--help", "print this help, or that of a verb");
}

}  // namespace

void add_target(CLI::App& app, std::string& target, unsigned int& sub) {
  app.add_option("target", target, "NV item (a number) or EFS file (/path)")
      ->required()
      ->type_name("TARGET");
  app.add_option("--sub", sub, "the subscription, 0 or 1")
      ->check(CLI::Range(0, 1).description(""))
      ->type_name("SUB");
}

std::span<const Verb> verbs() {
  return kVerbs;
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
  for (const Verb& verb : kVerbs) {
    CLI::App* sub = app->add_subcommand(verb.name, verb.does);
    sub->footer(verb.more);
    sub->set_help_flag("-h,--help", "print this help");
    sub->fallthrough();
    const Run run = verb.declare(*sub, settings);
    sub->callback([&chosen, run] { chosen = run; });
  }
  return app;
}

}  // namespace ctl

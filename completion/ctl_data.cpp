// tovictl's own tables for others: the words of its shell completion, or its manual, whose text
// comes from standard input and whose verbs, statuses and names from the program.
#include <stdio.h>
#include <string.h>

#include <iostream>
#include <string>

#include "catalogue.h"
#include "command_line.h"
#include "named_statistics.h"
#include "velmor_efs_files.h"

namespace {

using namespace ctl;

template <typename Print>
void for_each_option(CLI::App& app, Print print) {
  for (const CLI::Option* option : app.get_options()) print(*option);
}

void print_words(CLI::App& app) {
  puts("IFS= read -r -d '' _tovictl_words <<'END'");
  const auto print_options = [](CLI::App& of, const char* verb) {
    for_each_option(of, [&](const CLI::Option& option) {
      for (const std::string& name : option.get_lnames()) {
        printf("option:%s --%s %s\n", verb, name.c_str(), option.get_description().c_str());
      }
    });
  };
  print_options(app, "");
  for (const Verb& verb : verbs()) {
    printf("verb %s %s\n", verb.name, verb.does);
    print_options(*app.get_subcommand(verb.name), verb.name);
  }
  for (const KnownNvItem& item : known_nv_items()) printf("target %d %s\n", item.id, item.help);
  for (const velmor_efs_file& file : kKnownEfsFiles) printf("target %s %s\n", file.path, file.help);
  for (const NamedStatistic& named : named_statistics()) {
    printf("statistic %s %s\n", named.name, named.title);
  }
  puts("END");
}

// Each sentence begins a line.
std::string sentences(std::string text) {
  for (size_t at = 0; (at = text.find(". ", at)) != std::string::npos;) text[at + 1] = '\n';
  return text;
}

void print_manual_options(CLI::App& app) {
  for_each_option(app, [](const CLI::Option& option) {
    if (option.get_name() == "--help") return;
    const std::string name = option.get_positional() ? "" : option.get_lnames()[0];
    const std::string argument = option.get_expected_max() > 0 ? option.get_type_name() : "";
    printf(".It%s%s%s%s\n%s.\n", name.empty() ? "" : " Fl -", name.c_str(),
           argument.empty() ? "" : " Ar ", argument.c_str(), option.get_description().c_str());
  });
}

void print_list(const char* what, CLI::App& app) {
  const std::string list = what;
  puts(".Bl -tag -width Ds");
  if (list == "options") print_manual_options(app);
  if (list == "statuses") {
    for (int i = 0; i < kStatuses; ++i) {
      const auto status = static_cast<Status>(i);
      printf(".It %d\n%s: %s.\n", i, status_word(status), status_meaning(status));
    }
  }
  if (list == "statistics") {
    for (const NamedStatistic& named : named_statistics()) {
      printf(".It Cm %s\n%s.\n", named.name, named.title);
    }
  }
  if (list == "targets") {
    for (const KnownNvItem& item : known_nv_items()) printf(".It %d\n%s.\n", item.id, item.help);
    for (const velmor_efs_file& file : kKnownEfsFiles) {
      printf(".It Pa %s\n%s.\n", file.path, file.help);
    }
  }
  if (list == "verbs") {
    for (const Verb& verb : verbs()) {
      CLI::App& sub = *app.get_subcommand(verb.name);
      printf(".It Cm %s", verb.name);
      for_each_option(sub, [](const CLI::Option& option) {
        if (option.get_positional()) printf(" Ar %s", option.get_type_name().c_str());
      });
      printf("\n%c%s.\n%s\n.Bl -tag -width Ds -compact\n", toupper(verb.does[0]), verb.does + 1,
             sentences(verb.more).c_str());
      print_manual_options(sub);
      puts(".El");
    }
  }
  puts(".El");
}

// A line `.\" list NAME` stands for a list.
void print_manual(CLI::App& app) {
  constexpr const char* kMark = ".\\\" list ";
  for (std::string line; std::getline(std::cin, line);) {
    if (line.starts_with(kMark)) {
      print_list(line.c_str() + strlen(kMark), app);
    } else {
      puts(line.c_str());
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  Run chosen;
  const auto app = make_command_line(settings, chosen);
  argc > 1 && strcmp(argv[1], "manual") == 0 ? print_manual(*app) : print_words(*app);
  return 0;
}

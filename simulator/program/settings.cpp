// tovi-modem getprop, setprop, reset: what is done to a state folder without a modem.
#include <stdio.h>

#include "environment.h"
#include "modem.h"
#include "properties.h"
#include "verbs.h"

namespace program {

int getprop(const Args& args) {
  if (args.size() != 1) return wrong_usage();
  if (environment::needed_state_folder() == nullptr) return kFailed;
  char value[PROPERTY_VALUE_MAX];
  property_get(args[0].c_str(), value, "");
  puts(value);
  return kDone;
}

int setprop(const Args& args) {
  if (args.size() != 2) return wrong_usage();
  if (const char* problem = property_problem(args[0], args[1])) return failed(problem);
  const std::string* folder = environment::needed_state_folder();
  if (folder == nullptr) return kFailed;
  std::string problem;
  if (sim::Modem::open(*folder, problem) == nullptr) return failed(problem);
  return property_set(args[0].c_str(), args[1].c_str()) == 0 ? kDone : kFailed;
}

int reset(const Args& args) {
  if (!args.empty()) return wrong_usage();
  const std::string* folder = environment::needed_state_folder();
  if (folder == nullptr) return kFailed;
  std::string problem;
  return sim::Modem::reset(*folder, problem) ? kDone : failed(problem);
}

}  // namespace program

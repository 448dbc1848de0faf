// The command line of tovictl. Apart from the verbs, as its library takes long to compile.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <memory>

#include "verbs.h"

namespace ctl {

// Parsing it picks the verb: `chosen` is set to what carries that out.
std::unique_ptr<CLI::App> make_command_line(Settings& settings, Run& chosen);

}  // namespace ctl

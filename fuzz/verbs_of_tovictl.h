// tovictl's command line, whose header has the same name as tovi-modem's.
#pragma once

#include <string>
#include <vector>

namespace fuzz {

// Parses the words, of which the first is the program's name, and does nothing else.
void parse_command_line(const std::vector<std::string>& words);

}  // namespace fuzz

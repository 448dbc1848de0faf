// The verbs of tovi-modem, and what they share. Each takes the words behind it and gives the exit
// status.
#pragma once

#include <string>
#include <vector>

namespace program {

enum Status { kDone = 0, kFailed = 1, kWrongUsage = 2 };

using Args = std::vector<std::string>;

int serve(const Args& args);
int run(const Args& args);
int unpack(const Args& args);
int getprop(const Args& args);
int setprop(const Args& args);
int reset(const Args& args);

// The usage on standard error, and its status.
int wrong_usage();

// One line on standard error, and its status.
int failed(const std::string& problem);

}  // namespace program

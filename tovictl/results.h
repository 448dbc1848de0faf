// Where the program writes. Results go to standard output, verdicts, questions and progress to
// standard error; what the libraries print is kept apart from both.
#pragma once

#include <stdio.h>

#include <string>
#include <string_view>

namespace ctl::results {

// Once, before anything is printed: takes standard output for the results. What the libraries print
// is dropped from now on. False, with errno set, when that fails.
bool begin();

// Standard output.
FILE* out();
bool to_terminal();

void print(std::string_view bytes);

// Whether all that was printed arrived. False, with errno set, when it did not.
bool flush();

// What the libraries print becomes standard output, or is kept for `end_library_output`.
enum class Library { Shown, Kept };
void begin_library_output(Library library);

// Library output is dropped again. What was kept of it.
std::string end_library_output();

// The same for a while: what the libraries print in between is dropped.
void pause_library_output();
void resume_library_output();

// One line on standard error, "tovictl: " in front.
void say(const std::string& line);

// A line on standard error that the next one replaces; only when that is a terminal. Empty ends it.
void progress(const std::string& line);

// Asks on the terminal. False without one.
bool ask(const std::string& question);

}  // namespace ctl::results

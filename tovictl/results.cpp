#include "results.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

namespace ctl::results {
namespace {

int g_results = -1;  // the descriptor that standard output was
int g_nowhere = -1;
int g_library = -1;  // what the libraries' output goes to, or -1 for nowhere
FILE* g_out;

void point_library_at(int fd) {
  fflush(stdout);
  dup2(fd, STDOUT_FILENO);
}

}  // namespace

bool begin() {
  g_results = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  g_nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  g_out = g_results >= 0 && g_nowhere >= 0 ? fdopen(g_results, "w") : nullptr;
  if (g_out == nullptr) return false;
  // What was done is seen when it was done, through a pipe too.
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  point_library_at(g_nowhere);
  return true;
}

FILE* out() {
  return g_out;
}

bool to_terminal() {
  return isatty(g_results) == 1;
}

void print(std::string_view bytes) {
  fwrite(bytes.data(), 1, bytes.size(), g_out);
}

bool flush() {
  return fflush(g_out) == 0 && ferror(g_out) == 0;
}

void begin_library_output(Library library) {
  g_library = library == Library::Shown ? g_results : memfd_create("output", MFD_CLOEXEC);
  point_library_at(g_library);
}

std::string end_library_output() {
  point_library_at(g_nowhere);
  std::string kept;
  if (g_library >= 0 && g_library != g_results) {
    const off_t size = lseek(g_library, 0, SEEK_END);
    kept.resize(static_cast<size_t>(std::max<off_t>(size, 0)));
    const ssize_t n = pread(g_library, kept.data(), kept.size(), 0);
    kept.resize(static_cast<size_t>(std::max<ssize_t>(n, 0)));
    close(g_library);
  }
  g_library = -1;
  return kept;
}

void pause_library_output() {
  point_library_at(g_nowhere);
}

void resume_library_output() {
  if (g_library >= 0) point_library_at(g_library);
}

void say(const std::string& line) {
  progress("");
  fprintf(stderr, "tovictl: %s\n", line.c_str());
}

void progress(const std::string& line) {
  static bool shown = false;
  if (!shown && line.empty()) return;
  if (isatty(STDERR_FILENO) != 1) return;
  fprintf(stderr, "\r\033[K%s", line.c_str());
  fflush(stderr);
  shown = !line.empty();
}

bool ask(const std::string& question) {
  if (isatty(STDIN_FILENO) != 1 || isatty(STDERR_FILENO) != 1) return false;
  progress("");
  fprintf(stderr, "tovictl: %s [y/N] ", question.c_str());
  const int answer = getchar();
  return answer == 'y' || answer == 'Y';
}

}  // namespace ctl::results

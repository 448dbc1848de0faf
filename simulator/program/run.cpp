// tovi-modem run: a modem for one command, and nothing left when the command has ended.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "caretaker.h"
#include "retry.h"
#include "router.h"
#include "serving.h"
#include "unix_server.h"

namespace program {
namespace {

constexpr int kNotRunnable = 126;
constexpr int kNotFound = 127;

struct RunOptions {
  std::string state;
  Wishes wishes;
  Args command;
};

std::optional<RunOptions> parse_options(const Args& args) {
  RunOptions options;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--") {
      options.command.assign(args.begin() + static_cast<ptrdiff_t>(i) + 1, args.end());
      break;
    }
    if (args[i] == "--state" && i + 1 < args.size()) {
      options.state = args[++i];
    } else if (!options.wishes.take(args, i)) {
      return std::nullopt;
    }
  }
  if (options.command.empty()) return std::nullopt;
  return options;
}

// The command, as a process of its own that SIGTERM reaches when this one dies.
class Command {
 public:
  // Blocks the signals that are passed on, and SIGCHLD, which tells of the end.
  Command() {
    signal(SIGCHLD, SIG_DFL);
    sigset_t ours;
    sigemptyset(&ours);
    for (const int signal : {SIGINT, SIGTERM, SIGCHLD}) sigaddset(&ours, signal);
    sigprocmask(SIG_BLOCK, &ours, &usual_);
    signals_ = qmi::Descriptor(signalfd(-1, &ours, SFD_CLOEXEC | SFD_NONBLOCK));
  }

  // 0, or why the program cannot be run.
  int start(const Args& words);

  // Polls readable when `has_ended` is to be called, which does what the signals ask for.
  int signals() const { return signals_.get(); }
  bool has_ended();

  // As a shell has it.
  int status() const {
    return WIFSIGNALED(status_) ? 128 + WTERMSIG(status_) : WEXITSTATUS(status_);
  }

 private:
  sigset_t usual_{};
  qmi::Descriptor signals_;
  pid_t pid_ = -1;
  int status_ = 0;
};

int Command::start(const Args& words) {
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return errno;
  const qmi::Descriptor told(ends[0]);
  qmi::Descriptor tells(ends[1]);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) return errno;
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(kNotRunnable);
    sigprocmask(SIG_SETMASK, &usual_, nullptr);
    execvp(argv[0], argv.data());
    const int error = errno;
    _exit(write(tells.get(), &error, sizeof error) > 0);
  }
  tells = qmi::Descriptor();
  int error = 0;
  if (read(told.get(), &error, sizeof error) <= 0) return 0;
  waitpid(pid_, nullptr, 0);
  return error;
}

bool Command::has_ended() {
  signalfd_siginfo signal;
  while (read(signals_.get(), &signal, sizeof signal) == sizeof signal) {
    if (signal.ssi_signo == SIGCHLD) continue;
    // What a terminal sends has reached the command, which is in the same group.
    const bool from_terminal = signal.ssi_code == SI_KERNEL;
    if (!from_terminal) kill(pid_, static_cast<int>(signal.ssi_signo));
  }
  return waitpid(pid_, &status_, WNOHANG) == pid_;
}

// The status of the command; `folder` is for what is not to stay.
int run_in(const std::string& folder, const RunOptions& options) {
  const std::string state = options.state.empty() ? folder + "/state" : options.state;
  const std::string socket = folder + "/modem";
  std::string problem;
  Command command;
  if (command.signals() < 0) return failed(std::string("signalfd: ") + strerror(errno));
  retry::end_when_readable(command.signals());
  const auto served = ServedModem::open(state, options.wishes, problem);
  if (served == nullptr) return failed(problem);
  sim::Router router(served->modem(), served->take_behaviour());
  sim::UnixServer server(router);
  if (!server.listen(socket, problem)) return failed(problem);
  setenv("TOVI_MODEM", ("unix:" + socket).c_str(), 1);
  setenv("TOVI_STATE", state.c_str(), 1);
  if (!served->open_ports()) return kFailed;
  if (const int error = command.start(options.command); error != 0) {
    failed(options.command[0] + ": " + strerror(error));
    return error == ENOENT ? kNotFound : kNotRunnable;
  }
  do {
    server.run(command.signals());
  } while (!command.has_ended());
  const bool as_recorded = served->finish();
  return command.status() != 0 || as_recorded ? command.status() : int{kFailed};
}

}  // namespace

int run(const Args& args) {
  auto options = parse_options(args);
  if (!options) return wrong_usage();
  // The command may go to another folder.
  if (!options->state.empty() && !options->state.starts_with('/')) {
    char here[4096];
    if (getcwd(here, sizeof here) == nullptr) return failed(strerror(errno));
    options->state = std::string(here) + "/" + options->state;
  }
  Caretaker caretaker;
  std::string problem;
  if (!caretaker.start(options->state, problem)) return failed(problem);
  return run_in(caretaker.folder(), *options);
}

}  // namespace program

// tovi-modem serve: a modem for any number of programs, until it is told to stop.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/signalfd.h>

#include "environment.h"
#include "qmux_server.h"
#include "qrtr_server.h"
#include "retry.h"
#include "router.h"
#include "serving.h"
#include "unix_server.h"

namespace program {
namespace {

struct ServeOptions {
  bool qrtr = false;
  std::string socket;
  std::string device;  // the link to it
  Wishes wishes;
};

std::optional<ServeOptions> parse_options(const Args& args) {
  ServeOptions options;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--qrtr") {
      options.qrtr = true;
    } else if (args[i] == "--unix" && i + 1 < args.size()) {
      options.socket = args[++i];
    } else if (args[i] == "--qmux" && i + 1 < args.size()) {
      options.device = args[++i];
    } else if (!options.wishes.take(args, i)) {
      return std::nullopt;
    }
  }
  const int ways = options.qrtr + !options.socket.empty() + !options.device.empty();
  if (ways != 1) return std::nullopt;
  return options;
}

// SIGTERM and SIGINT, as a descriptor that polls readable when one of them comes.
qmi::Descriptor stop_signals() {
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTERM);
  sigaddset(&stops, SIGINT);
  sigprocmask(SIG_BLOCK, &stops, nullptr);
  return qmi::Descriptor(signalfd(-1, &stops, SFD_CLOEXEC));
}

int ready_and_run(auto& server, ServedModem& served, const qmi::Descriptor& stop) {
  if (!served.open_ports()) return kFailed;
  fputs("tovi-modem: ready\n", stderr);
  server.run(stop.get());
  return served.finish() ? kDone : kFailed;
}

}  // namespace

int serve(const Args& args) {
  const auto options = parse_options(args);
  if (!options) return wrong_usage();
  const std::string* folder = environment::needed_state_folder();
  if (folder == nullptr) return kFailed;
  std::string problem;
  const auto served = ServedModem::open(*folder, options->wishes, problem);
  if (served == nullptr) return failed(problem);
  const qmi::Descriptor stop = stop_signals();
  if (!stop) return failed(std::string("signalfd: ") + strerror(errno));
  retry::end_when_readable(stop.get());
  if (options->qrtr) {
    sim::QrtrServer server(served->modem(), served->take_behaviour());
    return server.listen(problem) ? ready_and_run(server, *served, stop) : failed(problem);
  }
  if (!options->device.empty()) {
    sim::QmuxServer server(served->modem(), served->take_behaviour());
    return server.listen(options->device, problem) ? ready_and_run(server, *served, stop)
                                                   : failed(problem);
  }
  sim::Router router(served->modem(), served->take_behaviour());
  sim::UnixServer server(router);
  return server.listen(options->socket, problem) ? ready_and_run(server, *served, stop)
                                                 : failed(problem);
}

}  // namespace program

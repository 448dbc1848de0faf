// What `serve` and `run` have in common: a modem with its state, its tester's wishes, its ports.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "device_ports.h"
#include "log.h"
#include "modem.h"
#include "network.h"
#include "replay.h"
#include "state_files.h"
#include "verbs.h"

namespace program {

// The options of both verbs.
struct Wishes {
  std::string faults;  // TOVI_SIM_FAULTS unless given
  std::string log;     // files, or "": none
  std::string replay;
  bool fast = false;
  bool sync = false;  // what was answered is on the disk

  Wishes();
  // Takes the option at `at`, and moves to its value. False when it is none of these.
  bool take(const Args& args, size_t& at);
};

class ServedModem {
 public:
  // Opens the state folder, so that nobody can empty it any more, and what the wishes name. Null,
  // with `problem` in words, when that fails.
  static std::unique_ptr<ServedModem> open(const std::string& folder, const Wishes& wishes,
                                           std::string& problem);

  sim::Modem& modem() { return *modem_; }
  // For the one network of this modem.
  sim::Behaviour take_behaviour() { return std::move(behaviour_); }
  // Makes the diag and AT port. What goes wrong is said on standard error; false when there can be
  // none.
  bool open_ports();
  // At the end. Whether what was replayed was asked as it was recorded.
  bool finish() const { return replay_.finish(); }

 private:
  explicit ServedModem(const std::string& folder);

  const state_files::FolderLock serving_;
  std::unique_ptr<sim::Modem> modem_;
  sim::Behaviour behaviour_;
  sim::Log log_;
  sim::Replay replay_;
  sim::Witness* witness_ = nullptr;
  std::optional<sim::DevicePorts> ports_;
};

}  // namespace program

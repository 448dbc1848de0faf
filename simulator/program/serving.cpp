#include "serving.h"

#include "environment.h"

namespace program {

using state_files::FolderLock;

namespace {

// Says of a damaged one how far it goes.
std::optional<sim::Record> read_record(const std::string& path, std::string& problem) {
  std::string damage;
  auto record = sim::Record::read(path, damage);
  if (record && !damage.empty()) environment::complain("%s", damage.c_str());
  if (!record) problem = damage;
  return record;
}

}  // namespace

Wishes::Wishes() : faults(environment::sim_faults()) {}

bool Wishes::take(const Args& args, size_t& at) {
  sync = sync || args[at] == "--sync";
  if (args[at] == "--sync") return true;
  const struct {
    const char* name;
    std::string& value;
  } options[] = {{"--faults", faults}, {"--log", log}, {"--replay", replay}};
  if (args[at] == "--fast") {
    fast = true;
    return true;
  }
  for (const auto& [name, value] : options) {
    if (args[at] != name || at + 1 == args.size()) continue;
    value = args[++at];
    return true;
  }
  return false;
}

ServedModem::ServedModem(const std::string& folder)
    : serving_(folder, state_files::LockPart::Serving, FolderLock::Mode::Shared) {}

std::unique_ptr<ServedModem> ServedModem::open(const std::string& folder, const Wishes& wishes,
                                               std::string& problem) {
  if (wishes.sync) state_files::sync_to_disk();
  if (sim::Modem::open(folder, problem) == nullptr) return nullptr;
  std::unique_ptr<ServedModem> served(new ServedModem(folder));
  if (!served->serving_.held()) {
    problem = served->serving_.problem();
    return nullptr;
  }
  // Once more, now that nobody can empty the folder any more.
  served->modem_ = sim::Modem::open(folder, problem);
  if (served->modem_ == nullptr) return nullptr;
  auto behaviour = sim::Behaviour::from(wishes.faults, *served->modem_, problem);
  if (!behaviour) return nullptr;
  served->behaviour_ = std::move(*behaviour);
  if (!wishes.log.empty()) {
    if (!served->log_.open(wishes.log, problem)) return nullptr;
    served->witness_ = &served->log_;
  }
  served->behaviour_.witness = served->witness_;
  if (!wishes.replay.empty()) {
    auto record = read_record(wishes.replay, problem);
    if (!record) return nullptr;
    served->replay_.play(std::move(*record), wishes.fast);
    served->behaviour_.script = &served->replay_;
  }
  return served;
}

bool ServedModem::open_ports() {
  ports_.emplace(*modem_, witness_);
  std::string problem;
  const auto outcome = ports_->open(sim::DevicePorts::Owner::Server, problem);
  if (outcome == sim::DevicePorts::Outcome::HasServer) problem = "another server has them";
  if (!problem.empty()) environment::complain("diag and AT port: %s", problem.c_str());
  return outcome != sim::DevicePorts::Outcome::Failed;
}

}  // namespace program

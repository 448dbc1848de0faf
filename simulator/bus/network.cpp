#include "network.h"

#include <stdlib.h>

#include <algorithm>

#include "detached_thread.h"
#include "environment.h"
#include "modem.h"
#include "sim_extension.h"
#include "sim_nas.h"
#include "sim_pdc.h"
#include "sim_sar.h"
#include "sim_uim.h"
#include "sim_vs.h"

namespace sim {
namespace {

std::vector<std::unique_ptr<Service>> make_services(Modem& modem) {
  std::vector<std::unique_ptr<Service>> services;
  services.push_back(std::make_unique<NasService>(modem));
  services.push_back(std::make_unique<UimService>(modem));
  services.push_back(std::make_unique<SarService>(modem));
  services.push_back(std::make_unique<VsService>(modem.statistics()));
  services.push_back(std::make_unique<PdcService>(modem.configurations()));
  services.push_back(std::make_unique<ExtensionService>(modem));
  return services;
}

}  // namespace

std::optional<Behaviour> Behaviour::from(const std::string& rules, const Modem& modem,
                                         std::string& problem) {
  auto faults = Faults::parse(rules, problem);
  if (!faults || !faults->follow(modem.folder() + "/faults", problem)) return std::nullopt;
  const std::string seed = environment::sim_seed();
  char* end = nullptr;
  const unsigned long value = strtoul(seed.c_str(), &end, 10);
  if (*end != '\0' || value > UINT32_MAX) {
    problem = "TOVI_SIM_SEED=" + seed + ": not a number";
    return std::nullopt;
  }
  return Behaviour{.faults = std::move(*faults),
                   .seed = seed.empty() ? 1 : static_cast<uint32_t>(value)};
}

Network::Network(Modem& modem, Behaviour behaviour)
    : faults_(std::move(behaviour.faults)),
      random_(behaviour.seed),
      witness_(behaviour.witness),
      script_(behaviour.script) {
  for (auto& service : make_services(modem)) {
    services_.push_back({.service = std::move(service)});
  }
}

// A service that is absent has no start, or a late one.
void Network::start(Running& running) {
  const Fault* absence = faults_.absence(running.id());
  if (absence == nullptr) {
    set_up(running, true);
  } else if (absence->value) {
    later(*absence->value, [this, &running]() REQUIRES(lock_) { set_up(running, true); });
  }
}

void Network::set_up(Running& running, bool up) {
  if (running.up == up) return;
  running.up = up;
  if (up) {
    publish(running);
  } else {
    withdraw(running);
    running.service->all_clients_gone();
  }
}

void Network::renew(Running& running) {
  set_up(running, false);
  set_up(running, true);
}

void Network::start_services() {
  for (Running& running : services_) start(running);
}

void Network::stop_services() {
  for (Running& running : services_) set_up(running, false);
}

void Network::forget_client(qmi::Address client) {
  for (Running& running : services_) running.service->client_gone(client);
}

// From the script if there is one, else from the modem.
Exchange Network::exchange(Running& running, qmi::Address client, std::span<const uint8_t> packet) {
  if (script_ == nullptr) return carry_out(*running.service, client, packet, faults_, random_);
  const auto header = qmi::read_header(packet);
  if (!header || !is_whole(*header, packet)) return {};
  auto scripted = script_->answer(running.service->description(), packet);
  if (scripted) return std::move(*scripted);
  return {.deliveries = {{0, running.service->refusal(*header, kQmiInternal)}}};
}

void Network::change(const Change& change) {
  for (Running& running : services_) {
    if (running.id() != change.service) continue;
    if (change.after_ms == 0) {
      set_up(running, change.there);
    } else {
      later(change.after_ms,
            [this, &running, there = change.there]() REQUIRES(lock_) { set_up(running, there); });
    }
  }
}

void Network::service_sought(uint32_t service) {
  if (script_ == nullptr) return;
  for (const Change& one : script_->sought(service)) change(one);
}

void Network::request(Running& running, qmi::Address client, std::span<const uint8_t> packet) {
  Exchange outcome = exchange(running, client, packet);
  if (witness_ != nullptr) witness_->saw(running.service->description(), client, packet, outcome);
  for (Delivery& delivery : outcome.deliveries) {
    if (delivery.delay_ms == 0) {
      deliver(running, client, delivery.packet);
      continue;
    }
    // An answer of a service that has left meanwhile, or come back elsewhere, is lost.
    later(delivery.delay_ms, [this, &running, port = running.port, client,
                              late = std::move(delivery.packet)]() REQUIRES(lock_) {
      if (running.up && running.port == port) deliver(running, client, late);
    });
  }
  for (const Change& one : outcome.changes) change(one);
  if (!outcome.outage) return;
  if (outcome.outage->after_ms == 0) {
    go_down(running, *outcome.outage);
  } else {
    later(outcome.outage->after_ms, [this, &running, outage = *outcome.outage]()
                                        REQUIRES(lock_) { go_down(running, outage); });
  }
}

// A later outage of the same services takes back when they were to return.
void Network::go_down(Running& running, const Outage& outage) {
  const unsigned int mine = ++last_outage_;
  for (Running& one : services_) {
    if (!outage.of_all_services && &one != &running) continue;
    set_up(one, false);
    one.outage = mine;
  }
  if (!outage.back_after_ms) return;
  later(*outage.back_after_ms, [this, mine]() REQUIRES(lock_) {
    for (Running& one : services_) {
      if (one.outage == mine) start(one);
    }
  });
}

void Network::later(uint32_t ms, std::function<void()> what) {
  agenda_.push_back({timing::Clock::now() + timing::scaled(ms), std::move(what)});
  agenda_changed_.notify_all();
  if (own_thread_) start_thread();
}

void Network::start_thread() {
  if (!thread_started_) thread_started_ = start_detached_thread([this] { keep_time(); });
}

timing::Deadline Network::earliest() {
  timing::Deadline first = timing::kNever;
  for (const Later& item : agenda_) first = std::min(first, item.when);
  return first;
}

timing::Deadline Network::next_due() {
  MutexLock hold(lock_);
  return earliest();
}

void Network::run_due() {
  MutexLock hold(lock_);
  run_due_locked();
}

// In the order of their times: what is due may add to the agenda.
void Network::run_due_locked() {
  while (earliest() <= timing::Clock::now()) {
    const auto first =
        std::min_element(agenda_.begin(), agenda_.end(),
                         [](const Later& a, const Later& b) { return a.when < b.when; });
    const auto what = std::move(first->what);
    agenda_.erase(first);
    what();
  }
}

void Network::keep_time_on_a_thread() {
  MutexLock hold(lock_);
  own_thread_ = true;
  if (!agenda_.empty()) start_thread();
}

void Network::keep_time() {
  MutexLock hold(lock_);
  for (;;) {
    agenda_changed_.wait_until(lock_, earliest());
    run_due_locked();
  }
}

}  // namespace sim

// Any bytes as a file of the state folder. Whatever the modem, its services' twins and the
// properties make of them, nothing comes to harm, and a value that is set is then there.
#include <fcntl.h>

#include <map>
#include <vector>

#include "fuzz.h"
#include "modem.h"
#include "properties.h"
#include "sim_at.h"
#include "sim_diag.h"
#include "state_files.h"
#include "state_reader.h"

namespace {

class StateFolder {
 public:
  StateFolder() {
    setenv("TOVI_STATE", folder_.path.c_str(), 1);
    std::string problem;
    modem = sim::Modem::open(folder_.path, problem);
    fuzz::require(modem != nullptr);
  }

  // Replaces a file, and the one before it by what it was.
  void hold(const std::string& name, std::string_view bytes) {
    const std::string path = folder_.path + "/" + name;
    if (replaced_ != path && !replaced_.empty()) put(replaced_, factory_);
    if (replaced_ != path) factory_ = state_files::read(path).value_or("");
    replaced_ = path;
    put(path, bytes);
  }

  std::unique_ptr<sim::Modem> modem;

 private:
  static void put(const std::string& path, std::string_view bytes) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    fuzz::require(fd >= 0);
    fuzz::require(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    close(fd);
  }

  fuzz::Folder folder_;
  std::string replaced_;
  std::string factory_;
};

// What a file is asked for, with a number and a line from the input.
using Ask = void (*)(sim::Modem& modem, uint32_t number, std::string_view line);

void ask_properties(sim::Modem&, uint32_t number, std::string_view) {
  char value[PROPERTY_VALUE_MAX];
  property_get("persist.vendor.velmor.print", value, "1");
  if (number % 8 == 0) property_set("persist.vendor.velmor.print", "0");
}

void ask_networks(sim::Modem& modem, uint32_t, std::string_view) {
  for (const auto& network : modem.networks()) fuzz::require(network.mnc <= 999);
}

void ask_configurations(sim::Modem& modem, uint32_t number, std::string_view) {
  sim::Configurations& configurations = modem.configurations();
  const uint32_t type = number % sim::kConfigTypes;
  for (const auto& one : configurations.list(type)) {
    fuzz::require(one.type == type && configurations.find(type, one.id).has_value());
  }
}

void ask_selection(sim::Modem& modem, uint32_t number, std::string_view line) {
  sim::Configurations& configurations = modem.configurations();
  const uint32_t type = number % sim::kConfigTypes, sub = type == 0 ? 1 : 0;
  configurations.selection(type, sub);
  switch (number >> 1 & 7) {
    case 0: configurations.select(type, sub, std::string(line)); break;
    case 1: configurations.activate(type, sub); break;
    case 2: configurations.deactivate(type, sub); break;
    default: break;
  }
}

void ask_slot(sim::Modem& modem, uint32_t number, std::string_view) {
  const unsigned int slot = 1 + number % sim::kSlots;
  modem.slot(slot);
  switch (number >> 1 & 7) {
    case 0: modem.power_down(slot); break;
    case 1: modem.power_up(slot); break;
    case 2: modem.set_sim_present(slot, (number & 16) != 0); break;
    default: break;
  }
}

void ask_euicc(sim::Modem& modem, uint32_t number, std::string_view) {
  const std::string eid = modem.eid();
  fuzz::require(eid.empty() || eid.size() == 16);
  if (number % 8 == 0) modem.reset_euicc();
}

void ask_sar(sim::Modem& modem, uint32_t, std::string_view) {
  modem.sar_dsi();
}

void ask_at(sim::Modem& modem, uint32_t, std::string_view line) {
  sim::AtTwin(modem).answer(line);
}

void ask_item(sim::Modem& modem, uint32_t number, std::string_view) {
  const uint8_t read_imei[] = {0x26, 550 & 255, 550 >> 8, 0};
  sim::diag_packets(modem, std::span(read_imei).first(number % 5));
  sim::AtTwin(modem).answer("AT+CGSN");
}

void ask_statistics(sim::Modem& modem, uint32_t number, std::string_view) {
  modem.statistics().record(0, number);
}

void ask_debug(sim::Modem& modem, uint32_t, std::string_view) {
  modem.statistics().debug_info();
  modem.statistics().unsupported_logs();
}

void ask_version(sim::Modem& modem, uint32_t, std::string_view) {
  std::string problem;
  const auto opened = sim::Modem::open(modem.folder(), problem);
  fuzz::require((opened != nullptr) == problem.empty());
}

constexpr struct {
  const char* file;
  Ask ask;
} kRows[] = {
    {"properties", ask_properties},
    {"networks", ask_networks},
    {"pdc/configs", ask_configurations},
    {"pdc/software/0", ask_selection},
    {"pdc/platform/1", ask_selection},
    {"slot/1", ask_slot},
    {"slot/2", ask_slot},
    {"euicc", ask_euicc},
    {"sar", ask_sar},
    {"at", ask_at},
    {"nv/0/550", ask_item},
    {"stats/0/", ask_statistics},
    {"stats/debug", ask_debug},
    {"version", ask_version},
};

void set_and_find(std::string_view text) {
  const std::string set = state_files::with_value(text, "key", "value");
  const auto values = state_files::parse(set);
  fuzz::require(state_files::find_or(values, "key", "") == "value");
  fuzz::require(values.size() >= state_files::parse(text).size() ||
                state_files::find(state_files::parse(text), "key") != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static StateFolder state;
  fuzz::Input input(data, size);
  const auto& row = kRows[input.byte() % std::size(kRows)];
  const uint32_t number = input.byte();
  const std::string line(fuzz::text_of(input.block()));
  const auto content = fuzz::text_of(input.rest());
  set_and_find(content);
  state.hold(row.ask == ask_statistics ? row.file + std::to_string(number) : row.file, content);
  try {
    row.ask(*state.modem, number, line);
  } catch (const sim::StateError&) {
  }
  return 0;
}

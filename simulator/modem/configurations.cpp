#include "configurations.h"

#include <stdio.h>

#include <algorithm>

#include "hex.h"
#include "state_reader.h"

namespace sim {
namespace {

constexpr const char* kTypes[kConfigTypes] = {"platform", "software"};

// A line of pdc/configs: type/id=version size description.
std::string key_of(uint32_t type, const std::string& id) {
  return std::string(kTypes[type]) + "/" + to_hex(id);
}

std::optional<Configuration> read_line(const std::string& key, const std::string& value) {
  for (uint32_t type = 0; type < kConfigTypes; ++type) {
    const std::string prefix = std::string(kTypes[type]) + "/";
    if (!key.starts_with(prefix)) continue;
    const auto id = from_hex(key.substr(prefix.size()));
    Configuration configuration{type, id.value_or(""), 0, 0, ""};
    int used = 0;
    if (sscanf(value.c_str(), "%x %u %n", &configuration.version, &configuration.size, &used) < 2) {
      return std::nullopt;
    }
    configuration.description = value.substr(static_cast<size_t>(used));
    if (!configuration.id.empty()) return configuration;
  }
  return std::nullopt;
}

}  // namespace

std::vector<Configuration> Configurations::list(uint32_t type) const {
  std::vector<Configuration> all;
  for (const auto& [key, value] : read_state_values(configs_path())) {
    const auto configuration = read_line(key, value);
    if (configuration && configuration->type == type) all.push_back(*configuration);
  }
  return all;
}

std::optional<Configuration> Configurations::find(uint32_t type, const std::string& id) const {
  for (const Configuration& configuration : list(type)) {
    if (configuration.id == id) return configuration;
  }
  return std::nullopt;
}

bool Configurations::add(const Configuration& configuration) {
  char numbers[32];
  snprintf(numbers, sizeof numbers, "0x%08x %u ", configuration.version, configuration.size);
  const auto lock = lock_state(folder_);
  return state_files::set_value(folder_, configs_path(),
                                key_of(configuration.type, configuration.id),
                                numbers + configuration.description);
}

bool Configurations::remove(uint32_t type, const std::string& id) {
  const auto lock = lock_state(folder_);
  const std::string all = read_state(configs_path()).value_or("");
  std::string text;
  for (size_t at = 0, end; at < all.size(); at = end + 1) {
    end = std::min(all.find('\n', at), all.size());
    const std::string line = all.substr(at, end - at);
    const auto values = state_files::parse(line);
    const auto configuration =
        values.empty() ? std::nullopt : read_line(values[0].first, values[0].second);
    const bool meant = configuration && configuration->type == type && configuration->id == id;
    if (!meant) text += line + "\n";
  }
  return state_files::write(folder_, configs_path(), text);
}

std::string Configurations::selection_path(uint32_t type, uint32_t sub) const {
  return folder_ + "/pdc/" + kTypes[type] + "/" + std::to_string(sub);
}

Selection Configurations::selection(uint32_t type, uint32_t sub) const {
  const auto values = read_state_values(selection_path(type, sub));
  const auto id = [&](std::string_view key) {
    return from_hex(state_files::find_or(values, key, "")).value_or("");
  };
  return {id("selected"), id("active"), id("pending")};
}

bool Configurations::store(uint32_t type, uint32_t sub, const Selection& selection) {
  return state_files::write(folder_, selection_path(type, sub),
                            "selected=" + to_hex(selection.selected) + "\n" +
                                "active=" + to_hex(selection.active) + "\n" +
                                "pending=" + to_hex(selection.pending) + "\n");
}

bool Configurations::select(uint32_t type, uint32_t sub, const std::string& id) {
  const auto lock = lock_state(folder_);
  Selection now = selection(type, sub);
  now.selected = id;
  now.pending = id == now.active ? "" : id;
  return store(type, sub, now);
}

bool Configurations::activate(uint32_t type, uint32_t sub) {
  const auto lock = lock_state(folder_);
  const std::string selected = selection(type, sub).selected;
  return store(type, sub, {selected, selected, ""});
}

bool Configurations::deactivate(uint32_t type, uint32_t sub) {
  const auto lock = lock_state(folder_);
  return store(type, sub, {});
}

}  // namespace sim

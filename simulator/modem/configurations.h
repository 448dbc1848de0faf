// The configurations (MBN) that the simulated modem holds, and which of them each subscription has
// selected. They live in the state folder: pdc/configs, and pdc/<type>/<sub>.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

inline constexpr uint32_t kConfigTypes = 2;  // platform, software

struct Configuration {
  uint32_t type;
  std::string id;  // bytes
  uint32_t version;
  uint32_t size;  // bytes
  std::string description;
};

// What a subscription has of one type; ids, empty for none.
struct Selection {
  std::string selected;
  std::string active;
  std::string pending;  // selected, but not active yet
};

class Configurations {
 public:
  explicit Configurations(std::string folder) : folder_(std::move(folder)) {}

  std::vector<Configuration> list(uint32_t type) const;
  std::optional<Configuration> find(uint32_t type, const std::string& id) const;
  bool add(const Configuration& configuration);
  bool remove(uint32_t type, const std::string& id);

  Selection selection(uint32_t type, uint32_t sub) const;
  bool select(uint32_t type, uint32_t sub, const std::string& id);
  bool activate(uint32_t type, uint32_t sub);
  bool deactivate(uint32_t type, uint32_t sub);

 private:
  std::string configs_path() const { return folder_ + "/pdc/configs"; }
  std::string selection_path(uint32_t type, uint32_t sub) const;
  bool store(uint32_t type, uint32_t sub, const Selection& selection);

  const std::string folder_;
};

}  // namespace sim

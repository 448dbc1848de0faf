// The networks on the air, as the file `networks` of the state folder has them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

enum class Radio { Gsm, Umts, Lte, TdScdma, Nr };

struct RadioNetwork {
  uint16_t mcc;
  uint16_t mnc;
  Radio radio;
  bool serving;
  bool home;
  bool forbidden;
  bool preferred;
  std::string name;
};

// A line that cannot be read is a StateError.
std::vector<RadioNetwork> read_networks(const std::string& path);

}  // namespace sim

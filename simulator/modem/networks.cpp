#include "networks.h"

#include <stdio.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "state_reader.h"

namespace sim {
namespace {

constexpr struct {
  const char* word;
  Radio radio;
} kRadios[] = {
    {"gsm", Radio::Gsm},          {"umts", Radio::Umts}, {"lte", Radio::Lte},
    {"td-scdma", Radio::TdScdma}, {"nr", Radio::Nr},
};

constexpr struct {
  const char* word;
  bool RadioNetwork::*flag;
} kFlags[] = {
    {"serving", &RadioNetwork::serving},
    {"home", &RadioNetwork::home},
    {"forbidden", &RadioNetwork::forbidden},
    {"preferred", &RadioNetwork::preferred},
};

template <typename Row, size_t N>
const Row& row_of(const Row (&rows)[N], const std::string& word) {
  const auto found = std::find_if(std::begin(rows), std::end(rows),
                                  [&](const Row& row) { return row.word == word; });
  if (found == std::end(rows)) throw StateError();
  return *found;
}

// mcc/mnc=radio flags name; the flags with commas between, or "-" for none.
RadioNetwork network_of(const std::string& key, const std::string& value) {
  RadioNetwork network{};
  int used = 0;
  if (sscanf(key.c_str(), "%3hu/%3hu%n", &network.mcc, &network.mnc, &used) != 2 ||
      static_cast<size_t>(used) != key.size()) {
    throw StateError();
  }
  std::istringstream words(value);
  std::string radio, flags;
  words >> radio >> flags >> std::ws;
  network.radio = row_of(kRadios, radio).radio;
  std::istringstream list(flags == "-" ? "" : flags);
  for (std::string flag; std::getline(list, flag, ',');) network.*row_of(kFlags, flag).flag = true;
  std::getline(words, network.name);
  return network;
}

}  // namespace

std::vector<RadioNetwork> read_networks(const std::string& path) {
  std::vector<RadioNetwork> networks;
  for (const auto& [key, value] : read_state_values(path)) {
    networks.push_back(network_of(key, value));
  }
  return networks;
}

}  // namespace sim

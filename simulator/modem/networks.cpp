#include "networks.h"

#include <stdio.h>

#include <algorithm>
#include <iterator>
#include <string_view>

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
const Row& row_of(const Row (&rows)[N], std::string_view word) {
  const auto found = std::find_if(std::begin(rows), std::end(rows),
                                  [&](const Row& row) { return row.word == word; });
  if (found == std::end(rows)) throw StateError();
  return *found;
}

// What stands before `mark`, which is taken off `text` with it, and with blanks that follow.
std::string_view take_until(std::string_view& text, char mark) {
  const size_t end = std::min(text.find(mark), text.size());
  const std::string_view head = text.substr(0, end);
  text = state_files::trim(text.substr(std::min(end + 1, text.size())));
  return head;
}

// mcc/mnc=radio flags name; the flags with commas between, or "-" for none.
RadioNetwork network_of(const std::string& key, const std::string& value) {
  RadioNetwork network{};
  int used = 0;
  if (key.find_first_not_of("0123456789/") != key.npos ||  // sscanf would take a sign
      sscanf(key.c_str(), "%3hu/%3hu%n", &network.mcc, &network.mnc, &used) != 2 ||
      static_cast<size_t>(used) != key.size()) {
    throw StateError();
  }
  std::string_view rest = value;
  network.radio = row_of(kRadios, take_until(rest, ' ')).radio;
  std::string_view flags = take_until(rest, ' ');
  if (flags == "-") flags = "";
  while (!flags.empty()) network.*row_of(kFlags, take_until(flags, ',')).flag = true;
  network.name = state_files::trim(rest);
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

#include "record_file.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>

#include "qcci/packet.h"
#include "state_files.h"
#include "words.h"

namespace sim {
namespace {

constexpr size_t kMaxRecordBytes = size_t{1} << 30;
constexpr double kLatest = 1e12;  // seconds

// Nothing for what are no bytes.
std::optional<RecordedPacket> packet_from(const std::string& hex) {
  const auto digit = [](char c) { return c >= 'a' ? c - 'a' + 10 : c - '0'; };
  RecordedPacket packet;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const auto pair = std::string_view(hex).substr(i, 2);
    const bool hidden = pair == "..";
    if (!hidden && (pair.size() != 2 || pair.find_first_not_of("0123456789abcdef") != pair.npos)) {
      return std::nullopt;
    }
    packet.bytes.push_back(hidden ? kFiller
                                  : static_cast<uint8_t>(digit(pair[0]) << 4 | digit(pair[1])));
    packet.hidden.push_back(hidden);
  }
  return packet;
}

// Puts the lines of a record together.
class Reader {
 public:
  explicit Reader(Record& record) : record_(record) {}

  // False for what is no line of a record.
  bool take(size_t number, std::string_view text) {
    const auto line = nlohmann::json::parse(text, nullptr, false);
    if (!line.is_object()) return false;
    try {
      if (!line.at("process").is_number_integer() || !line.at("service_id").is_number_unsigned()) {
        return false;
      }
      Process& process = processes_[line.at("process").get<int64_t>()];
      const uint32_t service = line.at("service_id").get<uint32_t>();
      const double seconds = line.at("time").get<double>();
      if (!(seconds >= 0 && seconds < kLatest)) return false;
      const auto time = static_cast<int64_t>(std::llround(seconds * 1e6));
      if (line.contains("presence")) {
        return take_presence(process, service, time, line.at("presence").get<std::string>());
      }
      const auto packet = packet_from(line.at("bytes").get<std::string>());
      const auto* known = service_of(service);
      if (!packet || known == nullptr) return false;
      if (line.at("direction").get<std::string>() == "<") {
        take_answer(process, service, time, *packet);
        return true;
      }
      return take_request(process, *known, time, number, *packet);
    } catch (const nlohmann::json::exception&) {
      return false;
    }
  }

 private:
  // What later lines of a process may belong to.
  struct Asked {
    size_t exchange;
    uint16_t transaction;
    int64_t time;
  };
  struct Sought {
    size_t search;
    int64_t time;
    bool listed;
  };
  struct Process {
    std::map<uint32_t, std::vector<Asked>> asked;     // by service
    std::map<uint32_t, Sought> sought;                // the last search
    std::optional<std::pair<uint32_t, size_t>> last;  // service and place in `asked`
  };

  bool take_request(Process& process, const qmi_idl_service_object& service, int64_t time,
                    size_t number, const RecordedPacket& packet) {
    const auto header = qmi::read_header(packet.bytes);
    if (!header || !is_whole(*header, packet.bytes)) return false;
    auto& asked = process.asked[service.service_id];
    asked.push_back({record_.exchanges.size(), header->transaction, time});
    process.last = {service.service_id, asked.size() - 1};
    record_.exchanges.push_back({number, &service, packet, {}, {}});
    return true;
  }

  // A response belongs to the last request of its transaction, anything else to the last of all.
  // One that nobody has asked for is left out.
  void take_answer(Process& process, uint32_t service, int64_t time, const RecordedPacket& packet) {
    const auto& asked = process.asked[service];
    if (asked.empty()) return;
    const Asked* to = &asked.back();
    const auto header = qmi::read_header(packet.bytes);
    for (size_t i = asked.size(); header && header->kind == qmi::Kind::Response && i > 0; --i) {
      if (asked[i - 1].transaction != header->transaction) continue;
      to = &asked[i - 1];
      break;
    }
    record_.exchanges[to->exchange].answers.push_back({since(to->time, time), packet});
  }

  // A service that is there for the first time is what a search came to, at once when it was there
  // before the list ended; later changes belong to the last request of the process.
  bool take_presence(Process& process, uint32_t service, int64_t time, const std::string& word) {
    if (word == "sought") {
      process.sought[service] = {record_.searches.size(), time, false};
      record_.searches.push_back({service, {}});
      return true;
    }
    const auto sought = process.sought.find(service);
    if (word == "listed") {
      if (sought != process.sought.end()) sought->second.listed = true;
      return true;
    }
    if (word != "there" && word != "gone") return false;
    const bool there = word == "there";
    if (sought != process.sought.end()) {
      const auto [search, begin, listed] = sought->second;
      auto& changes = record_.searches[search].changes;
      if (changes.empty() || !process.last) {
        changes.push_back({listed ? since(begin, time) : 0, service, there});
        return true;
      }
    }
    if (!process.last) return true;
    const Asked& last = process.asked[process.last->first][process.last->second];
    record_.exchanges[last.exchange].changes.push_back({since(last.time, time), service, there});
    return true;
  }

  static uint32_t since(int64_t begin, int64_t time) {
    return static_cast<uint32_t>(std::clamp<int64_t>(time - begin, 0, UINT32_MAX));
  }

  Record& record_;
  std::map<int64_t, Process> processes_;
};

}  // namespace

std::optional<Record> Record::read(const std::string& path, std::string& problem) {
  const auto text = state_files::read(path, kMaxRecordBytes);
  if (!text) {
    problem = path + ": " + strerror(errno);
    return std::nullopt;
  }
  Record record;
  Reader reader(record);
  std::string_view rest = *text;
  for (size_t number = 1; !rest.empty(); ++number) {
    const size_t end = rest.find('\n');
    if (end == rest.npos || !reader.take(number, rest.substr(0, end))) {
      problem = path + ":" + std::to_string(number) + ": " +
                (end == rest.npos ? "ends within a line" : "no line of a record") +
                (number > 1 ? "; what stands before it is replayed" : "");
      if (number == 1) return std::nullopt;
      break;
    }
    rest.remove_prefix(end + 1);
  }
  if (text->empty()) {
    problem = path + ": no record, it is empty";
    return std::nullopt;
  }
  return record;
}

}  // namespace sim

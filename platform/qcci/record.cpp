#include "qcci/record.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "environment.h"
#include "qcci/trace.h"
#include "timing.h"

namespace qmi::record {
namespace {

constexpr size_t kWordsBytes = 256;  // around the bytes of a packet

void append_hex(std::string& out, std::span<const uint8_t> bytes, const std::vector<bool>& hidden) {
  constexpr const char* kDigits = "0123456789abcdef";
  size_t at = out.size();
  out.resize(at + 2 * bytes.size());
  for (const uint8_t byte : bytes) {
    out[at++] = kDigits[byte >> 4];
    out[at++] = kDigits[byte & 15];
  }
  at -= 2 * bytes.size();
  for (size_t i = 0; i < hidden.size(); ++i) {
    if (hidden[i]) out[at + 2 * i] = out[at + 2 * i + 1] = '.';
  }
}

class Recorder final : public Observer {
 public:
  void on_crossing(const Crossing& crossing) override {
    std::string line;
    line.reserve(kWordsBytes + 2 * crossing.packet.size());
    line += begin(crossing.service.service_id);
    const auto header = read_header(crossing.packet);
    char text[100];
    snprintf(text, sizeof text, ",\"service\":\"%s\",\"direction\":\"%c\",\"transaction\":%u,",
             crossing.service.name, crossing.direction,
             header ? unsigned{header->transaction} : 0u);
    line += text;
    line += "\"bytes\":\"";
    append_hex(line, crossing.packet,
               trace::hidden_bytes(crossing.direction, crossing.service, crossing.packet,
                                   crossing.request));
    line += "\"}\n";
    add(line);
  }

  void on_presence(uint32_t service, Presence presence) override {
    constexpr const char* kWords[] = {"sought", "listed", "there", "gone"};
    add(begin(service) + ",\"presence\":\"" + kWords[static_cast<int>(presence)] + "\"}\n");
  }

 private:
  static std::string begin(uint32_t service) {
    const auto now = timing::Clock::now().time_since_epoch();
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    char text[100];
    snprintf(text, sizeof text, "{\"time\":%lld.%06lld,\"process\":%d,\"service_id\":%u",
             static_cast<long long>(us / 1'000'000), static_cast<long long>(us % 1'000'000),
             getpid(), service);
    return text;
  }

  static void add(const std::string& line) {
    static std::atomic_flag said;
    errno = ENOSPC;  // of a write that ends early
    const ssize_t written = write(environment::record().fd, line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size())) return;
    environment::complain_once(said, "TOVI_RECORD: %s", strerror(errno));
  }
};

}  // namespace

Observer* observer() {
  static auto* recorder = new Recorder;  // outlives main, like the threads that may call it
  return environment::record().sink != environment::Sink::None ? recorder : nullptr;
}

}  // namespace qmi::record

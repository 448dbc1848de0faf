// tovictl watch: statistics live.
#include <math.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <time.h>

#include <algorithm>
#include <charconv>
#include <deque>

#include "local_files.h"
#include "report.h"
#include "results.h"
#include "sampler.h"
#include "timing.h"
#include "verbs.h"

namespace ctl {
namespace {

constexpr uint32_t kAwayMs = 60'000;  // a modem that is away for longer does not come back

struct Arguments {
  std::vector<std::string> names;
  std::string every = "1s";
  uint64_t count = 0;  // 0: until it is interrupted
  unsigned int sub = 0;
  bool csv = false;
  bool list = false;
  std::string report;
};

volatile sig_atomic_t g_interrupted;

using WallTime = std::chrono::system_clock::time_point;

std::string time_text(WallTime at) {
  const auto us =
      std::chrono::duration_cast<std::chrono::microseconds>(at.time_since_epoch()).count();
  const time_t seconds = static_cast<time_t>(us / 1'000'000);
  tm parts{};
  gmtime_r(&seconds, &parts);
  char text[80];
  snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", parts.tm_year + 1900,
           parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
           static_cast<int>(us % 1'000'000));
  return text;
}

// "1s", "100ms", "0", "2" (seconds). Negative for what is none.
double parse_interval(const std::string& text) {
  double number = -1;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  const std::string_view unit(rest, static_cast<size_t>(end - rest));
  if (error != std::errc() || number > 86400) return -1;
  if (unit == "ms") return number / 1000;
  return unit.empty() || unit == "s" ? number : -1;
}

// What is watched, and what has come.
struct Watched {
  const NamedStatistic* named;
  std::vector<std::string> fields;               // the labels of its record
  std::vector<std::deque<double>> history = {};  // of each field, for the terminal
  std::optional<Values> last = {};
};

std::vector<std::string> labels_of(const NamedStatistic& named) {
  std::vector<std::string> labels;
  for (const RecordField& field : statistic_of(named).fields) {
    if (field.label != nullptr) labels.emplace_back(field.label);
  }
  return labels;
}

// Somebody who is told what comes.
class Listener {
 public:
  virtual ~Listener() = default;
  virtual void begin(const std::vector<Watched>&) {}
  virtual void on_samples(WallTime at, const std::vector<Watched>& watched) = 0;
  virtual void on_away(WallTime at, const std::string& cause) = 0;
  virtual void on_back(WallTime at) = 0;
  virtual void end() {}
};

// A line an event, a line a record.
class JsonLines final : public Listener {
 public:
  explicit JsonLines(unsigned int sub) : sub_(sub) {}
  void on_samples(WallTime at, const std::vector<Watched>& watched) override {
    const std::string time = time_text(at);
    for (const Watched& one : watched) {
      line_ = "{\"time\":\"" + time + "\",\"statistic\":\"" + one.named->name +
              "\",\"sub\":" + std::to_string(sub_) + ",\"values\":";
      if (!one.last) {
        line_ += "null}\n";
      } else {
        char separator = '{';
        for (const auto& [name, value] : *one.last) {
          char text[80];
          if (isfinite(value)) {
            snprintf(text, sizeof text, "%c\"%s\":%.9g", separator, name.c_str(), value);
          } else {
            snprintf(text, sizeof text, "%c\"%s\":null", separator, name.c_str());
          }
          line_ += text;
          separator = ',';
        }
        line_ += "}}\n";
      }
      results::print(line_);
    }
  }
  void on_away(WallTime at, const std::string& cause) override { event(at, "away", cause); }
  void on_back(WallTime at) override { event(at, "back", ""); }

 private:
  void event(WallTime at, const char* what, const std::string& cause) {
    const Json json = {{"time", time_text(at)}, {"event", what}, {"cause", cause}};
    results::print(json.dump() + "\n");
  }
  const unsigned int sub_;
  std::string line_;
};

// A row an exchange; what is not there is an empty cell.
class CsvRows final : public Listener {
 public:
  void begin(const std::vector<Watched>& watched) override {
    std::string row = "time";
    for (const Watched& one : watched) {
      for (const std::string& field : one.fields)
        row += std::string(",") + one.named->name + "." + field;
    }
    results::print(row + "\n");
  }
  void on_samples(WallTime at, const std::vector<Watched>& watched) override {
    std::string row = time_text(at);
    for (const Watched& one : watched) {
      for (size_t i = 0; i < one.fields.size(); ++i) {
        char cell[40] = ",";
        if (one.last && isfinite((*one.last)[i].second)) {
          snprintf(cell, sizeof cell, ",%.9g", (*one.last)[i].second);
        }
        row += cell;
      }
    }
    results::print(row + "\n");
  }
  void on_away(WallTime, const std::string& cause) override { results::say(cause); }
  void on_back(WallTime) override { results::say("the modem is back"); }
};

// On a terminal a table that is drawn over itself; else a block of lines an exchange.
class Table final : public Listener {
 public:
  void on_samples(WallTime at, const std::vector<Watched>& watched) override {
    const bool in_place = results::to_terminal();
    std::string out = in_place && lines_ > 0 ? "\033[" + std::to_string(lines_) + "A" : "";
    lines_ = 0;
    const char* const erase = in_place ? "\033[K" : "";
    const auto line = [&](const std::string& text) {
      out += text + erase + "\n";
      ++lines_;
    };
    line(time_text(at) + (away_.empty() ? "" : "  " + away_));
    for (const Watched& one : watched) {
      line(std::string(one.named->name) + ": " + one.named->title);
      if (!one.last) {
        line("  no record");
        continue;
      }
      for (size_t i = 0; i < one.fields.size(); ++i) {
        char text[80];
        const double value = (*one.last)[i].second;
        const bool whole = value == floor(value);
        snprintf(text, sizeof text, whole ? "  %-12s %9.0f     " : "  %-12s %12.2f  ",
                 one.fields[i].c_str(), value);
        line(text + (in_place ? sparkline(one.history[i]) : ""));
      }
    }
    results::print(out);
  }
  void on_away(WallTime, const std::string& cause) override {
    away_ = cause;
    if (!results::to_terminal()) results::say(cause);
  }
  void on_back(WallTime) override {
    away_.clear();
    if (!results::to_terminal()) results::say("the modem is back");
  }

 private:
  // As many values as fit into the terminal's width, each a bar between the lowest and the highest.
  static std::string sparkline(const std::deque<double>& history) {
    constexpr const char* kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr size_t kBefore = 30;
    winsize size{};
    const bool known = ioctl(fileno(results::out()), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    const size_t columns = known ? size.ws_col : 80;
    const size_t room = columns > kBefore ? columns - kBefore : 0;
    const size_t first = history.size() > room ? history.size() - room : 0;
    double low = INFINITY, high = -INFINITY;
    for (size_t i = first; i < history.size(); ++i) {
      low = fmin(low, history[i]);
      high = fmax(high, history[i]);
    }
    std::string out;
    for (size_t i = first; i < history.size(); ++i) {
      if (!isfinite(history[i])) {
        out += " ";
        continue;
      }
      const double share = high > low ? (history[i] - low) / (high - low) : 0.5;
      out += kBars[std::min(static_cast<size_t>(share * 8), std::size(kBars) - 1)];
    }
    return out;
  }

  int lines_ = 0;
  std::string away_;
};

// Collects for the page that is left at the end.
class Reporter final : public Listener {
 public:
  explicit Reporter(WallTime begun) : begun_(begun) {}
  void on_samples(WallTime at, const std::vector<Watched>& watched) override {
    for (const Watched& one : watched) {
      for (size_t i = 0; i < one.fields.size(); ++i) {
        report_.add(std::string(one.named->name) + ": " + one.named->title, unit(one, i),
                    one.fields[i], seconds(at), one.last ? (*one.last)[i].second : NAN);
      }
    }
  }
  void on_away(WallTime at, const std::string&) override { away_since_ = seconds(at); }
  void on_back(WallTime at) override { report_.away(away_since_, seconds(at)); }

  std::string page(const std::string& title) const {
    return report_.page(title, "from " + time_text(begun_).substr(0, 19) + "Z");
  }

 private:
  double seconds(WallTime at) const { return std::chrono::duration<double>(at - begun_).count(); }
  // Levels are told in dBm, ratios in dB; the rest are numbers.
  static std::string unit(const Watched& one, size_t i) {
    const std::string& field = one.fields[i];
    if (field.starts_with("rsrq") || field.starts_with("snr")) return "dB";
    const bool is_level = field.starts_with("rs") || field.starts_with("rx_agc") ||
                          field == "rx_prx" || field == "rx_drx";
    return is_level ? "dBm" : "";
  }

  const WallTime begun_;
  Report report_;
  double away_since_ = 0;
};

class Watch {
 public:
  Watch(Sampler& sampler, std::vector<Watched>& watched, std::vector<Listener*> listeners,
        uint32_t answer_ms)
      : sampler_(sampler),
        watched_(watched),
        listeners_(std::move(listeners)),
        answer_ms_(answer_ms) {}

  Verdict run(double every, uint64_t count) {
    constexpr uint32_t kFirstMs = 1000;
    if (Verdict connected = sampler_.connect(std::min(answer_ms_, kFirstMs)); !connected.ok()) {
      return connected;
    }
    for (Listener* listener : listeners_) listener->begin(watched_);
    auto next = timing::Clock::now();
    for (uint64_t taken = 0; g_interrupted == 0 && (count == 0 || taken < count);) {
      const Verdict verdict = sampler_.take(samples_);
      if (verdict.ok()) {
        tell_samples();
        ++taken;
      } else if (Verdict lasting = come_back(verdict); !lasting.ok()) {
        return lasting;
      }
      if (every > 0) {
        if (!results::flush()) break;
        next += std::chrono::duration_cast<timing::Clock::duration>(
            std::chrono::duration<double>(every));
        next = std::max(next, timing::Clock::now());
        if (count == 0 || taken < count) sleep_until(next);
      }
    }
    return {};
  }

 private:
  void tell_samples() {
    constexpr size_t kHistory = 200;
    refused_ = false;
    const WallTime now = std::chrono::system_clock::now();
    for (size_t i = 0; i < watched_.size(); ++i) {
      Watched& one = watched_[i];
      one.last = std::move(samples_[i]);
      for (size_t k = 0; k < one.history.size(); ++k) {
        one.history[k].push_back(one.last ? (*one.last)[k].second : NAN);
        if (one.history[k].size() > kHistory) one.history[k].pop_front();
      }
    }
    for (Listener* listener : listeners_) listener->on_samples(now, watched_);
  }

  // The modem has restarted, or forgot that statistics are on.
  Verdict come_back(const Verdict& why) {
    if (why.status == Status::Malformed || (why.status == Status::Refused && refused_)) return why;
    refused_ = why.status == Status::Refused;
    const bool away = why.status == Status::NoAnswer;
    if (away) {
      for (Listener* listener : listeners_) {
        listener->on_away(std::chrono::system_clock::now(), why.cause);
      }
      results::flush();
    }
    const timing::Deadline deadline = timing::peer_deadline(kAwayMs);
    for (;;) {
      constexpr uint32_t kAttemptMs = 500;
      const Verdict connected = sampler_.connect(kAttemptMs);
      if (connected.ok()) break;
      if (g_interrupted != 0) return {};
      if (timing::Clock::now() >= deadline) return why;
      timing::sleep_ms(100);
    }
    if (!away) return {};
    for (Listener* listener : listeners_) listener->on_back(std::chrono::system_clock::now());
    return {};
  }

  static void sleep_until(timing::Deadline when) {
    const auto left =
        std::chrono::duration_cast<std::chrono::nanoseconds>(when - timing::Clock::now());
    if (left.count() <= 0 || g_interrupted != 0) return;
    const timespec wait{static_cast<time_t>(left.count() / 1'000'000'000),
                        static_cast<long>(left.count() % 1'000'000'000)};
    nanosleep(&wait, nullptr);  // a signal ends it
  }

  Sampler& sampler_;
  std::vector<Watched>& watched_;
  const std::vector<Listener*> listeners_;
  const uint32_t answer_ms_;
  std::vector<std::optional<Values>> samples_;
  bool refused_ = false;
};

Outcome list_statistics(const Settings& settings) {
  Outcome outcome;
  outcome.values["statistics"] = Json::array();
  for (const NamedStatistic& named : named_statistics()) {
    outcome.values["statistics"].push_back(
        {{"name", named.name}, {"title", named.title}, {"fields", labels_of(named)}});
    char line[160];
    snprintf(line, sizeof line, "%-8s  %s\n", named.name, named.title);
    if (!settings.json) results::print(line);
  }
  return outcome;
}

// What is to be watched. Usage where a name is none, or there are too many.
Verdict pick(const Arguments& arguments, bool with_history, std::vector<Watched>& watched) {
  for (const std::string& name : arguments.names) {
    const NamedStatistic* named = find_named_statistic(name);
    if (named == nullptr) return {Status::Usage, name + ": no statistic; watch --list names them"};
    if (statistic_of(*named).sub == Subscription::First && arguments.sub != 0) {
      return {Status::Usage, name + " is of subscription 0 only"};
    }
    watched.push_back({named, labels_of(*named)});
    if (with_history) watched.back().history.resize(watched.back().fields.size());
  }
  if (!watched.empty() && watched.size() <= kVsMaxStats) return {};
  return {Status::Usage,
          "1 to " + std::to_string(kVsMaxStats) + " statistics; watch --list names them"};
}

Outcome watch(const Arguments& arguments, const Settings& settings) {
  if (arguments.list) return list_statistics(settings);
  const double every = parse_interval(arguments.every);
  if (every < 0) return Outcome({Status::Usage, arguments.every + ": not a time like 1s or 100ms"});
  if (arguments.csv && settings.json) return Outcome({Status::Usage, "--csv or --json, not both"});
  const bool as_table = !arguments.csv && !settings.json;
  std::vector<Watched> watched;
  if (Verdict picked = pick(arguments, as_table && results::to_terminal(), watched); !picked.ok()) {
    return Outcome(picked);
  }
  if (!arguments.report.empty()) {
    // That it can be written is known before the watch, not after it.
    if (Verdict tried = try_local_file(arguments.report); !tried.ok()) return Outcome(tried);
  }

  struct sigaction action {};
  action.sa_handler = [](int) { g_interrupted = 1; };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  std::vector<const NamedStatistic*> wanted;
  for (const Watched& one : watched) wanted.push_back(one.named);
  Sampler sampler(wanted, arguments.sub, settings.timeout_ms());
  JsonLines json(arguments.sub);
  CsvRows csv;
  Table table;
  Reporter reporter(std::chrono::system_clock::now());
  std::vector<Listener*> listeners = {&table};
  if (settings.json) listeners = {&json};
  if (arguments.csv) listeners = {&csv};
  if (!arguments.report.empty()) listeners.push_back(&reporter);
  Outcome outcome(
      Watch(sampler, watched, listeners, settings.timeout_ms()).run(every, arguments.count));
  if (!arguments.report.empty()) {
    std::string title = "tovictl watch";
    for (const std::string& name : arguments.names) title += " " + name;
    if (arguments.sub != 0) title += " --sub 1";
    outcome.verdict =
        worse(std::move(outcome.verdict), write_local_file(arguments.report, reporter.page(title)));
  }
  if (outcome.verdict.ok() || !settings.json) outcome.values = nullptr;
  return outcome;
}

}  // namespace

Run declare_watch(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.optional("statistics", "STAT...", arguments->names, "names of up to ten statistics");
  words.flag("--list", arguments->list, "name the statistics");
  words.optional("--every", "TIME", arguments->every,
                 "1s by default; 100ms; 0: as fast as it goes");
  words.optional("--count", "N", arguments->count, "end after N");
  words.subscription(arguments->sub);
  words.flag("--csv", arguments->csv, "a row an exchange");
  words.optional("--report", "FILE", arguments->report, "leave a page with plots: FILE.html");
  return [arguments, &settings] { return watch(*arguments, settings); };
}

}  // namespace ctl

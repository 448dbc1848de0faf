// Every message goes two ways: to the system log, and as an echo to standard output. Debug
// messages follow the two print flags, error messages go out always.
#pragma once

// The place a message speaks for. A helper that logs on behalf of its caller takes one as its last
// parameter, `LogPlace place = LogPlace::here()`, and so carries the caller's name and line.
struct LogPlace {
  const char* file;
  int line;
  const char* function;

  static constexpr LogPlace here(const char* file = __builtin_FILE(), int line = __builtin_LINE(),
                                 const char* function = __builtin_FUNCTION()) {
    return {file, line, function};
  }
};

enum class LogLevel { Debug, Error };

// Writes one message. The log gets "SUB[instance][file:line] function: " or, outside a radio
// instance, "[process][file:line] function: " in front; the echo "RIL[function:line]: ", and a
// newline behind.
[[gnu::format(printf, 3, 4)]] void velmor_log(LogLevel level, const LogPlace& place,
                                              const char* format, ...);

#define VELMOR_LOG_DEBUG(...) velmor_log(LogLevel::Debug, LogPlace::here(), __VA_ARGS__)
#define VELMOR_LOG_ERROR(...) velmor_log(LogLevel::Error, LogPlace::here(), __VA_ARGS__)

// Logs the entry of an operation where it is made and the exit where it ends, whatever the way out.
class LogScope {
 public:
  explicit LogScope(const LogPlace& place = LogPlace::here()) : place_(place) {
    velmor_log(LogLevel::Debug, place_, "function entry ------------->");
  }
  ~LogScope() { velmor_log(LogLevel::Debug, place_, "function exit <-------------"); }
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  const LogPlace place_;
};

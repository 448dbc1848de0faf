// Every message goes two ways: to the system log, and as an echo to standard output. Debug
// messages follow the two print flags, error messages go out always.
#pragma once

// The function a message speaks for. Shared code that logs on behalf of its caller takes one as its
// last parameter, `Speaker speaker = Speaker::here()`, and so carries the caller's name.
struct Speaker {
  const char* function;

  static constexpr Speaker here(const char* function = __builtin_FUNCTION()) { return {function}; }
};

// Where a message stands, and for whom it speaks. Made of a speaker where one is passed on, so the
// file and the line are always the message's own.
struct LogPlace {
  constexpr LogPlace(Speaker speaker, const char* file = __builtin_FILE(),
                     int line = __builtin_LINE())
      : function(speaker.function), file(file), line(line) {}

  const char* function;
  const char* file;
  int line;
};

enum class LogLevel { Debug, Error };

// Writes one message. The log gets "SUB[instance][file:line] function: " or, outside a radio
// instance, "[process][file:line] function: " in front; the echo "RIL[function:line]: ", and a
// newline behind.
[[gnu::format(printf, 3, 4)]] void velmor_log(LogLevel level, const LogPlace& place,
                                              const char* format, ...);

#define VELMOR_LOG_DEBUG(...) velmor_log(LogLevel::Debug, Speaker::here(), __VA_ARGS__)
#define VELMOR_LOG_ERROR(...) velmor_log(LogLevel::Error, Speaker::here(), __VA_ARGS__)

// Logs the entry of an operation where it is made and the exit where it ends, whatever the way out;
// both with the line where it is made.
class LogScope {
 public:
  explicit LogScope(const LogPlace& place = Speaker::here()) : place_(place) {
    velmor_log(LogLevel::Debug, place_, "function entry ------------->");
  }
  ~LogScope() { velmor_log(LogLevel::Debug, place_, "function exit <-------------"); }
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  const LogPlace place_;
};

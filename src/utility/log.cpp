#include "tarn/utility/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace tarn {
namespace utility {
namespace {

struct LogState {
  std::mutex mutex;
  std::string tag = "trn_core";
  LogCallback callback;
  int level = kLogWarning;
};

LogState& State() {
  static LogState* state = new LogState;  // never destroyed: logging may run during static teardown
  return *state;
}

void DefaultCallback(int level, const std::string& tag, const std::string& message) {
  std::fprintf(stderr, "[%s] %s %s", tag.c_str(), LogLevelWord(level), message.c_str());
  if (message.empty() || message.back() != '\n') std::fputc('\n', stderr);
}

std::string VFormat(const char* format, va_list args) {
  if (format == nullptr) return std::string();
  char stack_buffer[512];
  va_list copy;
  va_copy(copy, args);
  const int needed = std::vsnprintf(stack_buffer, sizeof stack_buffer, format, copy);
  va_end(copy);
  if (needed < 0) return std::string(format);
  if (static_cast<size_t>(needed) < sizeof stack_buffer) return std::string(stack_buffer, needed);
  std::vector<char> heap(static_cast<size_t>(needed) + 1);
  std::vsnprintf(heap.data(), heap.size(), format, args);
  return std::string(heap.data(), needed);
}

void Deliver(int level, const std::string& message) {
  LogState& s = State();
  LogCallback callback;
  std::string tag;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    if (level < s.level) return;
    callback = s.callback;
    tag = s.tag;
  }
  if (callback) {
    callback(level, tag, message);
  } else {
    DefaultCallback(level, tag, message);
  }
}

std::string ExpressionText(const char* expr, const char* function, const char* file, int line) {
  return FormatString("%s:%d: %s: Assertion `%s' failed.", file, line, function, expr);
}

}  // namespace

const char* LogLevelWord(int level) {
  if (level >= kLogError) return "(Error):";
  if (level >= kLogWarning) return "(Warnning):";
  if (level >= kLogInfo) return "(Info):";
  return "(Verbose):";
}

void Log(int level, const char* format, ...) {
  {
    LogState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (level < s.level) return;  // skip the formatting work for filtered lines
  }
  va_list args;
  va_start(args, format);
  std::string message = VFormat(format, args);
  va_end(args);
  Deliver(level, message);
}

void SetLogTag(const std::string& tag) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().tag = tag;
}

std::string GetLogTag() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().tag;
}

void SetLogCallback(LogCallback callback) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().callback = std::move(callback);
}

void SetLogLevel(int level) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().level = level;
}

int GetLogLevel() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().level;
}

std::string FormatString(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string out = VFormat(format, args);
  va_end(args);
  return out;
}

void AssertFailedMessage(const std::string& message) {
  Deliver(kLogError, message);
  throw std::runtime_error(message);
}

void AssertFailed(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string message = VFormat(format, args);
  va_end(args);
  AssertFailedMessage(message);
}

void ExpressionAssertFailed(const char* expr, const char* function, const char* file, int line) {
  AssertFailedMessage(ExpressionText(expr, function, file, line));
}

void NativeAssertFailed(const char* expr, const char* function, const char* file, int line) {
  const std::string text = ExpressionText(expr, function, file, line);
  Deliver(kLogError, text);
  std::fprintf(stderr, "%s\n", text.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace utility
}  // namespace tarn

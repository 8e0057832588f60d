// Logging and assertions shared by the whole library.
//
// Levels in use: 2 kernel-creation trace, 8 recoverable oddities in model
// files, 16 errors. A message is delivered when its level is at least the level
// set with SetLogLevel (default 8).
#pragma once

#include <functional>
#include <string>

namespace tarn {
namespace utility {

enum LogLevel : int {
  kLogVerbose = 2,
  kLogInfo = 4,
  kLogWarning = 8,
  kLogError = 16,
};

// Receives (level, tag, formatted message).
using LogCallback = std::function<void(int, const std::string&, const std::string&)>;

// The word printed for a level: "(Verbose):", "(Info):", "(Warnning):" or "(Error):".
const char* LogLevelWord(int level);

void Log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void SetLogTag(const std::string& tag);
std::string GetLogTag();
// An empty callback restores the default one, which prints to stderr.
void SetLogCallback(LogCallback callback);
void SetLogLevel(int level);
int GetLogLevel();

// printf-style formatting into a std::string.
std::string FormatString(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Logs the message at level 16 and throws std::runtime_error carrying it.
[[noreturn]] void AssertFailed(const char* format, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void AssertFailedMessage(const std::string& message);

// Checks an invariant: on failure the formatted message is logged and thrown.
template <typename... Args>
inline void Assert(bool condition, const char* format, Args... args) {
  if (__builtin_expect(!condition, 0)) {
    if constexpr (sizeof...(Args) == 0) {
      AssertFailedMessage(format);
    } else {
      AssertFailed(format, args...);
    }
  }
}

// A check without a message text of its own reports "Assertion failed.".
inline void Assert(bool condition) {
  if (__builtin_expect(!condition, 0)) AssertFailedMessage("Assertion failed.");
}

// Assertion facility for programming errors: the text names the expression,
// the function's signature and the source position, like the C library's assert,
// and is logged and thrown as std::runtime_error.
[[noreturn]] void ExpressionAssertFailed(const char* expr, const char* function, const char* file, int line);

// Argument checks of raw SIMD routines: print the same text and end the process.
[[noreturn]] void NativeAssertFailed(const char* expr, const char* function, const char* file, int line);

}  // namespace utility
}  // namespace tarn

#define TARN_ASSERT(expr) \
  ((expr) ? static_cast<void>(0)     \
          : ::tarn::utility::ExpressionAssertFailed(#expr, __PRETTY_FUNCTION__, __FILE__, __LINE__))

#define TARN_NATIVE_ASSERT(expr) \
  ((expr) ? static_cast<void>(0) \
          : ::tarn::utility::NativeAssertFailed(#expr, __PRETTY_FUNCTION__, __FILE__, __LINE__))

// Shared helpers of the test suite.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tarn/utility/log.h"

namespace tarn {
namespace testing {

// Captures every log line at or above `level` while alive.
class LogCapture {
 public:
  explicit LogCapture(int level = 0) : previous_level_(utility::GetLogLevel()) {
    utility::SetLogLevel(level);
    utility::SetLogCallback([this](int lvl, const std::string&, const std::string& msg) {
      lines.emplace_back(lvl, msg);
    });
  }
  ~LogCapture() {
    utility::SetLogCallback(nullptr);
    utility::SetLogLevel(previous_level_);
  }
  bool Contains(const std::string& text, int level = -1) const {
    for (const auto& l : lines) {
      if (l.second.find(text) != std::string::npos && (level < 0 || l.first == level)) return true;
    }
    return false;
  }
  std::vector<std::pair<int, std::string>> lines;

 private:
  int previous_level_;
};

// A file path in a fresh temporary directory, removed with the object.
class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/trn_test_XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made ? made : "/tmp";
  }
  ~TempDir() {
    const std::string cmd = "rm -rf '" + path_ + "'";
    if (path_ != "/tmp") (void)std::system(cmd.c_str());
  }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The message of the std::runtime_error thrown by `fn`, or "" when none is thrown.
inline std::string ThrownMessage(const std::function<void()>& fn) {
  try {
    fn();
  } catch (const std::exception& e) {
    return e.what();
  }
  return std::string();
}

inline std::vector<unsigned char> ReadAll(const std::string& path) {
  std::vector<unsigned char> bytes;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return bytes;
  int c;
  while ((c = std::fgetc(f)) != EOF) bytes.push_back(static_cast<unsigned char>(c));
  std::fclose(f);
  return bytes;
}

inline void WriteAll(const std::string& path, const std::vector<unsigned char>& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return;
  if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

}  // namespace testing
}  // namespace tarn

// Parameterised cases named by their position, for readable test lists.
#define TRN_INDEX_NAMES [](const auto& info) { return std::to_string(info.index); }

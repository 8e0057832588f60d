#include <gtest/gtest.h>

#include "tarn/utility/log.h"
#include "test_util.h"

namespace tarn {
namespace {

TEST(Log, LevelWords) {
  EXPECT_STREQ(utility::LogLevelWord(2), "(Verbose):");
  EXPECT_STREQ(utility::LogLevelWord(4), "(Info):");
  EXPECT_STREQ(utility::LogLevelWord(8), "(Warnning):");
  EXPECT_STREQ(utility::LogLevelWord(16), "(Error):");
}

TEST(Log, FilterTagAndCallback) {
  testing::LogCapture log(8);
  utility::Log(2, "trace %d", 1);
  utility::Log(8, "odd %s", "file");
  utility::Log(16, "bad %u", 7u);
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0], std::make_pair(8, std::string("odd file")));
  EXPECT_EQ(log.lines[1], std::make_pair(16, std::string("bad 7")));

  std::string seen_tag;
  utility::SetLogTag("mytag");
  utility::SetLogCallback([&](int, const std::string& tag, const std::string&) { seen_tag = tag; });
  utility::Log(16, "x");
  EXPECT_EQ(seen_tag, "mytag");
  utility::SetLogTag("trn_core");
}

TEST(Log, LongMessagesAreNotCut) {
  testing::LogCapture log;
  const std::string big(5000, 'z');
  utility::Log(16, "%s!", big.c_str());
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].second, big + "!");
}

TEST(Log, DefaultCallbackPrintsTagWordAndMessage) {
  utility::SetLogCallback(nullptr);
  const int level = utility::GetLogLevel();
  utility::SetLogLevel(0);
  ::testing::internal::CaptureStderr();
  utility::Log(8, "hello %d", 5);
  const std::string out = ::testing::internal::GetCapturedStderr();
  utility::SetLogLevel(level);
  EXPECT_EQ(out, "[trn_core] (Warnning): hello 5\n");
}

TEST(Assert, LogsAndThrowsTheFormattedMessage) {
  testing::LogCapture log;
  EXPECT_NO_THROW(utility::Assert(true, "never %d", 1));
  EXPECT_EQ(testing::ThrownMessage([] { utility::Assert(false, "Unsupported Layer Type [%u].", 99u); }),
            "Unsupported Layer Type [99].");
  EXPECT_TRUE(log.Contains("Unsupported Layer Type [99].", utility::kLogError));
  EXPECT_EQ(testing::ThrownMessage([] { utility::Assert(false, "100% literal"); }), "100% literal");
  EXPECT_EQ(testing::ThrownMessage([] { utility::Assert(false); }), "Assertion failed.");
}

int CheckedFunction(int x) {
  TARN_ASSERT(x > 0);
  return x;
}

TEST(Assert, ExpressionFormNamesExpressionFunctionAndPlace) {
  const std::string msg = testing::ThrownMessage([] { CheckedFunction(-1); });
  EXPECT_NE(msg.find("Assertion `x > 0' failed."), std::string::npos) << msg;
  EXPECT_NE(msg.find("int tarn::{anonymous}::CheckedFunction(int)"), std::string::npos) << msg;
  EXPECT_NE(msg.find("test_log.cpp:"), std::string::npos) << msg;
}

TEST(AssertDeathTest, NativeFormEndsTheProcess) {
  EXPECT_DEATH(TARN_NATIVE_ASSERT(1 == 2), "Assertion `1 == 2' failed.");
}

}  // namespace
}  // namespace tarn

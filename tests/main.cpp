// The suite's main: tests of instruction-set families the processor lacks are
// filtered out, so the whole suite also runs on a baseline x86-64 processor
// (CI runs it once under an emulated one). A test belongs to a family by its
// file: a path with "/sse/" or "_sse" needs SSE4.1 + FMA, one with "/avx/" or
// "_avx" needs AVX2 + FMA.
#include <gtest/gtest.h>

#include <string>

#include "tarn/runtime/device_cpu.h"

namespace {

bool Needs(const std::string& file, const char* family) {
  return file.find(std::string("/") + family + "/") != std::string::npos ||
         file.find(std::string("_") + family) != std::string::npos;
}

std::string UnsupportedTests() {
  const tarn::runtime::CPUDeviceInfo cpu = tarn::runtime::DetectCPUDevice();
  std::string negative;
  const ::testing::UnitTest& unit = *::testing::UnitTest::GetInstance();
  for (int s = 0; s < unit.total_test_suite_count(); ++s) {
    const ::testing::TestSuite& suite = *unit.GetTestSuite(s);
    for (int t = 0; t < suite.total_test_count(); ++t) {
      const ::testing::TestInfo& info = *suite.GetTestInfo(t);
      const std::string file = info.file();
      if ((Needs(file, "sse") && !cpu.CanRunSSEKernels()) || (Needs(file, "avx") && !cpu.CanRunAVXKernels())) {
        negative += ":" + std::string(suite.name()) + "." + info.name();
      }
    }
  }
  return negative;
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const std::string skipped = UnsupportedTests();
  if (!skipped.empty()) {
    std::string filter = ::testing::GTEST_FLAG(filter);
    // One negative section per filter: append to it, or open it.
    filter += (filter.find('-') == std::string::npos ? "-" : "") + skipped.substr(filter.find('-') == std::string::npos ? 1 : 0);
    ::testing::GTEST_FLAG(filter) = filter;
    std::printf("This processor lacks some instruction-set families: their tests are left out.\n");
  }
  return RUN_ALL_TESTS();
}

// Every PyTorch fixture (tests/data/onnx, made by
// tests/reference/make_onnx_fixtures.py) converted for each target, loaded
// through load_model and run: the outputs must match PyTorch's within
// 1e-4 x max |reference|. A fixture whose kernels have not landed yet is
// skipped with what it waits for, and runs for real once they are registered.
#include <dirent.h>

#include <algorithm>

#include "convert/convert_test_util.h"

namespace tarn {
namespace testing {
namespace {

using convert::Target;

std::vector<std::string> FixtureNames() {
  std::vector<std::string> names;
  if (DIR* dir = opendir(TRN_ONNX_FIXTURE_DIR)) {
    while (dirent* e = readdir(dir)) {
      const std::string file = e->d_name;
      if (file.size() > 5 && file.compare(file.size() - 5, 5, ".onnx") == 0) names.push_back(file.substr(0, file.size() - 5));
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

class ConvertedFixture : public ::testing::TestWithParam<std::tuple<std::string, Target>> {};

TEST_P(ConvertedFixture, MatchesPyTorch) {
  const std::string name = std::get<0>(GetParam());
  const Target target = std::get<1>(GetParam());
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture(name, &f)) << name;
  if (!CanRun(target)) GTEST_SKIP() << "this processor lacks the instructions of target " << convert::TargetName(target);
  convert::ConvertResult r;
  if (!Convert(f.onnx, OptionsFor(target), &r)) {
    if (!f.waits_for.empty() && OnlyMissingKernels(r.problems)) {
      GTEST_SKIP() << "waits for the " << f.waits_for << ":\n" << convert::FormatProblems(r.problems);
    }
    FAIL() << convert::FormatProblems(r.problems);
  }
  EXPECT_TRUE(r.verified);
  LoadedPackage package;
  ASSERT_TRUE(package.Load(*r.package));
  const auto outputs = package.Run(f.inputs, r.model);
  ASSERT_FALSE(outputs.empty()) << "the forward pass failed";
  ASSERT_FALSE(f.outputs.empty());
  EXPECT_TRUE(CloseToReference(*outputs[0], f.outputs[0], 1e-4f)) << "\n" << convert::PlanTable(r.plan);
}

std::string Name(const ::testing::TestParamInfo<std::tuple<std::string, Target>>& info) {
  return std::get<0>(info.param) + "_" + convert::TargetName(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, ConvertedFixture,
                         ::testing::Combine(::testing::ValuesIn(FixtureNames()),
                                            ::testing::Values(Target::kFallback, Target::kSSE, Target::kAVX)),
                         Name);

// The fixtures are there: a missing data directory must not pass as zero tests.
TEST(ConvertedFixtures, AreFound) { EXPECT_GE(FixtureNames().size(), 60u); }

// The binary package stores weights as half floats: it still runs, close to
// PyTorch at half precision, and differs from the exact JSON package.
TEST(ConvertedPackage, BinaryFormRoundsWeights) {
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture("arch_resnet", &f));
  convert::ConvertResult r;
  ASSERT_TRUE(Convert(f.onnx, OptionsFor(Target::kFallback), &r)) << convert::FormatProblems(r.problems);
  LoadedPackage json, binary;
  ASSERT_TRUE(json.Load(*r.package, "model.json"));
  ASSERT_TRUE(binary.Load(*r.package, "model.trnmodel"));
  const auto exact = json.Run(f.inputs, r.model);
  const auto rounded = binary.Run(f.inputs, r.model);
  ASSERT_FALSE(exact.empty());
  ASSERT_FALSE(rounded.empty());
  EXPECT_TRUE(CloseToReference(*exact[0], f.outputs[0], 1e-4f));
  EXPECT_TRUE(CloseToReference(*rounded[0], f.outputs[0], 2e-2f));
  EXPECT_FALSE(CloseToReference(*rounded[0], f.outputs[0], 1e-6f));
}

}  // namespace
}  // namespace testing
}  // namespace tarn

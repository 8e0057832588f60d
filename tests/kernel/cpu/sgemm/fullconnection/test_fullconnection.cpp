// The CBLAS fully connected routine against the double reference.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/fc_test_util.h"
#include "tarn/kernel/fullconnection.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(FullConnectionSgemmRoutine, AddsTheProductOntoTheBias) {
  for (unsigned in : conv::FeatureCounts()) {
    for (unsigned out : {1u, 5u, 16u}) {
      const auto x = conv::Random(in, in), w = conv::Random(std::size_t(in) * out, out), b = conv::Random(out, 2);
      const std::uint32_t fin = in, fout = out;
      std::vector<float> y(out, 99.0f);
      kernel::functional::fullconnection_sgemm_c_f32_m1(x.data(), fin, fout, w.data(), b.data(), y.data());
      EXPECT_TRUE(conv::Near(y, conv::NaiveFc(in, out, x, w, b.data()))) << in << " -> " << out;
      kernel::functional::fullconnection_sgemm_c_f32_m1(x.data(), fin, fout, w.data(), nullptr, y.data());
      EXPECT_TRUE(conv::Near(y, conv::NaiveFc(in, out, x, w, nullptr))) << in << " -> " << out;
    }
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn

// Throughput of the weight paths of model loading: half conversion, base64 and
// the binary weight blobs.
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "bench_common.h"
#include "tarn/half.h"
#include "tarn/runtime/binary_stream.h"

namespace {

std::vector<float> RandomFloats(size_t n) {
  std::mt19937 rng(1);
  std::normal_distribution<float> d(0.0f, 1.0f);
  std::vector<float> v(n);
  for (float& f : v) f = d(rng);
  return v;
}

void BM_FloatToHalf(benchmark::State& state) {
  const auto src = RandomFloats(state.range(0));
  std::vector<half_float::half> dst(src.size());
  for (auto _ : state) {
    for (size_t i = 0; i < src.size(); ++i) dst[i] = half_float::half(src[i]);
    benchmark::DoNotOptimize(dst.data());
  }
  state.SetBytesProcessed(state.iterations() * src.size() * sizeof(float));
}
BENCHMARK(BM_FloatToHalf)->Arg(1 << 16);

void BM_HalfToFloat(benchmark::State& state) {
  const auto f = RandomFloats(state.range(0));
  std::vector<half_float::half> src(f.size());
  for (size_t i = 0; i < f.size(); ++i) src[i] = half_float::half(f[i]);
  std::vector<float> dst(src.size());
  for (auto _ : state) {
    for (size_t i = 0; i < src.size(); ++i) dst[i] = src[i];
    benchmark::DoNotOptimize(dst.data());
  }
  state.SetBytesProcessed(state.iterations() * src.size() * sizeof(float));
}
BENCHMARK(BM_HalfToFloat)->Arg(1 << 16);

void BM_Base64Encode(benchmark::State& state) {
  const auto f = RandomFloats(state.range(0));
  for (auto _ : state) {
    std::string s = tarn::runtime::Base64Encode(reinterpret_cast<const unsigned char*>(f.data()), f.size() * 4);
    benchmark::DoNotOptimize(s.data());
  }
  state.SetBytesProcessed(state.iterations() * f.size() * sizeof(float));
}
BENCHMARK(BM_Base64Encode)->Arg(1 << 18);

void BM_Base64Decode(benchmark::State& state) {
  const auto f = RandomFloats(state.range(0));
  const std::string text =
      tarn::runtime::Base64Encode(reinterpret_cast<const unsigned char*>(f.data()), f.size() * 4);
  for (auto _ : state) {
    std::string s = tarn::runtime::Base64Decode(text);
    benchmark::DoNotOptimize(s.data());
  }
  state.SetBytesProcessed(state.iterations() * f.size() * sizeof(float));
}
BENCHMARK(BM_Base64Decode)->Arg(1 << 18);

// One weight blob written to and read back from an in-memory stream.
void BM_WeightBlobRoundTrip(benchmark::State& state) {
  const auto f = RandomFloats(state.range(0));
  const std::string blob =
      tarn::runtime::Base64Encode(reinterpret_cast<const unsigned char*>(f.data()), f.size() * 4);
  std::vector<char> buffer(f.size() * 2 + 64);
  for (auto _ : state) {
    FILE* out = fmemopen(buffer.data(), buffer.size(), "wb");
    tarn::runtime::FileWriter_Visit_B64Encoded_F16_Data(std::make_shared<tarn::runtime::FILEWriter>(out, false),
                                                        blob);
    std::fclose(out);
    FILE* in = fmemopen(buffer.data(), buffer.size(), "rb");
    std::string back;
    tarn::runtime::FileReader_Visit_B64Encoded_F16_Data(
        std::make_shared<tarn::runtime::FILEReader>(in, 20015u), back);
    std::fclose(in);
    benchmark::DoNotOptimize(back.data());
  }
  state.SetBytesProcessed(state.iterations() * f.size() * sizeof(float));
}
BENCHMARK(BM_WeightBlobRoundTrip)->Arg(1 << 18);

}  // namespace

TRN_BENCHMARK_MAIN();

// A visitor that gives every attribute of a record a distinct value, so that
// format round trips of real records can be compared field by field.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/runtime/serializable.h"

namespace tarn {
namespace testing {

class RecordFiller : public runtime::Visitor {
 public:
  explicit RecordFiller(int seed) : n_(seed) {}

  void Visit(float* v, const char*) override { *v = 0.25f * Next(); }
  void Visit(half_float::half* v, const char*) override { *v = half_float::half(0.5f * (Next() % 200)); }
  void Visit(double* v, const char*) override { *v = 0.125 * Next(); }
  void Visit(signed char* v, const char*) override { *v = static_cast<signed char>(-(Next() % 100)); }
  void Visit(unsigned char* v, const char*) override { *v = static_cast<unsigned char>(Next() % 250); }
  void Visit(short* v, const char*) override { *v = static_cast<short>(-(Next() % 30000)); }
  void Visit(unsigned short* v, const char* key) override {
    // Keep the layer type and the sampling count meaningful.
    if (std::string(key) == "type") return;
    *v = static_cast<unsigned short>(std::string(key) == "num_sampling_infos" ? 2 : Next() % 60000);
  }
  void Visit(int* v, const char*) override { *v = -Next() * 1000; }
  void Visit(unsigned int* v, const char*) override { *v = Next() * 100000u; }
  void Visit(long* v, const char*) override { *v = -static_cast<long>(Next()) * 1000000007L; }
  void Visit(unsigned long* v, const char*) override { *v = static_cast<unsigned long>(Next()) * 3000000019UL; }
  void Visit(bool* v, const char*) override { *v = Next() % 2 == 1; }
  void Visit(char*, const char*) override {}
  void Visit(std::string* v, const char* key) override {
    const std::string k(key);
    if (k == "serializable_type") return;
    if (WeightKeys().count(k)) {
      *v = Blob();
    } else {
      *v = k + "_" + std::to_string(Next());
    }
  }
  void Visit(std::vector<float>* v, const char*) override { *v = {0.5f * Next(), -1.0f * Next()}; }
  void Visit(std::vector<half_float::half>* v, const char*) override {
    *v = {half_float::half(1.5f), half_float::half(static_cast<float>(Next() % 100))};
  }
  void Visit(std::vector<unsigned short>* v, const char*) override {
    *v = {static_cast<unsigned short>(Next()), static_cast<unsigned short>(Next())};
  }
  void Visit(std::vector<short>* v, const char*) override {
    *v = {static_cast<short>(-Next()), static_cast<short>(Next()), 0};
  }
  void Visit(std::vector<std::string>* v, const char* key) override {
    const std::string k(key);
    if (WeightKeys().count(k)) {
      *v = {Blob(), Blob()};
    } else {
      *v = {k + std::to_string(Next()), k + std::to_string(Next())};
    }
  }
  void Visit(runtime::Serializable* v, const char*) override {
    auto self = std::make_shared<RecordFiller>(Next());
    v->VisitAttr(self);
  }
  void Visit(std::vector<int>* v, const char*) override { *v = {-Next(), Next()}; }
  void Visit(std::vector<long>* v, const char*) override { *v = {-static_cast<long>(Next()) * 5000000000L}; }
  void Visit(std::vector<unsigned int>* v, const char*) override { *v = {Next() * 7u}; }
  void Visit(std::vector<unsigned long>* v, const char*) override { *v = {Next() * 9000000000UL}; }
  // Left empty: the binary reader does not give back what was written (see the tests).
  void Visit(std::vector<std::vector<unsigned short>>* v, const char*) override { v->clear(); }

  static const std::set<std::string>& WeightKeys() {
    static const std::set<std::string> keys = {
        "weight", "bias", "scale", "shift", "variance", "mean", "weight_ih", "weight_hh", "bias_ih", "bias_hh",
        "weight_ih_forward", "weight_hh_forward", "bias_ih_forward", "bias_hh_forward", "weight_ih_reverse",
        "weight_hh_reverse", "bias_ih_reverse", "bias_hh_reverse"};
    return keys;
  }

 private:
  int Next() { return ++n_; }
  // Floats that survive the half-precision binary form unchanged.
  std::string Blob() {
    std::vector<float> w;
    for (int i = 0; i < 3 + Next() % 4; ++i) w.push_back(0.25f * static_cast<float>(Next() % 64) - 8.0f);
    return runtime::EncodeWeights(w);
  }
  int n_;
};

inline void Fill(runtime::Serializable& record, int seed) { record.VisitAttr(std::make_shared<RecordFiller>(seed)); }

inline std::string CompactJson(runtime::Serializable& record) {
  runtime::JSONDocument doc;
  return runtime::SerializeJSONValue(runtime::ToJSONValue(&record, doc.GetAllocator()));
}

// Every layer-type code that has a record class.
inline std::vector<std::uint16_t> CodesWithRecords() {
  std::vector<std::uint16_t> codes;
  for (unsigned code = 0; code < 65536; ++code) {
    if (runtime::CreateLayerInfo(static_cast<std::uint16_t>(code))) codes.push_back(static_cast<std::uint16_t>(code));
  }
  return codes;
}

}  // namespace testing
}  // namespace tarn

// The twenty recurrent kernels are registered by the family functions that
// own them, under their class names, and CreateCfg names them for the six
// recurrent records.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarn/kernel/register.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/model_info.h"

namespace tarn {
namespace testing {
namespace {

struct FamilyNames {
  void (*reg)(runtime::KernelRegistry&);
  std::vector<std::string> names;
};

const FamilyNames kFamilies[] = {
    {kernel::RegisterFallback,
     {"RNNCell_Fallback_C_F32_M1", "RNN_Fallback_SC_F32_M1", "LSTMCell_Fallback_C_F32_M1", "LSTM_Fallback_SC_F32_M1",
      "GRUCell_Fallback_C_F32_M1", "GRU_Fallback_SC_F32_M1", "RNNCell_SGEMM_C_F32_M1", "RNN_SGEMM_SC_F32_M1"}},
    {kernel::RegisterSSE,
     {"RNNCell_SSE_C_F32_M1", "RNN_SSE_SC_F32_M1", "LSTMCell_SSE_C_F32_M1", "LSTM_SSE_SC_F32_M1",
      "GRUCell_SSE_C_F32_M1", "GRU_SSE_SC_F32_M1"}},
    {kernel::RegisterSGEMM,
     {"LSTMCell_SGEMM_C_F32_M1", "LSTM_SGEMM_SC_F32_M1", "GRUCell_SGEMM_C_F32_M1", "GRU_SGEMM_SC_F32_M1",
      "GRUCell_SSE_SGEMM_C_F32_M2", "GRU_SSE_SGEMM_SC_F32_M2"}},
};

bool Recurrent(const std::string& name) {
  for (const char* op : {"RNN", "LSTM", "GRU"}) {
    if (name.rfind(op, 0) == 0) return true;
  }
  return false;
}

// Every member is created, named and configured-or-not in baseline code, so
// this runs on any processor.
TEST(RecurrentRegistration, EachFamilyRegistersExactlyItsMembers) {
  for (const auto& family : kFamilies) {
    runtime::KernelRegistry registry;
    family.reg(registry);
    std::vector<std::string> recurrent;
    for (const auto& key : registry.GetKeys()) {
      if (Recurrent(key)) recurrent.push_back(key);
    }
    EXPECT_EQ(recurrent.size(), family.names.size());
    for (const auto& name : family.names) {
      auto kernel = registry.Create(name);
      ASSERT_NE(kernel, nullptr) << name;
      EXPECT_EQ(kernel->GetName(), name);
      EXPECT_FALSE(kernel->IsConfiged()) << name;
      EXPECT_EQ(kernel->ResetRNNState(), 0) << name << " has a state to clear";
      EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::FullConnectionInfo>(), nullptr), -1) << name;
    }
  }
}

TEST(RecurrentRegistration, CreateCfgNamesAMemberOfEachFamily) {
  auto model = std::make_shared<runtime::TRModelInfo>();
  auto add = [&](std::shared_ptr<runtime::LayerInfo> layer, const std::string& id) {
    layer->id = id;
    model->squential_ids.push_back(id);
    model->layers[id] = layer;
  };
  add(std::make_shared<runtime::RNNCellInfo>(), "rnn_cell");
  add(std::make_shared<runtime::RNNInfo>(), "rnn");
  add(std::make_shared<runtime::LSTMCellInfo>(), "lstm_cell");
  add(std::make_shared<runtime::LSTMInfo>(), "lstm");
  add(std::make_shared<runtime::GRUCellInfo>(), "gru_cell");
  add(std::make_shared<runtime::GRUInfo>(), "gru");
  struct Want {
    const char* family;
    const char* isa;
  };
  runtime::KernelRegistry all;
  for (const auto& family : kFamilies) family.reg(all);
  for (const Want& w : {Want{"", "Fallback"}, Want{"SSE", "SSE"}, Want{"AVX", "SSE"}, Want{"SGEMM", "SGEMM"}}) {
    auto cfg = w.family[0] ? runtime::CreateCfg(*model, w.family) : runtime::CreateCfg(*model);
    const std::string isa = w.isa;
    const std::pair<const char*, std::string> expected[] = {
        {"rnn_cell", "RNNCell_" + isa + "_C_F32_M1"},   {"rnn", "RNN_" + isa + "_SC_F32_M1"},
        {"lstm_cell", "LSTMCell_" + isa + "_C_F32_M1"}, {"lstm", "LSTM_" + isa + "_SC_F32_M1"},
        {"gru_cell", "GRUCell_" + isa + "_C_F32_M1"},   {"gru", "GRU_" + isa + "_SC_F32_M1"}};
    for (const auto& e : expected) {
      const auto* layer = cfg->Find(e.first);
      ASSERT_TRUE(layer && layer->kernel) << e.first;
      EXPECT_EQ(layer->kernel->kernel_type, e.second) << w.family;
      EXPECT_NE(all.Create(e.second), nullptr) << e.second << " is not registered";
    }
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn

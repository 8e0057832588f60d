// Graph passes and the records the mapping writes: the parts whose kernels
// may not have landed yet are checked on the records themselves (gate order,
// stacked layers, runtime axes), the rest end to end by the fixtures.
#include "convert/convert_test_util.h"

namespace tarn {
namespace testing {
namespace {

using convert::ConstTensor;

// The passes and the mapping of a model, without planning.
bool Map(const std::string& bytes, convert::MappedModel* model, convert::Problems* problems,
         convert::PassReport* report = nullptr) {
  convert::Graph graph;
  if (!convert::ReadOnnxModel(bytes.data(), bytes.size(), &graph, problems)) return false;
  convert::PassReport local;
  convert::PassReport& r = report ? *report : local;
  convert::RemoveNoOps(&graph, &r);
  convert::FoldConstants(&graph, &r);
  if (!convert::InferShapes(&graph, problems)) return false;
  convert::FoldPadding(&graph, &r);
  convert::CanonicaliseArithmetic(&graph);
  convert::FoldIntoWeights(&graph, &r);
  convert::FuseHardSwish(&graph, &r);
  return convert::MapGraph(graph, model, problems);
}

template <typename Record>
const Record* Find(const convert::MappedModel& model) {
  for (const auto& l : model.layers) {
    if (auto* r = dynamic_cast<const Record*>(l.record.get())) return r;
  }
  return nullptr;
}

std::vector<float> GateValues(const std::string& blob, std::size_t rows_per_gate, std::size_t cols) {
  const std::vector<float> w = runtime::DecodeWeights(blob);
  std::vector<float> first;
  for (std::size_t k = 0; k < w.size(); k += rows_per_gate * cols) first.push_back(w[k]);
  return first;
}

// A recurrent node whose weight and bias blocks each hold their ONNX gate number.
std::string GateNumbered(const std::string& op, std::int64_t gates, bool linear_before_reset) {
  OnnxBuilder b;
  const std::int64_t h = 3, in = 2;
  b.Input("x", {4, 1, in}).Output("y", {4, 1, 1, h});
  auto fill = [&](const char* name, std::vector<std::int64_t> dims, std::int64_t per_gate) {
    auto* t = b.graph->add_initializer();
    t->set_name(name);
    t->set_data_type(onnx::TensorProto::FLOAT);
    std::int64_t n = 1;
    for (auto d : dims) {
      t->add_dims(d);
      n *= d;
    }
    for (std::int64_t k = 0; k < n; ++k) t->add_float_data(static_cast<float>((k / per_gate) % gates + 1));
  };
  fill("W", {1, gates * h, in}, h * in);
  fill("R", {1, gates * h, h}, h * h);
  fill("B", {1, 2 * gates * h}, h);
  auto* n = b.Node(op, {"x", "W", "R", "B"}, {"y"});
  OnnxBuilder::Attr(n, "hidden_size", h);
  if (linear_before_reset) OnnxBuilder::Attr(n, "linear_before_reset", std::int64_t(1));
  return b.Bytes();
}

// ONNX orders LSTM gates i, o, f, c and GRU gates z, r, h; the records hold
// PyTorch's i, f, g, o and r, z, n, in the weights and in both biases.
TEST(RecurrentRecords, GatesAreReordered) {
  convert::MappedModel lstm, gru;
  convert::Problems problems;
  ASSERT_TRUE(Map(GateNumbered("LSTM", 4, false), &lstm, &problems)) << convert::FormatProblems(problems);
  ASSERT_TRUE(Map(GateNumbered("GRU", 3, true), &gru, &problems)) << convert::FormatProblems(problems);
  const auto* l = Find<runtime::LSTMInfo>(lstm);
  const auto* g = Find<runtime::GRUInfo>(gru);
  ASSERT_TRUE(l && g);
  const std::vector<float> lstm_order{1, 3, 4, 2}, gru_order{2, 1, 3};
  EXPECT_EQ(GateValues(l->weight_ih_forward[0], 3, 2), lstm_order);
  EXPECT_EQ(GateValues(l->weight_hh_forward[0], 3, 3), lstm_order);
  EXPECT_EQ(GateValues(l->bias_ih_forward[0], 3, 1), lstm_order);
  EXPECT_EQ(GateValues(l->bias_hh_forward[0], 3, 1), lstm_order);
  EXPECT_EQ(GateValues(g->weight_ih_forward[0], 3, 2), gru_order);
  EXPECT_EQ(GateValues(g->weight_hh_forward[0], 3, 3), gru_order);
  EXPECT_EQ(GateValues(g->bias_hh_forward[0], 3, 1), gru_order);
  EXPECT_EQ(l->in_size, 2);
  EXPECT_EQ(l->hidden_size, 3);
  EXPECT_TRUE(l->if_bias);
  EXPECT_EQ(lstm.layers.back().dims, (convert::RuntimeDims{4, 3}));
}

// PyTorch exports a stack as one ONNX node per layer with views between: the
// converter makes one record of all layers, its output the last layer's
// sequence ([S, directions x H]); the views produce no layers.
TEST(RecurrentRecords, StackedLayersBecomeOneRecord) {
  OnnxFixture lstm, gru;
  ASSERT_TRUE(LoadFixture("lstm_2layer", &lstm));
  ASSERT_TRUE(LoadFixture("arch_gru_bidirectional", &gru));
  convert::MappedModel a, b;
  convert::Problems problems;
  ASSERT_TRUE(Map(lstm.onnx, &a, &problems)) << convert::FormatProblems(problems);
  ASSERT_TRUE(Map(gru.onnx, &b, &problems)) << convert::FormatProblems(problems);
  ASSERT_EQ(a.layers.size(), 2u);  // input, LSTM
  const auto* l = Find<runtime::LSTMInfo>(a);
  ASSERT_NE(l, nullptr);
  EXPECT_EQ(l->num_layers, 2);
  EXPECT_EQ(l->weight_ih_forward.size(), 2u);
  EXPECT_FALSE(l->bidirectional);
  EXPECT_EQ(a.layers[1].dims, (convert::RuntimeDims{7, 16}));
  EXPECT_EQ(a.layers[0].dims, (convert::RuntimeDims{7, 8})) << "the sequence input drops its batch axis";
  ASSERT_EQ(b.layers.size(), 2u);
  const auto* g = Find<runtime::GRUInfo>(b);
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(g->num_layers, 2);
  EXPECT_TRUE(g->bidirectional);
  EXPECT_EQ(g->weight_ih_reverse.size(), 2u);
  // The second layer reads both directions of the first.
  EXPECT_EQ(runtime::DecodeWeights(g->weight_ih_forward[1]).size(), 3u * 24 * 48);
  EXPECT_EQ(b.layers[1].dims, (convert::RuntimeDims{20, 48}));
}

struct AxisCase {
  const char* fixture;
  std::uint16_t type;
  std::function<int(const runtime::LayerInfo&)> axis;
  int expected;
};

class RuntimeAxes : public ::testing::TestWithParam<AxisCase> {};

// Record axes index the runtime tensor, which has no batch axis.
TEST_P(RuntimeAxes, AreShiftedPastTheBatch) {
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture(GetParam().fixture, &f));
  convert::MappedModel model;
  convert::Problems problems;
  ASSERT_TRUE(Map(f.onnx, &model, &problems)) << convert::FormatProblems(problems);
  const runtime::LayerInfo* found = nullptr;
  for (const auto& l : model.layers) {
    if (l.record->type == GetParam().type) found = l.record.get();
  }
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(GetParam().axis(*found), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Records, RuntimeAxes,
    ::testing::Values(
        AxisCase{"concat", runtime::LAYER_CONCATENATE,
                 [](const runtime::LayerInfo& r) { return static_cast<const runtime::ConcatenateInfo&>(r).dim; }, 0},
        AxisCase{"softmax", runtime::LAYER_SOFTMAX,
                 [](const runtime::LayerInfo& r) { return static_cast<const runtime::SoftmaxInfo&>(r).dim; }, 0},
        AxisCase{"squeeze_unsqueeze", runtime::LAYER_TENSOR_UNSQUEEZE,
                 [](const runtime::LayerInfo& r) { return static_cast<const runtime::TensorUnSqueezeInfo&>(r).dim; }, 1},
        AxisCase{"squeeze_unsqueeze", runtime::LAYER_TENSOR_SQUEEZE,
                 [](const runtime::LayerInfo& r) { return static_cast<const runtime::TensorSqueezeInfo&>(r).dim; }, 1},
        AxisCase{"transpose", runtime::LAYER_TENSOR_TRANSPOSE,
                 [](const runtime::LayerInfo& r) {
                   const auto& a = static_cast<const runtime::TensorTransposeInfo&>(r).axes;
                   return a == std::vector<unsigned short>{1, 2, 0} ? 120 : -1;
                 },
                 120},
        AxisCase{"slice", runtime::LAYER_TENSOR_SLICE,
                 [](const runtime::LayerInfo& r) {
                   // x[:, 1:3, ::2, 1:] is exported one axis per Slice; the last is (2, 1, end, 1).
                   const auto& s = static_cast<const runtime::TensorSliceInfo&>(r).slice_dims;
                   return s == std::vector<short>{2, 1, 32767, 1} ? 1 : -1;
                 },
                 1}));

// Flatten and the exported view chains before a classifier need no layer:
// the fully connected kernels read the map as it is.
TEST(Views, FlattenBeforeClassifierIsFolded) {
  for (const char* name : {"flatten_linear", "view_flatten_linear"}) {
    OnnxFixture f;
    ASSERT_TRUE(LoadFixture(name, &f));
    convert::MappedModel model;
    convert::Problems problems;
    convert::PassReport report;
    ASSERT_TRUE(Map(f.onnx, &model, &problems, &report)) << convert::FormatProblems(problems);
    for (const auto& l : model.layers) EXPECT_NE(l.record->type, runtime::LAYER_TENSOR_RESHAPE) << name;
    if (std::string(name) == "view_flatten_linear") {
      EXPECT_GE(report.folded, 3) << "the Shape chain is folded";
    }
  }
}

// Batch norms and constant scales after a convolution go into its weights;
// exported hard-swish patterns become one activation.
TEST(Passes, FoldIntoWeightsAndFuse) {
  struct Case {
    const char* fixture;
    int convert::PassReport::*counter;
    int at_least;
  } cases[] = {{"conv_batchnorm_folded", &convert::PassReport::batch_norms, 1},
               {"linear_batchnorm", &convert::PassReport::batch_norms, 1},
               {"conv_constant_folded", &convert::PassReport::affine, 2},
               {"act_hardswish", &convert::PassReport::hard_swish, 1},
               {"avgpool_k3_s2_p1_incl", &convert::PassReport::pads, 1}};
  for (const Case& c : cases) {
    OnnxFixture f;
    ASSERT_TRUE(LoadFixture(c.fixture, &f));
    convert::MappedModel model;
    convert::Problems problems;
    convert::PassReport report;
    ASSERT_TRUE(Map(f.onnx, &model, &problems, &report)) << c.fixture << convert::FormatProblems(problems);
    EXPECT_GE(report.*c.counter, c.at_least) << c.fixture;
    for (const auto& l : model.layers) {
      EXPECT_NE(l.record->type, runtime::LAYER_BATCHNORM2D) << c.fixture;
      EXPECT_NE(l.record->type, runtime::LAYER_BATCHNORM1D) << c.fixture;
    }
  }
}

// ---------------------------------------------------------------- constant folding

// A 1-D int64 constant, or one of the given dims.
ConstTensor Ints(std::vector<std::int64_t> values, std::vector<std::int64_t> dims = {-1}) {
  ConstTensor t;
  t.type = convert::kOnnxInt64;
  t.i = std::move(values);
  t.dims = dims == std::vector<std::int64_t>{-1} ? std::vector<std::int64_t>{static_cast<std::int64_t>(t.i.size())}
                                                 : dims;
  return t;
}

struct FoldCase {
  const char* name;
  const char* op;
  std::vector<ConstTensor> inputs;
  std::map<std::string, convert::Attribute> attrs;
  std::vector<std::int64_t> dims, values;
};

convert::Attribute IntAttr(std::int64_t v) {
  convert::Attribute a;
  a.kind = convert::Attribute::kInt;
  a.i = v;
  return a;
}

class ConstantFolding : public ::testing::TestWithParam<FoldCase> {};

TEST_P(ConstantFolding, EvaluatesLikeOnnx) {
  const FoldCase& c = GetParam();
  convert::Graph graph;
  graph.opset = 13;
  convert::Node node;
  node.op = c.op;
  node.attrs = c.attrs;
  for (std::size_t k = 0; k < c.inputs.size(); ++k) {
    const std::string name = "in" + std::to_string(k);
    graph.constants[name] = c.inputs[k];
    node.inputs.push_back(name);
  }
  node.outputs = {"out"};
  std::vector<ConstTensor> out;
  ASSERT_TRUE(convert::EvaluateNode(graph, node, &out));
  EXPECT_EQ(out[0].dims, c.dims);
  EXPECT_EQ(out[0].Ints(), c.values);
}

INSTANTIATE_TEST_SUITE_P(
    Operators, ConstantFolding,
    ::testing::Values(
        FoldCase{"gather_negative", "Gather", {Ints({5, 6, 7, 8}), Ints({-1}, {})}, {}, {}, {8}},
        FoldCase{"gather_rows", "Gather", {Ints({1, 2, 3, 4, 5, 6}, {3, 2}), Ints({2, 0})}, {}, {2, 2}, {5, 6, 1, 2}},
        FoldCase{"gather_axis1", "Gather", {Ints({1, 2, 3, 4, 5, 6}, {2, 3}), Ints({2}, {})}, {{"axis", IntAttr(1)}},
                 {2}, {3, 6}},
        FoldCase{"unsqueeze", "Unsqueeze", {Ints({7}, {}), Ints({0})}, {}, {1}, {7}},
        FoldCase{"unsqueeze_two", "Unsqueeze", {Ints({7, 8}), Ints({0, 2})}, {}, {1, 2, 1}, {7, 8}},
        FoldCase{"concat", "Concat", {Ints({1, 2}), Ints({-1})}, {{"axis", IntAttr(0)}}, {3}, {1, 2, -1}},
        FoldCase{"slice_negative_step", "Slice", {Ints({0, 1, 2, 3, 4}), Ints({-1}), Ints({0}), Ints({0}), Ints({-2})},
                 {}, {2}, {4, 2}},
        FoldCase{"slice_clamped", "Slice", {Ints({0, 1, 2, 3, 4}), Ints({1}), Ints({1000})}, {}, {4}, {1, 2, 3, 4}},
        FoldCase{"reshape_zero_and_infer", "Reshape", {Ints({1, 2, 3, 4, 5, 6}, {2, 3}), Ints({0, -1})}, {}, {2, 3},
                 {1, 2, 3, 4, 5, 6}},
        FoldCase{"mul_broadcast", "Mul", {Ints({1, 2, 3}), Ints({2}, {})}, {}, {3}, {2, 4, 6}},
        FoldCase{"add_broadcast_both_ways", "Add", {Ints({10, 20}, {2, 1}), Ints({1, 2, 3}, {1, 3})}, {}, {2, 3},
                 {11, 12, 13, 21, 22, 23}},
        FoldCase{"add_broadcast_column", "Add", {Ints({1, 2, 3, 4, 5, 6}, {2, 3}), Ints({10, 20}, {2, 1})}, {},
                 {2, 3}, {11, 12, 13, 24, 25, 26}},
        FoldCase{"expand_rank_grows", "Expand", {Ints({1, 2}, {2, 1}), Ints({2, 2, 3})}, {}, {2, 2, 3},
                 {1, 1, 1, 2, 2, 2, 1, 1, 1, 2, 2, 2}},
        FoldCase{"div_truncates", "Div", {Ints({7, -7}), Ints({2}, {})}, {}, {2}, {3, -3}},
        FoldCase{"equal_where", "Where", {Ints({1, 0, 1}), Ints({9, 9, 9}), Ints({4, 5, 6})}, {}, {3}, {9, 5, 9}},
        FoldCase{"range", "Range", {Ints({2}, {}), Ints({9}, {}), Ints({3}, {})}, {}, {3}, {2, 5, 8}},
        FoldCase{"transpose", "Transpose", {Ints({1, 2, 3, 4, 5, 6}, {2, 3})}, {}, {3, 2}, {1, 4, 2, 5, 3, 6}}),
    [](const ::testing::TestParamInfo<FoldCase>& info) { return std::string(info.param.name); });

// Shape reads the static shape of a runtime value; folding a whole exported
// chain leaves a constant Reshape target.
TEST(ConstantFoldingChain, ShapeOfARuntimeValue) {
  convert::Graph graph;
  graph.opset = 13;
  convert::ValueInfo v;
  v.dims = {1, 4, 5, 6};
  v.known = true;
  v.type = convert::kOnnxFloat;
  graph.values["x"] = v;
  convert::Node shape;
  shape.op = "Shape";
  shape.inputs = {"x"};
  shape.outputs = {"s"};
  std::vector<ConstTensor> out;
  ASSERT_TRUE(convert::EvaluateNode(graph, shape, &out));
  EXPECT_EQ(out[0].Ints(), (std::vector<std::int64_t>{1, 4, 5, 6}));
}

}  // namespace
}  // namespace testing
}  // namespace tarn

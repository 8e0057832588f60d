// Refusal: a model the runtime cannot run is refused as a whole, every
// offending node named with what blocks it; malformed and hostile files give
// a clear reason and never a crash; the tool exits non-zero and writes nothing.
#include <sys/stat.h>
#include <sys/wait.h>

#include <functional>

#include "convert/convert_test_util.h"

namespace tarn {
namespace testing {
namespace {

using convert::Target;

std::string FirstProblem(const std::string& bytes) {
  convert::ConvertResult r;
  convert::ConvertOptions options = OptionsFor(Target::kFallback);
  EXPECT_FALSE(Convert(bytes, options, &r));
  return r.problems.empty() ? std::string() : r.problems[0].message;
}

struct HostileCase {
  const char* name;
  std::function<std::string()> bytes;
  const char* reason;  // a part of the first problem's message
};

class HostileModel : public ::testing::TestWithParam<HostileCase> {};

TEST_P(HostileModel, IsRefusedWithItsReason) {
  const std::string message = FirstProblem(GetParam().bytes());
  EXPECT_NE(message.find(GetParam().reason), std::string::npos) << message;
}

std::string Resnet() {
  OnnxFixture f;
  LoadFixture("arch_resnet", &f);
  return f.onnx;
}

std::string Conv(const std::function<void(OnnxBuilder&)>& change) {
  OnnxBuilder b;
  b.Input("x", {1, 3, 8, 8}).Weight("w", {4, 3, 3, 3}).Output("y", {1, 4, 6, 6});
  b.Node("Conv", {"x", "w"}, {"y"});
  change(b);
  return b.Bytes();
}

const HostileCase kHostile[] = {
    {"empty", [] { return std::string(); }, "holds no graph"},
    {"garbage", [] { return std::string("\x0a\xff\xff\xff\xff\x0f garbage", 12); }, "malformed or truncated"},
    {"truncated_tenth", [] { const auto s = Resnet(); return s.substr(0, s.size() / 10); }, "malformed or truncated"},
    {"truncated_end", [] { const auto s = Resnet(); return s.substr(0, s.size() - 3); }, "malformed or truncated"},
    {"cycle",
     [] {
       OnnxBuilder b;
       b.Input("x", {1, 3, 4, 4}).Output("y", {1, 3, 4, 4});
       b.Node("Add", {"x", "b"}, {"a"});
       b.Node("Relu", {"a"}, {"b"});
       b.Node("Relu", {"b"}, {"y"});
       return b.Bytes();
     },
     "checker refuses"},
    {"missing_initializer", [] { return Conv([](OnnxBuilder& b) { b.graph->mutable_initializer()->Clear(); }); },
     "checker refuses"},
    {"absurd_input", [] {
       OnnxBuilder b;
       b.Input("x", {1, 3, 1000000, 1000000}).Output("y", {1, 3, 1000000, 1000000});
       b.Node("Relu", {"x"}, {"y"});
       return b.Bytes();
     }, "absurd"},
    {"weight_short_of_its_dims",
     [] {
       return Conv([](OnnxBuilder& b) {
         auto* w = b.graph->mutable_initializer(0);
         w->clear_float_data();
         w->add_float_data(1.0f);
       });
     },
     "holds 1 values, its dims need 108"},
    {"weight_of_absurd_dims",
     [] {
       return Conv([](OnnxBuilder& b) {
         auto* w = b.graph->mutable_initializer(0);
         w->clear_dims();
         for (int k = 0; k < 4; ++k) w->add_dims(100000);
       });
     },
     "absurd dimensions"},
    {"external_data",
     [] {
       return Conv([](OnnxBuilder& b) {
         auto* w = b.graph->mutable_initializer(0);
         w->set_data_location(onnx::TensorProto::EXTERNAL);
         auto* e = w->add_external_data();
         e->set_key("location");
         e->set_value("/etc/passwd");
       });
     },
     "external file"},
    {"opset_too_old", [] { return Conv([](OnnxBuilder& b) { b.model.mutable_opset_import(0)->set_version(6); }); },
     "opset 6"},
    {"opset_too_new", [] { return Conv([](OnnxBuilder& b) { b.model.mutable_opset_import(0)->set_version(18); }); },
     "opset 18"},
    {"batch_of_two",
     [] {
       return Conv([](OnnxBuilder& b) {
         b.graph->mutable_input(0)->mutable_type()->mutable_tensor_type()->mutable_shape()->mutable_dim(0)->set_dim_value(2);
       });
     },
     "batch 2"},
    {"dynamic_height",
     [] {
       return Conv([](OnnxBuilder& b) {
         b.graph->mutable_input(0)->mutable_type()->mutable_tensor_type()->mutable_shape()->mutable_dim(2)->set_dim_param("h");
       });
     },
     "dynamic dimension 'h'"},
};

INSTANTIATE_TEST_SUITE_P(Files, HostileModel, ::testing::ValuesIn(kHostile),
                         [](const ::testing::TestParamInfo<HostileCase>& info) { return std::string(info.param.name); });

// Truncation at every point of a real model is refused, never a crash.
TEST(HostileModelBytes, EveryTruncationIsRefused) {
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture("conv_k3_s2_p1", &f));
  for (std::size_t cut = 0; cut < f.onnx.size(); cut += 37) {
    convert::Graph graph;
    convert::Problems problems;
    EXPECT_FALSE(convert::ReadOnnxModel(f.onnx.data(), cut, &graph, &problems)) << cut;
    EXPECT_FALSE(problems.empty()) << cut;
  }
}

// A model with several unsupported nodes is refused with every one of them
// listed, each with its own reason.
TEST(Refusal, ListsEveryOffendingNode) {
  OnnxBuilder b;
  b.Input("x", {1, 4, 6, 6}).Ints("pads", {0, 0, 1, 1, 0, 0, 1, 1}).Weight("slope", {4, 1, 1});
  b.Output("y1", {1, 4, 6, 6}).Output("y2", {1, 4, 8, 8}).Output("y3", {1, 1, 12, 12}).Output("y4", {1, 4, 6, 6});
  b.Node("Elu", {"x"}, {"y1"}, "the_elu");
  auto* pad = b.Node("Pad", {"x", "pads"}, {"y2"}, "the_pad");
  OnnxBuilder::Attr(pad, "mode", std::string("reflect"));
  auto* d2s = b.Node("DepthToSpace", {"x"}, {"y3"}, "the_d2s");
  OnnxBuilder::Attr(d2s, "blocksize", std::int64_t(2));
  b.Node("PRelu", {"x", "slope"}, {"y4"}, "the_prelu");
  convert::ConvertResult r;
  ASSERT_FALSE(Convert(b.Bytes(), OptionsFor(Target::kFallback), &r));
  const std::string all = convert::FormatProblems(r.problems);
  ASSERT_EQ(r.problems.size(), 4u) << all;
  EXPECT_NE(all.find("node 'the_elu' (Elu): the runtime has no Elu activation"), std::string::npos) << all;
  EXPECT_NE(all.find("node 'the_pad' (Pad): pad mode 'reflect'"), std::string::npos) << all;
  EXPECT_NE(all.find("node 'the_d2s' (DepthToSpace): mode DCR"), std::string::npos) << all;
  EXPECT_NE(all.find("node 'the_prelu' (PRelu): the slope differs between channels"), std::string::npos) << all;
}

struct NodeCase {
  const char* name;
  std::function<std::string()> bytes;
  const char* reason;
};

class RefusedNode : public ::testing::TestWithParam<NodeCase> {};

TEST_P(RefusedNode, SaysWhatBlocksIt) {
  const std::string message = FirstProblem(GetParam().bytes());
  EXPECT_NE(message.find(GetParam().reason), std::string::npos) << message;
}

std::string Recurrent(const std::string& op, const std::function<void(OnnxBuilder&, onnx::NodeProto*)>& change) {
  OnnxBuilder b;
  const std::int64_t gates = op == "LSTM" ? 4 : op == "GRU" ? 3 : 1;
  b.Input("x", {5, 1, 4}).Weight("W", {1, gates * 6, 4}).Weight("R", {1, gates * 6, 6}).Output("y", {5, 1, 1, 6});
  auto* n = b.Node(op, {"x", "W", "R"}, {"y"});
  OnnxBuilder::Attr(n, "hidden_size", std::int64_t(6));
  change(b, n);
  return b.Bytes();
}

const NodeCase kNodes[] = {
    {"gru_linear_before_reset_0",
     [] { return Recurrent("GRU", [](OnnxBuilder&, onnx::NodeProto*) {}); }, "linear_before_reset = 0"},
    {"lstm_final_state_read",
     [] {
       return Recurrent("LSTM", [](OnnxBuilder& b, onnx::NodeProto* n) {
         n->add_output("y_h");
         b.Output("y_h", {1, 1, 6});
       });
     },
     "the final state 'y_h' is read"},
    {"lstm_reverse_only",
     [] {
       return Recurrent("LSTM", [](OnnxBuilder&, onnx::NodeProto* n) { OnnxBuilder::Attr(n, "direction", std::string("reverse")); });
     },
     "reverse-only"},
    {"rnn_sigmoid",
     [] {
       return Recurrent("RNN", [](OnnxBuilder&, onnx::NodeProto* n) {
         auto* a = n->add_attribute();
         a->set_name("activations");
         a->set_type(onnx::AttributeProto::STRINGS);
         a->add_strings("Sigmoid");
       });
     },
     "activation Sigmoid"},
    {"hard_sigmoid_other_slope",
     [] {
       OnnxBuilder b;
       b.Input("x", {1, 2, 3, 3}).Output("y", {1, 2, 3, 3});
       OnnxBuilder::Attr(b.Node("HardSigmoid", {"x"}, {"y"}), "alpha", 0.2f);
       return b.Bytes();
     },
     "relu6(x + 3) / 6"},
    {"avgpool_ceil_counting_padding",
     [] {
       OnnxBuilder b;
       b.Input("x", {1, 2, 8, 8}).Output("y", {1, 2, 4, 4});
       auto* p = b.Node("AveragePool", {"x"}, {"y"});
       OnnxBuilder::Attr(p, "kernel_shape", std::vector<std::int64_t>{3, 3});
       OnnxBuilder::Attr(p, "strides", std::vector<std::int64_t>{2, 2});
       OnnxBuilder::Attr(p, "ceil_mode", std::int64_t(1));
       OnnxBuilder::Attr(p, "count_include_pad", std::int64_t(1));
       return b.Bytes();
     },
     "count the overhang"},
    {"resize_cubic",
     [] {
       OnnxBuilder b(13);
       b.Input("x", {1, 2, 4, 4}).Output("y", {1, 2, 8, 8});
       auto* s = b.graph->add_initializer();
       s->set_name("scales");
       s->set_data_type(onnx::TensorProto::FLOAT);
       s->add_dims(4);
       for (float v : {1.0f, 1.0f, 2.0f, 2.0f}) s->add_float_data(v);
       auto* n = b.Node("Resize", {"x", "", "scales"}, {"y"});
       OnnxBuilder::Attr(n, "mode", std::string("cubic"));
       return b.Bytes();
     },
     "mode 'cubic'"},
    {"constant_of_full_shape",
     [] {
       OnnxBuilder b;
       b.Input("x", {1, 2, 3, 3}).Weight("c", {1, 2, 3, 3}).Output("y", {1, 2, 3, 3});
       b.Node("Add", {"x", "c"}, {"y"});
       return b.Bytes();
     },
     "neither uniform nor per channel"},
    {"unsupported_operator",
     [] {
       OnnxBuilder b;
       b.Input("x", {1, 2, 3, 3}).Output("y", {1, 2, 3, 3});
       b.Node("Erf", {"x"}, {"y"});
       return b.Bytes();
     },
     "operator Erf is not supported"},
    {"output_computed_from_constants_only",
     [] {
       OnnxBuilder b;
       b.Input("x", {1, 2, 3, 3}).Output("y", {4});
       b.Node("Relu", {"x"}, {"r"});
       b.Node("Shape", {"r"}, {"s"});
       b.Node("Cast", {"s"}, {"y"});
       auto* cast = b.graph->mutable_node(2);
       OnnxBuilder::Attr(cast, "to", std::int64_t(onnx::TensorProto::FLOAT));
       return b.Bytes();
     },
     "the runtime has no constant tensors"},
};

INSTANTIATE_TEST_SUITE_P(Nodes, RefusedNode, ::testing::ValuesIn(kNodes),
                         [](const ::testing::TestParamInfo<NodeCase>& info) { return std::string(info.param.name); });

#ifdef TRN_CONVERT_TOOL
int RunTool(const std::string& args) {
  const int status = std::system((std::string(TRN_CONVERT_TOOL) + " " + args + " >/dev/null 2>&1").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

// The tool: a refused model exits 1 and leaves no file; usage errors exit 2;
// a good model exits 0 with the package written.
TEST(ConvertTool, ExitStatusAndNoPartialFile) {
  TempDir dir;
  const std::string out = dir.File("out.json");
  OnnxBuilder elu;  // the runtime has no Elu activation: refused whatever is registered
  elu.Input("x", {1, 4, 6, 6}).Output("y", {1, 4, 6, 6});
  elu.Node("Elu", {"x"}, {"y"});
  const std::string refused = dir.File("elu.onnx"), bytes = elu.Bytes();
  WriteAll(refused, std::vector<unsigned char>(bytes.begin(), bytes.end()));
  EXPECT_EQ(RunTool(refused + " " + out), 1);
  EXPECT_FALSE(Exists(out));
  const std::string garbage = dir.File("garbage.onnx");
  WriteAll(garbage, {1, 2, 3, 4, 5});
  EXPECT_EQ(RunTool(garbage + " " + out), 1);
  EXPECT_FALSE(Exists(out));
  EXPECT_EQ(RunTool(FixturePath("conv_k1", ".onnx") + " " + dir.File("out.txt")), 1);
  EXPECT_EQ(RunTool(FixturePath("conv_k1", ".onnx")), 2);
  EXPECT_EQ(RunTool(FixturePath("conv_k1", ".onnx") + " " + out + " --target arm"), 2);
  EXPECT_EQ(RunTool(FixturePath("conv_k1", ".onnx") + " " + out + " --target fallback"), 0);
  EXPECT_TRUE(Exists(out));
}
#endif

}  // namespace
}  // namespace testing
}  // namespace tarn

// Runs one network of a model package: loads it through load_model, feeds it
// images, NPY arrays or random data, prints the outputs (top-k for
// classifiers), the latency statistics, the per-layer profile and the largest
// difference to a reference output.
//
//   trn_run PACKAGE [--net NAME] [--input FILE.bmp|FILE.npy|random]... [--runs N] [--warmup N]
//           [--profile] [--json OUT] [--trace OUT] [--compare REF.npy] [--tolerance T] [--top-k K]
//           [--save OUT.npy] [--output ID] [--shape D,D,...] [--size HxW] [--mean A,B,C] [--std A,B,C]
//           [--bgr] [--seed N] [--sdk TYPE:MAJOR.MINOR] [--verbose]
//
// Exit status: 0 success, 1 a failure (file, load, forward pass, or a
// difference above --tolerance), 2 a usage error.
// Before any RapidJSON header: it fixes the library's RapidJSON settings.
#include "tarn/runtime/json_binding.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "tarn/kernel/image_process.h"
#include "tarn/runtime/profiler.h"
#include "tarn/utility/bmp.h"
#include "tarn/utility/log.h"
#include "tarn/utility/metrics.h"
#include "tarn/utility/model_loader.h"
#include "tarn/utility/npy.h"
#include "tarn/utility/timer.h"

using namespace tarn;

namespace {

const char kUsage[] =
    "usage: trn_run PACKAGE [options]\n"
    "  PACKAGE                a model package, .json or .trnmodel\n"
    "  --net NAME             the network to run (needed when the package holds several)\n"
    "  --input SOURCE         FILE.bmp, FILE.npy or random; once per input layer, in layer order\n"
    "                         (inputs not given are random)\n"
    "  --runs N               timed forward passes (default 10)\n"
    "  --warmup N             untimed passes before them (default 1)\n"
    "  --profile              print the per-layer profile of the timed passes\n"
    "  --json OUT             write outputs, latency and profile as JSON\n"
    "  --trace OUT            write the last pass as trace-event JSON (chrome://tracing, Perfetto)\n"
    "  --compare REF.npy      largest difference of the output to a reference\n"
    "  --tolerance T          with --compare: fail when max|diff| / max|ref| exceeds T\n"
    "  --top-k K              top-k classes of vector outputs (default 5, 0: none)\n"
    "  --save OUT.npy         save the output\n"
    "  --output ID            the output layer that --compare and --save use (default: the first)\n"
    "  --shape D,D,...        shape of random inputs (default 3,H,W with the model's base input size)\n"
    "  --size HxW             images are resized to this (default: the model's base input size)\n"
    "  --mean A,B,C --std A,B,C  image normalisation: (pixel / 255 - mean) / std (default 0 and 1)\n"
    "  --bgr                  feed images in BGR channel order (default RGB)\n"
    "  --seed N               seed of random inputs (default 0)\n"
    "  --sdk TYPE:MAJOR.MINOR the caller's SDK for the package's version check (default cpu_sse:1.0)\n"
    "  --verbose              show the library's trace messages too\n";

struct Options {
  std::string package;
  std::string net;
  std::vector<std::string> inputs;
  int runs = 10;
  int warmup = 1;
  bool profile = false;
  std::string json, trace, compare, save, output;
  double tolerance = -1;
  int top_k = 5;
  std::vector<unsigned> shape;
  unsigned size_h = 0, size_w = 0;
  std::vector<float> mean{0, 0, 0}, stddev{1, 1, 1};
  bool bgr = false;
  unsigned seed = 0;
  std::string sdk_type = "cpu_sse";
  unsigned short sdk_major = 1, sdk_minor = 0;
  bool verbose = false;
};

[[noreturn]] void Usage(const std::string& problem) {
  std::fprintf(stderr, "trn_run: %s\n%s", problem.c_str(), kUsage);
  std::exit(2);
}

int Fail(const char* format, ...) __attribute__((format(printf, 1, 2)));
int Fail(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::fputs("trn_run: ", stderr);
  std::vfprintf(stderr, format, args);
  std::fputc('\n', stderr);
  va_end(args);
  return 1;
}

bool ParseInt(const std::string& text, long min, long max, long* out) {
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || v < min || v > max) return false;
  *out = v;
  return true;
}

std::vector<std::string> Split(const std::string& text, char sep) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t at = text.find(sep, start);
    parts.push_back(text.substr(start, at - start));
    if (at == std::string::npos) return parts;
    start = at + 1;
  }
}

std::vector<float> ParseFloats(const std::string& flag, const std::string& text) {
  std::vector<float> values;
  for (const std::string& part : Split(text, ',')) {
    char* end = nullptr;
    const float v = std::strtof(part.c_str(), &end);
    if (part.empty() || *end != '\0' || !std::isfinite(v)) Usage(flag + " takes numbers separated by commas");
    values.push_back(v);
  }
  return values;
}

Options Parse(int argc, char** argv) {
  Options o;
  auto value = [&](int& i) -> std::string {
    if (i + 1 >= argc) Usage(std::string(argv[i]) + " needs a value");
    return argv[++i];
  };
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    long n = 0;
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      std::exit(0);
    } else if (a == "--net") {
      o.net = value(i);
    } else if (a == "--input") {
      o.inputs.push_back(value(i));
    } else if (a == "--runs") {
      if (!ParseInt(value(i), 1, 100000000, &n)) Usage("--runs takes a count of at least 1");
      o.runs = static_cast<int>(n);
    } else if (a == "--warmup") {
      if (!ParseInt(value(i), 0, 100000000, &n)) Usage("--warmup takes a count");
      o.warmup = static_cast<int>(n);
    } else if (a == "--profile") {
      o.profile = true;
    } else if (a == "--json") {
      o.json = value(i);
    } else if (a == "--trace") {
      o.trace = value(i);
    } else if (a == "--compare") {
      o.compare = value(i);
    } else if (a == "--tolerance") {
      const std::vector<float> t = ParseFloats(a, value(i));
      if (t.size() != 1 || t[0] < 0) Usage("--tolerance takes one number >= 0");
      o.tolerance = t[0];
    } else if (a == "--top-k") {
      if (!ParseInt(value(i), 0, 1000000, &n)) Usage("--top-k takes a count");
      o.top_k = static_cast<int>(n);
    } else if (a == "--save") {
      o.save = value(i);
    } else if (a == "--output") {
      o.output = value(i);
    } else if (a == "--shape") {
      for (const std::string& d : Split(value(i), ',')) {
        if (!ParseInt(d, 1, 0x7FFFFFFF, &n)) Usage("--shape takes sizes separated by commas, e.g. 3,224,224");
        o.shape.push_back(static_cast<unsigned>(n));
      }
    } else if (a == "--size") {
      const std::vector<std::string> hw = Split(value(i), 'x');
      long h = 0, w = 0;
      if (hw.size() != 2 || !ParseInt(hw[0], 1, 65535, &h) || !ParseInt(hw[1], 1, 65535, &w)) {
        Usage("--size takes HEIGHTxWIDTH, e.g. 224x224");
      }
      o.size_h = static_cast<unsigned>(h);
      o.size_w = static_cast<unsigned>(w);
    } else if (a == "--mean") {
      o.mean = ParseFloats(a, value(i));
    } else if (a == "--std") {
      o.stddev = ParseFloats(a, value(i));
      for (float s : o.stddev) {
        if (s == 0) Usage("--std values must not be 0");
      }
    } else if (a == "--bgr") {
      o.bgr = true;
    } else if (a == "--seed") {
      if (!ParseInt(value(i), 0, 0x7FFFFFFF, &n)) Usage("--seed takes a number");
      o.seed = static_cast<unsigned>(n);
    } else if (a == "--sdk") {
      const std::string v = value(i);
      const size_t colon = v.find(':');
      const std::vector<std::string> ver = colon == std::string::npos ? std::vector<std::string>()
                                                                      : Split(v.substr(colon + 1), '.');
      long major = 0, minor = 0;
      if (colon == 0 || ver.size() != 2 || !ParseInt(ver[0], 0, 65535, &major) ||
          !ParseInt(ver[1], 0, 65535, &minor)) {
        Usage("--sdk takes TYPE:MAJOR.MINOR, e.g. cpu_sse:1.0");
      }
      o.sdk_type = v.substr(0, colon);
      o.sdk_major = static_cast<unsigned short>(major);
      o.sdk_minor = static_cast<unsigned short>(minor);
    } else if (a == "--verbose") {
      o.verbose = true;
    } else if (!a.empty() && a[0] == '-') {
      Usage("unknown option " + a);
    } else if (o.package.empty()) {
      o.package = a;
    } else {
      Usage("more than one package given: " + o.package + " and " + a);
    }
  }
  if (o.package.empty()) Usage("no package given");
  return o;
}

bool EndsWith(const std::string& s, const char* suffix) {
  const size_t n = std::strlen(suffix);
  return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

std::string ShapeText(const std::vector<unsigned>& dims) {
  std::string s;
  for (unsigned d : dims) s += (s.empty() ? "" : "x") + std::to_string(d);
  return s.empty() ? "scalar" : s;
}

using TensorPtr = std::shared_ptr<runtime::TensorCPU>;

// A BMP file through the image pre-processing: 8-bit HWC, alpha dropped,
// bilinear resize, planar, float, (v / 255 - mean) / std per channel.
TensorPtr ImageInput(const std::string& path, const Options& o, const runtime::NetExtraInfo& extra,
                     const std::shared_ptr<runtime::Context>& ctx, std::string* error) {
  const auto& device = ctx->cpu;
  TensorPtr image = utility::ReadBMP(path, device, o.bgr ? utility::BMPChannelOrder::BGR : utility::BMPChannelOrder::RGB,
                                     error);
  if (!image) return nullptr;
  kernel::ImageProcessFallback process;
  unsigned h = image->shape.dims[0], w = image->shape.dims[1], c = image->shape.dims[2];
  if (c == 4) {
    TensorPtr rgb = device->CreateUInt8HWCTensor(h, w, 3);
    process.ConvertPixel(image, rgb, kernel::IMG_RGBA2RGB, ctx);
    image = rgb;
    c = 3;
  }
  const unsigned th = o.size_h ? o.size_h : (extra.model_base_h ? extra.model_base_h : h);
  const unsigned tw = o.size_w ? o.size_w : (extra.model_base_w ? extra.model_base_w : w);
  if (th != h || tw != w) {
    TensorPtr resized = device->CreateUInt8HWCTensor(th, tw, c);
    process.ConvertPixel(image, resized, c == 1 ? kernel::IMG_RESIZE_BILINEAR_C1 : kernel::IMG_RESIZE_BILINEAR_C3,
                         ctx);
    image = resized;
    h = th;
    w = tw;
  }
  TensorPtr planar = device->CreateTensor(runtime::MakeShape({c, h, w}, runtime::TensorShape::UINT8));
  process.ConvertPixel(image, planar, kernel::IMG_HWC2CHW, ctx);
  TensorPtr input = device->CreateTensor(runtime::MakeShape({c, h, w}));
  process.ConvertPixel(planar, input, kernel::IMG_CONVERT_8U_TO_32F, ctx);
  float* v = input->DataAs<float>();
  const size_t plane = static_cast<size_t>(h) * w;
  for (unsigned k = 0; k < c; ++k) {
    const float mean = o.mean[std::min<size_t>(k, o.mean.size() - 1)];
    const float scale = 1.0f / o.stddev[std::min<size_t>(k, o.stddev.size() - 1)];
    for (size_t i = 0; i < plane; ++i) v[k * plane + i] = (v[k * plane + i] / 255.0f - mean) * scale;
  }
  return input;
}

TensorPtr NpyInput(const std::string& path, const std::shared_ptr<runtime::Context>& ctx, std::string* error) {
  utility::NpyArray array;
  if (!utility::ReadNPY(path, &array, error)) return nullptr;
  // Tensors carry no batch axis: PyTorch's 1xCxHxW is the runtime's CxHxW.
  if (array.shape.size() == 4 && array.shape[0] == 1) array.shape.erase(array.shape.begin());
  return ctx->cpu->CreateTensor(runtime::MakeShape(array.shape), array.values.data());
}

TensorPtr RandomInput(const std::vector<unsigned>& shape, std::mt19937& rng,
                      const std::shared_ptr<runtime::Context>& ctx) {
  TensorPtr t = ctx->cpu->CreateTensor(runtime::MakeShape(shape));
  std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
  float* v = t->DataAs<float>();
  for (size_t i = 0; i < t->shape.ElementCount(); ++i) v[i] = uniform(rng);
  return t;
}

std::vector<float> Values(const std::shared_ptr<runtime::Tensor>& t) {
  if (!t || t->shape.data_type != runtime::TensorShape::FLOAT32 || t->Data() == nullptr) return {};
  const float* p = static_cast<const float*>(t->Data());
  return std::vector<float>(p, p + t->shape.ElementCount());
}

// Indices of the k largest values, largest first.
std::vector<size_t> TopK(const std::vector<float>& v, size_t k) {
  std::vector<size_t> order(v.size());
  std::iota(order.begin(), order.end(), size_t(0));
  k = std::min(k, v.size());
  std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(k), order.end(),
                    [&v](size_t a, size_t b) { return v[a] > v[b] || (v[a] == v[b] && a < b); });
  order.resize(k);
  return order;
}

// A classifier's output: all dims but one are 1.
bool IsVector(const runtime::TensorShape& s) {
  size_t big = 0;
  for (unsigned d : s.dims) big += d > 1 ? 1 : 0;
  return big <= 1 && s.ElementCount() > 1;
}

struct Comparison {
  bool done = false;
  double max_abs = 0, ref_max = 0, relative = 0;
  size_t where = 0;
  float got = 0, want = 0;
};

// Progress of long runs on stderr: rewritten in place on a terminal, a line
// every ten seconds otherwise; silent for runs shorter than two seconds.
class Progress {
 public:
  Progress(const char* what, int total) : what_(what), total_(total), tty_(isatty(2) != 0) {
    start_ = utility::get_time_in_ms();
    last_ = start_;
  }
  void Update(int done) {
    const double now = utility::get_time_in_ms();
    const double elapsed = now - start_;
    const double left = elapsed / done * (total_ - done);
    if (!shown_ && elapsed + left < 2000) return;
    if (now - last_ < (tty_ ? 250 : 10000) && done != total_) return;
    last_ = now;
    shown_ = true;
    std::fprintf(stderr, "%s%s %d/%d, %.1f s, about %.1f s left%s", tty_ ? "\r" : "", what_, done, total_,
                 elapsed / 1e3, left / 1e3, tty_ ? "   " : "\n");
    if (tty_ && done == total_) std::fputc('\n', stderr);
  }

 private:
  const char* what_;
  int total_;
  bool tty_;
  bool shown_ = false;
  double start_, last_;
};

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

// JSON has no NaN or infinity: such values are written as null.
void WriteNumber(JsonWriter& w, double v) {
  if (std::isfinite(v)) {
    w.Double(v);
  } else {
    w.Null();
  }
}

void WriteText(JsonWriter& w, const char* key, const std::string& text) {
  w.Key(key);
  w.String(text.c_str(), static_cast<rapidjson::SizeType>(text.size()));
}

void WriteStats(JsonWriter& w, const utility::StatsSummary& s) {
  w.StartObject();
  w.Key("count");
  w.Uint64(s.count);
  for (const auto& v : {std::make_pair("mean", s.mean), std::make_pair("min", s.min), std::make_pair("max", s.max),
                        std::make_pair("stddev", s.stddev), std::make_pair("p50", s.p50), std::make_pair("p90", s.p90),
                        std::make_pair("p99", s.p99)}) {
    w.Key(v.first);
    WriteNumber(w, v.second);
  }
  w.EndObject();
}

bool WriteFile(const std::string& path, const std::string& text) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  return std::fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = Parse(argc, argv);
  utility::SetLogTag("trn_core");
  utility::SetLogLevel(o.verbose ? utility::kLogVerbose : utility::kLogWarning);

  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::shared_ptr<runtime::Context> ctx;
  utility::create_context(ctx, 64);

  if (!EndsWith(o.package, ".json") && !EndsWith(o.package, ".trnmodel")) {
    return Fail("%s: a package ends in .json or .trnmodel", o.package.c_str());
  }
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  const double load_start = utility::get_time_in_ms();
  const int loaded = utility::load_model(o.package, nets, ctx, kernels, params, o.sdk_type, o.sdk_major, o.sdk_minor);
  const double load_ms = utility::get_time_in_ms() - load_start;
  if (loaded != 0) return Fail("%s: cannot load the package (see the messages above)", o.package.c_str());
  if (nets.empty()) return Fail("%s: the package holds no network", o.package.c_str());

  std::string name = o.net;
  if (name.empty()) {
    if (nets.size() > 1) {
      std::string names;
      for (const auto& entry : nets) names += " " + entry.first;
      return Fail("%s holds several networks, choose one with --net:%s", o.package.c_str(), names.c_str());
    }
    name = nets.begin()->first;
  }
  auto found = nets.find(name);
  if (found == nets.end()) return Fail("%s: no network named %s", o.package.c_str(), name.c_str());
  auto pkg = found->second;
  if (!pkg->net) return Fail("%s: network %s could not be built (see the messages above)", o.package.c_str(), name.c_str());
  const runtime::Net& net = *pkg->net;
  std::printf("loaded %s in %.1f ms: network %s, %zu layers, %zu inputs, %zu outputs\n", o.package.c_str(), load_ms,
              name.c_str(), net.layers().size(), pkg->input_tensors.size(), pkg->output_indices.size());

  // Inputs, in layer order.
  std::vector<std::uint32_t> input_layers;
  for (const auto& entry : pkg->input_tensors) input_layers.push_back(entry.first);
  std::sort(input_layers.begin(), input_layers.end());
  if (o.inputs.size() > input_layers.size()) {
    return Fail("%zu inputs given, network %s has %zu", o.inputs.size(), name.c_str(), input_layers.size());
  }
  std::mt19937 rng(o.seed);
  std::vector<std::string> sources;
  for (size_t k = 0; k < input_layers.size(); ++k) {
    const std::string source = k < o.inputs.size() ? o.inputs[k] : "random";
    const std::string& layer_id = net.layers()[input_layers[k]]->id;
    std::string error;
    TensorPtr t;
    if (source == "random") {
      std::vector<unsigned> shape = o.shape;
      if (shape.empty() && pkg->extra_info.model_base_h && pkg->extra_info.model_base_w) {
        shape = {3, pkg->extra_info.model_base_h, pkg->extra_info.model_base_w};
      }
      if (shape.empty()) return Fail("input layer %s: the model names no input size, give --shape", layer_id.c_str());
      t = RandomInput(shape, rng, ctx);
    } else if (EndsWith(source, ".npy")) {
      t = NpyInput(source, ctx, &error);
    } else if (EndsWith(source, ".bmp") || EndsWith(source, ".BMP")) {
      t = ImageInput(source, o, pkg->extra_info, ctx, &error);
    } else {
      return Fail("input layer %s: %s is neither a .bmp nor a .npy file nor \"random\"", layer_id.c_str(),
                  source.c_str());
    }
    if (!t) return Fail("input layer %s: %s", layer_id.c_str(), error.c_str());
    pkg->input_tensors[input_layers[k]] = t;
    sources.push_back(source);
    std::printf("input %s (layer %u): %s, %s\n", layer_id.c_str(), input_layers[k], source.c_str(),
                ShapeText(t->shape.dims).c_str());
  }

  // The output --compare and --save use.
  std::uint32_t chosen = pkg->output_indices.empty() ? 0 : pkg->output_indices[0];
  if (!o.output.empty()) {
    const std::int64_t index = net.IndexOf(o.output);
    if (index < 0 || std::find(pkg->output_indices.begin(), pkg->output_indices.end(),
                               static_cast<std::uint32_t>(index)) == pkg->output_indices.end()) {
      return Fail("%s is not an output layer of network %s", o.output.c_str(), name.c_str());
    }
    chosen = static_cast<std::uint32_t>(index);
  }

  // Passes: warm-up, then timed ones, profiled when anything asks for it.
  auto profiler = std::make_shared<runtime::Profiler>();
  auto timed_ctx = std::make_shared<runtime::Context>(*ctx);
  if (o.profile || !o.trace.empty() || !o.json.empty()) timed_ctx->profiler = profiler;
  runtime::OutputMap outputs;
  // Every pass is an independent input: recurrent kernels keep their state
  // between calls, so it is cleared before each pass (outside the timing).
  const auto reset_states = [&net] {
    for (const auto& layer : net.layers()) {
      if (layer->kernel) layer->kernel->ResetRNNState();
    }
  };
  for (int r = 0; r < o.warmup; ++r) {
    reset_states();
    outputs = net.Forward(pkg->input_tensors, pkg->output_indices, ctx);
    if (outputs.empty()) return Fail("the forward pass failed (see the messages above)");
  }
  utility::RunningStats latency(static_cast<size_t>(std::min(o.runs, 100000)));
  Progress progress("pass", o.runs);
  for (int r = 0; r < o.runs; ++r) {
    reset_states();
    const std::uint64_t t0 = utility::TickCounter::Now();
    outputs = net.Forward(pkg->input_tensors, pkg->output_indices, timed_ctx);
    const std::uint64_t t1 = utility::TickCounter::Now();
    if (outputs.empty()) return Fail("the forward pass failed (see the messages above)");
    latency.Add(utility::TickCounter::ToMs(t1 - t0));
    progress.Update(r + 1);
  }

  // Outputs.
  for (std::uint32_t index : pkg->output_indices) {
    const auto& tensors = outputs[index];
    for (size_t k = 0; k < tensors.size(); ++k) {
      const std::vector<float> v = Values(tensors[k]);
      std::printf("output %s (layer %u)%s: %s\n", net.layers()[index]->id.c_str(), index,
                  tensors.size() > 1 ? (" #" + std::to_string(k)).c_str() : "", ShapeText(tensors[k]->shape.dims).c_str());
      if (o.top_k > 0 && IsVector(tensors[k]->shape)) {
        std::printf("  top-%d:", std::min<int>(o.top_k, static_cast<int>(v.size())));
        for (size_t i : TopK(v, static_cast<size_t>(o.top_k))) std::printf("  %zu (%.5g)", i, v[i]);
        std::printf("\n");
      }
      std::printf("  values:");
      for (size_t i = 0; i < v.size() && i < 8; ++i) std::printf(" %.6g", v[i]);
      std::printf("%s\n", v.size() > 8 ? " ..." : "");
    }
  }
  const utility::StatsSummary lat = latency.Summary();
  std::printf("latency over %d passes (after %d warm-up): %s\n", o.runs, o.warmup,
              utility::FormatSummary(lat, "ms").c_str());

  int status = 0;
  const std::vector<float> out = outputs[chosen].empty() ? std::vector<float>() : Values(outputs[chosen][0]);
  Comparison cmp;
  if (!o.compare.empty()) {
    utility::NpyArray ref;
    std::string error;
    if (!utility::ReadNPY(o.compare, &ref, &error)) return Fail("reference %s", error.c_str());
    if (ref.values.size() != out.size()) {
      return Fail("reference %s holds %zu values, output %s has %zu", o.compare.c_str(), ref.values.size(),
                  net.layers()[chosen]->id.c_str(), out.size());
    }
    cmp.done = true;
    for (size_t i = 0; i < out.size(); ++i) {
      const double d = std::fabs(static_cast<double>(out[i]) - ref.values[i]);
      cmp.ref_max = std::max(cmp.ref_max, std::fabs(static_cast<double>(ref.values[i])));
      if (d > cmp.max_abs || std::isnan(d)) {
        cmp.max_abs = std::isnan(d) ? INFINITY : d;
        cmp.where = i;
      }
    }
    cmp.got = out[cmp.where];
    cmp.want = ref.values[cmp.where];
    cmp.relative = cmp.ref_max > 0 ? cmp.max_abs / cmp.ref_max : cmp.max_abs;
    std::printf("compare %s with %s: largest difference %.4g at [%zu] (got %.7g, reference %.7g); "
                "relative to the largest reference magnitude %.4g: %.4g\n",
                net.layers()[chosen]->id.c_str(), o.compare.c_str(), cmp.max_abs, cmp.where, cmp.got, cmp.want,
                cmp.ref_max, cmp.relative);
    if (o.tolerance >= 0 && !(cmp.relative <= o.tolerance)) {
      Fail("the difference %.4g exceeds the tolerance %.4g", cmp.relative, o.tolerance);
      status = 1;
    }
  }
  if (!o.save.empty()) {
    std::string error;
    if (!utility::WriteNPY(o.save, out.data(), outputs[chosen][0]->shape.dims, &error)) {
      return Fail("cannot save the output: %s", error.c_str());
    }
    std::printf("saved output %s to %s\n", net.layers()[chosen]->id.c_str(), o.save.c_str());
  }
  if (o.profile) std::printf("\nper-layer profile of the %d timed passes:\n%s", o.runs, profiler->Table().c_str());
  if (!o.trace.empty()) {
    if (!WriteFile(o.trace, profiler->ToTraceJSON())) return Fail("cannot write %s", o.trace.c_str());
    std::printf("trace of the last pass written to %s\n", o.trace.c_str());
  }
  if (!o.json.empty()) {
    rapidjson::StringBuffer buffer;
    JsonWriter w(buffer);
    w.StartObject();
    WriteText(w, "package", o.package);
    WriteText(w, "net", name);
    w.Key("load_ms");
    w.Double(load_ms);
    w.Key("inputs");
    w.StartArray();
    for (size_t k = 0; k < input_layers.size(); ++k) {
      w.StartObject();
      WriteText(w, "layer", net.layers()[input_layers[k]]->id);
      WriteText(w, "source", sources[k]);
      w.Key("shape");
      w.StartArray();
      for (unsigned d : pkg->input_tensors[input_layers[k]]->shape.dims) w.Uint(d);
      w.EndArray();
      w.EndObject();
    }
    w.EndArray();
    w.Key("outputs");
    w.StartArray();
    for (std::uint32_t index : pkg->output_indices) {
      for (const auto& t : outputs[index]) {
        const std::vector<float> v = Values(t);
        w.StartObject();
        WriteText(w, "layer", net.layers()[index]->id);
        w.Key("shape");
        w.StartArray();
        for (unsigned d : t->shape.dims) w.Uint(d);
        w.EndArray();
        if (o.top_k > 0 && IsVector(t->shape)) {
          w.Key("top_k");
          w.StartArray();
          for (size_t i : TopK(v, static_cast<size_t>(o.top_k))) {
            w.StartObject();
            w.Key("index");
            w.Uint64(i);
            w.Key("value");
            WriteNumber(w, v[i]);
            w.EndObject();
          }
          w.EndArray();
        }
        w.EndObject();
      }
    }
    w.EndArray();
    w.Key("latency_ms");
    WriteStats(w, lat);
    if (cmp.done) {
      w.Key("compare");
      w.StartObject();
      WriteText(w, "reference", o.compare);
      w.Key("max_abs_diff");
      WriteNumber(w, cmp.max_abs);
      w.Key("at");
      w.Uint64(cmp.where);
      w.Key("relative");
      WriteNumber(w, cmp.relative);
      w.EndObject();
    }
    const std::string profile = profiler->ToJSON();
    w.Key("profile");
    w.RawValue(profile.c_str(), profile.size(), rapidjson::kObjectType);
    w.EndObject();
    if (!WriteFile(o.json, std::string(buffer.GetString(), buffer.GetSize()))) {
      return Fail("cannot write %s", o.json.c_str());
    }
    std::printf("results written to %s\n", o.json.c_str());
  }
  return status;
}

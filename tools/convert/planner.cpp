#include "convert/planner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/net.h"
#include "tarn/utility/log.h"
#include "tarn/utility/model_loader.h"

namespace tarn {
namespace convert {

using runtime::TensorShape;

const char* TargetName(Target target) {
  switch (target) {
    case Target::kAuto: return "auto";
    case Target::kFallback: return "fallback";
    case Target::kSSE: return "sse";
    case Target::kAVX: return "avx";
  }
  return "?";
}

bool ParseTarget(const std::string& text, Target* target) {
  for (Target t : {Target::kAuto, Target::kFallback, Target::kSSE, Target::kAVX}) {
    if (text == TargetName(t)) {
      *target = t;
      return true;
    }
  }
  return false;
}

namespace {

TensorShape::Layout RuntimeLayout(Layout layout) {
  return layout == Layout::kC4HW4 ? TensorShape::C4HW4 : layout == Layout::kC8HW8 ? TensorShape::C8HW8 : TensorShape::CHW;
}

TensorShape ShapeIn(const RuntimeDims& dims, Layout layout) {
  return runtime::MakeShape(BlockedDims(dims, layout), TensorShape::FLOAT32, RuntimeLayout(layout));
}

bool Allowed(Family family, Target target) {
  switch (family) {
    case Family::kFallback:
    case Family::kSGEMM: return true;  // portable code, and the CBLAS dispatches by processor itself
    case Family::kSSE: return target == Target::kSSE || target == Target::kAVX;
    case Family::kAVX: return target == Target::kAVX;
  }
  return false;
}

// Whether tensors of `dims` can live in `layout`.
bool FitsLayout(const RuntimeDims& dims, Layout layout) {
  if (layout == Layout::kPlanar) return true;
  return dims.size() == 3 && dims[0] > 0 && dims[0] % Lanes(layout) == 0;
}

const char* kTransforms[][3] = {
    // from, to, key (preferred first)
    {"CHW", "C4HW4", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2"},
    {"CHW", "C4HW4", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1"},
    {"C4HW4", "CHW", "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1"},
    {"CHW", "C8HW8", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1"},
    {"CHW", "C8HW8", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1"},
    {"C8HW8", "CHW", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2"},
    {"C8HW8", "CHW", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1"},
    {"C8HW8", "CHW", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2"},
    {"C8HW8", "CHW", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1"},
};

Family FamilyOfKey(const std::string& key) {
  if (key.find("_AVX_") != std::string::npos) return Family::kAVX;
  if (key.find("_SSE_") != std::string::npos) return Family::kSSE;
  return Family::kFallback;
}

bool HeavyRecord(std::uint16_t type) {
  return type == runtime::LAYER_CONV2D || type == runtime::LAYER_CONVTRANSPOSE2D;
}

// Record types whose kernels always write a fresh output tensor.
bool FreshOutput(std::uint16_t type) {
  switch (type) {
    case runtime::LAYER_CONV2D:
    case runtime::LAYER_CONV1D:
    case runtime::LAYER_CONVTRANSPOSE2D:
    case runtime::LAYER_FULLCONNECTION:
    case runtime::LAYER_MAXPOOL2D:
    case runtime::LAYER_AVGPOOL2D:
    case runtime::LAYER_ADAPTIVE_AVGPOOL2D:
    case runtime::LAYER_ELEMENTWISE:
    case runtime::LAYER_BROADCAST:
      return true;
    default:
      return false;
  }
}

double NowMs() {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string Ms(double ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f ms", ms);
  return text;
}

std::string DimsText(const RuntimeDims& dims) {
  std::string s = "[";
  for (std::size_t k = 0; k < dims.size(); ++k) s += (k ? "," : "") + std::to_string(dims[k]);
  return s + "]";
}

}  // namespace

struct Planner::State {
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  std::shared_ptr<runtime::Context> context;
  std::set<std::string> keys;
};

Planner::Planner() : state_(new State) {
  utility::init_register_operators(state_->kernels, state_->params);
  utility::create_context(state_->context, 64);
}

Planner::~Planner() = default;

runtime::KernelRegistry& Planner::registry() { return state_->kernels; }
const std::shared_ptr<runtime::Context>& Planner::context() const { return state_->context; }

namespace {

struct Candidate {
  KernelRule rule;
  Layout in = Layout::kPlanar, out = Layout::kPlanar;
  std::shared_ptr<runtime::IKernel> kernel;  // configured
  double ms = -1.0;
};

// One planning run over a model.
class Run {
 public:
  Run(const MappedModel& model, const PlanOptions& options, Target target, runtime::KernelRegistry& kernels,
      const std::set<std::string>& keys, const std::shared_ptr<runtime::Context>& context)
      : model_(model), options_(options), target_(target), kernels_(kernels), keys_(keys), context_(context) {
    const std::size_t n = model.layers.size();
    producers_.resize(n);
    readers_.resize(n);
    is_output_.assign(n, false);
    std::map<std::string, std::size_t> index;
    for (std::size_t i = 0; i < n; ++i) index[model.layers[i].record->id] = i;
    for (std::size_t i = 0; i < n; ++i) {
      for (const std::string& in : model.layers[i].record->input_ids) {
        auto it = index.find(in);
        if (it == index.end()) continue;
        producers_[i].push_back(it->second);
        readers_[it->second].push_back(i);
      }
    }
    for (const std::string& out : model.output_ids) {
      auto it = index.find(out);
      if (it != index.end()) is_output_[it->second] = true;
    }
    for (const std::string& key : keys) {
      for (KernelRule& r : RulesForKey(key)) {
        if (!Allowed(r.family, target)) continue;
        if (r.approximate && !options.allow_approximate) continue;
        rules_[r.record].push_back(r);
      }
    }
    for (auto& entry : rules_) {
      std::stable_sort(entry.second.begin(), entry.second.end(),
                       [](const KernelRule& a, const KernelRule& b) { return a.rank < b.rank; });
    }
    for (const auto& t : kTransforms) {
      if (!keys.count(t[2]) || !Allowed(FamilyOfKey(t[2]), target)) continue;
      std::string& chosen = transforms_[std::string(t[0]) + ">" + t[1]];
      if (chosen.empty()) chosen = t[2];
    }
  }

  bool IsInput(std::size_t i) const { return model_.layers[i].record->type == runtime::LAYER_INPUT; }

  std::string Transform(Layout from, Layout to) const {
    auto it = transforms_.find(std::string(LayoutName(from)) + ">" + LayoutName(to));
    return it == transforms_.end() ? "" : it->second;
  }

  // Whether layer i may overwrite its (only) input.
  bool MayOverwrite(std::size_t i) const {
    if (producers_[i].size() != 1) return false;
    const std::size_t p = producers_[i][0];
    return readers_[p].size() == 1 && !is_output_[p] && FreshOutput(model_.layers[p].record->type);
  }

  std::string Key(std::size_t i, const std::string& kernel, Layout in) const {
    return model_.layers[i].record->id + "|" + kernel + "|" + LayoutName(in);
  }

  // Checks one candidate for layer i reading layout `in`; the reason when it is refused.
  std::string Check(std::size_t i, const KernelRule& rule, Layout in, Candidate* out) {
    const std::string key = Key(i, rule.name, in);
    auto cached = checked_.find(key);
    if (cached == checked_.end()) {
      Checked entry;
      entry.c.rule = rule;
      entry.c.in = in;
      entry.c.out = rule.out == Layout::kAny ? in : rule.out;
      entry.why = Validate(i, entry.c);
      if (!entry.why.empty()) entry.c.kernel.reset();
      cached = checked_.emplace(key, entry).first;
    }
    if (cached->second.why.empty()) *out = cached->second.c;
    return cached->second.why;
  }

  std::string Validate(std::size_t i, Candidate& c) {
    const MappedLayer& layer = model_.layers[i];
    LayerQuery q;
    q.record = layer.record.get();
    q.output = layer.dims;
    q.layout = c.in;
    q.may_overwrite_input = MayOverwrite(i);
    for (std::size_t p : producers_[i]) {
      q.inputs.push_back(model_.layers[p].dims);
      if (!FitsLayout(model_.layers[p].dims, c.in)) {
        return std::string("an input ") + DimsText(model_.layers[p].dims) + " cannot be " + LayoutName(c.in);
      }
    }
    if (!FitsLayout(layer.dims, c.out)) return "the output " + DimsText(layer.dims) + " cannot be " + LayoutName(c.out);
    if (c.rule.constraint) {
      const std::string why = c.rule.constraint(q);
      if (!why.empty()) return why;
    }
    if (IsInput(i)) {
      c.kernel = kernels_.Create(c.rule.name);
      return c.kernel ? "" : "not registered";
    }
    try {
      auto kernel = kernels_.Create(c.rule.name);
      if (!kernel) return "not registered";
      if (kernel->IsValidParam(layer.record, nullptr) != 0) return "refuses the record";
      if (!kernel->Config(layer.record, nullptr, context_)) return "refuses to configure with the record";
      // A blocked tensor does not carry its real channel count: the net builder
      // hands the counts to the kernels that need them, and so does the check.
      if (auto* receiver = dynamic_cast<runtime::BlockedChannelsReceiver*>(kernel.get())) {
        std::vector<std::int64_t> channels;
        for (std::size_t p : producers_[i]) {
          const RuntimeDims& d = model_.layers[p].dims;
          channels.push_back(d.empty() ? -1 : static_cast<std::int64_t>(d[0]));
        }
        receiver->SetInputChannels(channels);
      }
      std::vector<TensorShape> shapes;
      for (std::size_t p : producers_[i]) shapes.push_back(ShapeIn(model_.layers[p].dims, c.in));
      const std::vector<TensorShape> outs = kernel->GetOutputShapes(shapes);
      const RuntimeDims want = BlockedDims(layer.dims, c.out);
      if (outs.empty()) return "gives no output shape for the inputs";
      if (outs[0].dims != want) return "gives " + DimsText(outs[0].dims) + " instead of " + DimsText(want);
      // The executor hands every output of a layer to each of its readers.
      if (outs.size() > 1 && !readers_[i].empty()) {
        return "gives " + std::to_string(outs.size()) + " outputs (with the final states), which its readers would "
               "all receive";
      }
      c.kernel = kernel;
    } catch (const std::exception& e) {
      return std::string("fails: ") + e.what();
    }
    return "";
  }

  // The candidates of layer i with input layouts `ins` and output layouts `outs`.
  std::vector<Candidate> Candidates(std::size_t i, const std::vector<std::pair<Layout, Layout>>& modes,
                                    std::vector<std::string>* refusals = nullptr) {
    std::vector<Candidate> out;
    const auto it = rules_.find(model_.layers[i].record->type);
    if (it == rules_.end()) return out;
    for (const KernelRule& rule : it->second) {
      for (const auto& m : modes) {
        const Layout in = rule.in == Layout::kAny ? m.first : rule.in;
        const Layout lout = rule.out == Layout::kAny ? in : rule.out;
        if (in != m.first || lout != m.second) continue;
        Candidate c;
        const std::string why = Check(i, rule, in, &c);
        if (why.empty()) {
          out.push_back(c);
        } else if (refusals) {
          refusals->push_back(rule.name + ": " + why);
        }
      }
    }
    return out;
  }

  std::vector<Candidate> Planar(std::size_t i, std::vector<std::string>* refusals = nullptr) {
    return Candidates(i, {{Layout::kPlanar, Layout::kPlanar}}, refusals);
  }

  std::vector<Candidate> Blocked(std::size_t i, Layout x) {
    return Candidates(i, {{x, x}, {Layout::kPlanar, x}, {x, Layout::kPlanar}});
  }

  // Why layer i has no kernel at all.
  std::string NoKernel(std::size_t i) {
    const std::uint16_t type = model_.layers[i].record->type;
    if (rules_.find(type) == rules_.end()) {
      bool registered = false;
      for (const std::string& key : keys_) {
        for (const KernelRule& r : RulesForKey(key)) registered = registered || r.record == type;
      }
      const std::string record = model_.layers[i].record->GetClassTypeName();
      if (registered) {
        return "no kernel for " + record + " is registered in the families of target " + TargetName(target_) +
               " (or only approximate ones)";
      }
      return "no kernel computing " + record + " is registered: waits for " + WaitsFor(type);
    }
    std::vector<std::string> refusals;
    Planar(i, &refusals);
    std::string text = "no registered kernel serves it: ";
    const std::size_t shown = std::min<std::size_t>(refusals.size(), 4);
    for (std::size_t k = 0; k < shown; ++k) text += (k ? "; " : "") + refusals[k];
    if (refusals.size() > shown) text += "; ...";
    return text;
  }

  // Milliseconds of one Forward of candidate c of layer i (fastest of the runs); -1 when it fails.
  // `bound`: a candidate whose first run takes longer than this is not timed
  // further (it cannot win); negative for no bound.
  double Time(std::size_t i, Candidate& c, double bound) {
    const std::string key = Key(i, c.rule.name, c.in);
    auto known = times_.find(key);
    if (known != times_.end()) return c.ms = known->second;
    c.ms = Measure(i, c, bound);
    times_[key] = c.ms;
    return c.ms;
  }

  double Measure(std::size_t i, Candidate& c, double bound) {
    if (IsInput(i)) return 0.0;
    const auto& device = context_->cpu;
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<std::shared_ptr<runtime::Tensor>> inputs;
    for (std::size_t p : producers_[i]) {
      const TensorShape shape = ShapeIn(model_.layers[p].dims, c.in);
      std::vector<float> data(shape.ElementCount());
      for (float& v : data) v = uniform(rng);
      inputs.push_back(device->CreateTensor(shape, data.data()));
    }
    try {
      if (c.kernel->IsValidInput(inputs) != 0) return -1.0;
      double best = 1e30, total = 0.0;
      std::vector<std::shared_ptr<runtime::Tensor>> outputs;
      const double first = NowMs();
      if (!c.kernel->Forward(inputs, outputs, context_)) return -1.0;  // warm-up
      const double first_ms = NowMs() - first;
      if (bound >= 0.0 && first_ms > bound) return first_ms;
      for (int run = 0; run < 200 && (run < options_.tune_runs || total < options_.tune_ms); ++run) {
        outputs.clear();
        const double start = NowMs();
        c.kernel->Forward(inputs, outputs, context_);
        const double ms = NowMs() - start;
        best = std::min(best, ms);
        total += ms;
      }
      return best;
    } catch (const std::exception&) {
      return -1.0;
    }
  }

  // Picks the candidate for layer i: by measured time when tuning among those
  // sharing the preferred layouts, otherwise by rank.
  Candidate Choose(std::size_t i, std::vector<Candidate> cands, Layout want_in, Layout want_out, std::string* why) {
    auto score = [&](const Candidate& c) {
      return (c.in != want_in ? 2 : 0) + (c.out != want_out ? 1 : 0);
    };
    std::stable_sort(cands.begin(), cands.end(), [&](const Candidate& a, const Candidate& b) {
      const int sa = score(a), sb = score(b);
      return sa != sb ? sa < sb : a.rule.rank < b.rule.rank;
    });
    Candidate best = cands[0];
    if (options_.tune && !IsInput(i)) {
      double best_ms = -1.0;
      int timed = 0;
      for (Candidate& c : cands) {
        if (c.in != cands[0].in || c.out != cands[0].out) continue;
        const double ms = Time(i, c, best_ms < 0 ? -1.0 : 4.0 * best_ms);
        if (ms < 0) continue;
        ++timed;
        if (best_ms < 0 || ms < best_ms) {
          best_ms = ms;
          best = c;
        }
      }
      *why = "fastest of " + std::to_string(timed) + " (" + Ms(best_ms) + ")";
      return best;
    }
    std::size_t same = 0;
    for (const Candidate& c : cands) same += c.in == best.in && c.out == best.out;
    *why = same > 1 ? "first by rank of " + std::to_string(same) : "only kernel";
    return best;
  }

  // Plans with blocked layout x (kPlanar: none).
  bool PlanWith(Layout x, Plan* plan, Problems* problems) {
    const std::size_t n = model_.layers.size();
    std::vector<bool> blocked(n, false);
    std::vector<std::vector<Candidate>> planar(n), block(n);
    bool ok = true;
    for (std::size_t i = 0; i < n; ++i) {
      planar[i] = Planar(i);
      if (x != Layout::kPlanar) {
        if (IsInput(i)) {
          if (FitsLayout(model_.layers[i].dims, x) && !Transform(Layout::kPlanar, x).empty() && !planar[i].empty()) {
            block[i] = planar[i];
          }
        } else {
          block[i] = Blocked(i, x);
        }
      }
      if (planar[i].empty() && block[i].empty()) {
        problems->push_back(Problem{model_.layers[i].node, model_.layers[i].op, NoKernel(i)});
        ok = false;
      }
      blocked[i] = !block[i].empty() && (planar[i].empty() || x != Layout::kPlanar);
    }
    if (!ok) return false;
    if (x != Layout::kPlanar && (Transform(Layout::kPlanar, x).empty() || Transform(x, Layout::kPlanar).empty())) {
      for (std::size_t i = 0; i < n; ++i) blocked[i] = planar[i].empty();
    }
    // Blocked islands without a convolution cost conversions and gain nothing.
    std::vector<int> component(n, -1);
    int components = 0;
    for (std::size_t s = 0; s < n; ++s) {
      if (!blocked[s] || component[s] >= 0) continue;
      std::vector<std::size_t> stack{s}, members;
      component[s] = components;
      bool heavy = false;
      while (!stack.empty()) {
        const std::size_t i = stack.back();
        stack.pop_back();
        members.push_back(i);
        heavy = heavy || HeavyRecord(model_.layers[i].record->type);
        std::vector<std::size_t> next = producers_[i];
        next.insert(next.end(), readers_[i].begin(), readers_[i].end());
        for (std::size_t j : next) {
          if (blocked[j] && component[j] < 0) {
            component[j] = components;
            stack.push_back(j);
          }
        }
      }
      ++components;
      if (!heavy) {
        for (std::size_t i : members) blocked[i] = planar[i].empty();
      }
    }
    // Choose kernels; a layer whose inputs would arrive in different layouts
    // runs planar with its producers, until nothing changes.
    std::vector<Candidate> chosen(n);
    std::vector<std::string> why(n);
    std::vector<Layout> published(n);
    for (int round = 0; round <= static_cast<int>(n) + 1; ++round) {
      for (std::size_t i = 0; i < n; ++i) {
        Layout want_in = Layout::kPlanar;
        if (!producers_[i].empty()) want_in = published[producers_[i][0]];
        bool readers_blocked = !readers_[i].empty() && !is_output_[i];
        for (std::size_t r : readers_[i]) readers_blocked = readers_blocked && blocked[r];
        const Layout want_out = readers_blocked ? x : Layout::kPlanar;
        if (blocked[i] && block[i].empty()) blocked[i] = false;
        if (!blocked[i] && planar[i].empty()) blocked[i] = true;
        if (IsInput(i)) {
          chosen[i] = planar[i][0];
          chosen[i].in = Layout::kPlanar;
          chosen[i].out = blocked[i] ? x : Layout::kPlanar;
          why[i] = "input";
        } else {
          chosen[i] = Choose(i, blocked[i] ? block[i] : planar[i], want_in, want_out, &why[i]);
        }
        published[i] = is_output_[i] ? Layout::kPlanar : chosen[i].out;
      }
      bool changed = false;
      for (std::size_t i = 0; i < n; ++i) {
        if (producers_[i].empty()) continue;
        bool same = true;
        for (std::size_t p : producers_[i]) same = same && published[p] == published[producers_[i][0]];
        const Layout arriving = published[producers_[i][0]];
        if (same && (arriving == chosen[i].in || !Transform(arriving, chosen[i].in).empty())) continue;
        if (blocked[i] && !planar[i].empty()) {
          blocked[i] = false;
          changed = true;
        }
        for (std::size_t p : producers_[i]) {
          if (published[p] != Layout::kPlanar && blocked[p] && !planar[p].empty()) {
            blocked[p] = false;
            changed = true;
          }
        }
        if (!changed) {
          problems->push_back(Problem{model_.layers[i].node, model_.layers[i].op,
                                      "its inputs arrive in layouts no converter reconciles"});
          return false;
        }
      }
      if (!changed) break;
    }

    plan->layers.clear();
    plan->blocked = x;
    for (std::size_t i = 0; i < n; ++i) {
      const MappedLayer& layer = model_.layers[i];
      PlannedLayer p;
      p.id = layer.record->id;
      p.op = layer.op;
      p.node = layer.node;
      p.type = layer.record->type;
      p.kernel = chosen[i].rule.name;
      p.in = chosen[i].in;
      p.out = chosen[i].out;
      p.dims = layer.dims;
      p.ms = chosen[i].ms;
      p.why = why[i];
      if (IsInput(i)) {
        if (p.out != Layout::kPlanar) p.input_converters.push_back(Transform(Layout::kPlanar, p.out));
      } else if (!producers_[i].empty()) {
        const Layout arriving = published[producers_[i][0]];
        if (arriving != p.in) p.input_converters.push_back(Transform(arriving, p.in));
      }
      if (is_output_[i] && p.out != Layout::kPlanar) p.output_converters.push_back(Transform(p.out, Layout::kPlanar));
      if (x != Layout::kPlanar && !blocked[i]) {
        if (!FitsLayout(layer.dims, x)) {
          p.why += "; planar: " + DimsText(layer.dims) + " is not an image of whole " + LayoutName(x) + " blocks";
        } else if (block[i].empty() && !IsInput(i)) {
          p.why += "; planar: no blocked kernel";
        }
      }
      plan->layers.push_back(p);
    }
    return true;
  }

  const MappedModel& model_;
  const PlanOptions& options_;
  Target target_;
  runtime::KernelRegistry& kernels_;
  const std::set<std::string>& keys_;
  std::shared_ptr<runtime::Context> context_;
  std::vector<std::vector<std::size_t>> producers_, readers_;
  std::vector<bool> is_output_;
  std::map<std::uint16_t, std::vector<KernelRule>> rules_;
  std::map<std::string, std::string> transforms_;
  struct Checked {
    Candidate c;
    std::string why;
  };
  std::map<std::string, Checked> checked_;
  std::map<std::string, double> times_;
};

bool CanRun(Target target, const runtime::CPUDeviceInfo& cpu) {
  if (target == Target::kAVX) return cpu.CanRunAVXKernels();
  if (target == Target::kSSE) return cpu.CanRunSSEKernels();
  return true;
}

std::vector<std::shared_ptr<runtime::Tensor>> RandomInputs(const MappedModel& model, runtime::DeviceCPU& device,
                                                           runtime::TensorMap* map) {
  std::vector<std::shared_ptr<runtime::Tensor>> tensors;
  std::mt19937 rng(99);
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  for (std::size_t i = 0; i < model.layers.size(); ++i) {
    if (model.layers[i].record->type != runtime::LAYER_INPUT) continue;
    const TensorShape shape = runtime::MakeShape(model.layers[i].dims);
    std::vector<float> data(shape.ElementCount());
    for (float& v : data) v = uniform(rng);
    auto t = device.CreateTensor(shape, data.data());
    (*map)[static_cast<std::uint32_t>(i)] = t;
    tensors.push_back(t);
  }
  return tensors;
}

std::vector<std::uint32_t> OutputIndices(const MappedModel& model) {
  std::vector<std::uint32_t> out;
  for (const std::string& id : model.output_ids) {
    for (std::size_t i = 0; i < model.layers.size(); ++i) {
      if (model.layers[i].record->id == id) out.push_back(static_cast<std::uint32_t>(i));
    }
  }
  return out;
}

// Fastest whole-net time of `runs` forward passes; -1 when the net fails.
double TimeNet(const MappedModel& model, const Plan& plan, runtime::KernelRegistry& kernels,
               const std::shared_ptr<runtime::Context>& context, int runs) {
  try {
    auto net = runtime::CreateNet(Planner::ModelInfo(model, "net"), Planner::ModelCfg(plan), kernels, context);
    if (!net) return -1.0;
    runtime::TensorMap inputs;
    RandomInputs(model, *context->cpu, &inputs);
    const auto outputs = OutputIndices(model);
    double best = -1.0;
    for (int r = 0; r < runs + 1; ++r) {
      const double start = NowMs();
      const auto result = net->Forward(inputs, outputs, context);
      const double ms = NowMs() - start;
      if (result.empty()) return -1.0;
      if (r > 0 && (best < 0 || ms < best)) best = ms;
    }
    return best;
  } catch (const std::exception&) {
    return -1.0;
  }
}

}  // namespace

bool Planner::Make(const MappedModel& model, const PlanOptions& options, Plan* plan, Problems* problems) {
  const runtime::CPUDeviceInfo& cpu = state_->context->cpu->info();
  Target target = options.target;
  if (target == Target::kAuto) {
    target = cpu.CanRunAVXKernels() ? Target::kAVX : cpu.CanRunSSEKernels() ? Target::kSSE : Target::kFallback;
  }
  if (options.tune && !CanRun(target, cpu)) {
    problems->push_back(Problem{"", "", std::string("cannot tune for target ") + TargetName(target) +
                                            ": this processor lacks its instructions"});
    return false;
  }
  // The registry may have grown since the last plan.
  state_->keys.clear();
  for (const std::string& k : state_->kernels.GetKeys()) state_->keys.insert(k);
  Run run(model, options, target, state_->kernels, state_->keys, state_->context);
  std::vector<Layout> layouts;
  if (options.blocked == Layout::kAny) {
    if (target == Target::kAVX) layouts = {Layout::kC8HW8, Layout::kC4HW4};
    if (target == Target::kSSE) layouts = {Layout::kC4HW4, Layout::kC8HW8};
    if (!options.tune && !layouts.empty()) layouts.resize(1);
    if (options.tune || layouts.empty()) layouts.push_back(Layout::kPlanar);
  } else {
    layouts = {options.blocked};
  }
  const auto silence = utility::GetLogLevel();
  utility::SetLogLevel(100);  // candidates that refuse a record log why; the planner reports its own reasons
  bool ok = false;
  Plan best;
  for (Layout x : layouts) {
    Plan p;
    p.target = target;
    Problems local;
    const bool made = run.PlanWith(x, &p, &local);
    if (!made) {
      if (!ok && x == layouts.back()) problems->insert(problems->end(), local.begin(), local.end());
      if (!ok && layouts.size() == 1) break;
      continue;
    }
    if (options.tune) {
      p.net_ms = TimeNet(model, p, state_->kernels, state_->context, std::max(3, options.tune_runs));
      best.notes.push_back(std::string("layout ") + LayoutName(x) + ": " +
                           (p.net_ms < 0 ? std::string("failed to run") : Ms(p.net_ms)));
      if (p.net_ms < 0) continue;
      if (!ok || p.net_ms < best.net_ms) {
        std::vector<std::string> notes = best.notes;
        best = p;
        best.notes = notes;
      }
    } else {
      best = p;
    }
    ok = true;
  }
  utility::SetLogLevel(silence);
  if (ok) {
    problems->clear();
    *plan = best;
  } else if (problems->empty()) {
    problems->push_back(Problem{"", "", "no plan of the model runs"});
  }
  return ok;
}

std::shared_ptr<runtime::TRModelInfo> Planner::ModelInfo(const MappedModel& model, const std::string& name) {
  auto info = std::make_shared<runtime::TRModelInfo>();
  info->squential_output_ids = model.output_ids;
  for (const MappedLayer& l : model.layers) {
    info->squential_ids.push_back(l.record->id);
    info->squential_types.push_back(l.record->type);
    info->layers[l.record->id] = l.record;
  }
  info->extra_info.summary = name;
  return info;
}

std::shared_ptr<runtime::TRModelCfg> Planner::ModelCfg(const Plan& plan) {
  auto cfg = std::make_shared<runtime::TRModelCfg>();
  auto kernel = [](const std::string& name) {
    auto k = std::make_shared<runtime::KernelCfg>();
    k->kernel_type = name;
    k->infer_param_type = "none";
    return k;
  };
  auto fill = [&](runtime::KernelCfgArr& arr, const std::vector<std::string>& names) {
    for (std::size_t k = 0; k < names.size(); ++k) {
      const std::string id = std::to_string(k);
      arr.kernel_ids.push_back(id);
      arr.kernels[id] = kernel(names[k]);
    }
  };
  for (const PlannedLayer& p : plan.layers) {
    auto layer = std::make_shared<runtime::LayerCfg>();
    layer->summary = p.why;
    fill(layer->input_converters, p.input_converters);
    fill(layer->kernel, {p.kernel});
    fill(layer->output_converters, p.output_converters);
    cfg->squential_ids.push_back(p.id);
    cfg->layers[p.id] = layer;
  }
  return cfg;
}

std::string Planner::Verify(const MappedModel& model, const Plan& plan) {
  if (!CanRun(plan.target, state_->context->cpu->info())) return "this processor cannot run the plan's kernels";
  try {
    auto net = runtime::CreateNet(ModelInfo(model, "net"), ModelCfg(plan), state_->kernels, state_->context);
    if (!net) return "the net could not be built";
    runtime::TensorMap inputs;
    RandomInputs(model, *state_->context->cpu, &inputs);
    const auto result = net->Forward(inputs, OutputIndices(model), state_->context);
    if (result.empty()) return "the forward pass failed";
  } catch (const std::exception& e) {
    return std::string("the net could not be built: ") + e.what();
  }
  return "";
}

std::string PlanTable(const Plan& plan) {
  std::ostringstream s;
  s << "target " << TargetName(plan.target) << ", blocked layout "
    << (plan.blocked == Layout::kPlanar ? "none" : LayoutName(plan.blocked));
  if (plan.net_ms >= 0) s << ", tuned net " << Ms(plan.net_ms);
  s << "\n";
  for (const std::string& note : plan.notes) s << "  " << note << "\n";
  char line[512];
  std::snprintf(line, sizeof line, "%-4s %-28s %-20s %-22s %-52s %s\n", "#", "layer", "op", "shape", "kernel", "why");
  s << line;
  for (std::size_t i = 0; i < plan.layers.size(); ++i) {
    const PlannedLayer& p = plan.layers[i];
    std::string shape = DimsText(p.dims);
    if (p.out != Layout::kPlanar) shape += " " + std::string(LayoutName(p.out));
    std::snprintf(line, sizeof line, "%-4zu %-28s %-20s %-22s %-52s %s\n", i, p.id.substr(0, 28).c_str(),
                  p.op.substr(0, 20).c_str(), shape.c_str(), p.kernel.c_str(), p.why.c_str());
    s << line;
    for (const std::string& c : p.input_converters) s << "       before: " << c << "\n";
    for (const std::string& c : p.output_converters) s << "       after:  " << c << "\n";
  }
  return s.str();
}

}  // namespace convert
}  // namespace tarn

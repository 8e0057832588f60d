// Kernel planning: for every layer of a mapped model, the kernel that runs it,
// the layout it works in and the layout converters where planar and blocked
// chains meet.
//
// The planner asks the running library which kernels are registered
// (init_register_operators, then the registry's keys), keeps those the kernel
// table admits for the target's instruction-set families, and checks each
// candidate on the layer itself: created from the registry and configured
// with the layer's record, it must accept the record and give the layer's
// output shape for the layer's input shapes. A layer without any candidate is
// refused with the kernels it waits for.
//
// Layouts: each layer runs planar (CHW; every non-image tensor is planar) or
// in the blocked layout of the plan (C4HW4 or C8HW8). A layer may run blocked
// when a candidate exists and every tensor it reads and writes blocked is an
// image whose channel count is a multiple of the block (so the layout
// transforms, which need that, apply at every boundary and no padding lane is
// ever read). Blocked islands without a convolution are turned planar; a
// layer whose inputs would arrive in different layouts runs planar with its
// producers. Graph outputs are always delivered planar.
//
// Without tuning, candidates are ranked by the table (specialised before
// general, wider vectors before narrower, the CBLAS members for matrix
// shapes). With tuning, every candidate of every layer is timed on this
// machine and the fastest kept, and the whole net is timed planar and in
// each blocked layout the target has, keeping the fastest plan.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "convert/kernel_table.h"
#include "convert/op_mapping.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/kernel.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/model_info.h"

namespace tarn {
namespace convert {

enum class Target { kAuto, kFallback, kSSE, kAVX };

const char* TargetName(Target target);
bool ParseTarget(const std::string& text, Target* target);

struct PlanOptions {
  Target target = Target::kAuto;
  bool tune = false;
  // Kernels that trade accuracy for speed (fast exponentials) are left out unless allowed.
  bool allow_approximate = false;
  // The blocked layout chains may use: kAny lets the planner choose (the
  // target's widest), kPlanar keeps everything planar.
  Layout blocked = Layout::kAny;
  // Tuning: every timing is the fastest of at least `tune_runs` runs lasting
  // at least `tune_ms` milliseconds together.
  int tune_runs = 5;
  double tune_ms = 10.0;
};

struct PlannedLayer {
  std::string id;
  std::string op;    // ONNX operator ("Input" for inputs)
  std::string node;  // ONNX node
  std::uint16_t type = 0;
  std::string kernel;
  Layout in = Layout::kPlanar, out = Layout::kPlanar;
  std::vector<std::string> input_converters;   // applied to every input, in order
  std::vector<std::string> output_converters;  // applied to the output
  RuntimeDims dims;
  std::string why;
  double ms = -1.0;  // tuned time of the kernel
};

struct Plan {
  Target target = Target::kFallback;  // resolved
  Layout blocked = Layout::kPlanar;   // the blocked layout in use (kPlanar: none)
  std::vector<PlannedLayer> layers;   // in model order
  double net_ms = -1.0;               // whole-net time when tuned
  std::vector<std::string> notes;
};

class Planner {
 public:
  Planner();
  ~Planner();

  // Plans `model`; false (with one problem per refused layer) when some
  // layer has no kernel.
  bool Make(const MappedModel& model, const PlanOptions& options, Plan* plan, Problems* problems);

  // The model and per-layer configuration a plan describes.
  static std::shared_ptr<runtime::TRModelInfo> ModelInfo(const MappedModel& model, const std::string& name);
  static std::shared_ptr<runtime::TRModelCfg> ModelCfg(const Plan& plan);

  // Builds the plan's net here and runs it once on random input; "" when it
  // runs, else why not. Needs a processor that has the plan's families.
  std::string Verify(const MappedModel& model, const Plan& plan);

  runtime::KernelRegistry& registry();
  const std::shared_ptr<runtime::Context>& context() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// The plan as a table: layer, op, shape, kernel, why.
std::string PlanTable(const Plan& plan);

}  // namespace convert
}  // namespace tarn

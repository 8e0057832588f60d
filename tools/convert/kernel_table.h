// What the planner knows about every kernel family: which record each kernel
// computes, its instruction-set family, the layouts it reads and writes, and
// the constraints its name promises or its code relies on (geometry, zero
// padding of the fixed-size members, channel multiples, the three input
// channels of the image-stem members). The planner offers a layer only the
// kernels that are registered in the running library, that this table admits
// and that, created and configured, accept the layer and give its output
// shape; so a family widens the converter as soon as it is registered.
//
// To teach the planner a new member, add one line to the list of its
// operation in kernel_table.cpp. Families whose kernel names are not fixed
// yet are matched by their operation word (the first field of the name) and
// read their family and layout from the other fields.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "convert/op_mapping.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace convert {

enum class Layout { kPlanar, kC4HW4, kC8HW8, kAny };
enum class Family { kFallback, kSSE, kAVX, kSGEMM };

const char* LayoutName(Layout layout);
const char* FamilyName(Family family);
std::uint32_t Lanes(Layout layout);  // 1, 4 or 8

// What a constraint sees of a layer.
struct LayerQuery {
  const runtime::LayerInfo* record = nullptr;
  std::vector<RuntimeDims> inputs;  // runtime dims of each input
  RuntimeDims output;
  Layout layout = Layout::kPlanar;  // the layout the kernel would read
  // Whether the layer may overwrite its input (its producer makes a fresh
  // tensor that nothing else reads).
  bool may_overwrite_input = false;
};

// "" when the kernel can serve the layer, else why not.
using Constraint = std::function<std::string(const LayerQuery&)>;

struct KernelRule {
  std::string name;  // registry key (or operation word, see `by_operation`)
  std::uint16_t record = 0;
  Family family = Family::kFallback;
  Layout in = Layout::kPlanar;   // kAny: whatever layout its input has, written back the same
  Layout out = Layout::kPlanar;  // kAny: the same as `in`
  int rank = 50;                 // preference without tuning, lower first
  Constraint constraint;         // may be empty
  bool approximate = false;      // trades accuracy for speed (fast exponentials)
  bool by_operation = false;     // `name` is an operation word, not a key
};

// Every rule, in table order.
const std::vector<KernelRule>& KernelRules();
// The rules of one record type.
std::vector<const KernelRule*> RulesFor(std::uint16_t record);
// Resolves a registry key against the table: its exact rules, or else rules
// made from the operation-word entries it matches, with family and layout
// read from the name. Empty when the table does not know the key.
std::vector<KernelRule> RulesForKey(const std::string& key);
// What a record type waits for when no kernel of it is registered, e.g.
// "the batch normalisation kernels (BatchNorm2d_*)".
std::string WaitsFor(std::uint16_t record);

// The runtime dims of a blocked tensor of logical dims [C, H, W].
RuntimeDims BlockedDims(const RuntimeDims& chw, Layout layout);

}  // namespace convert
}  // namespace tarn

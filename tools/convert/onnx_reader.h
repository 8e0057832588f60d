// Reading an ONNX model into the converter's graph. Every input is treated as
// hostile: the bytes are parsed with a size limit, the model goes through the
// ONNX checker and strict shape inference, and the converter's own checks
// refuse what those let pass (external data, absurd dimensions, tensors whose
// data does not match their dims, dynamic dimensions other than the batch).
// A refused model yields false and the reasons in `problems`; nothing throws.
#pragma once

#include <cstddef>
#include <string>

#include "convert/onnx_graph.h"

namespace tarn {
namespace convert {

// Limits on what a model may claim before anything is allocated for it.
struct ReaderLimits {
  std::size_t max_bytes = std::size_t(1) << 30;     // the whole file
  std::size_t max_nodes = 20000;
  std::int64_t max_elements = std::int64_t(1) << 28;  // any one tensor or value (1 GiB of floats)
};

// Opsets of the default domain the converter reads (what PyTorch 1.13 exports).
constexpr std::int64_t kMinOpset = 7;
constexpr std::int64_t kMaxOpset = 17;

bool ReadOnnxModel(const void* data, std::size_t size, Graph* graph, Problems* problems,
                   const ReaderLimits& limits = ReaderLimits());
bool ReadOnnxFile(const std::string& path, Graph* graph, Problems* problems,
                  const ReaderLimits& limits = ReaderLimits());

// Re-runs ONNX shape inference over `graph` (after the passes changed it) and
// refreshes graph->values. False, with the reason, when inference fails.
bool InferShapes(Graph* graph, Problems* problems);

}  // namespace convert
}  // namespace tarn

// Mapping the (passed) graph onto the runtime's layer records.
//
// Tensors in the runtime carry no batch axis: an ONNX value of dims
// [1, C, H, W] is a runtime tensor [C, H, W], and every axis a record names
// indexes the runtime tensor (the ONNX axis shifted past the removed batch
// axis). The batch axis is axis 0 of image tensors and axis 1 of the sequence
// input of a recurrent layer in its default layout; a graph that reads or
// reshapes across it is refused.
//
// Nodes that only re-view memory for batch 1 (Identity, a squeeze or
// transpose of the batch axis, a flatten that only feeds fully connected
// layers, the reshapes around recurrent outputs) produce no layer: their
// output is an alias of the layer that produced their input.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "convert/onnx_graph.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace convert {

using RuntimeDims = std::vector<std::uint32_t>;

struct MappedLayer {
  runtime::LayerInfoPtr record;  // id and input_ids filled
  RuntimeDims dims;              // runtime dims of the (first) output
  std::string node;              // the ONNX node it came from ("" for inputs)
  std::string op;                // the ONNX operator ("Input" for inputs)
};

struct MappedModel {
  std::vector<MappedLayer> layers;       // sequence order, inputs first
  std::vector<std::string> output_ids;   // layer ids of the graph outputs, in order
  std::vector<std::string> output_names; // the ONNX names of those outputs
  std::vector<std::string> warnings;

  const MappedLayer* Find(const std::string& id) const;
};

// Maps every node; a node that cannot be mapped adds one problem naming it and
// what blocks it (readers of its outputs are then skipped, not reported).
bool MapGraph(const Graph& graph, MappedModel* model, Problems* problems);

// Runtime dims of an ONNX value: its dims without the batch axis (-1: none).
bool ToRuntimeDims(const std::vector<std::int64_t>& dims, int batch_axis, RuntimeDims* out);

// Whether `value` is exactly representable as a half float.
bool HalfExact(float value);

}  // namespace convert
}  // namespace tarn

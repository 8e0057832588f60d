// From an ONNX model to a model package: read and check the model, simplify
// the graph, map it onto layer records, plan the kernels and write the
// package. A model the runtime cannot run is refused as a whole with one
// problem per offending node, and no file is written.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "convert/graph_passes.h"
#include "convert/onnx_graph.h"
#include "convert/onnx_reader.h"
#include "convert/op_mapping.h"
#include "convert/planner.h"
#include "tarn/runtime/inference_config.h"

namespace tarn {
namespace convert {

struct ConvertOptions {
  PlanOptions plan;
  std::string net_name = "net";
  // Builds the planned net and runs it once on random input when this
  // processor has the plan's instruction sets.
  bool verify = true;
  ReaderLimits limits;
};

struct ConvertResult {
  Problems problems;
  std::vector<std::string> warnings;
  PassReport passes;
  MappedModel model;
  Plan plan;
  std::shared_ptr<runtime::TRNModel> package;
  bool verified = false;  // the planned net ran here
};

// Each returns true with result->package filled, or false with the problems.
bool ConvertGraph(Graph graph, const ConvertOptions& options, Planner& planner, ConvertResult* result);
bool ConvertOnnx(const void* data, std::size_t size, const ConvertOptions& options, Planner& planner,
                 ConvertResult* result);
bool ConvertOnnxFile(const std::string& path, const ConvertOptions& options, Planner& planner, ConvertResult* result);

// The package of a mapped and planned model: version block, the model and its
// configuration (in the "cpu_sse" slot the loader reads, and also in "cpu_avx"
// for AVX plans). Its sdk_type is "cpu_avx" for AVX plans, "cpu_sse" otherwise.
std::shared_ptr<runtime::TRNModel> MakePackage(const MappedModel& model, const Plan& plan, const std::string& name,
                                               const std::string& summary);

// Writes `package` to `path` (".json": float32 weights; ".trnmodel": the
// binary format, weights as half floats) through a temporary file renamed
// into place, so a failure leaves no partial file. False with the reason.
bool WritePackage(runtime::TRNModel& package, const std::string& path, std::string* error);

// One line per problem: "node 'name' (Op): message".
std::string FormatProblems(const Problems& problems);

}  // namespace convert
}  // namespace tarn

// trn_convert: converts an ONNX model into a model package.
//
//   trn_convert MODEL.onnx OUTPUT.json|OUTPUT.trnmodel [options]
//     --target auto|fallback|sse|avx   instruction sets of the plan (auto: this processor's)
//     --tune                           time every candidate kernel here and keep the fastest
//     --plan                           print the plan: layer, op, shape, kernel, why
//     --layout auto|planar|c4hw4|c8hw8 the blocked layout chains may use
//     --allow-approximate              also use the kernels with fast approximate exponentials
//     --name NAME                      the network's name in the package (default: the file's stem)
//     --no-verify                      do not run the planned net once before writing it
//
// Exit status: 0 written, 1 refused or failed (every reason printed, no file
// written), 2 usage.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "convert/converter.h"
#include "tarn/utility/log.h"

using namespace tarn::convert;

namespace {

int Usage() {
  std::cerr << "usage: trn_convert MODEL.onnx OUTPUT.json|OUTPUT.trnmodel [--target auto|fallback|sse|avx] [--tune]\n"
               "                   [--plan] [--layout auto|planar|c4hw4|c8hw8] [--allow-approximate] [--name NAME]\n"
               "                   [--no-verify]\n";
  return 2;
}

std::string Stem(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::size_t dot = name.find_last_of('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

}  // namespace

int main(int argc, char** argv) {
  std::string input, output;
  ConvertOptions options;
  bool print_plan = false;
  bool named = false;
  for (int k = 1; k < argc; ++k) {
    const std::string arg = argv[k];
    auto value = [&]() -> std::string { return k + 1 < argc ? argv[++k] : std::string(); };
    if (arg == "--target") {
      if (!ParseTarget(value(), &options.plan.target)) return Usage();
    } else if (arg == "--tune") {
      options.plan.tune = true;
    } else if (arg == "--plan") {
      print_plan = true;
    } else if (arg == "--allow-approximate") {
      options.plan.allow_approximate = true;
    } else if (arg == "--no-verify") {
      options.verify = false;
    } else if (arg == "--name") {
      options.net_name = value();
      named = true;
      if (options.net_name.empty()) return Usage();
    } else if (arg == "--layout") {
      const std::string v = value();
      if (v == "auto") options.plan.blocked = Layout::kAny;
      else if (v == "planar") options.plan.blocked = Layout::kPlanar;
      else if (v == "c4hw4") options.plan.blocked = Layout::kC4HW4;
      else if (v == "c8hw8") options.plan.blocked = Layout::kC8HW8;
      else return Usage();
    } else if (!arg.empty() && arg[0] == '-') {
      return Usage();
    } else if (input.empty()) {
      input = arg;
    } else if (output.empty()) {
      output = arg;
    } else {
      return Usage();
    }
  }
  if (input.empty() || output.empty()) return Usage();
  if (!named) options.net_name = Stem(input);

  tarn::utility::SetLogLevel(16);
  Planner planner;
  ConvertResult result;
  const bool ok = ConvertOnnxFile(input, options, planner, &result);
  for (const std::string& w : result.warnings) std::cerr << "warning: " << w << "\n";
  if (!ok) {
    std::cerr << "trn_convert: " << input << " is refused (" << result.problems.size()
              << (result.problems.size() == 1 ? " problem" : " problems") << "):\n"
              << FormatProblems(result.problems) << "no file was written\n";
    return 1;
  }
  if (print_plan) std::cout << PlanTable(result.plan);
  std::string error;
  if (!WritePackage(*result.package, output, &error)) {
    std::cerr << "trn_convert: " << error << "\n";
    return 1;
  }
  const PassReport& p = result.passes;
  std::cout << "wrote " << output << ": " << result.model.layers.size() << " layers for target "
            << TargetName(result.plan.target) << (result.verified ? ", ran once here" : "") << "; folded "
            << p.folded << " constant nodes, removed " << p.removed << " no-ops, merged " << p.batch_norms
            << " batch norms and " << p.affine << " constant scales/offsets into weights\n";
  if (output.size() >= 9 && output.compare(output.size() - 9, 9, ".trnmodel") == 0) {
    std::cout << "note: the .trnmodel format stores weights as half floats (rounded toward zero); "
                 "write .json to keep them exact\n";
  }
  return 0;
}

// Runs an ONNX model with ONNX Runtime on one intra-op thread and reports the
// median latency. Usage:
//   NODE_PATH=<peers>/node_modules node ort_bench.js MODEL.onnx SPEC.json
// SPEC.json: {"inputs": [{"name": "x", "file": "x.bin", "dims": [1, 3, 224, 224]}],
//             "runs": 30, "warmup": 5, "outputs_dir": "dir"}
// Input files hold raw little-endian float32; each output is written to
// <outputs_dir>/<output name>.bin the same way. Prints one JSON line:
// {"median_ms": ..., "min_ms": ..., "runs": N, "times_ms": [...]}.
'use strict';
const fs = require('fs');
const path = require('path');
const ort = require('onnxruntime-node');

async function main() {
  const [model, specPath] = process.argv.slice(2);
  if (!model || !specPath) {
    console.error('usage: ort_bench.js MODEL.onnx SPEC.json');
    process.exit(2);
  }
  const spec = JSON.parse(fs.readFileSync(specPath, 'utf8'));
  const session = await ort.InferenceSession.create(model, {
    intraOpNumThreads: 1,
    interOpNumThreads: 1,
    executionMode: 'sequential',
    graphOptimizationLevel: 'all',
  });
  const feeds = {};
  for (const input of spec.inputs) {
    const bytes = fs.readFileSync(input.file);
    const data = new Float32Array(bytes.buffer, bytes.byteOffset, bytes.byteLength / 4);
    feeds[input.name] = new ort.Tensor('float32', Float32Array.from(data), input.dims);
  }
  const warmup = spec.warmup ?? 5;
  const runs = spec.runs ?? 30;
  let outputs;
  for (let i = 0; i < warmup; ++i) outputs = await session.run(feeds);
  const times = [];
  for (let i = 0; i < runs; ++i) {
    const t0 = process.hrtime.bigint();
    outputs = await session.run(feeds);
    times.push(Number(process.hrtime.bigint() - t0) / 1e6);
  }
  if (spec.outputs_dir) {
    fs.mkdirSync(spec.outputs_dir, { recursive: true });
    for (const [name, tensor] of Object.entries(outputs)) {
      const data = tensor.data;
      fs.writeFileSync(path.join(spec.outputs_dir, name.replace(/[^A-Za-z0-9_.-]/g, '_') + '.bin'),
                       Buffer.from(data.buffer, data.byteOffset, data.byteLength));
    }
  }
  const sorted = [...times].sort((a, b) => a - b);
  const median = sorted.length % 2 ? sorted[(sorted.length - 1) / 2]
                                   : (sorted[sorted.length / 2 - 1] + sorted[sorted.length / 2]) / 2;
  console.log(JSON.stringify({ median_ms: median, min_ms: sorted[0], runs, times_ms: times }));
}

main().catch((e) => { console.error(String(e)); process.exit(1); });

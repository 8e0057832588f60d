#!/usr/bin/python3
"""The peers of bench_rnn: seeded PyTorch recurrent modules, timed on one
thread, exported to ONNX for ONNX Runtime, and written out for bench_rnn so
that every column runs the very same weights on the very same input.

Run with Debian's Python (it sees python3-torch and onnx):
    /usr/bin/python3 bench/rnn_peers.py DIR [--min-time SECONDS]

Per shape (the names bench_rnn knows) it writes into DIR:
    <shape>.bin   float32 little-endian: x [S, I], then for each layer l and
                  direction d (index l * D + d) weight_ih, weight_hh,
                  bias_ih, bias_hh, then PyTorch's output y [S, D * H]
    <shape>.onnx  the module, input "x" [S, 1, I], outputs y, h_n (, c_n)
    <shape>.ort.json  the ort_bench.js spec (x in <shape>.x.bin)
and prints one JSON line {"shape": ..., "torch_best_ms": ..., "torch_median_ms": ...}
per shape (single calls timed one by one).
"""
import argparse
import json
import os
import time

import numpy as np
import torch

# name, kind, inputs, hidden, layers, bidirectional, steps: as in bench/bench_rnn.cpp
SHAPES = [
    ("lstm_i64_h128_l2_s32", "lstm", 64, 128, 2, False, 32),
    ("gru_i64_h128_l2_s32", "gru", 64, 128, 2, False, 32),
    ("bilstm_i64_h256_l1_s100", "lstm", 64, 256, 1, True, 100),
]


def timed(fn, min_time):
    """Best and median seconds of single calls."""
    fn()
    times = []
    start = time.perf_counter()
    while time.perf_counter() - start < min_time or len(times) < 5:
        t0 = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t0)
    return min(times), float(np.median(times))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("dir")
    parser.add_argument("--min-time", type=float, default=1.0)
    args = parser.parse_args()
    os.makedirs(args.dir, exist_ok=True)
    torch.set_num_threads(1)
    for index, (name, kind, inputs, hidden, layers, bidirectional, steps) in enumerate(SHAPES):
        torch.manual_seed(100 + index)
        cls = torch.nn.LSTM if kind == "lstm" else torch.nn.GRU
        module = cls(inputs, hidden, num_layers=layers, bidirectional=bidirectional).eval()
        x = torch.rand(steps, 1, inputs) * 2 - 1
        with torch.no_grad():
            y = module(x)[0]
            best, median = timed(lambda: module(x), args.min_time)
        dirs = 2 if bidirectional else 1
        blobs = [x.reshape(steps, inputs)]
        for layer in range(layers):
            for d in range(dirs):
                suffix = "_l%d%s" % (layer, "_reverse" if d else "")
                blobs += [getattr(module, key + suffix).detach() for key in ("weight_ih", "weight_hh", "bias_ih",
                                                                              "bias_hh")]
        blobs.append(y.reshape(steps, dirs * hidden))
        with open(os.path.join(args.dir, name + ".bin"), "wb") as f:
            for b in blobs:
                f.write(b.contiguous().numpy().astype("<f4").tobytes())

        onnx_path = os.path.join(args.dir, name + ".onnx")
        outputs = ["y", "h_n", "c_n"] if kind == "lstm" else ["y", "h_n"]
        torch.onnx.export(module, (x,), onnx_path, input_names=["x"], output_names=outputs, opset_version=14)
        x_path = os.path.join(args.dir, name + ".x.bin")
        with open(x_path, "wb") as f:
            f.write(x.numpy().astype("<f4").tobytes())
        spec = {"inputs": [{"name": "x", "file": os.path.abspath(x_path), "dims": [steps, 1, inputs]}],
                "runs": 200, "warmup": 20, "outputs_dir": os.path.abspath(os.path.join(args.dir, name + ".ort"))}
        with open(os.path.join(args.dir, name + ".ort.json"), "w") as f:
            json.dump(spec, f)
        print(json.dumps({"shape": name, "torch_best_ms": best * 1e3, "torch_median_ms": median * 1e3}), flush=True)


if __name__ == "__main__":
    main()

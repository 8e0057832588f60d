#!/usr/bin/python3
"""Whole networks: the library against PyTorch and ONNX Runtime, one thread each.

    /usr/bin/python3 bench/run_networks.py BUILD_DIR PEERS_DIR [--rounds N] [--runs N] [--only NAME]

For each network (torchvision ResNet-18, MobileNetV2 and SqueezeNet 1.1 with
seeded weights, no download; an LSTM of 64 inputs, 128 hidden, 2 layers and a
GRU of the same size over 32 steps): export to ONNX, convert with
`trn_convert --tune`, then time the library (build/bench/trn_net_runner),
PyTorch (in this process, torch.set_num_threads(1)) and ONNX Runtime
(bench/peers/ort_bench.js, one intra-op thread) on the same input, in rounds
that alternate the three, and report the median of all runs of each, the ratio
to ONNX Runtime and the largest difference to PyTorch's output relative to
PyTorch's largest value. A network whose conversion is refused because kernels
have not landed prints what it waits for.
"""
import argparse
import json
import os
import re
import subprocess
import sys
import tempfile
import time
import warnings

import numpy as np
import torch
import torch.nn as nn
import torchvision

HERE = os.path.dirname(os.path.abspath(__file__))


def randomise_bn(model):
    g = torch.Generator().manual_seed(1)
    for m in model.modules():
        if isinstance(m, nn.BatchNorm2d):
            m.running_mean.copy_((torch.rand(m.running_mean.shape, generator=g) - 0.5) * 0.2)
            m.running_var.copy_(torch.rand(m.running_var.shape, generator=g) + 0.5)
    return model


class Recurrent(nn.Module):
    def __init__(self, cell):
        super().__init__()
        self.rnn = cell

    def forward(self, x):
        return self.rnn(x)[0]


def networks():
    torch.manual_seed(0)
    image = torch.randn(1, 3, 224, 224, generator=torch.Generator().manual_seed(2))
    sequence = torch.randn(32, 1, 64, generator=torch.Generator().manual_seed(3))
    yield "resnet18", lambda: randomise_bn(torchvision.models.resnet18(weights=None)), image
    yield "mobilenet_v2", lambda: randomise_bn(torchvision.models.mobilenet_v2(weights=None)), image
    yield "squeezenet1_1", lambda: torchvision.models.squeezenet1_1(weights=None), image
    yield "lstm_64_128_2x32", lambda: Recurrent(nn.LSTM(64, 128, 2)), sequence
    yield "gru_64_128_2x32", lambda: Recurrent(nn.GRU(64, 128, 2)), sequence


def median(values):
    return float(np.median(np.asarray(values)))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("build")
    ap.add_argument("peers")
    ap.add_argument("--rounds", type=int, default=6)
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--only", default="")
    args = ap.parse_args()
    torch.set_num_threads(1)
    convert = os.path.join(args.build, "tools", "trn_convert")
    runner = os.path.join(args.build, "bench", "trn_net_runner")
    ort = os.path.join(HERE, "peers", "ort_bench.js")
    env = dict(os.environ, NODE_PATH=os.path.join(args.peers, "node_modules"))
    work = tempfile.mkdtemp(prefix="trn_networks_")
    rows = []
    machine = ""
    for name, make, x in networks():
        if args.only and args.only != name:
            continue
        torch.manual_seed(0)
        model = make().eval()
        onnx_path = os.path.join(work, name + ".onnx")
        with torch.no_grad(), warnings.catch_warnings():
            warnings.simplefilter("ignore")
            torch.onnx.export(model, x, onnx_path, opset_version=13, input_names=["x"], output_names=["y"])
            reference = model(x).numpy().reshape(-1)
        package = os.path.join(work, name + ".json")
        started = time.time()
        done = subprocess.run([convert, onnx_path, package, "--tune", "--plan"], capture_output=True, text=True)
        convert_s = time.time() - started
        if done.returncode != 0:
            waits = sorted(set(re.findall(r"waits for ([^\n]*)", done.stderr)))
            reason = "; ".join(waits) if waits else " ".join(done.stderr.strip().splitlines()[-2:])
            print("%-18s not converted: %s" % (name, ("waits for " + reason) if waits else reason), flush=True)
            rows.append((name, reason))
            continue
        # The plan says which of the registered kernels each layer got.
        plan_path = os.path.join(work, name + ".plan.txt")
        with open(plan_path, "w") as f:
            f.write(done.stdout)
        kernels = {}
        for line in done.stdout.splitlines():
            m = re.match(r"^\d+\s+.*\s(\S+_M\d+)\s", line)
            if m:
                kernels[m.group(1)] = kernels.get(m.group(1), 0) + 1
        print("%-18s plan (%s): %s" % (name, plan_path, ", ".join("%s x%d" % kv for kv in sorted(kernels.items()))),
              flush=True)
        input_bin = os.path.join(work, name + ".in.bin")
        x.numpy().astype("<f4").tofile(input_bin)
        dims = ",".join(str(d) for d in (x.shape[1:] if x.shape[0] == 1 else (x.shape[0], x.shape[2])))
        ort_job = os.path.join(work, name + ".ort.json")
        with open(ort_job, "w") as f:
            json.dump({"inputs": [{"name": "x", "file": input_bin, "dims": list(x.shape)}], "runs": args.runs,
                       "warmup": 2, "outputs_dir": os.path.join(work, name + "_ort")}, f)
        lib_times, torch_times, ort_times = [], [], []
        out_bin = os.path.join(work, name + ".out.bin")
        for _ in range(args.rounds):
            r = subprocess.run([runner, package, dims, input_bin, str(args.runs), "2", out_bin], capture_output=True,
                               text=True, check=True)
            report = json.loads(r.stdout.strip().splitlines()[-1])
            lib_times += report["times_ms"]
            if not machine:
                machine = "library CPU: %s; OpenBLAS core: %s" % (report["cpu"], report["openblas_core"])
                print(machine, flush=True)
            with torch.no_grad():
                model(x)
                for _ in range(args.runs):
                    t0 = time.perf_counter()
                    model(x)
                    torch_times.append((time.perf_counter() - t0) * 1e3)
            r = subprocess.run(["node", ort, onnx_path, ort_job], capture_output=True, text=True, env=env, check=True)
            ort_times += json.loads(r.stdout.strip().splitlines()[-1])["times_ms"]
        out = np.fromfile(out_bin, dtype="<f4")
        diff = float(np.max(np.abs(out - reference)) / np.max(np.abs(reference))) if out.size == reference.size else float("nan")
        ort_out = np.fromfile(os.path.join(work, name + "_ort", "y.bin"), dtype="<f4")
        ort_diff = float(np.max(np.abs(ort_out - reference)) / np.max(np.abs(reference)))
        row = {"lib": median(lib_times), "torch": median(torch_times), "ort": median(ort_times), "diff": diff,
               "ort_diff": ort_diff, "runs": len(lib_times), "convert_s": convert_s}
        rows.append((name, row))
        print("%-18s library %8.3f ms  PyTorch %8.3f ms  ONNX Runtime %8.3f ms  library/ORT %5.2f  "
              "max rel diff to PyTorch %.2e (ORT %.2e)  [%d runs each, converted with --tune in %.0f s]" %
              (name, row["lib"], row["torch"], row["ort"], row["lib"] / row["ort"], diff, ort_diff, row["runs"],
               convert_s), flush=True)
    print()
    print("| network | library ms | PyTorch ms | ONNX Runtime ms | library / ORT | max rel diff to PyTorch |")
    print("|---|---|---|---|---|---|")
    for name, row in rows:
        if isinstance(row, str):
            print("| %s | not converted: waits for %s | | | | |" % (name, row))
        else:
            print("| %s | %.3f | %.3f | %.3f | %.2f | %.1e |" % (name, row["lib"], row["torch"], row["ort"],
                                                              row["lib"] / row["ort"], row["diff"]))


if __name__ == "__main__":
    sys.exit(main())

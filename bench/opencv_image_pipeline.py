#!/usr/bin/python3
"""The OpenCV side of the image pipeline benchmark: a 1920x1080 NV21 frame to a
224x224 normalised float tensor (per-channel mean and scale, planar), OpenCV
single-threaded. Run with Debian's Python (python3-opencv, python3-numpy).

Two OpenCV renderings are timed and the faster counts:
  steps:  cvtColor(NV21 -> RGB), resize(INTER_LINEAR), blobFromImage(mean),
          multiply by the per-channel scale
  dnn:    cvtColor(NV21 -> RGB), blobFromImage(size, mean) (it resizes
          itself), multiply by the per-channel scale
Only the calls are timed (time.perf_counter_ns around each whole pipeline;
Python adds about a microsecond per call, under 0.1% here).

With --trn-json FILE (Google Benchmark JSON of bench_image_process, filtered
to the Pipeline benchmarks) it prints both sides and the ratios.
"""
import argparse
import json
import statistics
import time

import cv2
import numpy as np

H, W, OUT = 1080, 1920, 224
MEAN = (123.675, 116.28, 103.53)
SCALE = np.array([1 / 58.395, 1 / 57.12, 1 / 57.375], dtype=np.float32).reshape(1, 3, 1, 1)


def steps(frame):
    rgb = cv2.cvtColor(frame, cv2.COLOR_YUV2RGB_NV21)
    small = cv2.resize(rgb, (OUT, OUT), interpolation=cv2.INTER_LINEAR)
    blob = cv2.dnn.blobFromImage(small, 1.0, None, MEAN, swapRB=False, crop=False)
    blob *= SCALE
    return blob


def dnn(frame):
    rgb = cv2.cvtColor(frame, cv2.COLOR_YUV2RGB_NV21)
    blob = cv2.dnn.blobFromImage(rgb, 1.0, (OUT, OUT), MEAN, swapRB=False, crop=False)
    blob *= SCALE
    return blob


def time_us(fn, frame, seconds):
    for _ in range(20):  # warm caches and OpenCV's lazy initialisation
        fn(frame)
    samples = []
    deadline = time.perf_counter() + seconds
    while time.perf_counter() < deadline or len(samples) < 50:
        t0 = time.perf_counter_ns()
        fn(frame)
        samples.append((time.perf_counter_ns() - t0) / 1000.0)
    return statistics.median(samples), len(samples)


def trn_times(path):
    with open(path) as f:
        data = json.load(f)
    out = {}
    for b in data.get("benchmarks", []):
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        name = b.get("run_name", b["name"])
        unit = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}[b.get("time_unit", "ns")]
        out[name] = b["real_time"] * unit
    return out


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--seconds", type=float, default=3.0, help="time per OpenCV pipeline")
    ap.add_argument("--trn-json", help="bench_image_process JSON output to compare with")
    args = ap.parse_args()
    cv2.setNumThreads(1)
    frame = np.random.default_rng(3).integers(0, 256, (H * 3 // 2, W), dtype=np.uint8)
    assert steps(frame).shape == (1, 3, OUT, OUT)
    results = {}
    for name, fn in (("steps", steps), ("dnn", dnn)):
        results[name], n = time_us(fn, frame, args.seconds)
        print("opencv %-6s %9.1f us  (median of %d, cv2 %s, threads %d)" % (name, results[name], n, cv2.__version__,
                                                                           cv2.getNumThreads()))
    best = min(results.values())
    print("opencv best   %9.1f us" % best)
    if args.trn_json:
        for name, us in sorted(trn_times(args.trn_json).items()):
            print("%-40s %9.1f us   ratio to OpenCV %.3f" % (name, us, us / best))


if __name__ == "__main__":
    main()

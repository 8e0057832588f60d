#!/usr/bin/python3
"""PyTorch, one thread, on the layer shapes of bench_conv: the peer column.

Run with Debian's Python (it sees python3-torch):
    /usr/bin/python3 bench/torch_conv_peer.py [--min-time SECONDS]
Prints one markdown row per shape with ms/call and GFLOP/s (multiply-adds
counted as two operations, bias not counted), like bench_conv's table.
"""
import argparse
import time

import torch
import torch.nn.functional as F

# label, C, N, H, W, kernel, stride, padding: the same as bench/bench_conv.cpp
CONV2D = [
    ("resnet18 3x3 64->64 56x56", 64, 64, 56, 56, 3, 1, 1),
    ("resnet18 3x3 256->256 14x14", 256, 256, 14, 14, 3, 1, 1),
    ("resnet18 stem 7x7/2 3->64 224x224", 3, 64, 224, 224, 7, 2, 3),
    ("mbv2 1x1 144->24 56x56", 144, 24, 56, 56, 1, 1, 0),
    ("mbv2 1x1 24->144 56x56", 24, 144, 56, 56, 1, 1, 0),
]
CONV1D = ("tcn conv1d k3 256->256 L=512", 256, 256, 512)
FC = ("classifier fc 512->1000", 512, 1000)


def timed(fn, min_time):
    fn()
    calls, start = 0, time.perf_counter()
    while True:
        fn()
        calls += 1
        elapsed = time.perf_counter() - start
        if elapsed >= min_time and calls >= 3:
            return elapsed / calls


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--min-time", type=float, default=0.5)
    args = parser.parse_args()
    torch.set_num_threads(1)
    torch.manual_seed(0)
    rows = []
    with torch.no_grad():
        for label, c, n, h, w, k, s, p in CONV2D:
            x = torch.rand(1, c, h, w)
            weight, bias = torch.rand(n, c, k, k), torch.rand(n)
            seconds = timed(lambda: F.conv2d(x, weight, bias, stride=s, padding=p), args.min_time)
            oh, ow = (h + 2 * p - k) // s + 1, (w + 2 * p - k) // s + 1
            rows.append((label, seconds, 2.0 * n * c * k * k * oh * ow))
        label, c, n, length = CONV1D
        x, weight, bias = torch.rand(1, c, length), torch.rand(n, c, 3), torch.rand(n)
        seconds = timed(lambda: F.conv1d(x, weight, bias, padding=1), args.min_time)
        rows.append((label, seconds, 2.0 * n * c * 3 * length))
        label, fin, fout = FC
        x, weight, bias = torch.rand(fin), torch.rand(fout, fin), torch.rand(fout)
        seconds = timed(lambda: F.linear(x, weight, bias), args.min_time)
        rows.append((label, seconds, 2.0 * fin * fout))
    print("PyTorch %s, threads %d, MKLDNN %s" % (torch.__version__, torch.get_num_threads(),
                                               torch.backends.mkldnn.is_available()))
    print("| shape | PyTorch ms/call | PyTorch GFLOP/s |")
    print("|---|---:|---:|")
    for label, seconds, flops in rows:
        print("| %s | %.3f | %.2f |" % (label, seconds * 1e3, flops / seconds * 1e-9))


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""PyTorch, one thread, on the shapes of bench_depthwise: the peer column.

Run with Debian's Python (it sees python3-torch):
    /usr/bin/python3 bench/torch_depthwise_peer.py [--min-time SECONDS] [--raw]
Prints one markdown row per shape with ms/call and GFLOP/s (multiply-adds
counted as two operations, bias not counted); --raw prints "label<TAB>seconds"
lines instead, which bench_depthwise reads when it runs this script itself.
Labels and shapes must stay those of bench/bench_depthwise.cpp.
"""
import argparse

import torch
import torch.nn.functional as F

from torch_conv_peer import timed

# MobileNetV2's depthwise layers (input 224x224): label, channels, input size, stride.
MBV2 = [
    ("mbv2 dw 32 112x112 s1", 32, 112, 1),
    ("mbv2 dw 96 112x112 s2", 96, 112, 2),
    ("mbv2 dw 144 56x56 s1", 144, 56, 1),
    ("mbv2 dw 144 56x56 s2", 144, 56, 2),
    ("mbv2 dw 192 28x28 s1", 192, 28, 1),
    ("mbv2 dw 192 28x28 s2", 192, 28, 2),
    ("mbv2 dw 384 14x14 s1", 384, 14, 1),
    ("mbv2 dw 576 14x14 s1", 576, 14, 1),
    ("mbv2 dw 576 14x14 s2", 576, 14, 2),
    ("mbv2 dw 960 7x7 s1", 960, 7, 1),
]
# The decoder layer of the transposed members: label, C, N, input size, kernel,
# stride, padding, output padding.
DECODER = ("decoder convT 3x3/2 64->32 56x56", 64, 32, 56, 3, 2, 1, 1)


def label_5x5(label):
    return label.replace("mbv2 dw", "dw5x5", 1)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--min-time", type=float, default=0.3)
    parser.add_argument("--raw", action="store_true")
    args = parser.parse_args()
    torch.set_num_threads(1)
    torch.manual_seed(0)
    rows = []
    with torch.no_grad():
        for label, c, size, s in MBV2:
            x = torch.rand(1, c, size, size)
            for k, name in ((3, label), (5, label_5x5(label))):
                weight, bias = torch.rand(c, 1, k, k), torch.rand(c)
                p = k // 2
                seconds = timed(lambda: F.conv2d(x, weight, bias, stride=s, padding=p, groups=c), args.min_time)
                out = (size + 2 * p - k) // s + 1
                rows.append((name, seconds, 2.0 * c * k * k * out * out))
        label, c, n, size, k, s, p, op = DECODER
        x, weight, bias = torch.rand(1, c, size, size), torch.rand(c, n, k, k), torch.rand(n)
        seconds = timed(lambda: F.conv_transpose2d(x, weight, bias, stride=s, padding=p, output_padding=op),
                        args.min_time)
        rows.append((label, seconds, 2.0 * c * n * k * k * size * size))
    if args.raw:
        for label, seconds, _ in rows:
            print("%s\t%.9g" % (label, seconds))
        return
    print("PyTorch %s, threads %d, MKLDNN %s" % (torch.__version__, torch.get_num_threads(),
                                               torch.backends.mkldnn.is_available()))
    print("| shape | PyTorch ms/call | PyTorch GFLOP/s |")
    print("|---|---:|---:|")
    for label, seconds, flops in rows:
        print("| %s | %.3f | %.2f |" % (label, seconds * 1e3, flops / seconds * 1e-9))


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Regenerates the depthwise and transposed convolution fixtures from PyTorch.

Run with Debian's Python (it sees python3-torch):
    /usr/bin/python3 tests/reference/make_depthwise_transposed_reference.py

Writes, in the format of make_reference_data.py (one JSON object with
"cases", each with "name", "op", "params", "inputs", "outputs"):

  tests/data/reference/depthwise_transposed/depthwise.json
      F.conv2d with groups = channels; inputs [x (C, H, W), weight (C, 1, K, K),
      bias (C) when params.bias]; params as the conv2d fixture (in_channels,
      out_channels, kernel, stride, dilation, groups, padding [l, r, t, b],
      bias); padding goes through F.pad first, so borders may be asymmetric.
  tests/data/reference/depthwise_transposed/conv_transpose2d.json
      F.conv_transpose2d; inputs [x (C, H, W), weight (C, N / G, KY, KX),
      bias (N) when params.bias]; params in_channels, out_channels, kernel,
      stride, dilation, groups, bias and padding [l, r, t, b] as the record
      stores it: PyTorch's padding p and output_padding op give begin = p and
      end = p - op. Asymmetric cases are the p = 0 output sliced.
"""
import json
import os

import torch
import torch.nn.functional as F

from make_reference_data import tensor

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "data", "reference", "depthwise_transposed")

DEPTHWISE = [
    # name, C, H, W, K, stride, (l, r, t, b), bias
    ("k3_s1_same_4ch", 4, 6, 7, 3, 1, (1, 1, 1, 1), True),
    ("k3_s1_valid_6ch", 6, 5, 9, 3, 1, (0, 0, 0, 0), False),
    ("k3_s1_same_144ch", 144, 2, 3, 3, 1, (1, 1, 1, 1), True),
    ("k3_s2_same_8ch", 8, 7, 9, 3, 2, (1, 1, 1, 1), True),
    ("k3_s2_asym_12ch", 12, 8, 6, 3, 2, (0, 1, 0, 1), False),
    ("k3_s2_6ch", 6, 6, 5, 3, 2, (1, 1, 1, 1), True),
    ("k5_s1_same_8ch", 8, 6, 7, 5, 1, (2, 2, 2, 2), True),
    ("k5_s1_same_6ch", 6, 5, 5, 5, 1, (2, 2, 2, 2), False),
    ("k5_s2_same_12ch", 12, 9, 8, 5, 2, (2, 2, 2, 2), True),
    ("k5_s2_asym_4ch", 4, 7, 7, 5, 2, (1, 2, 2, 1), False),
]

TRANSPOSED = [
    # name, C, N, H, W, (ky, kx), (sy, sx), padding (py, px), output_padding (oy, ox),
    # (dy, dx), groups, bias; None as padding: the asymmetric (l, r, t, b) that follows
    ("k3_s1_p0", 3, 4, 4, 5, (3, 3), (1, 1), (0, 0), (0, 0), (1, 1), 1, True),
    ("k3_s1_p1", 4, 3, 5, 4, (3, 3), (1, 1), (1, 1), (0, 0), (1, 1), 1, False),
    ("k3_s2_p1_op1_decoder", 4, 6, 4, 5, (3, 3), (2, 2), (1, 1), (1, 1), (1, 1), 1, True),
    ("k3_s2_p0", 5, 4, 3, 4, (3, 3), (2, 2), (0, 0), (0, 0), (1, 1), 1, True),
    ("k3_s3_p1_op2", 3, 5, 3, 3, (3, 3), (3, 3), (1, 1), (2, 2), (1, 1), 1, True),
    ("k3_s3_p0_8ch", 8, 8, 3, 4, (3, 3), (3, 3), (0, 0), (0, 0), (1, 1), 1, False),
    ("k3_s2x1_mixed", 4, 4, 4, 3, (3, 3), (2, 1), (1, 0), (1, 0), (1, 1), 1, True),
    ("k3_s2_13to9", 13, 9, 3, 3, (3, 3), (2, 2), (1, 1), (1, 1), (1, 1), 1, True),
    ("k3_s2_asym", 4, 5, 4, 4, (3, 3), (2, 2), (2, 0, 0, 1), None, (1, 1), 1, True),
    ("k3_s2_d2", 4, 4, 4, 4, (3, 3), (2, 2), (2, 2), (1, 1), (2, 2), 1, True),
    ("k3_s2_g2", 4, 6, 4, 4, (3, 3), (2, 2), (1, 1), (1, 1), (1, 1), 2, True),
    ("k3_s1_depthwise", 4, 4, 5, 5, (3, 3), (1, 1), (1, 1), (0, 0), (1, 1), 4, False),
    ("k4_s2_p1", 4, 3, 4, 4, (4, 4), (2, 2), (1, 1), (0, 0), (1, 1), 1, True),
    ("k2x3_s2x1_d1x2", 3, 2, 3, 4, (2, 3), (2, 1), (0, 1), (1, 0), (1, 2), 1, True),
]


def _rand(*shape):
    return torch.rand(*shape, dtype=torch.float32) * 2.0 - 1.0


def depthwise_cases():
    cases = []
    for name, c, h, w, k, s, pad, has_bias in DEPTHWISE:
        x = _rand(c, h, w)
        weight = _rand(c, 1, k, k)
        bias = _rand(c) if has_bias else None
        y = F.conv2d(F.pad(x.unsqueeze(0), pad), weight, bias, stride=s, groups=c)[0]
        cases.append({
            "name": name, "op": "conv2d",
            "params": {"in_channels": c, "out_channels": c, "kernel": [k, k], "stride": [s, s], "dilation": [1, 1],
                       "groups": c, "padding": list(pad), "bias": has_bias},
            "inputs": [tensor(x), tensor(weight)] + ([tensor(bias)] if has_bias else []),
            "outputs": [tensor(y)],
        })
    return cases


def transposed_cases():
    cases = []
    for name, c, n, h, w, k, s, p, op, d, g, has_bias in TRANSPOSED:
        x = _rand(c, h, w)
        weight = _rand(c, n // g, k[0], k[1])
        bias = _rand(n) if has_bias else None
        if op is None:
            left, right, top, bottom = p
            full = F.conv_transpose2d(x.unsqueeze(0), weight, bias, stride=s, dilation=d, groups=g)[0]
            y = full[:, top:full.shape[1] - bottom, left:full.shape[2] - right]
            padding = [left, right, top, bottom]
        else:
            y = F.conv_transpose2d(x.unsqueeze(0), weight, bias, stride=s, padding=p, output_padding=op,
                                   dilation=d, groups=g)[0]
            padding = [p[1], p[1] - op[1], p[0], p[0] - op[0]]
        cases.append({
            "name": name, "op": "conv_transpose2d",
            "params": {"in_channels": c, "out_channels": n, "kernel": list(k), "stride": list(s),
                       "dilation": list(d), "groups": g, "padding": padding, "bias": has_bias},
            "inputs": [tensor(x), tensor(weight)] + ([tensor(bias)] if has_bias else []),
            "outputs": [tensor(y)],
        })
    return cases


def write(name, cases):
    os.makedirs(OUT, exist_ok=True)
    path = os.path.join(OUT, name + ".json")
    with open(path, "w") as f:
        json.dump({"generator": "tests/reference/make_depthwise_transposed_reference.py", "torch": torch.__version__,
                   "cases": cases}, f, separators=(",", ":"))
        f.write("\n")
    print("%s: %d cases, %d bytes" % (path, len(cases), os.path.getsize(path)))


def main():
    torch.manual_seed(0)
    torch.set_num_threads(1)
    write("depthwise", depthwise_cases())
    write("conv_transpose2d", transposed_cases())


if __name__ == "__main__":
    main()

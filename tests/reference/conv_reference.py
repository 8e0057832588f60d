"""Reference cases of the convolution and fully connected kernels.

Loaded by make_reference_data.py (run it with /usr/bin/python3). Fixtures:

  conv2d  inputs [x (C, H, W), weight (N, C/G, KY, KX), bias (N) when params.bias]
          params in_channels, out_channels, kernel [ky, kx], stride [sy, sx],
          dilation [dy, dx], groups, padding [left, right, top, bottom], bias
  conv1d  inputs [x (C, L), weight (N, C/G, K), bias (N) when params.bias]
          params in_channels, out_channels, kernel, stride, dilation, groups,
          padding [front, back], bias
  fc      inputs [x (in,) or (C, H, W) flattened in CHW order, weight
          (out, in), bias (out) when params.bias]; params in_features,
          out_features, map [C, H, W] or null, bias

Padding goes through F.pad first so that asymmetric borders are covered.
"""
import torch
import torch.nn.functional as F

from make_reference_data import tensor


def _rand(*shape):
    return torch.rand(*shape, dtype=torch.float32) * 2.0 - 1.0


CONV2D = [
    # name, C, N, H, W, (ky, kx), (sy, sx), (dy, dx), groups, (l, r, t, b), bias
    ("k3_same", 3, 4, 6, 7, (3, 3), (1, 1), (1, 1), 1, (1, 1, 1, 1), True),
    ("k3_s2_asym_pad", 5, 6, 7, 9, (3, 3), (2, 2), (1, 1), 1, (1, 0, 2, 1), True),
    ("k3_d2_keeps_size", 4, 6, 8, 8, (3, 3), (1, 1), (2, 2), 1, (2, 2, 2, 2), False),
    ("k3_groups3", 6, 6, 6, 5, (3, 3), (1, 1), (1, 1), 3, (1, 1, 1, 1), True),
    ("depthwise_s2", 4, 4, 8, 8, (3, 3), (2, 2), (1, 1), 4, (1, 1, 1, 1), True),
    ("k1_plain", 3, 5, 5, 7, (1, 1), (1, 1), (1, 1), 1, (0, 0, 0, 0), True),
    ("k2x3_mixed", 2, 3, 6, 7, (2, 3), (2, 1), (1, 2), 1, (0, 1, 1, 0), True),
    ("k5_pad2", 5, 6, 7, 7, (5, 5), (1, 1), (1, 1), 1, (2, 2, 2, 2), True),
    ("k1_single", 1, 1, 1, 1, (1, 1), (1, 1), (1, 1), 1, (0, 0, 0, 0), False),
    ("k1_16x8", 8, 16, 4, 4, (1, 1), (1, 1), (1, 1), 1, (0, 0, 0, 0), True),
    ("k7_s2_stem", 3, 4, 11, 11, (7, 7), (2, 2), (1, 1), 1, (3, 3, 3, 3), True),
    ("k3_tails_13to9", 13, 9, 6, 6, (3, 3), (1, 1), (1, 1), 1, (1, 1, 1, 1), True),
]

CONV1D = [
    # name, C, N, L, K, stride, dilation, groups, (front, back), bias
    ("k3_same", 3, 4, 10, 3, 1, 1, 1, (1, 1), True),
    ("k5_s2_d2_g2", 4, 6, 17, 5, 2, 2, 2, (2, 3), True),
    ("k1_plain", 2, 2, 5, 1, 1, 1, 1, (0, 0), False),
    ("k3_tail19", 5, 3, 19, 3, 1, 1, 1, (1, 1), False),
    ("depthwise_d3", 4, 4, 12, 3, 1, 3, 4, (0, 2), True),
]

FC = [
    # name, in, out, map (C, H, W) or None, bias
    ("16to8", 16, 8, None, True),
    ("13to7", 13, 7, None, False),
    ("32to16", 32, 16, None, True),
    ("3to5", 3, 5, None, True),
    ("24to12", 24, 12, None, False),
    ("map5x3x3_to7", 45, 7, (5, 3, 3), True),
    ("map9x2x2_to10", 36, 10, (9, 2, 2), False),
]


def conv2d_cases():
    cases = []
    for name, c, n, h, w, k, s, d, g, pad, has_bias in CONV2D:
        x = _rand(c, h, w)
        weight = _rand(n, c // g, k[0], k[1])
        bias = _rand(n) if has_bias else None
        padded = F.pad(x.unsqueeze(0), pad)
        y = F.conv2d(padded, weight, bias, stride=s, dilation=d, groups=g)[0]
        inputs = [tensor(x), tensor(weight)] + ([tensor(bias)] if has_bias else [])
        cases.append({
            "name": name, "op": "conv2d",
            "params": {"in_channels": c, "out_channels": n, "kernel": list(k), "stride": list(s),
                       "dilation": list(d), "groups": g, "padding": list(pad), "bias": has_bias},
            "inputs": inputs, "outputs": [tensor(y)],
        })
    return cases


def conv1d_cases():
    cases = []
    for name, c, n, length, k, s, d, g, pad, has_bias in CONV1D:
        x = _rand(c, length)
        weight = _rand(n, c // g, k)
        bias = _rand(n) if has_bias else None
        padded = F.pad(x.unsqueeze(0), pad)
        y = F.conv1d(padded, weight, bias, stride=s, dilation=d, groups=g)[0]
        inputs = [tensor(x), tensor(weight)] + ([tensor(bias)] if has_bias else [])
        cases.append({
            "name": name, "op": "conv1d",
            "params": {"in_channels": c, "out_channels": n, "kernel": k, "stride": s, "dilation": d,
                       "groups": g, "padding": list(pad), "bias": has_bias},
            "inputs": inputs, "outputs": [tensor(y)],
        })
    return cases


def fc_cases():
    cases = []
    for name, fin, fout, shape, has_bias in FC:
        x = _rand(*shape) if shape else _rand(fin)
        weight = _rand(fout, fin)
        bias = _rand(fout) if has_bias else None
        y = F.linear(x.reshape(-1), weight, bias)
        inputs = [tensor(x), tensor(weight)] + ([tensor(bias)] if has_bias else [])
        cases.append({
            "name": name, "op": "linear",
            "params": {"in_features": fin, "out_features": fout, "map": list(shape) if shape else None,
                       "bias": has_bias},
            "inputs": inputs, "outputs": [tensor(y)],
        })
    return cases


def make_cases():
    return {"conv2d": conv2d_cases(), "conv1d": conv1d_cases(), "fc": fc_cases()}

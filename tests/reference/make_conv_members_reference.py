#!/usr/bin/python3
"""Regenerates the PyTorch fixtures of the fixed-geometry convolution members.

Run with Debian's Python (it sees python3-torch):
    /usr/bin/python3 tests/reference/make_conv_members_reference.py

Writes tests/data/reference/conv_members/:

  layers.json  float layers with the geometry of real networks' layers
               (kernel, stride, padding; the channel counts are the real ones
               where the weights stay small, else cut down, as the name says),
               on small odd maps. Same case format as conv2d.json (see
               conv_reference.py): inputs [x (C, H, W), weight (N, C, KY, KX),
               bias (N)], params in_channels, out_channels, kernel, stride,
               dilation, groups, padding [l, r, t, b], bias.
  int16.json   the 16-bit fixed-point 1x1 convolution computed with integer
               tensors: inputs [x (C, H, W) 16-bit integers, weight (N, C, 1, 1)
               floats, bias (N) floats], params in_channels, out_channels,
               input_step, weight_step, output_step; outputs [y (N, H, W) 16-bit
               integers]. A step s means an integer q stands for q * 2^s; the
               weight is rounded to its step (ties to even) and clamped to
               +-32767, the bias to the output step and clamped to 16 bits, the
               sums are exact, shifted by output - input - weight step with
               rounding half up, added to the bias and saturated.
"""
import os
import sys

import torch
import torch.nn.functional as F

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import make_reference_data  # noqa: E402
from make_reference_data import tensor  # noqa: E402

make_reference_data.OUT = os.path.join(HERE, "..", "data", "reference", "conv_members")


def _rand(*shape):
    return torch.rand(*shape, dtype=torch.float32) * 2.0 - 1.0


LAYERS = [
    # name, C, N, H, W, (ky, kx), stride, (l, r, t, b)
    ("squeezenet1_1_fire2_squeeze_1x1", 64, 16, 1, 7, (1, 1), 1, (0, 0, 0, 0)),
    ("squeezenet1_1_fire2_expand_3x3_c8", 8, 8, 3, 7, (3, 3), 1, (1, 1, 1, 1)),
    ("mobilenet_v2_block1_project_1x1_c48", 48, 12, 1, 5, (1, 1), 1, (0, 0, 0, 0)),
    ("resnet18_layer2_downsample_1x1s2_c12", 12, 16, 7, 9, (1, 1), 2, (0, 0, 0, 0)),
    ("resnet18_layer2_conv1_3x3s2_c8", 8, 12, 7, 9, (3, 3), 2, (1, 1, 1, 1)),
    ("resnet18_layer1_conv_3x3_c8", 8, 8, 5, 7, (3, 3), 1, (1, 1, 1, 1)),
    ("erfnet_non_bt_1d_3x1_c8", 8, 8, 5, 7, (3, 1), 1, (0, 0, 1, 1)),
    ("erfnet_non_bt_1d_1x3_c8", 8, 8, 5, 7, (1, 3), 1, (1, 1, 0, 0)),
]

INT16 = [
    # name, C, N, H, W, input step, weight step, output step (shift 8..12)
    ("mobilenet_v2_project_1x1_shift8", 24, 16, 3, 5, -9, -11, -12),
    ("squeezenet_squeeze_1x1_shift10", 64, 16, 3, 3, -10, -12, -12),
    ("expand_1x1_shift12_saturating", 16, 24, 2, 5, -8, -10, -6),
]


def layer_cases():
    cases = []
    for name, c, n, h, w, k, s, pad in LAYERS:
        x = _rand(c, h, w)
        weight = _rand(n, c, k[0], k[1]) / (c * k[0] * k[1]) ** 0.5
        bias = _rand(n)
        y = F.conv2d(F.pad(x.unsqueeze(0), pad), weight, bias, stride=s)[0]
        cases.append({
            "name": name, "op": "conv2d",
            "params": {"in_channels": c, "out_channels": n, "kernel": list(k), "stride": [s, s],
                       "dilation": [1, 1], "groups": 1, "padding": list(pad), "bias": True},
            "inputs": [tensor(x), tensor(weight), tensor(bias)], "outputs": [tensor(y)],
        })
    return cases


def quantize(v, step, lo, hi):
    q = torch.round(v.to(torch.float32) * 2.0 ** -step)  # exact power-of-two scaling, ties to even
    return q.clamp(lo, hi).to(torch.int64)


def int16_cases():
    cases = []
    for name, c, n, h, w, s_in, s_w, s_out in INT16:
        shift = s_out - s_in - s_w
        x = torch.randint(-32768, 32768, (c, h, w), dtype=torch.int64)
        weight = _rand(n, c, 1, 1) * 2.0 ** (15 + s_w) * 0.999
        bias = _rand(n) * 2.0 ** (14 + s_out)
        qw = quantize(weight.reshape(n, c), s_w, -32767, 32767)
        qb = quantize(bias, s_out, -32768, 32767)
        sums = qw @ x.reshape(c, h * w)  # exact int64
        y = qb[:, None] + torch.div(sums + (1 << (shift - 1)), 1 << shift, rounding_mode="floor")
        y = y.clamp(-32768, 32767).reshape(n, h, w)
        cases.append({
            "name": name, "op": "conv2d_int16",
            "params": {"in_channels": c, "out_channels": n, "input_step": s_in, "weight_step": s_w,
                       "output_step": s_out},
            "inputs": [tensor(x.to(torch.float32)), tensor(weight), tensor(bias)],
            "outputs": [tensor(y.to(torch.float32))],
        })
    return cases


def main():
    torch.manual_seed(11)
    make_reference_data.write("layers", layer_cases())
    make_reference_data.write("int16", int16_cases())


if __name__ == "__main__":
    main()

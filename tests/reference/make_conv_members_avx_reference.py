#!/usr/bin/python3
"""Reference cases of the specialised convolution members, from PyTorch.

Run with Debian's Python (it sees python3-torch):
    /usr/bin/python3 tests/reference/make_conv_members_avx_reference.py

Real layer shapes (channel counts, kernels, strides, padding of the named
networks) on small images, inputs and weights on a 1/64 grid, so the files
stay small. Each file groups the
layers of one kind; the format is that of conv2d.json (see conv_reference.py):

  inputs  [x (C, H, W), weight (N, C, KY, KX), bias (N) when params.bias]
  params  in_channels, out_channels, kernel [ky, kx], stride [sy, sx],
          dilation [dy, dx], groups, padding [left, right, top, bottom], bias

Files land in tests/data/reference/conv_members_avx/<group>.json.
"""
import json
import os
import sys

import torch
import torch.nn.functional as F

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from make_reference_data import tensor  # noqa: E402

OUT = os.path.join(HERE, "..", "data", "reference", "conv_members_avx")

GROUPS = {
    # name, C, N, H, W, (ky, kx), (sy, sx), (l, r, t, b), bias
    "stems": [
        ("vgg16_conv1_1_3x3_3to64", 3, 64, 4, 5, (3, 3), (1, 1), (1, 1, 1, 1), True),
        ("resnet18_conv1_7x7s2_3to64", 3, 64, 6, 7, (7, 7), (2, 2), (3, 3, 3, 3), False),
        ("mobilenetv2_conv1_3x3s2_3to32", 3, 32, 5, 6, (3, 3), (2, 2), (1, 1, 1, 1), False),
        # a 5x5 stride-2 image stem in the style of small classifiers
        ("stem_5x5s2_3to16", 3, 16, 7, 9, (5, 5), (2, 2), (2, 2, 2, 2), True),
    ],
    "pointwise": [
        ("squeezenet1_1_fire2_squeeze_1x1_64to16", 64, 16, 3, 5, (1, 1), (1, 1), (0, 0, 0, 0), True),
        ("mobilenetv2_project_1x1_144to24", 144, 24, 2, 3, (1, 1), (1, 1), (0, 0, 0, 0), True),
        ("resnet20_shortcut_1x1s2_16to32", 16, 32, 5, 6, (1, 1), (2, 2), (0, 0, 0, 0), False),
    ],
    "spatial": [
        ("lenet5_c3_5x5_6to16", 6, 16, 6, 7, (5, 5), (1, 1), (0, 0, 0, 0), True),
        # the factorised 3x3 of an ERFNet non-bottleneck block, 16 channels
        ("erfnet_nb1d_3x1_16to16", 16, 16, 4, 5, (3, 1), (1, 1), (0, 0, 1, 1), True),
        ("erfnet_nb1d_1x3_16to16", 16, 16, 4, 5, (1, 3), (1, 1), (1, 1, 0, 0), True),
        ("dncnn_gray_last_3x3_64to1", 64, 1, 3, 5, (3, 3), (1, 1), (1, 1, 1, 1), False),
        ("dncnn_color_last_3x3_64to3", 64, 3, 3, 4, (3, 3), (1, 1), (1, 1, 1, 1), False),
    ],
}


def _rand(*shape):
    """Values on a 1/64 grid in [-1, 1): exact in float32 and short in JSON."""
    return torch.randint(-64, 64, shape).to(torch.float32) / 64.0


def make_case(name, c, n, h, w, k, s, pad, has_bias):
    x = _rand(c, h, w)
    weight = _rand(n, c, k[0], k[1])
    bias = _rand(n) if has_bias else None
    y = F.conv2d(F.pad(x.unsqueeze(0), pad), weight, bias, stride=s)[0]
    inputs = [tensor(x), tensor(weight)] + ([tensor(bias)] if has_bias else [])
    return {
        "name": name, "op": "conv2d",
        "params": {"in_channels": c, "out_channels": n, "kernel": list(k), "stride": list(s), "dilation": [1, 1],
                   "groups": 1, "padding": list(pad), "bias": has_bias},
        "inputs": inputs, "outputs": [tensor(y)],
    }


def main():
    torch.manual_seed(11)
    torch.set_num_threads(1)
    os.makedirs(OUT, exist_ok=True)
    for group, layers in GROUPS.items():
        cases = [make_case(*layer) for layer in layers]
        path = os.path.join(OUT, group + ".json")
        with open(path, "w") as f:
            json.dump({"generator": "tests/reference/make_conv_members_avx_reference.py", "torch": torch.__version__,
                       "cases": cases}, f, separators=(",", ":"))
            f.write("\n")
        print("%s: %d cases, %d bytes" % (path, len(cases), os.path.getsize(path)))


if __name__ == "__main__":
    main()

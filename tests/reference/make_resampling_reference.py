#!/usr/bin/python3
"""Regenerates the PyTorch fixtures of the normalisation, upsampling, softmax,
clip, grid-sampling, adaptive max pooling and quantisation-trained
convolution kernels.

Run with Debian's Python (it sees python3-torch; `bash scripts/deps.sh
reference` installs it on a fresh machine):
    /usr/bin/python3 tests/reference/make_resampling_reference.py

Writes tests/data/reference/resampling/<operation>.json in the format of
tests/reference/make_reference_data.py (cases with "name", "op", "params",
"inputs", "outputs"; tensors as {"shape", "data"}). Tensors carry no batch
axis: every PyTorch call gets the batch of 1 added and removed around it.
Record parameters that travel as half floats or float32 in the records are
rounded to those types here first, so the library and PyTorch see the same
numbers.
"""
import json
import os

import numpy as np
import torch
import torch.nn.functional as F

from make_reference_data import tensor

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "data", "reference", "resampling")


def f32(x):
    return float(np.float32(x))


def case(name, op, params, inputs, outputs):
    return {"name": name, "op": op, "params": params, "inputs": [tensor(t) for t in inputs],
            "outputs": [tensor(t) for t in outputs]}


def batch_norm_cases(g):
    cases = []
    # (name, input shape, affine, eps)
    for name, shape, affine, eps in [("bn2d_affine", (5, 3, 7), True, 1e-5), ("bn2d_plain", (3, 4, 4), False, 1e-3),
                                     ("bn2d_tiny_var", (2, 2, 9), True, 1e-5), ("bn1d_vector", (6,), True, 1e-5),
                                     ("bn1d_signal", (4, 9), True, 1e-4), ("bn1d_signal_plain", (3, 5), False, 1e-5)]:
        c = shape[0]
        x = torch.randn(*shape, generator=g) * 2 + 0.5
        mean = torch.randn(c, generator=g)
        var = torch.rand(c, generator=g) * 3 + 0.05
        if name == "bn2d_tiny_var":
            var = torch.full((c,), 1e-6)
        scale = torch.randn(c, generator=g) if affine else torch.ones(c)
        shift = torch.randn(c, generator=g) if affine else torch.zeros(c)
        eps = f32(eps)
        y = F.batch_norm(x.unsqueeze(0), mean, var, scale if affine else None, shift if affine else None, False, 0.1,
                         eps).squeeze(0)
        cases.append(case(name, "batch_norm", {"eps": eps, "affine": affine, "dims": len(shape)},
                          [x, mean, var, scale, shift], [y]))
    return cases


def instance_norm_cases(g):
    cases = []
    for name, shape, affine, eps, offset in [("in_affine", (3, 5, 6), True, 1e-5, 0.0),
                                             ("in_plain", (2, 4, 9), False, 1e-5, 0.0),
                                             ("in_offset_mean", (2, 7, 3), True, 1e-3, 1000.0),
                                             ("in_single_pixel_rows", (4, 1, 17), False, 1e-5, 0.0)]:
        c = shape[0]
        x = torch.randn(*shape, generator=g) + offset
        if name == "in_plain":
            x[1] = 0.75  # a constant channel: variance 0, output 0
        scale = torch.randn(c, generator=g) if affine else torch.ones(c)
        shift = torch.randn(c, generator=g) if affine else torch.zeros(c)
        eps = f32(eps)
        y = F.instance_norm(x.unsqueeze(0), None, None, scale if affine else None, shift if affine else None, True,
                            0.1, eps).squeeze(0)
        cases.append(case(name, "instance_norm", {"eps": eps, "affine": affine}, [x, scale, shift], [y]))
    return cases


def upsample_cases(g):
    cases = []
    # Several channels, so PyTorch takes its planar path (a one-channel tensor
    # also counts as channels-last there and takes another).
    for shape, (sy, sx) in [((2, 5, 7), (2, 2)), ((3, 4, 4), (1.5, 2.5)), ((2, 6, 5), (0.5, 0.75)),
                            ((2, 3, 9), (1.3, 0.6)), ((2, 4, 6), (3, 1)), ((2, 5, 3), (2.25, 3.7)),
                            ((2, 1, 4), (2, 2))]:
        x = torch.randn(*shape, generator=g)
        sy, sx = f32(sy), f32(sx)
        for mode, align in [("nearest", False), ("bilinear", False), ("bilinear", True)]:
            kw = {"mode": mode} if mode == "nearest" else {"mode": mode, "align_corners": align}
            y = F.interpolate(x.unsqueeze(0), scale_factor=(sy, sx), **kw).squeeze(0)
            name = "%s%s_%dx%dx%d_%gx%g" % (mode, "_align" if align else "", *shape, sy, sx)
            cases.append(case(name, "upsample", {"scale_y": sy, "scale_x": sx, "bilinear": mode == "bilinear",
                                                 "align_corner": align}, [x], [y]))
    return cases


def softmax_cases(g):
    cases = []
    for shape, dim, spread in [((10,), 0, 1), ((3, 17), 1, 1), ((3, 17), 0, 1), ((2, 3, 5), 0, 1), ((2, 3, 5), 1, 1),
                               ((2, 3, 5), 2, 1), ((4, 9, 11), 2, 1), ((4, 9, 11), 1, 1), ((2, 6, 19), 2, 60),
                               ((5, 33), 1, 30)]:
        x = torch.randn(*shape, generator=g) * spread
        y = torch.softmax(x, dim)
        cases.append(case("softmax_%s_dim%d_x%d" % ("x".join(map(str, shape)), dim, spread), "softmax", {"dim": dim},
                          [x], [y]))
    return cases


def clip_cases(g):
    x = torch.randn(3, 5, 7, generator=g) * 4
    x[0, 0, :3] = torch.tensor([-0.0, 0.0, 6.0])
    cases = []
    for lo, hi in [(0.0, 6.0), (-1.5, 2.25), (-float("inf"), 0.5), (1.0, 1.0)]:
        lo, hi = float(np.float16(lo)), float(np.float16(hi))
        # Bounds as text: JSON has no infinities.
        cases.append(case("clip_%g_%g" % (lo, hi), "clip", {"min": repr(lo), "max": repr(hi)}, [x],
                          [torch.clamp(x, lo, hi)]))
    return cases


def grid_sample_cases(g):
    x = torch.randn(3, 5, 7, generator=g)
    grid = (torch.rand(4, 6, 2, generator=g) * 2.6 - 1.3)
    grid[0, :3] = torch.tensor([[-1.0, -1.0], [1.0, 1.0], [0.0, 0.0]])
    one_row = torch.randn(2, 1, 4, generator=g)
    cases = []
    for mode in ["bilinear", "nearest"]:
        for padding in ["zeros", "border", "reflection"]:
            for align in [False, True]:
                y = F.grid_sample(x.unsqueeze(0), grid.unsqueeze(0), mode=mode, padding_mode=padding,
                                  align_corners=align).squeeze(0)
                params = {"mode": ["bilinear", "nearest"].index(mode),
                          "padding_mode": ["zeros", "border", "reflection"].index(padding), "align_corners": align}
                cases.append(case("%s_%s%s" % (mode, padding, "_align" if align else ""), "grid_sample", params,
                                  [x, grid], [y]))
                # A one-row input: with align_corners its reflection span is empty.
                y = F.grid_sample(one_row.unsqueeze(0), grid[:2].unsqueeze(0), mode=mode, padding_mode=padding,
                                  align_corners=align).squeeze(0)
                cases.append(case("%s_%s%s_one_row" % (mode, padding, "_align" if align else ""), "grid_sample",
                                  params, [one_row, grid[:2]], [y]))
    return cases


def adaptive_max_cases(g):
    cases = []
    for shape, out in [((2, 5, 5), [2, 2]), ((2, 7, 9), [3, 4]), ((1, 3, 5), [5, 7]), ((3, 6, 5), [1]),
                       ((2, 10, 3), [4, 3])]:
        x = torch.randn(*shape, generator=g)
        size = out * 2 if len(out) == 1 else out
        y = F.adaptive_max_pool2d(x.unsqueeze(0), size).squeeze(0)
        cases.append(case("adaptive_max_%s_to_%s" % ("x".join(map(str, shape)), "x".join(map(str, out))),
                          "adaptive_max_pool2d", {"output_size": out}, [x], [y]))
    return cases


def fake_quantize(v, clip, bits):
    """The layer's fixed-point grid: step clip / 2^(bits - 1), signed bits."""
    if bits == 0:
        return v
    step = float(np.float32(clip) / np.float32(2 ** (bits - 1)))
    return torch.fake_quantize_per_tensor_affine(v, step, 0, -2 ** (bits - 1), 2 ** (bits - 1) - 1)


def sqfc_cases(g):
    cases = []
    # (name, C, N, k, stride, pad, groups, bias, (w_clip, w_qbit), (b_clip, b_qbit), (a_clip, a_qbit), folded)
    setups = [("sqfc_k3_pow2_clips", 3, 4, 3, 1, 1, 1, True, (1, 8), (4, 8), (8, 8), False),
              ("sqfc_k3s2_odd_clips", 4, 6, 3, 2, 1, 2, True, (3, 6), (5, 10), (3, 7), False),
              ("sqfc_k1_float_output", 5, 3, 1, 1, 0, 1, False, (2, 4), (0, 0), (0, 0), False),
              ("sqfc_k1_saturating", 3, 2, 1, 1, 0, 1, True, (1, 3), (1, 3), (1, 4), False),
              ("sqfcbn_k3", 3, 4, 3, 1, 1, 1, True, (2, 8), (8, 12), (16, 8), True),
              ("sqfcbn_k3_no_bias", 2, 4, 3, 1, 0, 2, False, (1, 8), (4, 8), (4, 8), True)]
    for name, c, n, k, s, p, groups, bias, wq, bq, aq, folded in setups:
        x = torch.randn(c, 6, 7, generator=g)
        w = torch.randn(n, c // groups, k, k, generator=g) * 0.4
        b = torch.randn(n, generator=g) * 0.5 if bias else torch.zeros(n)
        params = {"in_channels": c, "out_channels": n, "kernel": k, "stride": s, "padding": p, "groups": groups,
                  "if_bias": bias, "w_clip": wq[0], "w_qbit": wq[1], "b_clip": bq[0], "b_qbit": bq[1],
                  "a_clip": aq[0], "a_qbit": aq[1], "folded": folded}
        inputs = [x, w, b]
        wf, bf = w.numpy(), b.numpy()
        if folded:
            eps = f32(1e-5)
            mean = torch.randn(n, generator=g)
            var = torch.rand(n, generator=g) + 0.2
            scale, shift = torch.randn(n, generator=g), torch.randn(n, generator=g)
            params["eps"] = eps
            inputs += [mean, var, scale, shift]
            # The fold in float32, one operation at a time as the layer does it.
            f = scale.numpy() / np.sqrt(var.numpy() + np.float32(eps))
            wf = wf * f.reshape(n, 1, 1, 1)
            bf = (bf - mean.numpy()) * f + shift.numpy()
        wq_t = fake_quantize(torch.from_numpy(np.ascontiguousarray(wf, np.float32)), *wq)
        bq_t = fake_quantize(torch.from_numpy(np.ascontiguousarray(bf, np.float32)), *bq)
        y = F.conv2d(x.unsqueeze(0), wq_t, bq_t if (bias or folded) else None, stride=s, padding=p,
                     groups=groups).squeeze(0)
        y = fake_quantize(y, *aq)
        cases.append(case(name, "sqfc_conv2d", params, inputs, [y]))
    return cases


def write(name, cases):
    os.makedirs(OUT, exist_ok=True)
    path = os.path.join(OUT, name + ".json")
    with open(path, "w") as f:
        json.dump({"generator": "tests/reference/make_resampling_reference.py", "torch": torch.__version__,
                   "cases": cases}, f, separators=(",", ":"))
        f.write("\n")
    print("%s: %d cases, %d bytes" % (os.path.relpath(path), len(cases), os.path.getsize(path)))


def main():
    torch.set_num_threads(1)
    g = torch.Generator().manual_seed(14)
    for name, make in [("batch_norm", batch_norm_cases), ("instance_norm", instance_norm_cases),
                       ("upsample", upsample_cases), ("softmax", softmax_cases), ("clip", clip_cases),
                       ("grid_sample", grid_sample_cases), ("adaptive_max_pool", adaptive_max_cases),
                       ("sqfc_conv2d", sqfc_cases)]:
        write(name, make(g))


if __name__ == "__main__":
    main()

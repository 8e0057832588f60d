"""Reference cases of the element kernels (activations, pooling, reductions).

Read by tests/reference/make_reference_data.py; writes element_activation,
element_pooling and element_arithmetic. Every pooling case is also run through
a numpy rendering of the library's own size and window rules; only cases where
PyTorch and those rules agree are kept (the deliberate differences are tested
by hand in the C++ tests).
"""
import math

import numpy as np
import torch
import torch.nn.functional as F

from make_reference_data import tensor


def half_exact(x):
    """Slopes travel as IEEE halves: keep only values a half holds exactly."""
    return float(np.float16(x))


def activation_cases():
    x = torch.linspace(-9.0, 9.0, 73, dtype=torch.float32)
    x = torch.cat([x, torch.tensor([-3.0, 3.0, 6.0, -0.0, 0.0, 1e-8, -1e-8, 2.9999998, -2.9999998])])
    alpha = half_exact(0.2)
    slope = 0.25
    ops = [
        ("relu", {}, F.relu(x)),
        ("relu6", {}, F.relu6(x)),
        ("sigmoid", {}, torch.sigmoid(x)),
        ("tanh", {}, torch.tanh(x)),
        ("hardsigmoid", {}, F.hardsigmoid(x)),
        ("hardswish", {}, F.hardswish(x)),
        ("leaky_relu", {"alpha": alpha}, F.leaky_relu(x, alpha)),
        ("prelu", {"slope": slope}, F.prelu(x, torch.tensor([slope]))),
    ]
    return [{"name": op, "op": op, "params": p, "inputs": [tensor(x)], "outputs": [tensor(y)]} for op, p, y in ops]


def system_max_pool(x, k, s, p, d, ceil):
    """numpy rendering of the library's max pooling (for case selection)."""
    c, h, w = x.shape
    fill = np.float32(-3.4028235e38)
    xp = np.full((c, h + p[0] + p[1], w + p[2] + p[3]), fill, np.float32)
    xp[:, p[0]:p[0] + h, p[2]:p[2] + w] = x
    hp, wp = xp.shape[1:]
    r = math.ceil if ceil else math.trunc
    oh = r(float(np.float32(hp - 1 - (k[0] - 1) * d[0]) / np.float32(s[0]))) + 1
    ow = r(float(np.float32(wp - 1 - (k[1] - 1) * d[1]) / np.float32(s[1]))) + 1
    out = np.empty((c, oh, ow), np.float32)
    for oy in range(oh):
        for ox in range(ow):
            rows = [min(oy * s[0] + ky * d[0], hp - 1) for ky in range(k[0])]
            cols = [min(ox * s[1] + kx * d[1], wp - 1) for kx in range(k[1])]
            out[:, oy, ox] = xp[:, rows][:, :, cols].reshape(c, -1).max(axis=1)
    return out


def pooling_cases():
    cases = []
    g = torch.Generator().manual_seed(6)

    def rnd(*shape):
        return torch.randn(*shape, generator=g, dtype=torch.float32)

    # (name, input shape, kernel (y, x), stride, padding (t, b, l, r), dilation, ceil_mode)
    max_setups = [
        ("max_k3s2_ceil_6x6", (2, 6, 6), (3, 3), (2, 2), (0, 0, 0, 0), (1, 1), True),
        ("max_k3s2_floor_6x6", (2, 6, 6), (3, 3), (2, 2), (0, 0, 0, 0), (1, 1), False),
        ("max_k3s2_p1_ceil", (3, 7, 9), (3, 3), (2, 2), (1, 1, 1, 1), (1, 1), True),
        ("max_k2s2", (2, 8, 7), (2, 2), (2, 2), (0, 0, 0, 0), (1, 1), False),
        ("max_k3x2_s1x2_dil2_p1", (2, 9, 10), (3, 2), (1, 2), (1, 1, 1, 1), (2, 2), False),
        ("max_k3_dil2_ceil", (1, 11, 12), (3, 3), (2, 2), (1, 1, 1, 1), (2, 2), True),
        ("max_k5s3_p2_ceil", (2, 10, 13), (5, 5), (3, 3), (2, 2, 2, 2), (1, 1), True),
    ]
    for name, shape, k, s, p, d, ceil in max_setups:
        x = rnd(*shape)
        y = F.max_pool2d(x.unsqueeze(0), k, s, (p[0], p[2]), d, ceil_mode=ceil).squeeze(0)
        mine = system_max_pool(x.numpy(), k, s, p, d, ceil)
        assert mine.shape == tuple(y.shape) and np.array_equal(mine, y.numpy()), name
        params = {"kernel_y": k[0], "kernel_x": k[1], "stride_y": s[0], "stride_x": s[1], "padding_t": p[0],
                  "padding_b": p[1], "padding_l": p[2], "padding_r": p[3], "dilation_y": d[0], "dilation_x": d[1],
                  "ceil_mode": int(ceil)}
        cases.append({"name": name, "op": "max_pool2d", "params": params, "inputs": [tensor(x)], "outputs": [tensor(y)]})

    # (name, shape, kernel, stride, padding (symmetric y, x), count_include_pad, ceil_mode given to the library)
    avg_setups = [
        ("avg_k3s2_p1_excl", (2, 4, 4), (3, 3), (2, 2), (1, 1), False, False),
        ("avg_k3s2_p1_incl", (2, 4, 4), (3, 3), (2, 2), (1, 1), True, False),
        ("avg_k3s2_p1_excl_7x6", (3, 7, 6), (3, 3), (2, 2), (1, 1), False, False),
        ("avg_k2s2", (2, 6, 8), (2, 2), (2, 2), (0, 0), True, False),
        ("avg_k3x5_s1x2_p1x2", (2, 7, 11), (3, 5), (1, 2), (1, 2), False, False),
        # ceil_mode is ignored by the library: the reference is PyTorch's floor result.
        ("avg_ceil_ignored", (2, 6, 6), (3, 3), (2, 2), (0, 0), True, True),
    ]
    for name, shape, k, s, p, incl, ceil in avg_setups:
        x = rnd(*shape)
        y = F.avg_pool2d(x.unsqueeze(0), k, s, p, ceil_mode=False, count_include_pad=incl).squeeze(0)
        params = {"kernel_y": k[0], "kernel_x": k[1], "stride_y": s[0], "stride_x": s[1], "padding_t": p[0],
                  "padding_b": p[0], "padding_l": p[1], "padding_r": p[1], "count_include_pad": int(incl),
                  "ceil_mode": int(ceil)}
        cases.append({"name": name, "op": "avg_pool2d", "params": params, "inputs": [tensor(x)], "outputs": [tensor(y)]})
    ceil_y = F.avg_pool2d(rnd(2, 6, 6).unsqueeze(0), 3, 2, 0, ceil_mode=True)
    assert ceil_y.shape[-1] == 3  # PyTorch would grow the output; the library keeps 2

    for name, shape, out in [("adaptive_5x5_to_2x2", (2, 5, 5), (2, 2)), ("adaptive_7x9_to_3x4", (2, 7, 9), (3, 4)),
                             ("adaptive_identity", (1, 4, 4), (4, 4)), ("adaptive_up_3x5_to_5x7", (2, 3, 5), (5, 7)),
                             ("adaptive_to_1x1", (3, 6, 5), (1, 1))]:
        x = rnd(*shape)
        y = F.adaptive_avg_pool2d(x.unsqueeze(0), out).squeeze(0)
        cases.append({"name": name, "op": "adaptive_avg_pool2d", "params": {"output_size": list(out)},
                      "inputs": [tensor(x)], "outputs": [tensor(y)]})
    return cases


def arithmetic_cases():
    g = torch.Generator().manual_seed(7)
    x = torch.randn(3, 4, 5, generator=g, dtype=torch.float32)
    cases = []
    for name, op, dims in [("sum_axis1", "sum", [1]), ("sum_axes_0_2", "sum", [0, 2]), ("mean_last", "mean", [-1]),
                           ("mean_axes_neg3_1", "mean", [-3, 1]), ("sum_all_empty_list", "sum", [])]:
        f = torch.sum if op == "sum" else torch.mean
        y = f(x, dim=dims if dims else [0, 1, 2], keepdim=True)
        cases.append({"name": name, "op": op, "params": {"dim": dims}, "inputs": [tensor(x)], "outputs": [tensor(y)]})
    return cases


def make_cases():
    return {"element_activation": activation_cases(), "element_pooling": pooling_cases(),
            "element_arithmetic": arithmetic_cases()}

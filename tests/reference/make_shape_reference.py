#!/usr/bin/python3
"""Regenerates the PyTorch fixtures of the shape kernels (reshape, squeeze,
unsqueeze, transpose, expand, slice, get-item, concatenation, padding, pixel
shuffle, space-to-depth, Gemm).

Run with Debian's Python (it sees python3-torch; on a fresh machine run
`bash scripts/deps.sh reference` first):
    /usr/bin/python3 tests/reference/make_shape_reference.py

Writes tests/data/reference/shape/<operation>.json in the format of
make_reference_data.py (read by tests/reference/reference_data.h). Tensors
carry no batch axis, as the runtime's do; every record field is the
runtime's: dims index the tensor's own dims.
"""
import json
import os

import numpy as np
import torch
import torch.nn.functional as F

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "data", "reference", "shape")


def tensor(t):
    a = t.detach().cpu().numpy() if isinstance(t, torch.Tensor) else np.asarray(t)
    a = np.ascontiguousarray(a.astype(np.float32))
    return {"shape": list(a.shape), "data": [float("%.9g" % v) for v in a.reshape(-1)]}


def rand(*shape):
    # Values on a 1/16 grid: exact in float, easy to read in a failure.
    return torch.randint(-64, 64, shape).float() / 16.0


def case(op, params, inputs, outputs):
    name = "%s_%d" % (op, case.count.setdefault(op, 0))
    case.count[op] += 1
    return {"name": name, "op": op, "params": params, "inputs": [tensor(t) for t in inputs],
            "outputs": [tensor(t) for t in outputs]}


case.count = {}


def reshape_target(shape, new_shape):
    """The record's rule: 0 copies the input dim, -1 is inferred."""
    dims = [shape[i] if d == 0 else d for i, d in enumerate(new_shape)]
    return dims


def reshape_cases():
    out = []
    for shape, new_shape in [((2, 3, 4), [4, -1]), ((2, 3, 4), [0, 12]), ((2, 3, 4), [0, 0, -1, 2]),
                             ((6,), [2, 1, 3]), ((2, 3, 4), [-1]), ((1,), [])]:
        x = rand(*shape)
        y = x.reshape(reshape_target(shape, new_shape)) if new_shape else x.reshape(1)
        out.append(case("reshape", {"new_shape": new_shape}, [x], [y]))
    return out


def squeeze_cases():
    out = []
    for shape, dim in [((1, 3, 4), 0), ((3, 1, 4), -2), ((3, 4), 1), ((2, 3, 1), -1)]:
        x = rand(*shape)
        out.append(case("squeeze", {"dim": dim}, [x], [x.squeeze(dim)]))
    for shape, dim in [((3, 4), 0), ((3, 4), 2), ((3, 4), -1), ((3, 4), -3), ((5,), 1)]:
        x = rand(*shape)
        out.append(case("unsqueeze", {"dim": dim}, [x], [x.unsqueeze(dim)]))
    return out


def transpose_cases():
    out = []
    for shape, axes in [((2, 3, 4), [0, 2, 1]), ((2, 3, 4), [2, 0, 1]), ((2, 3, 4, 5), [3, 1, 0, 2]),
                        ((1, 3, 1, 4), [2, 1, 0, 3]), ((3, 5), [1, 0]), ((7,), [0])]:
        x = rand(*shape)
        out.append(case("transpose", {"axes": axes}, [x], [x.permute(*axes)]))
    return out


def expand_cases():
    out = []
    for shape, new_shape in [((3, 1, 1), [3, 4, 5]), ((1, 4), [2, 3, -1]), ((3, 1, 5), [-1, 2, -1]),
                             ((1,), [6]), ((2, 1), [2, 1])]:
        x = rand(*shape)
        out.append(case("expand", {"new_shape": new_shape}, [x], [x.expand(*new_shape).contiguous()]))
    return out


def slice_cases():
    out = []
    groups = [
        ((4, 6, 5), [0, 1, 3, 1]),
        ((4, 6, 5), [1, -4, 32767, 2, 2, 0, 5, 3]),
        ((4, 6, 5), [-1, 1, 100, 1]),
        ((4, 6, 5), [0, -100, -1, 1]),
        ((8,), [0, 2, 7, 4]),
    ]
    for shape, dims in groups:
        x = rand(*shape)
        index = [slice(None)] * len(shape)
        for g in range(0, len(dims), 4):
            d, start, end, step = dims[g:g + 4]
            index[d] = slice(start, None if end == 32767 else end, step)
        out.append(case("slice", {"slice_dims": dims}, [x], [x[tuple(index)]]))
    return out


def getitem_cases():
    """Samplings as (type, data): 0 whole, 1 index, 2 range, 3 list."""
    out = []
    specs = [
        ((4, 5, 6), [(1, [2])]),
        ((4, 5, 6), [(0, []), (1, [-1])]),
        ((4, 5, 6), [(2, [1, 32767, 2]), (3, [4, 0, 4])]),
        ((4, 5, 6), [(3, [3, 1]), (0, []), (2, [-4, -1, 1])]),
        ((4, 5, 6), [(1, [0]), (1, [1]), (3, [5, 2])]),
        ((3,), [(1, [-2])]),
    ]
    for shape, samplings in specs:
        x = rand(*shape)
        y = x
        d = 0
        for kind, data in samplings:
            if kind == 0:
                d += 1
            elif kind == 1:
                y = y.select(d, data[0])
            elif kind == 2:
                index = [slice(None)] * y.dim()
                index[d] = slice(data[0], None if data[1] == 32767 else data[1], data[2])
                y = y[tuple(index)]
                d += 1
            else:
                y = y.index_select(d, torch.tensor([i % x.shape[samplings.index((kind, data))] for i in data]))
                d += 1
        if y.dim() == 0:
            y = y.reshape(1)
        out.append(case("getitem", {"samplings": [{"type": k, "data": v} for k, v in samplings]}, [x], [y]))
    return out


def concat_cases():
    out = []
    specs = [
        (0, [(3, 4, 5), (5, 4, 5)]),
        (0, [(1, 2, 3), (6, 2, 3), (2, 2, 3)]),
        (1, [(2, 3, 4), (2, 1, 4)]),
        (2, [(2, 3, 4), (2, 3, 2), (2, 3, 1)]),
        (65535, [(2, 3), (2, 5)]),  # -1 in the unsigned field
        (0, [(7,), (2,)]),
    ]
    for dim, shapes in specs:
        xs = [rand(*s) for s in shapes]
        d = dim - 65536 if dim >= 32768 else dim
        out.append(case("concat", {"dim": dim}, xs, [torch.cat(xs, d)]))
    # Channel counts that are not multiples of a block, for the blocked layouts.
    for channels in [(3, 6, 2), (4, 5), (7, 1, 9), (8, 8), (1, 1, 1, 1, 1)]:
        xs = [rand(c, 3, 5) for c in channels]
        out.append(case("concat", {"dim": 0}, xs, [torch.cat(xs, 0)]))
    return out


def pad_cases():
    out = []
    for shape, pads, value in [((3, 5), (2, 1), 0.0), ((2, 3, 4), (-1, 2), 1.5), ((6,), (0, -2), -2.0),
                               ((2, 4), (-3, 0), 0.0)]:
        x = rand(*shape)
        out.append(case("pad1d", {"padding_l": pads[0], "padding_r": pads[1], "padding_v": value}, [x],
                        [F.pad(x, pads, value=value)]))
    for shape, pads, value in [((3, 4, 5), (1, 1, 1, 1), 0.0), ((2, 4, 5), (2, 0, 1, 3), -1.25),
                               ((5, 6, 7), (-1, 2, -2, 1), 0.5), ((2, 3, 3), (0, -1, 0, -2), 0.0),
                               ((3, 4), (1, 2, 3, 0), 2.0), ((9, 2, 3), (3, 1, 0, 2), 0.75)]:
        x = rand(*shape)
        # F.pad's order: (left, right, top, bottom).
        params = {"padding_l": pads[0], "padding_r": pads[1], "padding_t": pads[2], "padding_b": pads[3],
                  "padding_v": value}
        out.append(case("pad2d", params, [x], [F.pad(x, pads, value=value)]))
    return out


def pixel_cases():
    out = []
    for c, h, w, r in [(4, 3, 5, 2), (18, 2, 3, 3), (32, 2, 9, 4), (2, 3, 4, 1), (8, 1, 1, 2)]:
        x = rand(c, h, w)
        out.append(case("pixel_shuffle", {"upscale_factor": r}, [x], [F.pixel_shuffle(x, r)]))
    for c, h, w, b in [(3, 4, 6, 2), (2, 6, 3, 3), (1, 4, 4, 4), (5, 2, 2, 1)]:
        x = rand(c, h, w)
        # ONNX SpaceToDepth: output channel (by * b + bx) * C + c.
        y = x.reshape(c, h // b, b, w // b, b).permute(2, 4, 0, 1, 3).reshape(c * b * b, h // b, w // b)
        out.append(case("space_to_depth", {"scale_factor": b}, [x], [y]))
    return out


def gemm_cases():
    out = []
    specs = [
        (3, 4, 5, False, False, 1.0, 1.0, None),
        (3, 4, 5, True, False, 0.5, 2.0, (5,)),
        (2, 7, 3, False, True, 1.0, 0.5, (2, 3)),
        (4, 2, 6, True, True, -1.5, 1.0, (4, 1)),
        (1, 9, 1, False, False, 2.0, -1.0, (1,)),
        (5, 3, 4, False, False, 1.0, 0.0, (1, 4)),
    ]
    for m, k, n, ta, tb, alpha, beta, c_shape in specs:
        a = rand(k, m) if ta else rand(m, k)
        b = rand(n, k) if tb else rand(k, n)
        y = alpha * ((a.t() if ta else a) @ (b.t() if tb else b))
        inputs = [a, b]
        if c_shape is not None:
            c = rand(*c_shape)
            inputs.append(c)
            y = y + beta * c if beta != 0 else y
        params = {"trans_a": ta, "trans_b": tb, "alpha": alpha, "beta": beta}
        out.append(case("gemm", params, inputs, [y]))
    return out


def write(name, cases):
    os.makedirs(OUT, exist_ok=True)
    path = os.path.join(OUT, name + ".json")
    with open(path, "w") as f:
        json.dump({"generator": "tests/reference/make_shape_reference.py", "torch": torch.__version__,
                   "cases": cases}, f, separators=(",", ":"))
        f.write("\n")
    print("%s: %d cases, %d bytes" % (path, len(cases), os.path.getsize(path)))


def main():
    torch.manual_seed(0)
    torch.set_num_threads(1)
    write("views", reshape_cases() + squeeze_cases())
    write("gathers", transpose_cases() + expand_cases() + slice_cases() + getitem_cases())
    write("concat", concat_cases())
    write("pad", pad_cases())
    write("pixel", pixel_cases())
    write("gemm", gemm_cases())


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Writes the seeds of fuzz_net: the demo package and variants of it that
route its layers through other kernel families, blocked layouts with
converters, and the other fully connected and pooling members; a recurrent
package (stacks and cells of every family, sized for the fuzzer's inputs) and
hostile variants of it that every recurrent kernel must refuse cleanly; nets
through every depthwise and transposed member and hostile records of them;
nets of the normalisation, upsampling, softmax, clip, grid-sampling, adaptive
max pooling and quantisation-trained convolution layers, and one net per
record of those layers that does not fit its input; variants with side
branches of shape layers (reshape, transpose, squeeze, expand, slice,
get-item, concatenation, padding, pixel shuffle, space-to-depth, Gemm), valid
ones and ones whose records do not fit their inputs.

    /usr/bin/python3 fuzz/make_net_seeds.py
"""
import base64
import copy
import json
import math
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
SEEDS = os.path.join(HERE, "seeds", "fuzz_net")
DEMO = os.path.join(HERE, "..", "examples", "models", "tiny_cnn.json")


def kernel(name):
    return {"kernel_type": name, "infer_param_type": "none", "infer_param": {}}


def with_kernels(pkg, choice):
    pkg = copy.deepcopy(pkg)
    cfg = pkg["config_arr"]["tiny_cnn"]["cpu_sse"]
    for layer_id, name in choice.items():
        cfg[layer_id]["kernel"]["0"] = kernel(name)
    return pkg


def with_converters(pkg, layer_id, name, before, after):
    pkg = copy.deepcopy(pkg)
    layer = pkg["config_arr"]["tiny_cnn"]["cpu_sse"][layer_id]
    layer["kernel"]["0"] = kernel(name)
    layer["input_converters"] = {"kernel_ids": ["1"], "1": kernel(before)}
    layer["output_converters"] = {"kernel_ids": ["07"], "07": kernel(after)}
    return pkg


# ---------------------------------------------------------------- depthwise and transposed convolutions

def floats(count, scale=0.1):
    """Base64 of `count` little-endian floats (a weight blob)."""
    import base64
    import struct
    return base64.b64encode(struct.pack("<%df" % count, *[scale * ((i * 7) % 11 - 5) for i in range(count)])).decode()


def conv_layer(layer_id, inputs, c, n, k, s, pad, groups, dilation=1, record="Conv2dInfo", weight=None, bias=True):
    layer = {"serializable_type": record, "type": 2 if record == "Conv2dInfo" else 3, "id": layer_id,
             "input_ids": inputs, "read_count": 0, "in_channels": c, "out_channels": n, "kernel_x": k, "kernel_y": k,
             "padding_l": pad[0], "padding_t": pad[2], "padding_r": pad[1], "padding_b": pad[3], "stride_x": s,
             "stride_y": s, "dilation_x": dilation, "dilation_y": dilation, "groups": groups, "if_bias": bias}
    per_group = (c // groups if record == "Conv2dInfo" else n // groups) if groups else 1
    count = (n if record == "Conv2dInfo" else c) * per_group * k * k
    layer["weight"] = floats(count) if weight is None else weight
    layer["bias"] = floats(n) if bias else ""
    return layer


def layer_cfg(kernel_name, converters=None):
    cfg = {"summary": "", "input_converters": {"kernel_ids": []}, "kernel": {"kernel_ids": ["0"], "0": kernel(kernel_name)},
           "output_converters": {"kernel_ids": []}}
    if converters:
        cfg["input_converters"] = {"kernel_ids": ["1"], "1": kernel(converters[0])}
        cfg["output_converters"] = {"kernel_ids": ["07"], "07": kernel(converters[1])}
    return cfg


def depthwise_net(demo, layers, kernels, converters=None):
    """The demo package with its network replaced: image -> conv1 (3 -> 8) ->
    `layers` (each reading the one before), run by `kernels`; `converters`
    maps a layer id to the layout converters around it."""
    pkg = copy.deepcopy(demo)
    net = pkg["model_arr"]["tiny_cnn"]
    cfg = pkg["config_arr"]["tiny_cnn"]["cpu_sse"]
    image, conv1 = net["image"], conv_layer("conv1", ["image"], 3, 8, 3, 1, (1, 1, 1, 1), 1)
    records = [image, conv1] + layers
    names = ["Input_Fallback_M1", "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1"] + kernels
    for key in list(net.keys()):
        if key in net["squential_ids"]:
            del net[key]
    for key in list(cfg.keys()):
        if key in cfg["squential_ids"]:
            del cfg[key]
    net["squential_ids"] = [r["id"] for r in records]
    net["squential_types"] = [r["type"] for r in records]
    net["squential_output_ids"] = [records[-1]["id"]]
    cfg["squential_ids"] = list(net["squential_ids"])
    for record, name in zip(records, names):
        net[record["id"]] = record
        cfg[record["id"]] = layer_cfg(name, (converters or {}).get(record["id"]))
    return pkg


def depthwise_variants(demo):
    """Nets through every depthwise and transposed member, and hostile records:
    extreme strides, paddings and output sizes, weight blobs of the wrong
    length, huge channel counts."""
    to4 = ("LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2", "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1")
    to8 = ("LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2")
    dw = lambda i, prev, k=3, s=1, c=8, **kw: conv_layer(i, [prev], c, c, k, s, (k // 2,) * 4, c, **kw)
    up = lambda i, prev, s=2, pad=(1, 0, 1, 0), c=8, n=4, k=3, **kw: conv_layer(
        i, [prev], c, n, k, s, pad, kw.pop("groups", 1), record="ConvTranspose2dInfo", **kw)
    v = {}
    v["depthwise_chw"] = depthwise_net(demo, [dw("dw1", "conv1"), dw("dw2", "dw1", s=2), up("up", "dw2")], [
        "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1", "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1",
        "ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1"])
    v["depthwise_c4hw4"] = depthwise_net(
        demo, [dw("dw1", "conv1"), dw("dw2", "dw1", s=2), dw("dw3", "dw2"), up("up", "dw3", s=3, pad=(1, -1, 0, 2))],
        ["Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1", "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1",
         "Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1", "ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1"],
        {"dw1": to4, "dw2": to4, "dw3": to4, "up": to4})
    v["depthwise_c8hw8"] = depthwise_net(
        demo, [dw("dw1", "conv1", k=5), dw("dw2", "dw1", k=5, s=2), dw("dw3", "dw2"), dw("dw4", "dw3", s=2),
               up("up", "dw4", s=1, pad=(0, 0, 0, 0))],
        ["Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", "Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1",
         "Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", "Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1",
         "ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1"],
        {"dw1": to8, "dw2": to8, "dw3": to8, "dw4": to8, "up": to8})
    fallback = "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"
    v["transposed_fallback"] = depthwise_net(
        demo, [up("up1", "conv1", k=4, groups=2, dilation=2, pad=(2, -3, 1, 0)), up("up2", "up1", c=4, n=6, s=3, k=2,
                                                                                  pad=(-2, 5, 0, 0))],
        [fallback, fallback])
    # Hostile records, each in front of the member that must refuse it.
    hostile = [
        ("stride_65535", dw("dw", "conv1", s=2), "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1", {"stride_x": 65535, "stride_y": 65535}),
        ("padding_65535", dw("dw", "conv1"), "Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", {"padding_l": 65535, "padding_b": 65535}),
        ("weight_short", dw("dw", "conv1"), "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1", {"weight": floats(8 * 9 - 1)}),
        ("weight_long", up("up", "conv1"), "ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1", {"weight": floats(8 * 4 * 9 + 3)}),
        ("channels_65535", dw("dw", "conv1"), "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
         {"in_channels": 65535, "out_channels": 65535, "groups": 65535}),
        ("transposed_channels_65535", up("up", "conv1"), fallback, {"in_channels": 65535, "out_channels": 65535}),
        ("transposed_empty_output", up("up", "conv1"), "ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1",
         {"padding_l": 32767, "padding_r": 32767}),
        ("transposed_huge_output", up("up", "conv1"), fallback,
         {"padding_l": -32768, "padding_t": -32768, "padding_r": -32768, "padding_b": -32768}),
        ("transposed_stride_65535", up("up", "conv1"), "ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1",
         {"stride_x": 65535, "stride_y": 65535}),
        ("transposed_zero_stride", up("up", "conv1"), fallback, {"stride_y": 0}),
        ("transposed_dilation_65535", up("up", "conv1"), fallback, {"dilation_x": 65535}),
    ]
    for name, record, member, changes in hostile:
        record.update(changes)
        v["hostile_" + name] = depthwise_net(demo, [record], [member])
    return v
def seeded_floats(n, seed):
    """n deterministic floats in (-0.5, 0.5) as a base64 weight blob."""
    values = [0.5 * math.sin(seed * 7.31 + i * 0.917) for i in range(n)]
    return base64.b64encode(struct.pack("<%df" % n, *values)).decode()


RECURRENT_TYPES = {"RNNCellInfo": 33, "RNNInfo": 34, "LSTMCellInfo": 35, "LSTMInfo": 36, "GRUCellInfo": 37,
                   "GRUInfo": 38}
GATES = {"RNN": 1, "LSTM": 4, "GRU": 3}


def recurrent_record(kind, layer_id, inputs, in_size, hidden, layers=None, bidirectional=False, seed=1):
    """A cell record (layers None) or a stack record of `kind` (RNN, LSTM, GRU), with bias."""
    cell = layers is None
    cls = kind + ("CellInfo" if cell else "Info")
    rec = {"serializable_type": cls, "type": RECURRENT_TYPES[cls], "id": layer_id, "input_ids": inputs,
           "read_count": 0, "in_size": in_size, "hidden_size": hidden, "if_bias": True}
    if kind == "RNN":
        rec.update({"activation_type": 5, "activation_alpha": 1.0, "activation_beta": 0.0})
    rows = GATES[kind] * hidden
    if cell:
        rec.update({"weight_ih": seeded_floats(rows * in_size, seed), "weight_hh": seeded_floats(rows * hidden, seed + 1),
                    "bias_ih": seeded_floats(rows, seed + 2), "bias_hh": seeded_floats(rows, seed + 3)})
        return rec
    rec.update({"num_layers": layers, "bidirectional": bidirectional, "complex_rnn_type": 0})
    dirs = 2 if bidirectional else 1
    for d, suffix in enumerate(["forward", "reverse"]):
        for key in ("weight_ih", "weight_hh", "bias_ih", "bias_hh"):
            rec["%s_%s" % (key, suffix)] = []
        if d >= dirs:
            continue
        for layer in range(layers):
            width = in_size if layer == 0 else dirs * hidden
            base = seed + 10 * layer + 5 * d
            rec["weight_ih_" + suffix].append(seeded_floats(rows * width, base))
            rec["weight_hh_" + suffix].append(seeded_floats(rows * hidden, base + 1))
            rec["bias_ih_" + suffix].append(seeded_floats(rows, base + 2))
            rec["bias_hh_" + suffix].append(seeded_floats(rows, base + 3))
    return rec


def recurrent_package(demo, family):
    """Two networks: "recurrent", an input feeding LSTM, GRU and RNN stacks of
    8 features per step (the fuzzer's [3, 8, 8] input is 24 steps) and a
    second LSTM reading the first's outputs and states; "recurrent_cells",
    the three cells on the fuzzer's 16-float input."""
    names = {
        "lstm": "LSTM_%s_SC_F32_M1", "lstm2": "LSTM_%s_SC_F32_M1", "gru": "GRU_%s_SC_F32_M1",
        "rnn": "RNN_%s_SC_F32_M1", "rnn_cell": "RNNCell_%s_C_F32_M1", "lstm_cell": "LSTMCell_%s_C_F32_M1",
        "gru_cell": "GRUCell_%s_C_F32_M1"}
    x = {"serializable_type": "InputInfo", "type": 0, "id": "x", "input_ids": [], "read_count": 0, "location": 0}
    networks = {
        "recurrent": [
            x,
            recurrent_record("LSTM", "lstm", ["x"], 8, 6, 2, True, 1),
            recurrent_record("LSTM", "lstm2", ["lstm"], 12, 6, 2, True, 40),
            recurrent_record("GRU", "gru", ["x"], 8, 5, 1, False, 80),
            recurrent_record("RNN", "rnn", ["x"], 8, 7, 3, True, 120),
        ],
        "recurrent_cells": [
            x,
            recurrent_record("RNN", "rnn_cell", ["x"], 16, 5, seed=160),
            recurrent_record("LSTM", "lstm_cell", ["x"], 16, 4, seed=170),
            recurrent_record("GRU", "gru_cell", ["x"], 16, 3, seed=180),
        ],
    }
    pkg = {k: v for k, v in demo.items() if k not in ("model_arr", "config_arr")}
    pkg["model_arr"] = {"serializable_type": "TRModelInfoArr", "squential_ids": list(networks)}
    pkg["config_arr"] = {"squential_ids": list(networks)}
    for net, layers in networks.items():
        ids = [l["id"] for l in layers]
        model = {"serializable_type": "TRModelInfo", "squential_output_ids": ids[1:],
                 "extra_info": demo["model_arr"]["tiny_cnn"]["extra_info"], "squential_ids": ids,
                 "squential_types": [l["type"] for l in layers]}
        cfg = {"summary": "cpu_sse", "squential_ids": ids}
        for l in layers:
            model[l["id"]] = l
            name = "Input_Fallback_M1" if l["id"] == "x" else names[l["id"]] % family
            if family == "SSE_SGEMM":
                # Only the GRU pair combines the two; the rest take the CBLAS members.
                name = name.replace("_M1", "_M2") if l["id"].startswith("gru") else name.replace("SSE_SGEMM", "SGEMM")
            cfg[l["id"]] = {"summary": "", "input_converters": {"kernel_ids": []},
                            "kernel": {"kernel_ids": ["0"], "0": kernel(name)},
                            "output_converters": {"kernel_ids": []}}
        backends = copy.deepcopy(demo["config_arr"]["tiny_cnn"])
        backends["cpu_sse"] = cfg
        pkg["model_arr"][net] = model
        pkg["config_arr"][net] = backends
    return pkg


def hostile_recurrent(pkg):
    """Variants of the recurrent package that the kernels must refuse."""
    def edit(layer_id, change):
        bad = copy.deepcopy(pkg)
        net = "recurrent_cells" if layer_id.endswith("_cell") else "recurrent"
        change(bad["model_arr"][net][layer_id])
        return bad

    def truncate(key):
        def change(rec):
            blob = rec[key][0] if isinstance(rec[key], list) else rec[key]
            short = blob[:-8]
            if isinstance(rec[key], list):
                rec[key][0] = short
            else:
                rec[key] = short
        return change

    return {
        "rnn_short_weight": edit("lstm", truncate("weight_hh_reverse")),
        "rnn_short_cell_bias": edit("gru_cell", truncate("bias_ih")),
        "rnn_hidden_0": edit("gru", lambda r: r.update({"hidden_size": 0})),
        "rnn_layers_0": edit("rnn", lambda r: r.update({"num_layers": 0})),
        "rnn_huge": edit("lstm", lambda r: r.update({"hidden_size": 65535, "in_size": 65535, "num_layers": 65535})),
        "rnn_no_reverse": edit("gru", lambda r: r.update({"bidirectional": True})),
        "rnn_complex": edit("lstm2", lambda r: r.update({"complex_rnn_type": 3})),
        "rnn_activation": edit("rnn_cell", lambda r: r.update({"activation_type": 3})),
    }
# Normalisation, resampling, softmax, clip, grid sampling and SQFC layers.

def float_blob(values):
    return base64.b64encode(struct.pack("<%df" % len(values), *values)).decode()


def layer(cls, code, lid, inputs, **fields):
    d = {"serializable_type": cls, "type": code, "id": lid, "input_ids": inputs, "read_count": 0}
    d.update(fields)
    return d


def image():
    return layer("InputInfo", 0, "image", [], location=0)


def batch_norm(lid, inputs, c=3, mean=None, var=None, cls="BatchNorm2dInfo", code=9):
    return layer(cls, code, lid, inputs, num_features=c, eps=1e-5, momentum=0.1, if_affine=True,
                 if_track_running_stats=True, scale=float_blob([1.5 - 0.5 * k for k in range(c)]),
                 shift=float_blob([0.1 * k for k in range(c)]),
                 variance=float_blob(var if var is not None else [0.5 + k for k in range(c)]),
                 mean=float_blob(mean if mean is not None else [0.2 * k for k in range(c)]), num_batches_tracked=0)


def instance_norm(lid, inputs, eps=1e-5):
    return layer("InstanceNorm2dInfo", 8, lid, inputs, num_features=3, eps=eps, momentum=0.1, if_affine=True,
                 if_track_running_stats=False, scale=float_blob([1, 2, 3]), shift=float_blob([0, -1, 1]))


def upsample(lid, inputs, sy, sx, mode, align=False):
    return layer("Upsample2dInfo", 10, lid, inputs, scale_factor_y=sy, scale_factor_x=sx, align_corner=align,
                 unsample_type=mode)


def clip(lid, inputs, lo, hi):
    return layer("ClipInfo", 31, lid, inputs, minimum_value=lo, maximum_value=hi)


def adaptive_max(lid, inputs, size):
    return layer("AdaptiveMaxPool2dInfo", 27, lid, inputs, output_size=size)


def softmax(lid, inputs, dim):
    return layer("SoftmaxInfo", 32, lid, inputs, dim=dim)


def grid_sample(lid, inputs, mode, padding, align):
    return layer("GridSampleInfo", 44, lid, inputs, mode=mode, padding_mode=padding, align_corners=align)


def sqfc(lid, inputs, folded=False, w_qbit=8):
    fields = dict(in_channels=3, out_channels=2, kernel_x=3, kernel_y=3, padding_l=1, padding_t=1, padding_r=1,
                  padding_b=1, stride_x=1, stride_y=1, dilation_x=1, dilation_y=1, groups=1, if_bias=True, w_clip=1,
                  b_clip=4, a_clip=8, w_qbit=w_qbit, b_qbit=8, a_qbit=8,
                  weight=float_blob([0.05 * ((k * 7) % 11 - 5) for k in range(54)]), bias=float_blob([0.25, -0.5]))
    if not folded:
        return layer("SQFCConv2dInfo", 23, lid, inputs, **fields)
    fields.update(eps=1e-5, momentum=0.1, if_affine=True, if_track_running_stats=True, scale=float_blob([1.0, 0.5]),
                  shift=float_blob([0.0, 0.25]), variance=float_blob([1.0, 2.0]), mean=float_blob([0.1, -0.1]))
    return layer("SQFCConv2dFoldedBNInfo", 24, lid, inputs, **fields)


def resampling_net(demo, layers, kernels, converters=None):
    """The demo package with its net replaced by `layers`, run by `kernels`;
    converters: {layer id: (side, kernel)} for "in" / "out" layout transforms."""
    pkg = copy.deepcopy(demo)
    model = pkg["model_arr"]["tiny_cnn"]
    for lid in model["squential_ids"]:
        del model[lid]
    model["squential_ids"] = [l["id"] for l in layers]
    model["squential_types"] = [l["type"] for l in layers]
    model["squential_output_ids"] = [layers[-1]["id"]]
    for l in layers:
        model[l["id"]] = l
    cfg = pkg["config_arr"]["tiny_cnn"]["cpu_sse"]
    template = copy.deepcopy(cfg["image"])
    for lid in cfg["squential_ids"]:
        del cfg[lid]
    cfg["squential_ids"] = list(model["squential_ids"])
    for l, name in zip(layers, kernels):
        entry = copy.deepcopy(template)
        entry["kernel"]["0"] = kernel(name)
        cfg[l["id"]] = entry
    for lid, (side, name) in (converters or {}).items():
        arr = cfg[lid]["input_converters" if side == "in" else "output_converters"]
        arr["kernel_ids"].append("1")
        arr["1"] = kernel(name)
    return pkg


def resampling_variants(demo):
    chain = [image(), batch_norm("bn", ["image"]), instance_norm("in", ["bn"]), upsample("up", ["in"], 2.0, 1.5, 1),
             clip("clip", ["up"], -1.0, 1.5), adaptive_max("grid", ["clip"], [4, 2]),
             grid_sample("sample", ["image", "grid"], 0, 2, False), softmax("softmax", ["sample"], 0),
             sqfc("sqfc", ["image"]), sqfc("sqfc_bn", ["image"], folded=True)]
    fallback = ["Input_Fallback_M1", "BatchNorm2D_Fallback_CHW_Float_M1", "InstanceNorm2D_Fallback_CHW_Float_M1",
                "Upsampling2D_Fallback_CHW_Float_M1", "Clip_Fallback_Float_M1",
                "AdaptivePooling2D_Max_Fallback_CHW_Float_M1", "GridSample_Fallback_CHW_Float_M1",
                "Softmax_Fallback_Float_M1", "SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
                "SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"]
    vector = {"sse": ["BatchNorm2D_SSE_CHW_Float_M1", "InstanceNorm2D_SSE_CHW_Float_M1",
                      "Upsampling2D_SSE_CHW_Float_M1", "Clip_SSE_Float_M1", "Softmax_SSE_Float_M1"],
              "avx": ["BatchNorm2D_AVX_CHW_Float_M1", "InstanceNorm2D_AVX_CHW_Float_M1",
                      "Upsampling2D_AVX_CHW_Float_M1", "Clip_AVX_Float_M1", "Softmax_AVX_Float_M1"]}
    seeds = {"resampling_fallback": resampling_net(demo, chain, fallback)}
    for family, names in vector.items():
        kernels = list(fallback)
        for i, name in zip([1, 2, 3, 4, 7], names):
            kernels[i] = name
        seeds["resampling_" + family] = resampling_net(demo, chain, kernels)
    # Batch norm of a vector: the 16-float input of the fuzz target.
    seeds["resampling_bn1d"] = resampling_net(
        demo, [image(), batch_norm("bn1d", ["image"], c=16, cls="BatchNorm1dInfo", code=30)],
        ["Input_Fallback_M1", "BatchNorm1D_Fallback_CL_Float_M1"])
    # Blocked members between layout transforms.
    blocked = [image(), batch_norm("bn4", ["image"]), upsample("up4", ["bn4"], 2.0, 2.0, 1),
               batch_norm("bn8", ["up4"]), adaptive_max("grid", ["image"], [4, 2]),
               grid_sample("sample8", ["bn8", "grid"], 0, 0, True), upsample("up8", ["sample8"], 1.5, 2.0, 0)]
    seeds["resampling_blocked"] = resampling_net(
        demo, blocked, ["Input_Fallback_M1", "BatchNorm2D_SSE_C4HW4_Float_M1", "Upsampling2D_SSE_C4HW4_Float_M1",
                        "BatchNorm2D_AVX_C8HW8_Float_M1", "AdaptivePooling2D_Max_Fallback_CHW_Float_M1",
                        "GridSample_AVX_C8HW8_Float_M1", "Upsampling2D_AVX_C8HW8_Float_M1"],
        {"bn4": ("in", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2"),
         "up4": ("out", "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1"),
         "bn8": ("in", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1"),
         "up8": ("out", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2")})
    # One record that does not fit its input per net.
    bad = {
        "upsample_zero": (upsample("bad", ["image"], 0.0, 2.0, 0), "Upsampling2D_SSE_CHW_Float_M1"),
        "upsample_huge": (upsample("bad", ["image"], 30000.0, 30000.0, 1), "Upsampling2D_AVX_CHW_Float_M1"),
        "upsample_mode": (upsample("bad", ["image"], 2.0, 2.0, 7), "Upsampling2D_Fallback_CHW_Float_M1"),
        "softmax_dim": (softmax("bad", ["image"], 7), "Softmax_AVX_Float_M1"),
        "clip_order": (clip("bad", ["image"], 3.0, -1.0), "Clip_SSE_Float_M1"),
        "bn_short_mean": (batch_norm("bad", ["image"], mean=[0.0, 1.0]), "BatchNorm2D_SSE_CHW_Float_M1"),
        "bn_negative_variance": (batch_norm("bad", ["image"], var=[1.0, -2.0, 1.0]), "BatchNorm2D_AVX_CHW_Float_M1"),
        "bn_channels": (batch_norm("bad", ["image"], c=5), "BatchNorm2D_Fallback_CHW_Float_M1"),
        "instance_norm_eps": (instance_norm("bad", ["image"], eps=-1.0), "InstanceNorm2D_SSE_CHW_Float_M1"),
        "adaptive_zero": (adaptive_max("bad", ["image"], [0, 3]), "AdaptivePooling2D_Max_Fallback_CHW_Float_M1"),
        "grid_shape": (grid_sample("bad", ["image", "image"], 1, 1, False), "GridSample_Fallback_CHW_Float_M1"),
        "sqfc_bits": (sqfc("bad", ["image"], w_qbit=30), "SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"),
    }
    for name, (record, name_of_kernel) in bad.items():
        seeds["bad_" + name] = resampling_net(demo, [image(), record], ["Input_Fallback_M1", name_of_kernel])
    return seeds
def record(cls, code, layer_id, inputs, **fields):
    rec = {"serializable_type": cls, "type": code, "id": layer_id, "input_ids": inputs, "read_count": 0}
    rec.update(fields)
    return rec


def with_layers(pkg, layers):
    """The demo net cut after its first pooling layer, with (record, kernel,
    input converter, output converter) layers appended; converters may be
    None. A forward pass stops at the first layer that fails, so every
    refused record gets a seed of its own."""
    pkg = copy.deepcopy(pkg)
    model = pkg["model_arr"]["tiny_cnn"]
    cfg = pkg["config_arr"]["tiny_cnn"]["cpu_sse"]
    keep = ["image", "conv1", "relu1", "pool1"]
    for layer_id in model["squential_ids"][len(keep):]:
        del model[layer_id]
        del cfg[layer_id]
    model["squential_types"] = model["squential_types"][:len(keep)]
    model["squential_ids"] = list(keep)
    model["squential_output_ids"] = ["pool1"]
    cfg["squential_ids"] = list(keep)
    for rec, name, before, after in layers:
        model["squential_ids"].append(rec["id"])
        model["squential_types"].append(rec["type"])
        model[rec["id"]] = rec
        cfg["squential_ids"].append(rec["id"])
        entry = {"summary": "", "input_converters": {"kernel_ids": []}, "kernel": {"kernel_ids": ["0"], "0": kernel(name)},
                 "output_converters": {"kernel_ids": []}}
        if before:
            entry["input_converters"] = {"kernel_ids": ["1"], "1": kernel(before)}
        if after:
            entry["output_converters"] = {"kernel_ids": ["2"], "2": kernel(after)}
        cfg[rec["id"]] = entry
    return pkg


def sampling(kind, data):
    return {"serializable_type": "TensorDimemsionSamplingInfo", "sampling_type": kind, "data": data}


def getitem(layer_id, inputs, samplings):
    fields = {"num_sampling_infos": len(samplings)}
    fields.update({str(i): s for i, s in enumerate(samplings)})
    return record("TensorGetItemInfo", 22, layer_id, inputs, **fields)


# relu1 is [8, 8, 8] for the demo's 3 x 8 x 8 image; pool1 [8, 4, 4].
SHAPE_OK = [
    (record("ConcatenateInfo", 12, "cat", ["relu1", "relu1"], dim=0), "Concatenate_Fallback_Float_M1", None, None),
    (record("Pad2dInfo", 43, "pad", ["cat"], padding_l=1, padding_t=-1, padding_r=2, padding_b=0, padding_v=0.5),
     "Pad2d_SSE_CHW_Float_M1", None, None),
    (record("PixelShuffleInfo", 21, "shuffle", ["cat"], upscale_factor=2.0), "PixelShuffle_SSE_CHW_Float_M1", None,
     None),
    (record("SpaceToDepthInfo", 39, "s2d", ["relu1"], scale_factor=2.0), "SpaceToDepth_Fallback_CHW_Float_M1", None,
     None),
    (record("TensorReshapeInfo", 13, "flat", ["relu1"], new_shape=[0, -1]), "TensorReshape_Fallback_M1", None, None),
    (getitem("fc_bias", ["flat"], [sampling(1, [0]), sampling(2, [0, 8, 1])]), "TensorGetItem_Fallback_M1", None, None),
    (record("TensorTransposeInfo", 14, "t", ["flat"], axes=[1, 0]), "TensorTranspose_Fallback_M1", None, None),
    (record("TensorUnSqueezeInfo", 16, "unsq", ["flat"], dim=-1), "TensorUnSqueeze_Fallback_M1", None, None),
    (record("TensorSqueezeInfo", 15, "sq", ["unsq"], dim=2), "TensorSqueeze_Fallback_M1", None, None),
    (record("TensorExpandInfo", 41, "expand", ["unsq"], new_shape=[2, -1, -1, 3]), "TensorExpand_Fallback_M1", None,
     None),
    (record("TensorSliceInfo", 46, "slice", ["relu1"], slice_dims=[0, 1, 32767, 2, -1, -3, -1, 1]),
     "TensorSlice_Fallback_M1", None, None),
    (getitem("item", ["relu1"], [sampling(1, [-1]), sampling(2, [0, 8, 3]), sampling(3, [7, 0, 7])]),
     "TensorGetItem_Fallback_M1", None, None),
    (record("GemmInfo", 28, "gemm", ["flat", "flat", "fc_bias"], trans_a=False, trans_b=True, alpha=0.5, beta=2.0),
     "Gemm_SGEMM_Float_M1", None, None),
    (record("Pad1dInfo", 42, "pad1", ["flat"], padding_l=-3, padding_r=4, padding_v=-1.0), "Pad1d_Fallback_Float_M1",
     None, None),
    (record("ConcatenateInfo", 12, "bcat", ["relu1", "relu1"], dim=0), "Concatenate_SSE_C4HW4_Float_M1",
     "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2", "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1"),
    (record("Pad2dInfo", 43, "bpad", ["relu1"], padding_l=2, padding_t=1, padding_r=0, padding_b=-3, padding_v=1.0),
     "Pad2d_AVX_C8HW8_Float_M1", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1",
     "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2"),
]

# Records that do not fit their inputs: every forward pass refuses the layer.
SHAPE_BAD_INPUTS = [
    (record("TensorReshapeInfo", 13, "reshape_count", ["relu1"], new_shape=[5, 5]), "TensorReshape_Fallback_M1", None,
     None),
    (record("TensorSliceInfo", 46, "slice_past", ["relu1"], slice_dims=[0, 9, 12, 1]), "TensorSlice_Fallback_M1", None,
     None),
    (record("ConcatenateInfo", 12, "cat_mismatch", ["relu1", "pool1"], dim=0), "Concatenate_Fallback_Float_M1", None,
     None),
    (record("ConcatenateInfo", 12, "cat_dim", ["relu1", "relu1"], dim=5), "Concatenate_Fallback_Float_M1", None, None),
    (record("TensorExpandInfo", 41, "expand_bad", ["relu1"], new_shape=[3, 8, 8]), "TensorExpand_Fallback_M1", None,
     None),
    (record("TensorTransposeInfo", 14, "transpose_rank", ["relu1"], axes=[1, 0]), "TensorTranspose_Fallback_M1", None,
     None),
    (record("PixelShuffleInfo", 21, "shuffle_odd", ["relu1"], upscale_factor=3.0), "PixelShuffle_AVX_CHW_Float_M1",
     None, None),
    (record("Pad2dInfo", 43, "pad_away", ["relu1"], padding_l=-5, padding_t=0, padding_r=-3, padding_b=0,
            padding_v=0.0), "Pad2d_Fallback_Float_M1", None, None),
    (record("TensorExpandInfo", 41, "expand_huge", ["flat1"], new_shape=[32767, 32767, 32767, -1]),
     "TensorExpand_Fallback_M1", None, None),
    (record("GemmInfo", 28, "gemm_k", ["relu1", "relu1"], trans_a=False, trans_b=False, alpha=1.0, beta=1.0),
     "Gemm_Fallback_Float_M1", None, None),
]

# Records no input fits: the net is not built.
SHAPE_BAD_RECORDS = [
    (record("TensorReshapeInfo", 13, "two_inferred", ["relu1"], new_shape=[-1, -1]), "TensorReshape_Fallback_M1", None,
     None),
    (record("TensorSliceInfo", 46, "step0", ["relu1"], slice_dims=[0, 0, 4, 0]), "TensorSlice_Fallback_M1", None, None),
    (record("TensorTransposeInfo", 14, "not_perm", ["relu1"], axes=[0, 0, 2]), "TensorTranspose_Fallback_M1", None,
     None),
    (record("PixelShuffleInfo", 21, "shuffle_frac", ["relu1"], upscale_factor=1.5), "PixelShuffle_Fallback_CHW_Float_M1",
     None, None),
]


def main():
    with open(DEMO) as f:
        demo = json.load(f)
    variants = {
        "demo": demo,
        "fallback": with_kernels(demo, {
            "conv1": "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "relu1": "ReLU_Fallback_Float_M1",
            "pool1": "Pooling2D_Max_Fallback_Float_M1", "conv2": "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
            "relu6": "ReLU6_Fallback_Float_M1", "pool2": "Pooling2D_Avg_Fallback_Float_M1",
            "proj": "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "residual": "Elementwise_Fallback_Float_M1",
            "fc": "FullConnection_Fallback_C_Float_M1"}),
        "avx": with_kernels(demo, {
            "relu1": "ReLU_AVX_Float_M1", "relu6": "HSwish_AVX_Float_M1", "residual": "Elementwise_Mul_AVX_Float_M1",
            "fc": "FullConnection_AVX_C_Float_M2", "gap": "Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1"}),
        "fc_tiles": with_kernels(demo, {"fc": "FullConnection_SSE_C44_Float_M1", "relu6": "Sigmoid_SSE_Float_M1",
                                       "residual": "BroadcastOperator_Fallback_Float_M1"}),
        "blocked": with_converters(with_converters(demo, "conv2", "Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1",
                                                   "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1",
                                                   "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2"),
                                   "conv1", "Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1",
                                   "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2",
                                   "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1"),
    }
    variants.update(depthwise_variants(demo))
    recurrent = recurrent_package(demo, "Fallback")
    variants.update({
        "rnn_fallback": recurrent,
        "rnn_sse": recurrent_package(demo, "SSE"),
        "rnn_sgemm": recurrent_package(demo, "SGEMM"),
        "rnn_sse_sgemm": recurrent_package(demo, "SSE_SGEMM"),
    })
    variants.update(hostile_recurrent(recurrent))
    variants.update(resampling_variants(demo))
    flat1 = (record("TensorReshapeInfo", 13, "flat1", ["relu1"], new_shape=[1, 1, 1, -1]), "TensorReshape_Fallback_M1",
             None, None)
    variants["shape_ok"] = with_layers(demo, SHAPE_OK)
    for bad in SHAPE_BAD_INPUTS + SHAPE_BAD_RECORDS:
        variants["shape_bad_" + bad[0]["id"]] = with_layers(demo, [flat1, bad])
    os.makedirs(SEEDS, exist_ok=True)
    for name, pkg in variants.items():
        with open(os.path.join(SEEDS, name), "wb") as f:
            f.write(b"\x00" + json.dumps(pkg, separators=(",", ":")).encode())
    print("wrote %d seeds to %s" % (len(variants), SEEDS))


if __name__ == "__main__":
    main()

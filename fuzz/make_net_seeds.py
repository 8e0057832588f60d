#!/usr/bin/python3
"""Writes the seeds of fuzz_net: the demo package and variants of it that
route its layers through other kernel families, blocked layouts with
converters, and the other fully connected and pooling members.

    /usr/bin/python3 fuzz/make_net_seeds.py
"""
import copy
import json
import os

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
    os.makedirs(SEEDS, exist_ok=True)
    for name, pkg in variants.items():
        with open(os.path.join(SEEDS, name), "wb") as f:
            f.write(b"\x00" + json.dumps(pkg, separators=(",", ":")).encode())
    print("wrote %d seeds to %s" % (len(variants), SEEDS))


if __name__ == "__main__":
    main()

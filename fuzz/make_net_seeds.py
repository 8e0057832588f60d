#!/usr/bin/python3
"""Writes the seeds of fuzz_net: the demo package and variants of it that
route its layers through other kernel families, blocked layouts with
converters, and the other fully connected and pooling members; nets of the
normalisation, upsampling, softmax, clip, grid-sampling, adaptive max pooling
and quantisation-trained convolution layers, and one net per record of those
layers that does not fit its input.

    /usr/bin/python3 fuzz/make_net_seeds.py
"""
import base64
import copy
import json
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


# Normalisation, resampling, softmax, clip, grid sampling and SQFC layers.

def floats(values):
    return base64.b64encode(struct.pack("<%df" % len(values), *values)).decode()


def layer(cls, code, lid, inputs, **fields):
    d = {"serializable_type": cls, "type": code, "id": lid, "input_ids": inputs, "read_count": 0}
    d.update(fields)
    return d


def image():
    return layer("InputInfo", 0, "image", [], location=0)


def batch_norm(lid, inputs, c=3, mean=None, var=None, cls="BatchNorm2dInfo", code=9):
    return layer(cls, code, lid, inputs, num_features=c, eps=1e-5, momentum=0.1, if_affine=True,
                 if_track_running_stats=True, scale=floats([1.5 - 0.5 * k for k in range(c)]),
                 shift=floats([0.1 * k for k in range(c)]),
                 variance=floats(var if var is not None else [0.5 + k for k in range(c)]),
                 mean=floats(mean if mean is not None else [0.2 * k for k in range(c)]), num_batches_tracked=0)


def instance_norm(lid, inputs, eps=1e-5):
    return layer("InstanceNorm2dInfo", 8, lid, inputs, num_features=3, eps=eps, momentum=0.1, if_affine=True,
                 if_track_running_stats=False, scale=floats([1, 2, 3]), shift=floats([0, -1, 1]))


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
                  weight=floats([0.05 * ((k * 7) % 11 - 5) for k in range(54)]), bias=floats([0.25, -0.5]))
    if not folded:
        return layer("SQFCConv2dInfo", 23, lid, inputs, **fields)
    fields.update(eps=1e-5, momentum=0.1, if_affine=True, if_track_running_stats=True, scale=floats([1.0, 0.5]),
                  shift=floats([0.0, 0.25]), variance=floats([1.0, 2.0]), mean=floats([0.1, -0.1]))
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
    variants.update(resampling_variants(demo))
    os.makedirs(SEEDS, exist_ok=True)
    for name, pkg in variants.items():
        with open(os.path.join(SEEDS, name), "wb") as f:
            f.write(b"\x00" + json.dumps(pkg, separators=(",", ":")).encode())
    print("wrote %d seeds to %s" % (len(variants), SEEDS))


if __name__ == "__main__":
    main()

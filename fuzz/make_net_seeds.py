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
    os.makedirs(SEEDS, exist_ok=True)
    for name, pkg in variants.items():
        with open(os.path.join(SEEDS, name), "wb") as f:
            f.write(b"\x00" + json.dumps(pkg, separators=(",", ":")).encode())
    print("wrote %d seeds to %s" % (len(variants), SEEDS))


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Makes the demo model package shipped in examples/models/.

A small image classifier is built in PyTorch with fixed random weights and
written in the library's JSON package format (layer records, base64 float32
weights, a "cpu_sse" configuration naming one kernel per layer), together with
an input and PyTorch's output for it (in a JSON file and as .npy arrays), so the
demo and trn_run can show that the library gives the framework's numbers.

    /usr/bin/python3 tools/make_demo_package.py [output directory]
"""
import base64
import json
import os
import sys

import numpy as np
import torch
import torch.nn.functional as F

HERE = os.path.dirname(os.path.abspath(__file__))


def b64(t):
    return base64.b64encode(t.detach().numpy().astype("<f4").tobytes()).decode()


def common(kind, layer_type, layer_id, inputs):
    return {"serializable_type": kind, "type": layer_type, "id": layer_id, "input_ids": inputs, "read_count": 0}


def conv(layer_id, inputs, weight, bias, pad, stride=1):
    n, c, kh, kw = weight.shape
    rec = common("Conv2dInfo", 2, layer_id, inputs)
    rec.update({"in_channels": c, "out_channels": n, "kernel_x": kw, "kernel_y": kh, "padding_l": pad,
                "padding_t": pad, "padding_r": pad, "padding_b": pad, "stride_x": stride, "stride_y": stride,
                "dilation_x": 1, "dilation_y": 1, "groups": 1, "if_bias": True, "weight": b64(weight),
                "bias": b64(bias)})
    return rec


def activation(layer_id, inputs, code):
    rec = common("ActivationInfo", 1, layer_id, inputs)
    rec.update({"activation_type": code, "activation_alpha": 1.0, "activation_beta": 0.0, "num_parameters": 1,
                "weight": ""})
    return rec


def pool(kind, layer_type, layer_id, inputs, k, s, pad=0):
    rec = common(kind, layer_type, layer_id, inputs)
    rec.update({"kernel_x": k, "kernel_y": k, "padding_l": pad, "padding_t": pad, "padding_r": pad, "padding_b": pad,
                "stride_x": s, "stride_y": s})
    if layer_type == 7:
        rec.update({"dilation_x": 1, "dilation_y": 1, "ceil_mode": False})
    else:
        rec.update({"ceil_mode": False, "count_include_pad": True})
    return rec


def kernel_cfg(name):
    return {"summary": "", "input_converters": {"kernel_ids": []},
            "kernel": {"kernel_ids": ["0"], "0": {"kernel_type": name, "infer_param_type": "none", "infer_param": {}}},
            "output_converters": {"kernel_ids": []}}


def make_package(name, layers, output_ids, base_hw, summary):
    """A package of one network: `layers` is a list of (record, kernel name)
    in execution order; the "cpu_sse" configuration names one kernel per layer."""
    ids = [rec["id"] for rec, _ in layers]
    model = {"serializable_type": "TRModelInfo", "squential_output_ids": output_ids,
             "extra_info": {"serializable_type": "NetExtraInfo", "version": 1, "app_type": 0, "model_id": 1,
                            "model_base_h": base_hw, "model_base_w": base_hw, "fmlas": 0,
                            "time": {"serializable_type": "TimeInfo", "year": 2026, "moon": 11, "day": 21, "hour": 0,
                                     "min": 0, "sec": 0},
                            "device": "cpu", "summary": summary},
             "squential_ids": ids, "squential_types": [rec["type"] for rec, _ in layers]}
    for rec, _ in layers:
        model[rec["id"]] = rec
    sse = {"summary": "cpu_sse", "squential_ids": ids}
    for rec, kernel in layers:
        sse[rec["id"]] = kernel_cfg(kernel)
    empty = {"summary": "", "squential_ids": []}
    cfgs = {"cpu_sse": sse}
    for backend in ["cpu_avx", "cpu_armv7", "cpu_armv8", "gpu_opengl", "gpu_metal", "gpu_cuda", "cpu_armv82"]:
        cfgs[backend] = empty
    return {"serialization_protocol_version": 20015, "sdk_type": "cpu_sse", "core_major_ver": 1,
            "core_minor_ver": 0, "sdk_major_ver": 1, "sdk_minor_ver": 0,
            "model_arr": {"serializable_type": "TRModelInfoArr", "squential_ids": [name], name: model},
            "config_arr": {"squential_ids": [name], name: cfgs}}


def main(out_dir):
    torch.manual_seed(2026)
    w1, b1 = torch.randn(8, 3, 3, 3) * 0.4, torch.randn(8) * 0.1
    w2, b2 = torch.randn(16, 8, 3, 3) * 0.2, torch.randn(16) * 0.1
    w3, b3 = torch.randn(16, 16, 1, 1) * 0.3, torch.randn(16) * 0.1
    wf, bf = torch.randn(10, 16) * 0.5, torch.randn(10) * 0.1
    x = torch.rand(1, 3, 32, 32)

    with torch.no_grad():
        a = F.relu(F.conv2d(x, w1, b1, padding=1))
        a = F.max_pool2d(a, 2, 2)
        a = F.relu6(F.conv2d(a, w2, b2, padding=1))
        p = F.avg_pool2d(a, 2, 2)
        r = p + F.conv2d(p, w3, b3)
        g = F.adaptive_avg_pool2d(r, 1).reshape(1, 16)
        y = F.linear(g, wf, bf)

    layers = [
        (common("InputInfo", 0, "image", []) | {"location": 0}, "Input_Fallback_M1"),
        (conv("conv1", ["image"], w1, b1, 1), "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1"),
        (activation("relu1", ["conv1"], 0), "ReLU_SSE_Float_M1"),
        (pool("MaxPool2dInfo", 7, "pool1", ["relu1"], 2, 2), "Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1"),
        (conv("conv2", ["pool1"], w2, b2, 1), "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1"),
        (activation("relu6", ["conv2"], 1), "ReLU6_SSE_Float_M1"),
        (pool("AvgPool2dInfo", 6, "pool2", ["relu6"], 2, 2), "Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1"),
        (conv("proj", ["pool2"], w3, b3, 0), "Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1"),
        (common("ElementWiseOperatorInfo", 11, "residual", ["pool2", "proj"]) | {"op_type": 0},
         "Elementwise_Add_SSE_Float_M1"),
        (common("AdaptiveAvgPool2dInfo", 26, "gap", ["residual"]) | {"output_size": [1, 1]},
         "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1"),
        (common("FullConnectionInfo", 17, "fc", ["gap"]) | {"in_features": 16, "out_features": 10, "if_bias": True,
                                                           "weight": b64(wf), "bias": b64(bf)},
         "FullConnection_SSE_C_Float_M1"),
    ]
    package = make_package("tiny_cnn", layers, ["fc"], 32, "tiny classifier made by tools/make_demo_package.py")
    os.makedirs(out_dir, exist_ok=True)
    with open(os.path.join(out_dir, "tiny_cnn.json"), "w") as f:
        json.dump(package, f, indent=1)
        f.write("\n")
    # The same input and output as NumPy arrays, for trn_run --input/--compare.
    np.save(os.path.join(out_dir, "tiny_cnn_input.npy"), x[0].numpy().astype("<f4"))
    np.save(os.path.join(out_dir, "tiny_cnn_output.npy"), y[0].numpy().astype("<f4"))
    reference = {"input_shape": [3, 32, 32], "input": b64(x[0]), "output_layer": "fc",
                 "output": [float("%.9g" % v) for v in y[0].numpy().astype(np.float32)]}
    with open(os.path.join(out_dir, "tiny_cnn_reference.json"), "w") as f:
        json.dump(reference, f, indent=1)
        f.write("\n")
    print("wrote %s (output %s)" % (out_dir, reference["output"]))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "..", "examples", "models"))

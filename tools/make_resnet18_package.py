#!/usr/bin/python3
"""Makes a ResNet-18 model package for the load-time, profile and soak
benchmarks: torchvision's resnet18 with seeded weights (nothing is downloaded)
and randomised batch-norm statistics, exported with the records and kernels the
runtime has: batch norm folded into the convolutions, ReLU, max pooling,
residual additions, global average pooling and the fully connected layer, which
reads the pooled 512x1x1 tensor directly (the fully connected kernels accept any
float tensor holding in_features values).

Writes into the output directory:
  resnet18.json         the package, float32 weights (about 62 MB)
  resnet18_input.npy    an input of 3x224x224 floats
  resnet18_output.npy   PyTorch's output of the unfolded model for it (1000 floats)
and, with --tools DIR (the build's tools directory):
  resnet18.trnmodel     the same package in the binary format (half-precision weights)
after which both packages are run through trn_run against PyTorch's output.

    /usr/bin/python3 tools/make_resnet18_package.py [--out DIR] [--tools DIR] [--seed N]
"""
import argparse
import base64
import json
import os
import subprocess
import sys

import numpy as np
import torch
import torch.nn.functional as F
import torchvision

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from make_demo_package import activation, b64, common, conv, make_package, pool  # noqa: E402

CONV = "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1"


def folded(conv_module, bn):
    """Weight and bias of a convolution followed by an inference batch norm."""
    scale = bn.weight / torch.sqrt(bn.running_var + bn.eps)
    weight = conv_module.weight * scale.reshape(-1, 1, 1, 1)
    bias = bn.bias - bn.running_mean * scale
    return weight.detach(), bias.detach()


def randomise_batch_norms(model):
    # Fresh batch norms are identities; random statistics make the folding matter.
    with torch.no_grad():
        for m in model.modules():
            if isinstance(m, torch.nn.BatchNorm2d):
                m.weight.uniform_(0.5, 1.0)
                m.bias.normal_(0.0, 0.1)
                m.running_mean.normal_(0.0, 0.1)
                m.running_var.uniform_(0.5, 1.5)


def export(model):
    layers = [(common("InputInfo", 0, "image", []) | {"location": 0}, "Input_Fallback_M1")]

    def add(rec, kernel):
        layers.append((rec, kernel))
        return rec["id"]

    def conv_bn(layer_id, source, conv_module, bn):
        w, b = folded(conv_module, bn)
        return add(conv(layer_id, [source], w, b, conv_module.padding[0], conv_module.stride[0]), CONV)

    x = conv_bn("conv1", "image", model.conv1, model.bn1)
    x = add(activation("relu", [x], 0), "ReLU_SSE_Float_M1")
    # 3x3, stride 2, padding 1: the general kernel (the fixed-size ones take no padding).
    x = add(pool("MaxPool2dInfo", 7, "maxpool", [x], 3, 2, pad=1), "Pooling2D_Max_Fallback_Float_M1")
    for stage in range(1, 5):
        for index, block in enumerate(getattr(model, "layer%d" % stage)):
            name = "layer%d.%d" % (stage, index)
            y = conv_bn(name + ".conv1", x, block.conv1, block.bn1)
            y = add(activation(name + ".relu1", [y], 0), "ReLU_SSE_Float_M1")
            y = conv_bn(name + ".conv2", y, block.conv2, block.bn2)
            shortcut = x
            if block.downsample is not None:
                shortcut = conv_bn(name + ".downsample", x, block.downsample[0], block.downsample[1])
            s = add(common("ElementWiseOperatorInfo", 11, name + ".add", [shortcut, y]) | {"op_type": 0},
                    "Elementwise_Add_SSE_Float_M1")
            x = add(activation(name + ".relu2", [s], 0), "ReLU_SSE_Float_M1")
    x = add(common("AdaptiveAvgPool2dInfo", 26, "avgpool", [x]) | {"output_size": [1, 1]},
            "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1")
    fc = model.fc
    add(common("FullConnectionInfo", 17, "fc", [x]) | {"in_features": fc.in_features, "out_features": fc.out_features,
                                                      "if_bias": True, "weight": b64(fc.weight), "bias": b64(fc.bias)},
        "FullConnection_SSE_C_Float_M1")
    return layers


def weights(rec, key, shape):
    return torch.from_numpy(np.frombuffer(base64.b64decode(rec[key]), dtype="<f4").copy()).reshape(shape)


def evaluate(layers, x):
    """Runs the exported records with PyTorch's functions: checks the folding."""
    values = {}
    for rec, _ in layers:
        ins = [values[i] for i in rec["input_ids"]]
        t = rec["type"]
        if t == 0:
            out = x
        elif t == 2:
            shape = (rec["out_channels"], rec["in_channels"], rec["kernel_y"], rec["kernel_x"])
            out = F.conv2d(ins[0], weights(rec, "weight", shape), weights(rec, "bias", (-1,)),
                           stride=rec["stride_x"], padding=rec["padding_l"])
        elif t == 1:
            out = F.relu(ins[0])
        elif t == 7:
            out = F.max_pool2d(ins[0], rec["kernel_x"], rec["stride_x"], rec["padding_l"])
        elif t == 11:
            out = ins[0] + ins[1]
        elif t == 26:
            out = F.adaptive_avg_pool2d(ins[0], 1)
        elif t == 17:
            out = F.linear(ins[0].flatten(1), weights(rec, "weight", (rec["out_features"], rec["in_features"])),
                           weights(rec, "bias", (-1,)))
        values[rec["id"]] = out
    return values[layers[-1][0]["id"]]


def run(cmd):
    print("$ " + " ".join(cmd))
    done = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    print(done.stdout)
    if done.returncode != 0:
        sys.exit("command failed: %d" % done.returncode)
    return done.stdout


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--out", default=os.path.join(HERE, "..", "build", "models"))
    parser.add_argument("--tools", help="directory holding trn_model and trn_run, to convert and check")
    parser.add_argument("--seed", type=int, default=2026)
    args = parser.parse_args()

    torch.manual_seed(args.seed)
    model = torchvision.models.resnet18(weights=None)
    randomise_batch_norms(model)
    model.eval()
    mean = torch.tensor([0.485, 0.456, 0.406]).reshape(1, 3, 1, 1)
    std = torch.tensor([0.229, 0.224, 0.225]).reshape(1, 3, 1, 1)
    x = (torch.rand(1, 3, 224, 224) - mean) / std
    with torch.no_grad():
        y = model(x)

    layers = export(model)
    with torch.no_grad():
        folded_y = evaluate(layers, x)
    print("records evaluated by PyTorch against the model: max relative difference %.3g" %
          ((folded_y - y).abs().max() / y.abs().max()).item())
    package = make_package("resnet18", layers, ["fc"], 224, "torchvision resnet18, seeded weights, batch norm folded")
    os.makedirs(args.out, exist_ok=True)
    json_path = os.path.join(args.out, "resnet18.json")
    with open(json_path, "w") as f:
        json.dump(package, f, indent=1)
        f.write("\n")
    np.save(os.path.join(args.out, "resnet18_input.npy"), x[0].numpy().astype("<f4"))
    np.save(os.path.join(args.out, "resnet18_output.npy"), y[0].numpy().astype("<f4"))
    print("wrote %s: %d layers, %.1f MB" % (json_path, len(layers), os.path.getsize(json_path) / 1e6))

    if args.tools:
        bin_path = os.path.join(args.out, "resnet18.trnmodel")
        run([os.path.join(args.tools, "trn_model"), "convert", json_path, bin_path])
        for path in (json_path, bin_path):
            run([os.path.join(args.tools, "trn_run"), path, "--input", os.path.join(args.out, "resnet18_input.npy"),
                 "--compare", os.path.join(args.out, "resnet18_output.npy"), "--runs", "1", "--warmup", "0",
                 "--top-k", "3"])


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Regenerates the ONNX fixtures of the converter tests from PyTorch.

Run with Debian's Python (it sees python3-torch, python3-torchvision, python3-onnx):
    /usr/bin/python3 tests/reference/make_onnx_fixtures.py [name ...]

Each fixture is a small model exported to tests/data/onnx/<name>.onnx and its
reference tests/data/onnx/<name>.json:
    {"inputs": [{"name", "dims", "data"}], "outputs": [{"name", "dims", "data"}],
     "waits_for": "..."}
where "data" is base64 of little-endian float32 and "waits_for" names the kernel
group the conversion needs beyond the landed ones ("" when none): the test skips
with that text while the group is unregistered and runs for real once it is.
The outputs are PyTorch's (eval mode, batch 1). Every ONNX file stays below 1 MB.
"""
import base64
import json
import os
import sys

import numpy as np
import onnx
import torch
import torch.nn as nn
import torch.nn.functional as F
import torchvision
from onnx import TensorProto, helper, numpy_helper

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "data", "onnx")
FIXTURES = {}


def fixture(name, waits_for=""):
    def register(fn):
        FIXTURES[name] = (fn, waits_for)
        return fn
    return register


def b64(a):
    return base64.b64encode(np.ascontiguousarray(a, dtype="<f4").tobytes()).decode()


def tensor_entry(name, a):
    a = np.asarray(a, dtype=np.float32)
    return {"name": name, "dims": list(a.shape), "data": b64(a)}


def randomise_bn(model, seed=1):
    g = torch.Generator().manual_seed(seed)
    for m in model.modules():
        if isinstance(m, (nn.BatchNorm1d, nn.BatchNorm2d)):
            m.running_mean.copy_(torch.rand(m.running_mean.shape, generator=g) - 0.5)
            m.running_var.copy_(torch.rand(m.running_var.shape, generator=g) + 0.5)
            m.weight.data.copy_(torch.rand(m.weight.shape, generator=g) + 0.5)
            m.bias.data.copy_(torch.rand(m.bias.shape, generator=g) - 0.5)
    return model


def export(model, inputs, opset=13, preserve_bn=False, **kw):
    """Exports a module; returns (onnx bytes, outputs)."""
    model = model.eval()
    if not isinstance(inputs, tuple):
        inputs = (inputs,)
    path = os.path.join(OUT, "_export.onnx")
    names = ["x%d" % k for k in range(len(inputs))]
    training = torch.onnx.TrainingMode.PRESERVE if preserve_bn else torch.onnx.TrainingMode.EVAL
    with torch.no_grad():
        torch.onnx.export(model, inputs, path, opset_version=opset, input_names=names, output_names=["y"],
                          training=training, do_constant_folding=not preserve_bn, **kw)
        out = model(*inputs)
    data = open(path, "rb").read()
    os.remove(path)
    outs = out if isinstance(out, tuple) else (out,)
    return data, [(names[k], inputs[k].numpy()) for k in range(len(inputs))], [("y", o.numpy()) for o in outs[:1]]


def handmade(nodes, inputs, outputs, initializers, opset=13):
    """An ONNX model written node by node (for attributes PyTorch never exports);
    `outputs` are (name, dims)."""
    graph = helper.make_graph(
        nodes, "g",
        [helper.make_tensor_value_info(n, TensorProto.FLOAT, list(a.shape)) for n, a in inputs],
        [helper.make_tensor_value_info(n, TensorProto.FLOAT, list(shape)) for n, shape in outputs],
        [numpy_helper.from_array(np.asarray(a, dtype=np.float32), n) for n, a in initializers])
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", opset)], producer_name="handmade")
    model.ir_version = 7
    onnx.checker.check_model(model)
    return model.SerializeToString()


def seeded(shape, seed=0):
    return torch.randn(*shape, generator=torch.Generator().manual_seed(seed))


# ---------------------------------------------------------------- convolutions

def conv_case(cin, cout, k, stride=1, padding=0, dilation=1, groups=1, size=9, bias=True, opset=13):
    torch.manual_seed(cin * 100 + cout + k)
    m = nn.Conv2d(cin, cout, k, stride=stride, padding=padding, dilation=dilation, groups=groups, bias=bias)
    return export(m, seeded((1, cin, size, size)), opset)


fixture("conv_k3_s1_p1")(lambda: conv_case(3, 8, 3, padding=1))
fixture("conv_k3_s2_p1")(lambda: conv_case(8, 16, 3, stride=2, padding=1, size=10))
fixture("conv_k1")(lambda: conv_case(16, 8, 1, size=7))
fixture("conv_k1_nobias")(lambda: conv_case(8, 8, 1, bias=False))
fixture("conv_k5_d2")(lambda: conv_case(4, 8, 5, padding=4, dilation=2, size=11))
fixture("conv_k7_s2_p3")(lambda: conv_case(3, 8, 7, stride=2, padding=3, size=15))
fixture("conv_groups2")(lambda: conv_case(8, 16, 3, padding=1, groups=2))
fixture("conv_depthwise")(lambda: conv_case(8, 8, 3, padding=1, groups=8))
fixture("conv_rect")(lambda: export(nn.Conv2d(4, 8, (1, 3), stride=(2, 1), padding=(0, 1)), seeded((1, 4, 8, 9))))
fixture("conv_opset7")(lambda: conv_case(3, 8, 3, padding=1, opset=7))
fixture("conv_opset17")(lambda: conv_case(3, 8, 3, padding=1, opset=17))
fixture("conv1d")(lambda: export(nn.Conv1d(4, 8, 3, padding=2, dilation=2), seeded((1, 4, 20))))


@fixture("conv_asymmetric_pads")
def conv_asymmetric_pads():
    w = seeded((8, 4, 3, 3), 1).numpy()
    b = seeded((8,), 2).numpy()
    x = seeded((1, 4, 9, 9), 3)
    node = helper.make_node("Conv", ["x0", "w", "b"], ["y"], pads=[0, 1, 2, 1], strides=[1, 2])
    y = F.conv2d(F.pad(x, (1, 1, 0, 2)), torch.from_numpy(w), torch.from_numpy(b), stride=(1, 2))
    data = handmade([node], [("x0", x.numpy())], [("y", y.shape)], [("w", w), ("b", b)])
    return data, [("x0", x.numpy())], [("y", y.numpy())]


@fixture("conv_same_upper")
def conv_same_upper():
    w = seeded((8, 4, 4, 4), 1).numpy()
    x = seeded((1, 4, 9, 9), 3)
    node = helper.make_node("Conv", ["x0", "w"], ["y"], auto_pad="SAME_UPPER", strides=[2, 2])
    # 9 -> 5 with stride 2 and kernel 4: total padding 3, 1 before and 2 after.
    y = F.conv2d(F.pad(x, (1, 2, 1, 2)), torch.from_numpy(w), stride=2)
    data = handmade([node], [("x0", x.numpy())], [("y", y.shape)], [("w", w)])
    return data, [("x0", x.numpy())], [("y", y.numpy())]


fixture("conv_transpose", "transposed convolution kernels")(
    lambda: export(nn.ConvTranspose2d(8, 4, 3, stride=2, padding=1, output_padding=1), seeded((1, 8, 5, 5))))


# ---------------------------------------------------------------- matrix products

fixture("linear")(lambda: export(nn.Linear(24, 10), seeded((1, 24))))
fixture("flatten_linear")(lambda: export(nn.Sequential(nn.Conv2d(3, 8, 3), nn.ReLU(), nn.Flatten(), nn.Linear(8 * 5 * 5, 6)),
                                         seeded((1, 3, 7, 7))))


class MatMulBias(nn.Module):
    def __init__(self):
        super().__init__()
        self.w = nn.Parameter(seeded((16, 8), 4))
        self.b = nn.Parameter(seeded((8,), 5))

    def forward(self, x):
        return torch.matmul(x, self.w) + self.b


fixture("matmul_add")(lambda: export(MatMulBias(), seeded((1, 16))))


@fixture("gemm_trans_alpha_beta")
def gemm_trans_alpha_beta():
    b = seeded((12, 5), 1).numpy()
    c = seeded((5,), 2).numpy()
    x = seeded((1, 12), 3)
    node = helper.make_node("Gemm", ["x0", "b", "c"], ["y"], alpha=0.5, beta=2.0, transB=0)
    y = 0.5 * x.numpy() @ b + 2.0 * c
    data = handmade([node], [("x0", x.numpy())], [("y", y.shape)], [("b", b), ("c", c)])
    return data, [("x0", x.numpy())], [("y", y)]


class LinearBatchNorm(nn.Module):
    def __init__(self):
        super().__init__()
        self.fc = nn.Linear(12, 8)
        self.bn = nn.BatchNorm1d(8)

    def forward(self, x):
        return self.bn(self.fc(x))


fixture("linear_batchnorm")(lambda: export(randomise_bn(LinearBatchNorm()), seeded((1, 12)), preserve_bn=True))


# ---------------------------------------------------------------- normalisation

class ConvBN(nn.Module):
    def __init__(self):
        super().__init__()
        self.conv = nn.Conv2d(3, 8, 3, padding=1)
        self.bn = nn.BatchNorm2d(8)

    def forward(self, x):
        return torch.relu(self.bn(self.conv(x)))


fixture("conv_batchnorm_folded")(lambda: export(randomise_bn(ConvBN()), seeded((1, 3, 8, 8)), preserve_bn=True))
fixture("batchnorm", "batch normalisation kernels")(
    lambda: export(randomise_bn(nn.BatchNorm2d(4)), seeded((1, 4, 5, 5)), preserve_bn=True))
fixture("instancenorm", "instance normalisation kernels")(
    lambda: export(nn.InstanceNorm2d(4, affine=True), seeded((1, 4, 6, 6))))


# ---------------------------------------------------------------- activations

ACTS = {
    "relu": nn.ReLU(), "relu6": nn.ReLU6(), "leaky_relu": nn.LeakyReLU(0.125), "sigmoid": nn.Sigmoid(),
    "tanh": nn.Tanh(), "hardsigmoid": nn.Hardsigmoid(), "hardswish": nn.Hardswish(),
}
for _name, _module in ACTS.items():
    fixture("act_" + _name)(lambda m=_module: export(m, seeded((1, 4, 5, 6)) * 4))
# PReLU runs in place, so it follows a layer that makes a fresh tensor.
fixture("act_prelu")(lambda: export(nn.Sequential(nn.Conv2d(4, 4, 1), nn.PReLU(init=0.2)), seeded((1, 4, 5, 6))))
fixture("act_hardswish_opset14")(lambda: export(nn.Hardswish(), seeded((1, 4, 5, 6)) * 4, opset=14))
fixture("act_clip_asymmetric", "clip kernels")(lambda: export(nn.Hardtanh(-0.5, 2.0), seeded((1, 4, 5, 6)) * 2))
fixture("softmax", "softmax kernels")(lambda: export(nn.Softmax(dim=1), seeded((1, 10))))


# ---------------------------------------------------------------- element-wise

class TwoBranch(nn.Module):
    def __init__(self, op):
        super().__init__()
        self.a = nn.Conv2d(4, 8, 1)
        self.b = nn.Conv2d(4, 8, 3, padding=1)
        self.op = op

    def forward(self, x):
        return self.op(self.a(x), torch.sigmoid(self.b(x)) + 0.5)


for _name, _op in {"add": torch.add, "sub": torch.sub, "mul": torch.mul, "div": torch.div}.items():
    fixture("elementwise_" + _name)(lambda op=_op: export(TwoBranch(op), seeded((1, 4, 6, 6))))


class Squeeze(nn.Module):
    """Channel attention: a [C, 1, 1] scale times the map (a broadcast)."""
    def __init__(self):
        super().__init__()
        self.conv = nn.Conv2d(4, 8, 3, padding=1)

    def forward(self, x):
        y = self.conv(x)
        return y * torch.sigmoid(F.adaptive_avg_pool2d(y, 1))


fixture("broadcast_mul")(lambda: export(Squeeze(), seeded((1, 4, 6, 6))))


class ConstArith(nn.Module):
    def forward(self, x):
        return (x * 0.5 + 0.25) / 2.0 - 1.0


fixture("constant_scalar")(lambda: export(ConstArith(), seeded((1, 4, 5, 5))))


class ChannelConst(nn.Module):
    def __init__(self):
        super().__init__()
        self.register_buffer("mean", torch.tensor([0.1, -0.2, 0.3]).view(1, 3, 1, 1))
        self.register_buffer("std", torch.tensor([0.5, 0.25, 2.0]).view(1, 3, 1, 1))

    def forward(self, x):
        return (x - self.mean) / self.std


fixture("constant_per_channel", "batch normalisation kernels")(lambda: export(ChannelConst(), seeded((1, 3, 5, 5))))


class ConvScale(nn.Module):
    def __init__(self):
        super().__init__()
        self.conv = nn.Conv2d(3, 6, 3)
        self.register_buffer("s", torch.linspace(0.5, 2.0, 6).view(1, 6, 1, 1))

    def forward(self, x):
        return self.conv(x) * self.s + 1.0


fixture("conv_constant_folded")(lambda: export(ConvScale(), seeded((1, 3, 7, 7))))


# ---------------------------------------------------------------- pooling

fixture("maxpool_k3_s2_p1")(lambda: export(nn.MaxPool2d(3, 2, 1), seeded((1, 4, 9, 9))))
fixture("maxpool_k2_s2")(lambda: export(nn.MaxPool2d(2, 2), seeded((1, 8, 8, 8))))
fixture("maxpool_k3_s2")(lambda: export(nn.MaxPool2d(3, 2), seeded((1, 8, 9, 9))))
fixture("maxpool_ceil")(lambda: export(nn.MaxPool2d(3, 2, ceil_mode=True), seeded((1, 4, 8, 8))))
fixture("maxpool_dilated")(lambda: export(nn.MaxPool2d(3, 1, padding=1, dilation=2), seeded((1, 4, 7, 7))))
fixture("avgpool_k3_s2_p1_excl")(lambda: export(nn.AvgPool2d(3, 2, 1, count_include_pad=False), seeded((1, 4, 9, 9))))
fixture("avgpool_k3_s2_p1_incl")(lambda: export(nn.AvgPool2d(3, 2, 1, count_include_pad=True), seeded((1, 4, 9, 9))))
fixture("avgpool_ceil_excl")(lambda: export(nn.AvgPool2d(3, 2, ceil_mode=True, count_include_pad=False), seeded((1, 4, 8, 8))))
fixture("avgpool_k2_s2")(lambda: export(nn.AvgPool2d(2), seeded((1, 8, 8, 8))))
fixture("global_avgpool")(lambda: export(nn.AdaptiveAvgPool2d(1), seeded((1, 8, 7, 7))))
fixture("global_maxpool")(lambda: export(nn.AdaptiveMaxPool2d(1), seeded((1, 8, 5, 6))))


# ---------------------------------------------------------------- shape operations

class Cat(nn.Module):
    def __init__(self):
        super().__init__()
        self.a = nn.Conv2d(4, 8, 1)
        self.b = nn.Conv2d(4, 4, 3, padding=1)

    def forward(self, x):
        return torch.cat([self.a(x), self.b(x)], 1)


fixture("concat", "concatenation kernels")(lambda: export(Cat(), seeded((1, 4, 5, 5))))


class ReshapeHead(nn.Module):
    def forward(self, x):
        return x.reshape(1, 4, 30)


fixture("reshape", "reshape kernels")(lambda: export(ReshapeHead(), seeded((1, 4, 5, 6))))


class ViewFlatten(nn.Module):
    """x.view(x.size(0), -1): the Shape/Gather/Unsqueeze/Concat chain of a flatten, then a classifier."""
    def __init__(self):
        super().__init__()
        self.fc = nn.Linear(4 * 5 * 6, 3)

    def forward(self, x):
        return self.fc(x.view(x.size(0), -1))


fixture("view_flatten_linear")(lambda: export(ViewFlatten(), seeded((1, 4, 5, 6)), opset=11,
                                             dynamic_axes={"x0": {0: "batch"}}))


class Permute(nn.Module):
    def forward(self, x):
        return x.permute(0, 2, 3, 1)


fixture("transpose", "transpose kernels")(lambda: export(Permute(), seeded((1, 4, 5, 6))))


class SqueezeUnsqueeze(nn.Module):
    def forward(self, x):
        return torch.relu(x.unsqueeze(2)).squeeze(2)


fixture("squeeze_unsqueeze", "squeeze and unsqueeze kernels")(lambda: export(SqueezeUnsqueeze(), seeded((1, 4, 5, 6))))


class SliceRows(nn.Module):
    def forward(self, x):
        return x[:, 1:3, ::2, 1:]


fixture("slice", "slice kernels")(lambda: export(SliceRows(), seeded((1, 4, 6, 6))))
fixture("pad_constant", "padding kernels")(lambda: export(nn.ConstantPad2d((1, 2, 0, 1), 0.5), seeded((1, 4, 5, 5))))


class Up(nn.Module):
    def __init__(self, mode, align=None, scale=2):
        super().__init__()
        self.mode, self.align, self.scale = mode, align, scale

    def forward(self, x):
        return F.interpolate(x, scale_factor=self.scale, mode=self.mode, align_corners=self.align)


fixture("resize_nearest", "upsampling kernels")(lambda: export(Up("nearest"), seeded((1, 4, 5, 5)), opset=11))
fixture("resize_bilinear", "upsampling kernels")(lambda: export(Up("bilinear", False), seeded((1, 4, 5, 5)), opset=11))
fixture("resize_bilinear_align", "upsampling kernels")(lambda: export(Up("bilinear", True), seeded((1, 4, 5, 5)), opset=11))
fixture("upsample_nearest_opset9", "upsampling kernels")(lambda: export(Up("nearest"), seeded((1, 4, 5, 5)), opset=9))
fixture("depth_to_space", "pixel shuffle kernels")(lambda: export(nn.PixelShuffle(2), seeded((1, 8, 3, 3))))


@fixture("space_to_depth", "space-to-depth kernels")
def space_to_depth():
    x = seeded((1, 2, 4, 6), 1)
    node = helper.make_node("SpaceToDepth", ["x0"], ["y"], blocksize=2)
    y = x.numpy().reshape(1, 2, 2, 2, 3, 2).transpose(0, 3, 5, 1, 2, 4).reshape(1, 8, 2, 3)
    data = handmade([node], [("x0", x.numpy())], [("y", y.shape)], [])
    return data, [("x0", x.numpy())], [("y", y)]


class Sample(nn.Module):
    def forward(self, x, grid):
        return F.grid_sample(x, grid, mode="bilinear", padding_mode="border", align_corners=False)


fixture("grid_sample", "grid sampling kernels")(
    lambda: export(Sample(), (seeded((1, 3, 6, 6)), torch.rand(1, 4, 5, 2, generator=torch.Generator().manual_seed(3)) * 2 - 1),
                   opset=16))


# ---------------------------------------------------------------- recurrent layers

class Recurrent(nn.Module):
    def __init__(self, cell):
        super().__init__()
        self.rnn = cell

    def forward(self, x):
        return self.rnn(x)[0]


fixture("lstm_2layer", "LSTM sequence kernels")(lambda: export(Recurrent(nn.LSTM(8, 16, 2)), seeded((7, 1, 8))))
fixture("gru_bidirectional", "GRU sequence kernels")(
    lambda: export(Recurrent(nn.GRU(8, 12, 1, bidirectional=True)), seeded((5, 1, 8))))
fixture("rnn_relu", "RNN sequence kernels")(
    lambda: export(Recurrent(nn.RNN(6, 10, 1, nonlinearity="relu")), seeded((4, 1, 6))))
fixture("lstm_batch_first", "LSTM sequence kernels")(
    lambda: export(Recurrent(nn.LSTM(8, 16, 1, batch_first=True)), seeded((1, 6, 8))))


# ---------------------------------------------------------------- reduced real architectures

class BasicBlock(nn.Module):
    def __init__(self, cin, cout, stride):
        super().__init__()
        self.c1 = nn.Conv2d(cin, cout, 3, stride, 1, bias=False)
        self.b1 = nn.BatchNorm2d(cout)
        self.c2 = nn.Conv2d(cout, cout, 3, 1, 1, bias=False)
        self.b2 = nn.BatchNorm2d(cout)
        self.down = None
        if stride != 1 or cin != cout:
            self.down = nn.Sequential(nn.Conv2d(cin, cout, 1, stride, bias=False), nn.BatchNorm2d(cout))

    def forward(self, x):
        y = F.relu(self.b1(self.c1(x)))
        y = self.b2(self.c2(y))
        return F.relu(y + (x if self.down is None else self.down(x)))


class SmallResNet(nn.Module):
    def __init__(self):
        super().__init__()
        self.stem = nn.Sequential(nn.Conv2d(3, 16, 3, 1, 1, bias=False), nn.BatchNorm2d(16), nn.ReLU(),
                                  nn.MaxPool2d(3, 2, 1))
        self.layers = nn.Sequential(BasicBlock(16, 16, 1), BasicBlock(16, 32, 2), BasicBlock(32, 32, 1))
        self.pool = nn.AdaptiveAvgPool2d(1)
        self.fc = nn.Linear(32, 10)

    def forward(self, x):
        return self.fc(torch.flatten(self.pool(self.layers(self.stem(x))), 1))


fixture("arch_resnet")(lambda: export(randomise_bn(SmallResNet()), seeded((1, 3, 32, 32))))


def small_mobilenet():
    torch.manual_seed(7)
    return randomise_bn(torchvision.models.mobilenet_v2(weights=None, width_mult=0.25, num_classes=10))


fixture("arch_mobilenetv2")(lambda: export(small_mobilenet(), seeded((1, 3, 64, 64))))


class Fire(nn.Module):
    def __init__(self, cin, squeeze, expand):
        super().__init__()
        self.s = nn.Conv2d(cin, squeeze, 1)
        self.e1 = nn.Conv2d(squeeze, expand, 1)
        self.e3 = nn.Conv2d(squeeze, expand, 3, padding=1)

    def forward(self, x):
        x = F.relu(self.s(x))
        return torch.cat([F.relu(self.e1(x)), F.relu(self.e3(x))], 1)


class SmallSqueezeNet(nn.Module):
    def __init__(self):
        super().__init__()
        self.features = nn.Sequential(nn.Conv2d(3, 16, 3, 2), nn.ReLU(), nn.MaxPool2d(3, 2, ceil_mode=True),
                                      Fire(16, 8, 16), Fire(32, 8, 16), nn.MaxPool2d(3, 2, ceil_mode=True),
                                      Fire(32, 16, 32))
        self.classifier = nn.Sequential(nn.Conv2d(64, 10, 1), nn.ReLU(), nn.AdaptiveAvgPool2d(1))

    def forward(self, x):
        return torch.flatten(self.classifier(self.features(x)), 1)


fixture("arch_squeezenet", "concatenation kernels")(lambda: export(SmallSqueezeNet(), seeded((1, 3, 48, 48))))


fixture("arch_lstm", "LSTM sequence kernels")(lambda: export(Recurrent(nn.LSTM(16, 32, 2)), seeded((20, 1, 16))))
fixture("arch_gru_bidirectional", "GRU sequence kernels")(
    lambda: export(Recurrent(nn.GRU(16, 24, 2, bidirectional=True)), seeded((20, 1, 16))))


def main(names):
    os.makedirs(OUT, exist_ok=True)
    for name, (fn, waits) in sorted(FIXTURES.items()):
        if names and name not in names:
            continue
        torch.manual_seed(0)
        data, inputs, outputs = fn()
        assert len(data) < 1 << 20, name + " is larger than 1 MB"
        with open(os.path.join(OUT, name + ".onnx"), "wb") as f:
            f.write(data)
        ref = {"generator": "tests/reference/make_onnx_fixtures.py", "torch": torch.__version__,
               "waits_for": waits,
               "inputs": [tensor_entry(n, a) for n, a in inputs],
               "outputs": [tensor_entry(n, a) for n, a in outputs]}
        with open(os.path.join(OUT, name + ".json"), "w") as f:
            json.dump(ref, f, separators=(",", ":"))
        print("%-28s %7d bytes%s" % (name, len(data), "  (waits for %s)" % waits if waits else ""))


if __name__ == "__main__":
    main(sys.argv[1:])

#!/usr/bin/python3
"""Trains the demo's digit classifier and writes everything the demo ships.

Run with Debian's Python (python3-sklearn, python3-torch, python3-onnx;
`bash scripts/deps.sh onnx` installs them):
    /usr/bin/python3 examples/digits/train_digits.py

Data: the 1797 handwritten digits scikit-learn bundles (8x8 grey images,
values 0..16), no download. They become 8-bit images (v * 255 / 16, rounded),
split into a training set and a held-out set (a fifth, stratified, fixed seed).

The network reads what the demo's image pre-processing produces from a BMP: the
8x8 grey image resized bilinearly to 32x32 with the library's fixed-point
scheme (weights in 2048ths, as Resize_Bilinear_C1 computes it, reproduced
below bit for bit) as float pixel values 0..255.

Writes, beside this script:
  digits.onnx      the trained network (opset 13, batch 1, input "image" [1, 1, 32, 32], output "logits")
  images/*.bmp     20 held-out digits (two per class) as 24-bit grey BMP files, 8x8
  labels.csv       file name and true digit of each BMP
  reference.json   PyTorch's logits for every BMP (from the same pre-processing),
                   and the network's accuracy over the whole held-out set
"""
import json
import math
import os
import struct

import numpy as np
import torch
import torch.nn as nn
from sklearn.datasets import load_digits
from sklearn.model_selection import train_test_split

HERE = os.path.dirname(os.path.abspath(__file__))
SIZE = 32


class DigitNet(nn.Module):
    """Three 3x3 convolutions with batch norm (folded by the converter), max
    pooling, global average pooling and a linear classifier."""

    def __init__(self):
        super().__init__()
        def block(cin, cout):
            return [nn.Conv2d(cin, cout, 3, padding=1, bias=False), nn.BatchNorm2d(cout), nn.ReLU()]
        self.features = nn.Sequential(*block(1, 16), nn.MaxPool2d(2), *block(16, 32), nn.MaxPool2d(2),
                                      *block(32, 32), nn.AdaptiveAvgPool2d(1))
        self.dropout = nn.Dropout(0.2)
        self.classifier = nn.Linear(32, 10)

    def forward(self, x):
        return self.classifier(self.dropout(torch.flatten(self.features(x), 1)))


def to_uint8(images):
    return np.clip(np.rint(images * 255.0 / 16.0), 0, 255).astype(np.uint8)


def resize_weights(src, dst):
    """Source index and weight pair (in 2048ths) of every destination column."""
    index, weights = [], []
    for d in range(dst):
        f = (d + 0.5) * src / dst - 0.5
        s = math.floor(f)
        if s < 0:
            index.append(0)
            weights.append((2048, 0))
        elif s >= src - 1:
            index.append(src - 2)
            weights.append((0, 2048))
        else:
            frac = f - s  # both weights are positive: rounding half up is rounding away from zero
            index.append(s)
            weights.append((int(math.floor((1 - frac) * 2048 + 0.5)), int(math.floor(frac * 2048 + 0.5))))
    return np.array(index), np.array(weights, dtype=np.int64)


def resize_bilinear(img8, size):
    """The library's fixed-point bilinear resize of a grey uint8 image."""
    yi, yw = resize_weights(img8.shape[0], size)
    xi, xw = resize_weights(img8.shape[1], size)
    p = img8.astype(np.int64)
    rows = (p[:, xi] * xw[:, 0] + p[:, xi + 1] * xw[:, 1]) >> 4
    out = (((rows[yi] * yw[:, :1]) >> 16) + ((rows[yi + 1] * yw[:, 1:]) >> 16) + 2) >> 2
    return out.astype(np.uint8)


def preprocess(img8):
    """8x8 uint8 -> [1, 32, 32] float pixels, as the demo does it."""
    return resize_bilinear(img8, SIZE).astype(np.float32)[None]


def write_bmp(path, grey):
    """A 24-bit BMP of a grey image (R = G = B), rows bottom-up, padded to 4 bytes."""
    h, w = grey.shape
    row = (w * 3 + 3) // 4 * 4
    pixels = b"".join(np.repeat(grey[y], 3).tobytes() + b"\0" * (row - w * 3) for y in range(h - 1, -1, -1))
    header = struct.pack("<2sIHHI", b"BM", 54 + len(pixels), 0, 0, 54)
    info = struct.pack("<IiiHHIIiiII", 40, w, h, 1, 24, 0, len(pixels), 2835, 2835, 0, 0)
    with open(path, "wb") as f:
        f.write(header + info + pixels)


def main():
    torch.manual_seed(0)
    torch.set_num_threads(1)
    digits = load_digits()
    images = to_uint8(digits.images)
    labels = digits.target.astype(np.int64)
    train_idx, test_idx = train_test_split(np.arange(len(labels)), test_size=0.2, random_state=0, stratify=labels)

    def batch(indices, augment=False):
        x = np.stack([preprocess(images[i]) for i in indices])
        if augment:  # small shifts make the classifier less brittle
            shifts = np.random.randint(-2, 3, size=(len(indices), 2))
            x = np.stack([np.roll(x[k], tuple(shifts[k]), axis=(1, 2)) for k in range(len(indices))])
        return torch.from_numpy(x), torch.from_numpy(labels[indices])

    np.random.seed(0)
    model = DigitNet()
    optimizer = torch.optim.Adam(model.parameters(), lr=3e-3)
    scheduler = torch.optim.lr_scheduler.StepLR(optimizer, 10, 0.3)
    for epoch in range(25):
        model.train()
        order = np.random.permutation(train_idx)
        for start in range(0, len(order), 64):
            x, y = batch(order[start:start + 64], augment=True)
            optimizer.zero_grad()
            loss = nn.functional.cross_entropy(model(x), y)
            loss.backward()
            optimizer.step()
        scheduler.step()

    model.eval()
    with torch.no_grad():
        x, y = batch(test_idx)
        accuracy = float((model(x).argmax(1) == y).float().mean())
    print("held-out accuracy %.4f over %d digits" % (accuracy, len(test_idx)))

    # Exported as trained: batch norms and dropout stay in the graph for the converter to fold and remove.
    torch.onnx.export(model, torch.zeros(1, 1, SIZE, SIZE), os.path.join(HERE, "digits.onnx"), opset_version=13,
                      input_names=["image"], output_names=["logits"], training=torch.onnx.TrainingMode.PRESERVE,
                      do_constant_folding=False)

    # Two held-out digits of each class as BMP files.
    os.makedirs(os.path.join(HERE, "images"), exist_ok=True)
    chosen = []
    for digit in range(10):
        chosen += [i for i in test_idx if labels[i] == digit][:2]
    entries = []
    with open(os.path.join(HERE, "labels.csv"), "w") as f:
        f.write("file,label\n")
        for k, i in enumerate(chosen):
            name = "digit_%02d.bmp" % k
            grey = images[i]
            write_bmp(os.path.join(HERE, "images", name), grey)
            f.write("%s,%d\n" % (name, labels[i]))
            with torch.no_grad():
                logits = model(torch.from_numpy(preprocess(grey)[None]))[0]
            entries.append({"file": name, "label": int(labels[i]), "logits": [float("%.9g" % v) for v in logits]})
    with open(os.path.join(HERE, "reference.json"), "w") as f:
        json.dump({"generator": "examples/digits/train_digits.py", "torch": torch.__version__, "input_size": SIZE,
                   "heldout_accuracy": accuracy, "heldout_count": len(test_idx), "images": entries}, f, indent=1)


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Regenerates the reference fixtures of the kernel tests from PyTorch.

Run with Debian's Python (it sees python3-torch):
    /usr/bin/python3 tests/reference/make_reference_data.py [area ...]

Each area module (conv_reference.py, element_reference.py, ...) defines
`make_cases()` returning {fixture name: [case, ...]}; a case is a dict with
"name", "op", "params" (any JSON), "inputs" (list of tensors) and "outputs"
(list of tensors), a tensor being {"shape": [...], "data": [...]} (row-major
float32). Fixtures land in tests/data/reference/<fixture name>.json, written
compactly with float32 values printed exactly (9 significant digits), so keep
shapes small.
"""
import importlib
import json
import os
import sys

import numpy as np
import torch

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "data", "reference")
AREAS = ["conv_reference", "element_reference"]


def tensor(t):
    """A torch tensor or numpy array as a fixture tensor."""
    a = t.detach().cpu().numpy() if isinstance(t, torch.Tensor) else np.asarray(t)
    a = a.astype(np.float32)
    return {"shape": list(a.shape), "data": [float("%.9g" % v) for v in a.reshape(-1)]}


def write(name, cases):
    os.makedirs(OUT, exist_ok=True)
    path = os.path.join(OUT, name + ".json")
    with open(path, "w") as f:
        json.dump({"generator": "tests/reference/make_reference_data.py", "torch": torch.__version__,
                   "cases": cases}, f, separators=(",", ":"))
        f.write("\n")
    print("%s: %d cases, %d bytes" % (path, len(cases), os.path.getsize(path)))


def main(areas):
    torch.manual_seed(0)
    torch.set_num_threads(1)
    sys.path.insert(0, HERE)
    for area in areas or AREAS:
        if not os.path.exists(os.path.join(HERE, area + ".py")):
            print("skipping %s: no module yet" % area)
            continue
        module = importlib.import_module(area)
        for name, cases in module.make_cases().items():
            write(name, cases)


if __name__ == "__main__":
    main(sys.argv[1:])

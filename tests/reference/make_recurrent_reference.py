#!/usr/bin/python3
"""Regenerates the recurrent-layer fixtures from PyTorch.

Run with Debian's Python (it sees python3-torch):
    /usr/bin/python3 tests/reference/make_recurrent_reference.py

Writes tests/data/reference/recurrent/{cells,rnn,lstm,gru}.json in the case
format of make_reference_data.py ("name", "op", "params", "inputs",
"outputs"; tensors {"shape", "data"}), batch 1 throughout.

Weights and inputs are small multiples of 1/64 and 1/32 so that they print
short and exactly; the outputs are PyTorch's float32 results.

cells.json, one case per cell driven over a few steps (op "rnn_cell",
"lstm_cell" or "gru_cell"; params kind, activation, in, hidden, bias, steps,
state_given):
    inputs:  x [steps, in], weight_ih, weight_hh, bias_ih, bias_hh (both
             [0] without bias), then h0 [hidden] (and c0 for LSTM) when
             state_given
    outputs: h after every step [steps, hidden] (and c likewise for LSTM)

rnn.json, lstm.json, gru.json, one case per stacked module (op "rnn",
"lstm" or "gru"; params kind, activation, in, hidden, layers,
bidirectional, bias, steps, state_given):
    inputs:  x [steps, in]; then for each layer l and direction d (index
             l * D + d): weight_ih, weight_hh, bias_ih, bias_hh (both [0]
             without bias); then h0 [L * D, hidden] (and c0 for LSTM) when
             state_given
    outputs: y [steps, D * hidden], h_n [L * D, hidden] (and c_n for LSTM)
"""
import json
import os

import torch

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "data", "reference", "recurrent")
GATES = {"rnn": 1, "lstm": 4, "gru": 3}


def tensor(t):
    a = t.detach().to(torch.float32).contiguous()
    return {"shape": list(a.shape), "data": [float("%.9g" % v) for v in a.reshape(-1).tolist()]}


def grid(gen, shape, step, span):
    """Uniform values k * step with |k| <= span."""
    return torch.randint(-span, span + 1, shape, generator=gen).to(torch.float32) * step


def weights(gen, kind, hidden, inputs, bias, scale):
    g = GATES[kind] * hidden
    w_ih = grid(gen, (g, inputs), 1.0 / 64, scale)
    w_hh = grid(gen, (g, hidden), 1.0 / 64, scale)
    b_ih = grid(gen, (g,), 1.0 / 64, scale) if bias else torch.zeros(0)
    b_hh = grid(gen, (g,), 1.0 / 64, scale) if bias else torch.zeros(0)
    return w_ih, w_hh, b_ih, b_hh


def cell_case(gen, kind, activation, inputs, hidden, bias, steps, state_given):
    # ReLU cells grow without the squashing of tanh: smaller weights keep them tame.
    scale = 16 if activation == "relu" else 32
    w_ih, w_hh, b_ih, b_hh = weights(gen, kind, hidden, inputs, bias, scale)
    if kind == "rnn":
        cell = torch.nn.RNNCell(inputs, hidden, bias=bias, nonlinearity=activation)
    elif kind == "lstm":
        cell = torch.nn.LSTMCell(inputs, hidden, bias=bias)
    else:
        cell = torch.nn.GRUCell(inputs, hidden, bias=bias)
    with torch.no_grad():
        cell.weight_ih.copy_(w_ih)
        cell.weight_hh.copy_(w_hh)
        if bias:
            cell.bias_ih.copy_(b_ih)
            cell.bias_hh.copy_(b_hh)
    x = grid(gen, (steps, inputs), 1.0 / 32, 32)
    h = grid(gen, (1, hidden), 1.0 / 32, 32) if state_given else torch.zeros(1, hidden)
    c = grid(gen, (1, hidden), 1.0 / 32, 32) if state_given else torch.zeros(1, hidden)
    given = [h[0], c[0]] if kind == "lstm" else [h[0]]
    hs, cs = [], []
    with torch.no_grad():
        for t in range(steps):
            if kind == "lstm":
                h, c = cell(x[t:t + 1], (h, c))
                cs.append(c[0])
            else:
                h = cell(x[t:t + 1], h)
            hs.append(h[0])
    outputs = [torch.stack(hs)] + ([torch.stack(cs)] if kind == "lstm" else [])
    name = "%s_%s_i%d_h%d_%s_%s" % (kind, activation, inputs, hidden, "bias" if bias else "nobias",
                                    "given" if state_given else "zero")
    return {"name": name, "op": kind + "_cell",
            "params": {"kind": kind, "activation": activation, "in": inputs, "hidden": hidden, "bias": bias,
                       "steps": steps, "state_given": state_given},
            "inputs": [tensor(t) for t in [x, w_ih, w_hh, b_ih, b_hh] + (given if state_given else [])],
            "outputs": [tensor(t) for t in outputs]}


def stack_case(gen, kind, activation, inputs, hidden, layers, bidirectional, bias, steps, state_given):
    scale = 16 if activation == "relu" else 32
    dirs = 2 if bidirectional else 1
    if kind == "rnn":
        module = torch.nn.RNN(inputs, hidden, num_layers=layers, nonlinearity=activation, bias=bias,
                              bidirectional=bidirectional)
    elif kind == "lstm":
        module = torch.nn.LSTM(inputs, hidden, num_layers=layers, bias=bias, bidirectional=bidirectional)
    else:
        module = torch.nn.GRU(inputs, hidden, num_layers=layers, bias=bias, bidirectional=bidirectional)
    blobs = []
    with torch.no_grad():
        for layer in range(layers):
            width = inputs if layer == 0 else dirs * hidden
            for d in range(dirs):
                suffix = "_l%d%s" % (layer, "_reverse" if d else "")
                w_ih, w_hh, b_ih, b_hh = weights(gen, kind, hidden, width, bias, scale)
                getattr(module, "weight_ih" + suffix).copy_(w_ih)
                getattr(module, "weight_hh" + suffix).copy_(w_hh)
                if bias:
                    getattr(module, "bias_ih" + suffix).copy_(b_ih)
                    getattr(module, "bias_hh" + suffix).copy_(b_hh)
                blobs += [w_ih, w_hh, b_ih, b_hh]
    x = grid(gen, (steps, inputs), 1.0 / 32, 32)
    h0 = grid(gen, (layers * dirs, hidden), 1.0 / 32, 32)
    c0 = grid(gen, (layers * dirs, hidden), 1.0 / 32, 32)
    with torch.no_grad():
        state = None
        if state_given:
            state = (h0.unsqueeze(1), c0.unsqueeze(1)) if kind == "lstm" else h0.unsqueeze(1)
        y, final = module(x.unsqueeze(1), state)
    finals = [final[0][:, 0], final[1][:, 0]] if kind == "lstm" else [final[:, 0]]
    given = ([h0, c0] if kind == "lstm" else [h0]) if state_given else []
    name = "%s_%s_i%d_h%d_l%d_%s_%s_s%d_%s" % (kind, activation, inputs, hidden, layers,
                                              "bi" if bidirectional else "uni", "bias" if bias else "nobias", steps,
                                              "given" if state_given else "zero")
    return {"name": name, "op": kind,
            "params": {"kind": kind, "activation": activation, "in": inputs, "hidden": hidden, "layers": layers,
                       "bidirectional": bidirectional, "bias": bias, "steps": steps, "state_given": state_given},
            "inputs": [tensor(t) for t in [x] + blobs + given],
            "outputs": [tensor(y[:, 0])] + [tensor(t) for t in finals]}


def write(name, cases):
    os.makedirs(OUT, exist_ok=True)
    path = os.path.join(OUT, name + ".json")
    with open(path, "w") as f:
        json.dump({"generator": "tests/reference/make_recurrent_reference.py", "torch": torch.__version__,
                   "cases": cases}, f, separators=(",", ":"))
        f.write("\n")
    print("%s: %d cases, %d bytes" % (os.path.relpath(path), len(cases), os.path.getsize(path)))


def main():
    torch.set_num_threads(1)
    gen = torch.Generator().manual_seed(13)
    # (kind, activation, in, hidden, bias, steps, state_given)
    cells = [("rnn", "tanh", 3, 8, True, 3, False), ("rnn", "tanh", 10, 5, False, 3, True),
             ("rnn", "relu", 7, 13, True, 3, True), ("rnn", "relu", 4, 8, False, 3, False),
             ("lstm", "tanh", 3, 8, True, 3, False), ("lstm", "tanh", 10, 5, False, 3, True),
             ("lstm", "tanh", 6, 13, True, 3, True),
             ("gru", "tanh", 3, 8, True, 3, False), ("gru", "tanh", 10, 5, False, 3, True),
             ("gru", "tanh", 6, 13, True, 3, True)]
    write("cells", [cell_case(gen, *c) for c in cells])
    # (activation, in, hidden, layers, bidirectional, bias, steps, state_given)
    gated = [("tanh", 4, 8, 1, False, True, 7, False), ("tanh", 5, 5, 2, False, False, 1, True),
             ("tanh", 3, 5, 1, True, True, 64, False), ("tanh", 6, 5, 3, True, True, 7, True),
             ("tanh", 2, 13, 1, False, True, 64, True)]
    simple = [("tanh", 4, 8, 1, False, True, 7, False), ("relu", 5, 5, 2, False, False, 7, True),
              ("tanh", 3, 13, 1, True, True, 64, False), ("relu", 6, 8, 3, True, True, 1, True),
              ("relu", 2, 5, 1, False, True, 64, False)]
    write("rnn", [stack_case(gen, "rnn", *c) for c in simple])
    for kind in ("lstm", "gru"):
        write(kind, [stack_case(gen, kind, *c) for c in gated])


if __name__ == "__main__":
    main()

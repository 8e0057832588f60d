#!/usr/bin/python3
"""Writes the seeds of fuzz_net: the demo package and variants of it that
route its layers through other kernel families, blocked layouts with
converters, and the other fully connected and pooling members; a recurrent
package (stacks and cells of every family, sized for the fuzzer's inputs) and
hostile variants of it that every recurrent kernel must refuse cleanly.

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


def floats(n, seed):
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
        rec.update({"weight_ih": floats(rows * in_size, seed), "weight_hh": floats(rows * hidden, seed + 1),
                    "bias_ih": floats(rows, seed + 2), "bias_hh": floats(rows, seed + 3)})
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
            rec["weight_ih_" + suffix].append(floats(rows * width, base))
            rec["weight_hh_" + suffix].append(floats(rows * hidden, base + 1))
            rec["bias_ih_" + suffix].append(floats(rows, base + 2))
            rec["bias_hh_" + suffix].append(floats(rows, base + 3))
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
    recurrent = recurrent_package(demo, "Fallback")
    variants.update({
        "rnn_fallback": recurrent,
        "rnn_sse": recurrent_package(demo, "SSE"),
        "rnn_sgemm": recurrent_package(demo, "SGEMM"),
        "rnn_sse_sgemm": recurrent_package(demo, "SSE_SGEMM"),
    })
    variants.update(hostile_recurrent(recurrent))
    os.makedirs(SEEDS, exist_ok=True)
    for name, pkg in variants.items():
        with open(os.path.join(SEEDS, name), "wb") as f:
            f.write(b"\x00" + json.dumps(pkg, separators=(",", ":")).encode())
    print("wrote %d seeds to %s" % (len(variants), SEEDS))


if __name__ == "__main__":
    main()

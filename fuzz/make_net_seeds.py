#!/usr/bin/python3
"""Writes the seeds of fuzz_net: the demo package and variants of it that
route its layers through other kernel families, blocked layouts with
converters, and the other fully connected and pooling members; and variants
with side branches of shape layers (reshape, transpose, squeeze, expand,
slice, get-item, concatenation, padding, pixel shuffle, space-to-depth,
Gemm), valid ones and ones whose records do not fit their inputs.

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


def record(cls, code, layer_id, inputs, **fields):
    rec = {"serializable_type": cls, "type": code, "id": layer_id, "input_ids": inputs, "read_count": 0}
    rec.update(fields)
    return rec


def with_layers(pkg, layers):
    """The demo net cut after its first pooling layer, with (record, kernel,
    input converter, output converter) layers appended; converters may be
    None. A forward pass stops at the first layer that fails, so every
    refused record gets a seed of its own."""
    pkg = copy.deepcopy(pkg)
    model = pkg["model_arr"]["tiny_cnn"]
    cfg = pkg["config_arr"]["tiny_cnn"]["cpu_sse"]
    keep = ["image", "conv1", "relu1", "pool1"]
    for layer_id in model["squential_ids"][len(keep):]:
        del model[layer_id]
        del cfg[layer_id]
    model["squential_types"] = model["squential_types"][:len(keep)]
    model["squential_ids"] = list(keep)
    model["squential_output_ids"] = ["pool1"]
    cfg["squential_ids"] = list(keep)
    for rec, name, before, after in layers:
        model["squential_ids"].append(rec["id"])
        model["squential_types"].append(rec["type"])
        model[rec["id"]] = rec
        cfg["squential_ids"].append(rec["id"])
        entry = {"summary": "", "input_converters": {"kernel_ids": []}, "kernel": {"kernel_ids": ["0"], "0": kernel(name)},
                 "output_converters": {"kernel_ids": []}}
        if before:
            entry["input_converters"] = {"kernel_ids": ["1"], "1": kernel(before)}
        if after:
            entry["output_converters"] = {"kernel_ids": ["2"], "2": kernel(after)}
        cfg[rec["id"]] = entry
    return pkg


def sampling(kind, data):
    return {"serializable_type": "TensorDimemsionSamplingInfo", "sampling_type": kind, "data": data}


def getitem(layer_id, inputs, samplings):
    fields = {"num_sampling_infos": len(samplings)}
    fields.update({str(i): s for i, s in enumerate(samplings)})
    return record("TensorGetItemInfo", 22, layer_id, inputs, **fields)


# relu1 is [8, 8, 8] for the demo's 3 x 8 x 8 image; pool1 [8, 4, 4].
SHAPE_OK = [
    (record("ConcatenateInfo", 12, "cat", ["relu1", "relu1"], dim=0), "Concatenate_Fallback_Float_M1", None, None),
    (record("Pad2dInfo", 43, "pad", ["cat"], padding_l=1, padding_t=-1, padding_r=2, padding_b=0, padding_v=0.5),
     "Pad2d_SSE_CHW_Float_M1", None, None),
    (record("PixelShuffleInfo", 21, "shuffle", ["cat"], upscale_factor=2.0), "PixelShuffle_SSE_CHW_Float_M1", None,
     None),
    (record("SpaceToDepthInfo", 39, "s2d", ["relu1"], scale_factor=2.0), "SpaceToDepth_Fallback_CHW_Float_M1", None,
     None),
    (record("TensorReshapeInfo", 13, "flat", ["relu1"], new_shape=[0, -1]), "TensorReshape_Fallback_M1", None, None),
    (getitem("fc_bias", ["flat"], [sampling(1, [0]), sampling(2, [0, 8, 1])]), "TensorGetItem_Fallback_M1", None, None),
    (record("TensorTransposeInfo", 14, "t", ["flat"], axes=[1, 0]), "TensorTranspose_Fallback_M1", None, None),
    (record("TensorUnSqueezeInfo", 16, "unsq", ["flat"], dim=-1), "TensorUnSqueeze_Fallback_M1", None, None),
    (record("TensorSqueezeInfo", 15, "sq", ["unsq"], dim=2), "TensorSqueeze_Fallback_M1", None, None),
    (record("TensorExpandInfo", 41, "expand", ["unsq"], new_shape=[2, -1, -1, 3]), "TensorExpand_Fallback_M1", None,
     None),
    (record("TensorSliceInfo", 46, "slice", ["relu1"], slice_dims=[0, 1, 32767, 2, -1, -3, -1, 1]),
     "TensorSlice_Fallback_M1", None, None),
    (getitem("item", ["relu1"], [sampling(1, [-1]), sampling(2, [0, 8, 3]), sampling(3, [7, 0, 7])]),
     "TensorGetItem_Fallback_M1", None, None),
    (record("GemmInfo", 28, "gemm", ["flat", "flat", "fc_bias"], trans_a=False, trans_b=True, alpha=0.5, beta=2.0),
     "Gemm_SGEMM_Float_M1", None, None),
    (record("Pad1dInfo", 42, "pad1", ["flat"], padding_l=-3, padding_r=4, padding_v=-1.0), "Pad1d_Fallback_Float_M1",
     None, None),
    (record("ConcatenateInfo", 12, "bcat", ["relu1", "relu1"], dim=0), "Concatenate_SSE_C4HW4_Float_M1",
     "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2", "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1"),
    (record("Pad2dInfo", 43, "bpad", ["relu1"], padding_l=2, padding_t=1, padding_r=0, padding_b=-3, padding_v=1.0),
     "Pad2d_AVX_C8HW8_Float_M1", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1",
     "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2"),
]

# Records that do not fit their inputs: every forward pass refuses the layer.
SHAPE_BAD_INPUTS = [
    (record("TensorReshapeInfo", 13, "reshape_count", ["relu1"], new_shape=[5, 5]), "TensorReshape_Fallback_M1", None,
     None),
    (record("TensorSliceInfo", 46, "slice_past", ["relu1"], slice_dims=[0, 9, 12, 1]), "TensorSlice_Fallback_M1", None,
     None),
    (record("ConcatenateInfo", 12, "cat_mismatch", ["relu1", "pool1"], dim=0), "Concatenate_Fallback_Float_M1", None,
     None),
    (record("ConcatenateInfo", 12, "cat_dim", ["relu1", "relu1"], dim=5), "Concatenate_Fallback_Float_M1", None, None),
    (record("TensorExpandInfo", 41, "expand_bad", ["relu1"], new_shape=[3, 8, 8]), "TensorExpand_Fallback_M1", None,
     None),
    (record("TensorTransposeInfo", 14, "transpose_rank", ["relu1"], axes=[1, 0]), "TensorTranspose_Fallback_M1", None,
     None),
    (record("PixelShuffleInfo", 21, "shuffle_odd", ["relu1"], upscale_factor=3.0), "PixelShuffle_AVX_CHW_Float_M1",
     None, None),
    (record("Pad2dInfo", 43, "pad_away", ["relu1"], padding_l=-5, padding_t=0, padding_r=-3, padding_b=0,
            padding_v=0.0), "Pad2d_Fallback_Float_M1", None, None),
    (record("TensorExpandInfo", 41, "expand_huge", ["flat1"], new_shape=[32767, 32767, 32767, -1]),
     "TensorExpand_Fallback_M1", None, None),
    (record("GemmInfo", 28, "gemm_k", ["relu1", "relu1"], trans_a=False, trans_b=False, alpha=1.0, beta=1.0),
     "Gemm_Fallback_Float_M1", None, None),
]

# Records no input fits: the net is not built.
SHAPE_BAD_RECORDS = [
    (record("TensorReshapeInfo", 13, "two_inferred", ["relu1"], new_shape=[-1, -1]), "TensorReshape_Fallback_M1", None,
     None),
    (record("TensorSliceInfo", 46, "step0", ["relu1"], slice_dims=[0, 0, 4, 0]), "TensorSlice_Fallback_M1", None, None),
    (record("TensorTransposeInfo", 14, "not_perm", ["relu1"], axes=[0, 0, 2]), "TensorTranspose_Fallback_M1", None,
     None),
    (record("PixelShuffleInfo", 21, "shuffle_frac", ["relu1"], upscale_factor=1.5), "PixelShuffle_Fallback_CHW_Float_M1",
     None, None),
]


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
    flat1 = (record("TensorReshapeInfo", 13, "flat1", ["relu1"], new_shape=[1, 1, 1, -1]), "TensorReshape_Fallback_M1",
             None, None)
    variants["shape_ok"] = with_layers(demo, SHAPE_OK)
    for bad in SHAPE_BAD_INPUTS + SHAPE_BAD_RECORDS:
        variants["shape_bad_" + bad[0]["id"]] = with_layers(demo, [flat1, bad])
    os.makedirs(SEEDS, exist_ok=True)
    for name, pkg in variants.items():
        with open(os.path.join(SEEDS, name), "wb") as f:
            f.write(b"\x00" + json.dumps(pkg, separators=(",", ":")).encode())
    print("wrote %d seeds to %s" % (len(variants), SEEDS))


if __name__ == "__main__":
    main()

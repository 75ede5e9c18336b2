#!/usr/bin/env python3
"""Writes the small JSON models and kernel configurations that the public-API tests load.

Run from the repository root:  python3 tools/make_api_test_models.py
Plain python3, no third-party modules. The files are committed under tests/data/api/.
"""
import json
import os
import struct

OUT = os.path.join(os.path.dirname(__file__), "..", "tests", "data", "api")
VERSION = 20018


def extra_info(h, w, summary):
    return {
        "serializable_type": "NetExtraInfo", "version": 1, "app_type": 0, "model_id": 0,
        "model_base_h": h, "model_base_w": w, "fmlas": 0,
        "time": {"serializable_type": "TimeInfo", "year": 2026, "moon": 11, "day": 22, "hour": 0, "min": 0,
                 "sec": 0},
        "device": "cpu", "summary": summary,
    }


def model(layers, outputs, h, w, summary):
    root = {
        "serialization_protocol_version": VERSION,
        "serializable_type": "ZVModelInfo",
        "squential_output_ids": outputs,
        "extra_info": extra_info(h, w, summary),
        "squential_ids": [l["id"] for l in layers],
        "squential_types": [l["type"] for l in layers],
    }
    for layer in layers:
        root[layer["id"]] = layer
    return root


def input_layer(id_):
    return {"serializable_type": "InputInfo", "type": 0, "id": id_, "input_ids": [], "read_count": 0,
            "location": 0}


def reshape_layer(id_, src, new_shape):
    return {"serializable_type": "TensorReshapeInfo", "type": 13, "id": id_, "input_ids": [src],
            "read_count": 0, "new_shape": new_shape}


def kernel_cfg(name):
    return {"serializable_type": "KernelCfg", "kernel_type": name, "infer_param_type": ""}


def empty_set():
    return {"serializable_type": "KernelCfgArr", "kernel_ids": []}


def config(kernels, summary):
    sse = {"serializable_type": "ZVModelCfg", "summary": summary, "squential_ids": [k for k, _ in kernels]}
    for layer_id, name in kernels:
        sse[layer_id] = {"serializable_type": "LayerCfg", "summary": "", "input_converters": empty_set(),
                         "kernel": kernel_cfg(name), "output_converters": empty_set()}
    return {"serialization_protocol_version": VERSION, "serializable_type": "ZVModelMultiBackendCfgs",
            "cpu_sse": sse}


def write(name, obj):
    with open(os.path.join(OUT, name), "w") as f:
        json.dump(obj, f, indent=2)
        f.write("\n")


def main():
    os.makedirs(OUT, exist_ok=True)
    # One input layer, which is also the output: a block comes back as it went in (2 x 4 floats).
    write("passthrough.json", model([input_layer("in")], ["in"], 2, 4, "passthrough"))
    write("passthrough.cfg.json", config([("in", "Input_Fallback_M1")], "passthrough"))
    # Input -> reshape to a vector: the output is the block, flattened.
    write("flatten.json", model([input_layer("in"), reshape_layer("flat", "in", [1, -1])], ["flat"], 2, 4,
                                "flatten"))
    write("flatten.cfg.json", config([("in", "Input_Fallback_M1"),
                                      ("flat", "Transform_MainMemory_Reshape_Fallback")], "flatten"))
    # Configurations that cannot build the flatten net.
    write("unknown_kernel.cfg.json", config([("in", "Input_Fallback_M1"), ("flat", "NoSuchKernel_M1")], "bad"))
    write("missing_layer.cfg.json", config([("in", "Input_Fallback_M1")], "lacks a layer"))
    # Three blocks of 2 x 4 floats for streaming tests.
    with open(os.path.join(OUT, "blocks.f32"), "wb") as f:
        f.write(struct.pack("<24f", *[i * 0.5 - 3.0 for i in range(24)]))


if __name__ == "__main__":
    main()

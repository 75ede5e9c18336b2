#!/usr/bin/python3
"""Builds a small convolutional network in PyTorch with random weights and writes the fixtures of the
public-API test of pooling, batch normalisation and concatenation (tests/zelva-kit/src/e2e_api_test.cc),
which streams it through the denoise engine's generic path.

  input   1 x 8 x 12 block
  conv    3 x 3, 1 -> 8 channels, padding 1, bias
  bn_a    BatchNorm2d(8) in eval mode, random running statistics and affine parameters     (on conv)
  bn_p    BatchNorm2d(8, affine=False) in eval mode, random running statistics             (on conv)
  avg_x   AvgPool2d(3, 2, padding 1, count_include_pad=False), planar                     (on bn_a)
  avg_i   AvgPool2d(3, 2, padding 1, count_include_pad=True), blocked by 8                (on bn_p)
  max_p   max pooling 3 x 3, stride 2, padding 1, planar                                   (on conv)
  cat_b   concatenation of avg_i and max_p (converted to blocks of 8): 16 channels, blocked
  cat     concatenation of cat_b (converted back to planar) and avg_x: 24 x 4 x 6, planar, the output

The library pads a maximum with 0.0 where torch pads with -inf; max_p is computed here as torch's max pooling
of the input zero-padded by F.pad, which is the library's definition.

Files, under tests/data/e2e/:
  pool_net.json               the model, weights as Base64 of little-endian float32
  pool_net.cfg.json           the kernel configuration, with the layout converters in front of the blocked layers
  pool_net_input.f32          BLOCKS blocks of 8 x 12 floats
  pool_net_expected.f32       torch's output per block (24 x 4 x 6 floats)
  pool_net_bad_window.cfg.json   avg_x named to a member of another window: the load fails
  pool_net_bad_axis.json         cat along dim 2: the load fails
  pool_net_bad_layouts.cfg.json  cat_b without its converter, so its inputs differ in layout: the first block
                                 fails

Run with Debian's PyTorch: /usr/bin/python3 tools/gen_pool_net.py
"""

import base64
import copy
import json
import os

import numpy as np
import torch
import torch.nn as nn
import torch.nn.functional as F

PROTOCOL_VERSION = 20018
BLOCKS = 6
H, W, C = 8, 12, 8

KIND_INPUT, KIND_CONV, KIND_AVG, KIND_MAX, KIND_BN, KIND_CAT = 0, 2, 6, 7, 9, 12


def b64(t):
    values = np.asarray(t.detach().numpy() if torch.is_tensor(t) else t, dtype="<f4").reshape(-1)
    return base64.b64encode(values.tobytes()).decode("ascii") if values.size else ""


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    out_dir = os.path.join(here, "..", "tests", "data", "e2e")
    torch.manual_seed(20261124)

    conv = nn.Conv2d(1, C, 3, padding=1, bias=True)
    bn_a = nn.BatchNorm2d(C, eps=1e-3)
    bn_p = nn.BatchNorm2d(C, eps=1e-5, affine=False)
    with torch.no_grad():
        for bn in (bn_a, bn_p):
            bn.running_mean.copy_(torch.randn(C) * 0.5)
            bn.running_var.copy_(torch.rand(C) * 2.0 + 0.1)
        bn_a.weight.copy_(torch.randn(C))
        bn_a.bias.copy_(torch.randn(C))
    for m in (conv, bn_a, bn_p):
        m.eval()
    avg_x = nn.AvgPool2d(3, 2, 1, count_include_pad=False)
    avg_i = nn.AvgPool2d(3, 2, 1, count_include_pad=True)

    def forward(x):
        c = conv(x)
        max_p = F.max_pool2d(F.pad(c, (1, 1, 1, 1), value=0.0), 3, 2)
        cat_b = torch.cat([avg_i(bn_p(c)), max_p], 1)
        return torch.cat([cat_b, avg_x(bn_a(c))], 1)

    inputs = (torch.rand(BLOCKS, 1, 1, H, W) * 4.0 - 2.0).float()
    with torch.no_grad():
        outputs = torch.stack([forward(x) for x in inputs])
    assert tuple(outputs.shape[1:]) == (1, 3 * C, 4, 6), outputs.shape

    def layer(cls, kind, lid, inputs_, **fields):
        obj = {"serializable_type": cls, "type": kind, "id": lid, "input_ids": inputs_, "read_count": 0}
        obj.update(fields)
        return obj

    def pool(kind, lid, src, include_pad=None):
        f = dict(kernel_x=3, kernel_y=3, padding_l=1, padding_t=1, padding_r=1, padding_b=1, stride_x=2, stride_y=2)
        if kind == KIND_MAX:
            f.update(dilation_x=1, dilation_y=1, ceil_mode=False)
            return layer("MaxPool2dInfo", kind, lid, [src], **f)
        f.update(ceil_mode=False, count_include_pad=include_pad)
        return layer("AvgPool2dInfo", kind, lid, [src], **f)

    def bn(lid, m, affine):
        return layer("BatchNorm2dInfo", KIND_BN, lid, ["conv"], num_features=C, eps=m.eps, momentum=0.1,
                     if_affine=affine, if_track_running_stats=True, scale=b64(m.weight) if affine else "",
                     shift=b64(m.bias) if affine else "", variance=b64(m.running_var), mean=b64(m.running_mean),
                     num_batches_tracked=0)

    layers = [
        layer("InputInfo", KIND_INPUT, "input", [], location=0),
        layer("Conv2dInfo", KIND_CONV, "conv", ["input"], in_channels=1, out_channels=C, kernel_x=3, kernel_y=3,
              padding_l=1, padding_t=1, padding_r=1, padding_b=1, stride_x=1, stride_y=1, dilation_x=1,
              dilation_y=1, groups=1, if_bias=True, weight=b64(conv.weight), bias=b64(conv.bias)),
        bn("bn_a", bn_a, True),
        bn("bn_p", bn_p, False),
        pool(KIND_AVG, "avg_x", "bn_a", False),
        pool(KIND_AVG, "avg_i", "bn_p", True),
        pool(KIND_MAX, "max_p", "conv"),
        layer("ConcatenateInfo", KIND_CAT, "cat_b", ["avg_i", "max_p"], dim=1),
        layer("ConcatenateInfo", KIND_CAT, "cat", ["cat_b", "avg_x"], dim=1),
    ]
    model = {"serialization_protocol_version": PROTOCOL_VERSION, "serializable_type": "ZVModelInfo",
             "squential_output_ids": ["cat"],
             "extra_info": {"serializable_type": "NetExtraInfo", "version": 1, "app_type": 0, "model_id": 0,
                            "model_base_h": H, "model_base_w": W, "fmlas": 0,
                            "time": {"serializable_type": "TimeInfo", "year": 2026, "moon": 1, "day": 1, "hour": 0,
                                     "min": 0, "sec": 0},
                            "device": "cpu", "summary": "pooling, batch norm and concatenation, random weights"},
             "squential_ids": [l["id"] for l in layers], "squential_types": [l["type"] for l in layers]}
    for l in layers:
        model[l["id"]] = l

    def kernel_cfg(name):
        return {"serializable_type": "KernelCfg", "kernel_type": name, "infer_param_type": ""}

    def converters(entries):
        arr = {"serializable_type": "KernelCfgArr", "kernel_ids": [k for k, _ in entries]}
        for k, name in entries:
            arr[k] = kernel_cfg(name)
        return arr

    kernels = [
        ("input", "Input_Fallback_M1", []),
        ("conv", "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", []),
        ("bn_a", "BatchNorm2d_Fallback_Float_M1", []),
        ("bn_p", "BatchNorm2d_Fallback_Float_M1", []),
        ("avg_x", "Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1", []),
        ("avg_i", "Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1",
         [("0", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1")]),
        ("max_p", "Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1", []),
        ("cat_b", "Concatenate_C_Fallback_CnHWn_M1", [("1", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1")]),
        ("cat", "Concatenate_C_Fallback_CnHWn_M1", [("0", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1")]),
    ]

    def config(ks):
        sse = {"serializable_type": "ZVModelCfg", "summary": "pooling net", "squential_ids": [k for k, _, _ in ks]}
        for lid, name, conv_in in ks:
            sse[lid] = {"serializable_type": "LayerCfg", "summary": "", "input_converters": converters(conv_in),
                        "kernel": kernel_cfg(name), "output_converters": converters([])}
        return {"serialization_protocol_version": PROTOCOL_VERSION, "serializable_type": "ZVModelMultiBackendCfgs",
                "cpu_sse": sse}

    def write_json(name, obj):
        with open(os.path.join(out_dir, name), "w") as f:
            json.dump(obj, f, indent=1)
            f.write("\n")

    write_json("pool_net.json", model)
    write_json("pool_net.cfg.json", config(kernels))
    inputs.numpy().astype("<f4").tofile(os.path.join(out_dir, "pool_net_input.f32"))
    outputs.numpy().astype("<f4").tofile(os.path.join(out_dir, "pool_net_expected.f32"))

    bad_window = [(lid, "Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1" if lid == "avg_x" else name, conv_in)
                  for lid, name, conv_in in kernels]
    write_json("pool_net_bad_window.cfg.json", config(bad_window))
    bad_layouts = [(lid, name, [] if lid == "cat_b" else conv_in) for lid, name, conv_in in kernels]
    write_json("pool_net_bad_layouts.cfg.json", config(bad_layouts))
    bad_axis = copy.deepcopy(model)
    bad_axis["cat"]["dim"] = 2
    write_json("pool_net_bad_axis.json", bad_axis)
    print("pool net: %d blocks, output range [%.4f, %.4f]" % (BLOCKS, outputs.min(), outputs.max()))


if __name__ == "__main__":
    main()

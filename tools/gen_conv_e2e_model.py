#!/usr/bin/python3
"""Builds a small convolutional network in PyTorch with random weights and writes the fixture of the
end-to-end convolution test, which streams it through the denoise engine's public entry points.

  denoise_conv  Input (1 x 9 x 13 block) -> 3x3 conv 1 -> 8 (planar) -> 3x3 conv 8 -> 16 (8-blocked)
                -> 5x5 depthwise (4-blocked) -> 1x1 conv 16 -> 8 (4-blocked) -> 3x3 stride-2 depthwise
                (8-blocked) -> 3x3 conv 8 -> 1 (8-blocked in, planar out) -> ReLU: 5 x 7 outputs.
                Layout converters between the layers that disagree on layout, as the configuration
                places them.

  denoise_decoder Input (1 x 4 x 5 block) -> 3x3 conv 1 -> 8 (planar) -> 3x3 transposed conv 8 -> 16, stride 2,
                padding 1, output padding 1 (8-blocked) -> bilinear upsampling x2 (4-blocked) -> pixel shuffle
                by 2 (4-blocked) -> 1x1 conv 4 -> 1 (planar): 32 x 40 outputs.

Files, under tests/data/e2e/ by default, for each <net>:
  <net>.json, <net>.cfg.json   the model (weights as Base64 of float32) and its kernels
  <net>_input.f32              BLOCKS blocks of the model's block, back to back
  <net>_expected.f32           PyTorch's outputs, one block's after another

Run with Debian's PyTorch: /usr/bin/python3 tools/gen_conv_e2e_model.py [--out DIR] [--seed N] [--blocks N]
"""

import argparse
import json
import os

import numpy as np
import torch
import torch.nn as nn

from gen_e2e_models import PROTOCOL_VERSION, b64

KIND_INPUT = 0
KIND_ACTIVATION = 1
KIND_CONV2D = 2
KIND_CONV_TRANSPOSE2D = 3
KIND_UPSAMPLE2D = 10
KIND_PIXEL_SHUFFLE = 21
UPSAMPLE_BILINEAR = 1
ACT_RELU = 2
H, W = 9, 13

# (id, in, out, kernel, stride, groups, kernel name, input converter or None)
LAYERS = [
    ("conv1", 1, 8, 3, 1, 1, "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", None),
    ("conv2", 8, 16, 3, 1, 1, "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1",
     "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M2"),
    ("dw3", 16, 16, 5, 1, 16, "Depthwise_Conv2D_K5x5_S1x1_D1x1_SSE_C4HW4_FLOAT_M1",
     "LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1"),
    ("conv4", 16, 8, 1, 1, 1, "Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", None),
    ("dw5", 8, 8, 3, 2, 8, "Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1",
     "LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1"),
    ("conv6", 8, 1, 3, 1, 1, "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1", None),
]


class ConvNet(nn.Module):
    def __init__(self):
        super().__init__()
        self.convs = nn.ModuleList(
            nn.Conv2d(i, o, k, stride=s, padding=k // 2, groups=g) for _, i, o, k, s, g, _, _ in LAYERS)

    def forward(self, x):
        for conv in self.convs:
            x = conv(x)
        return torch.relu(x)


def layer_json(layer_id, kind, cls, inputs, **fields):
    obj = {"serializable_type": cls, "type": kind, "id": layer_id, "input_ids": inputs, "read_count": 0}
    obj.update(fields)
    return obj


def kernel_cfg(name):
    return {"serializable_type": "KernelCfg", "kernel_type": name, "infer_param_type": ""}


def converters(names):
    arr = {"serializable_type": "KernelCfgArr", "kernel_ids": [str(i) for i in range(len(names))]}
    for i, name in enumerate(names):
        arr[str(i)] = kernel_cfg(name)
    return arr


def files(net):
    ids = ["input"] + [l[0] for l in LAYERS] + ["act"]
    model = {"serialization_protocol_version": PROTOCOL_VERSION, "serializable_type": "ZVModelInfo",
             "squential_output_ids": ["act"],
             "extra_info": {"serializable_type": "NetExtraInfo", "version": 1, "app_type": 0, "model_id": 0,
                            "model_base_h": H, "model_base_w": W, "fmlas": 0,
                            "time": {"serializable_type": "TimeInfo", "year": 2026, "moon": 1, "day": 1,
                                     "hour": 0, "min": 0, "sec": 0},
                            "device": "cpu", "summary": "convolutional network, random weights"},
             "squential_ids": ids,
             "squential_types": [KIND_INPUT] + [KIND_CONV2D] * len(LAYERS) + [KIND_ACTIVATION]}
    model["input"] = layer_json("input", KIND_INPUT, "InputInfo", [], location=0)
    cfg = {"serializable_type": "ZVModelCfg", "summary": "planar and blocked convolutions",
           "squential_ids": ids}

    def layer_cfg(kernel, before=None):
        return {"serializable_type": "LayerCfg", "summary": "", "input_converters": converters(
            [before] if before else []), "kernel": kernel_cfg(kernel), "output_converters": converters([])}

    cfg["input"] = layer_cfg("Input_Fallback_M1")
    previous = "input"
    for (layer_id, i, o, k, s, g, kernel, before), conv in zip(LAYERS, net.convs):
        model[layer_id] = layer_json(
            layer_id, KIND_CONV2D, "Conv2dInfo", [previous], in_channels=i, out_channels=o, kernel_x=k,
            kernel_y=k, padding_l=k // 2, padding_t=k // 2, padding_r=k // 2, padding_b=k // 2, stride_x=s,
            stride_y=s, dilation_x=1, dilation_y=1, groups=g, if_bias=True,
            weight=b64(conv.weight.detach().numpy().reshape(-1)), bias=b64(conv.bias.detach().numpy()))
        cfg[layer_id] = layer_cfg(kernel, before)
        previous = layer_id
    model["act"] = layer_json("act", KIND_ACTIVATION, "ActivationInfo", [previous], activation_type=ACT_RELU,
                              activation_alpha=1.0, activation_beta=0.0, num_parameters=1, weight="")
    cfg["act"] = layer_cfg("ReLU_SSE_Float_M1")
    return model, {"serialization_protocol_version": PROTOCOL_VERSION,
                   "serializable_type": "ZVModelMultiBackendCfgs", "cpu_sse": cfg}


class Decoder(nn.Module):
    def __init__(self):
        super().__init__()
        self.conv1 = nn.Conv2d(1, 8, 3, padding=1)
        self.up1 = nn.ConvTranspose2d(8, 16, 3, stride=2, padding=1, output_padding=1)
        self.shuffle = nn.PixelShuffle(2)
        self.conv2 = nn.Conv2d(4, 1, 1)

    def forward(self, x):
        x = self.up1(self.conv1(x))
        x = nn.functional.interpolate(x, scale_factor=2.0, mode="bilinear", align_corners=False)
        return self.conv2(self.shuffle(x))


def conv_fields(conv, transposed=False):
    k = conv.kernel_size[0]
    p = conv.padding[0]
    q = conv.output_padding[0] if transposed else 0
    return dict(in_channels=conv.in_channels, out_channels=conv.out_channels, kernel_x=k, kernel_y=k,
                padding_l=p, padding_t=p, padding_r=p - q, padding_b=p - q, stride_x=conv.stride[0],
                stride_y=conv.stride[0], dilation_x=1, dilation_y=1, groups=1, if_bias=True,
                weight=b64(conv.weight.detach().numpy().reshape(-1)), bias=b64(conv.bias.detach().numpy()))


def decoder_files(net, h, w):
    # (id, kind, class, fields, kernel, input converter, output converter)
    layers = [
        ("conv1", KIND_CONV2D, "Conv2dInfo", conv_fields(net.conv1), "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
         None, None),
        ("up1", KIND_CONV_TRANSPOSE2D, "ConvTranspose2dInfo", conv_fields(net.up1, True),
         "ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1",
         None),
        ("bilinear", KIND_UPSAMPLE2D, "Upsample2dInfo",
         dict(scale_factor_y=2.0, scale_factor_x=2.0, align_corner=False, unsample_type=UPSAMPLE_BILINEAR,
              scale_width=0.0, scale_height=0.0),
         "Upsampling2D_Bilinear_SSE_C4HW4_Float_M2", "LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1",
         None),
        ("shuffle", KIND_PIXEL_SHUFFLE, "PixelShuffleInfo", dict(upscale_factor=2.0),
         "PixelShuffle_Upscale2_SSE_C4HW4_Float_M1", None, "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1"),
        ("conv2", KIND_CONV2D, "Conv2dInfo", conv_fields(net.conv2), "Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
         None, None),
    ]
    ids = ["input"] + [l[0] for l in layers]
    model = {"serialization_protocol_version": PROTOCOL_VERSION, "serializable_type": "ZVModelInfo",
             "squential_output_ids": [ids[-1]],
             "extra_info": {"serializable_type": "NetExtraInfo", "version": 1, "app_type": 0, "model_id": 0,
                            "model_base_h": h, "model_base_w": w, "fmlas": 0,
                            "time": {"serializable_type": "TimeInfo", "year": 2026, "moon": 1, "day": 1,
                                     "hour": 0, "min": 0, "sec": 0},
                            "device": "cpu", "summary": "decoder network, random weights"},
             "squential_ids": ids, "squential_types": [KIND_INPUT] + [l[1] for l in layers]}
    model["input"] = layer_json("input", KIND_INPUT, "InputInfo", [], location=0)
    cfg = {"serializable_type": "ZVModelCfg", "summary": "decoder", "squential_ids": ids,
           "input": {"serializable_type": "LayerCfg", "summary": "", "input_converters": converters([]),
                     "kernel": kernel_cfg("Input_Fallback_M1"), "output_converters": converters([])}}
    previous = "input"
    for layer_id, kind, cls, fields, kernel, before, after in layers:
        model[layer_id] = layer_json(layer_id, kind, cls, [previous], **fields)
        cfg[layer_id] = {"serializable_type": "LayerCfg", "summary": "",
                         "input_converters": converters([before] if before else []), "kernel": kernel_cfg(kernel),
                         "output_converters": converters([after] if after else [])}
        previous = layer_id
    return model, {"serialization_protocol_version": PROTOCOL_VERSION,
                   "serializable_type": "ZVModelMultiBackendCfgs", "cpu_sse": cfg}


def write_net(out, stem, model, cfg, inputs, outputs):
    for name, obj in ((stem + ".json", model), (stem + ".cfg.json", cfg)):
        with open(os.path.join(out, name), "w") as f:
            json.dump(obj, f, indent=1)
            f.write("\n")
    inputs.astype("<f4").tofile(os.path.join(out, stem + "_input.f32"))
    outputs.astype("<f4").tofile(os.path.join(out, stem + "_expected.f32"))
    print("%s: %d blocks of %d outputs, max %.4f" % (stem, len(inputs), outputs.shape[1], outputs.max()))


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default=os.path.join(here, "..", "tests", "data", "e2e"))
    parser.add_argument("--seed", type=int, default=20016)
    parser.add_argument("--blocks", type=int, default=20)
    args = parser.parse_args()
    rng = np.random.default_rng(args.seed)
    net = ConvNet().eval()
    with torch.no_grad():
        for p in net.parameters():
            p.copy_(torch.from_numpy(rng.uniform(-0.4, 0.4, size=tuple(p.shape)).astype(np.float32)))
    inputs = rng.uniform(-1.5, 1.5, size=(args.blocks, 1, 1, H, W)).astype(np.float32)
    with torch.no_grad():
        outputs = np.stack([net(torch.from_numpy(x)).numpy().reshape(-1) for x in inputs]).astype(np.float32)
    os.makedirs(args.out, exist_ok=True)
    write_net(args.out, "denoise_conv", *files(net), inputs, outputs)

    decoder = Decoder().eval()
    with torch.no_grad():
        for p in decoder.parameters():
            p.copy_(torch.from_numpy(rng.uniform(-0.4, 0.4, size=tuple(p.shape)).astype(np.float32)))
    dec_inputs = rng.uniform(-1.5, 1.5, size=(args.blocks, 1, 1, 4, 5)).astype(np.float32)
    with torch.no_grad():
        dec_outputs = np.stack([decoder(torch.from_numpy(x)).numpy().reshape(-1) for x in dec_inputs])
    write_net(args.out, "denoise_decoder", *decoder_files(decoder, 4, 5), dec_inputs, dec_outputs.astype(np.float32))

if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Builds the fused denoise network in PyTorch with random weights and writes the fixtures of its test.

Outputs (under tests/data/ by default):
  denoise_fused_model.json   the network as a JSON model file (layers "0" to "25"), weights as Base64 of
                             little-endian float32 values that are exactly representable in half precision
                             (each drawn value is narrowed to half by truncation toward zero, not rounding)
  denoise_fused_input.f32    BLOCKS blocks of 1 x 7 x 80 float32 features, back to back
  denoise_fused_output.f32   PyTorch's 80 outputs per block, streaming: the GRU state runs on from block to
                             block, starting from zero

Layers: 0 input; 1 depthwise 3x3 (1 channel); 2, 4 pointwise 1 -> 16; 3 hard sigmoid; 5 ReLU; 6 product;
7 depthwise 3x3 (16); 8, 10 pointwise 16 -> 16; 9 hard sigmoid; 11 ReLU; 12 product; 13 depthwise 3x3 (16);
14, 16 pointwise 16 -> 1; 15 hard sigmoid; 17 ReLU; 18 product; 19 reshape to 1 x 74; 20, 21, 22 GRU 256;
23 reshape to 256; 24 dense 256 -> 80; 25 ReLU (the output).

Run with Debian's PyTorch: /usr/bin/python3 tools/gen_denoise_model.py [--out DIR] [--seed N] [--blocks N]
"""

import argparse
import base64
import json
import os

import numpy as np
import torch
import torch.nn as nn
import torch.nn.functional as F

PROTOCOL_VERSION = 20018

# Layer kinds of the model format.
KIND_INPUT = 0
KIND_ACTIVATION = 1
KIND_CONV2D = 2
KIND_ELEMENTWISE = 11
KIND_RESHAPE = 13
KIND_FULLCONNECTION = 17
KIND_GRU = 38

OP_MUL = 2


def truncate_to_half(values):
    """float32 -> nearest half -> one step toward zero where rounding went away from zero -> float32."""
    x = np.asarray(values, dtype=np.float32)
    h = x.astype(np.float16)
    away = np.abs(h.astype(np.float32)) > np.abs(x)
    h[away] = np.nextafter(h[away], np.float16(0))
    return h.astype(np.float32)


class DenoiseNet(nn.Module):
    def __init__(self):
        super().__init__()
        self.c1 = nn.Conv2d(1, 1, 3)
        self.c2 = nn.Conv2d(1, 16, 1)
        self.c4 = nn.Conv2d(1, 16, 1)
        self.c7 = nn.Conv2d(16, 16, 3, groups=16)
        self.c8 = nn.Conv2d(16, 16, 1)
        self.c10 = nn.Conv2d(16, 16, 1)
        self.c13 = nn.Conv2d(16, 16, 3, groups=16)
        self.c14 = nn.Conv2d(16, 1, 1)
        self.c16 = nn.Conv2d(16, 1, 1)
        self.g20 = nn.GRU(74, 256, batch_first=True)
        self.g21 = nn.GRU(256, 256, batch_first=True)
        self.g22 = nn.GRU(256, 256, batch_first=True)
        self.fc24 = nn.Linear(256, 80)

    def forward(self, x, h):
        """x: 1 x 1 x 7 x 80; h: the three hidden states (1 x 1 x 256 each). Returns 80 values and new states."""
        a = self.c1(x)
        m = F.hardsigmoid(self.c2(a)) * F.relu(self.c4(a))
        d = self.c7(m)
        m = F.hardsigmoid(self.c8(d)) * F.relu(self.c10(d))
        e = self.c13(m)
        v = F.hardsigmoid(self.c14(e)) * F.relu(self.c16(e))
        v = v.reshape(1, 1, 74)
        v, h20 = self.g20(v, h[0])
        v, h21 = self.g21(v, h[1])
        v, h22 = self.g22(v, h[2])
        y = F.relu(self.fc24(v.reshape(256)))
        return y, (h20, h21, h22)


def randomize(net, rng):
    """Draws every parameter uniformly at a scale that keeps the gates and the output away from saturation."""
    scales = {
        "c1": (0.6, 0.3), "c2": (1.5, 1.0), "c4": (1.5, 0.5), "c7": (0.6, 0.3), "c8": (0.5, 0.5),
        "c10": (0.5, 0.3), "c13": (0.6, 0.3), "c14": (0.8, 0.5), "c16": (0.8, 0.3), "fc24": (0.15, 0.2),
    }
    with torch.no_grad():
        for name, param in net.named_parameters():
            module = name.split(".")[0]
            if module.startswith("g"):
                scale = 0.5 if "bias" in name else (0.3 if module == "g20" and "ih" in name else 0.1)
            else:
                scale = scales[module][1 if name.endswith("bias") else 0]
            drawn = rng.uniform(-scale, scale, size=tuple(param.shape)).astype(np.float32)
            param.copy_(torch.from_numpy(truncate_to_half(drawn)))


def b64(tensor):
    data = tensor.detach().numpy().astype("<f4").tobytes()
    return base64.b64encode(data).decode("ascii")


def layer(kind_name, kind, layer_id, inputs):
    return {"serializable_type": kind_name, "type": kind, "id": layer_id, "input_ids": inputs, "read_count": 0}


def conv(layer_id, inputs, module):
    entry = layer("Conv2dInfo", KIND_CONV2D, layer_id, inputs)
    ky, kx = module.kernel_size
    entry.update({
        "in_channels": module.in_channels, "out_channels": module.out_channels, "kernel_x": kx, "kernel_y": ky,
        "padding_l": 0, "padding_t": 0, "padding_r": 0, "padding_b": 0, "stride_x": 1, "stride_y": 1,
        "dilation_x": 1, "dilation_y": 1, "groups": module.groups, "if_bias": True,
        "weight": b64(module.weight), "bias": b64(module.bias),
    })
    return entry


def activation(layer_id, inputs):
    # The function of an activation layer is named by the kernel configuration; the code stays at its default.
    entry = layer("ActivationInfo", KIND_ACTIVATION, layer_id, inputs)
    entry.update({"activation_type": 0, "activation_alpha": 1.0, "activation_beta": 0.0, "num_parameters": 1,
                  "weight": ""})
    return entry


def product(layer_id, inputs):
    entry = layer("ElementWiseOperatorInfo", KIND_ELEMENTWISE, layer_id, inputs)
    entry["op_type"] = OP_MUL
    return entry


def reshape(layer_id, inputs, shape):
    entry = layer("TensorReshapeInfo", KIND_RESHAPE, layer_id, inputs)
    entry["new_shape"] = shape
    return entry


def gru(layer_id, inputs, module):
    entry = layer("GRUInfo", KIND_GRU, layer_id, inputs)
    entry.update({
        "in_size": module.input_size, "hidden_size": module.hidden_size, "if_bias": True, "num_layers": 1,
        "bidirectional": False, "complex_rnn_type": 0,
        "weight_ih_forward": [b64(module.weight_ih_l0)], "weight_hh_forward": [b64(module.weight_hh_l0)],
        "bias_ih_forward": [b64(module.bias_ih_l0)], "bias_hh_forward": [b64(module.bias_hh_l0)],
        "weight_ih_reverse": [], "weight_hh_reverse": [], "bias_ih_reverse": [], "bias_hh_reverse": [],
    })
    return entry


def model_json(net):
    input_layer = layer("InputInfo", KIND_INPUT, "0", [])
    input_layer["location"] = 0
    dense = layer("FullConnectionInfo", KIND_FULLCONNECTION, "24", ["23"])
    dense.update({"in_features": 256, "out_features": 80, "if_bias": True, "weight": b64(net.fc24.weight),
                  "bias": b64(net.fc24.bias)})
    layers = [
        input_layer,
        conv("1", ["0"], net.c1),
        conv("2", ["1"], net.c2), activation("3", ["2"]),
        conv("4", ["1"], net.c4), activation("5", ["4"]),
        product("6", ["5", "3"]),
        conv("7", ["6"], net.c7),
        conv("8", ["7"], net.c8), activation("9", ["8"]),
        conv("10", ["7"], net.c10), activation("11", ["10"]),
        product("12", ["11", "9"]),
        conv("13", ["12"], net.c13),
        conv("14", ["13"], net.c14), activation("15", ["14"]),
        conv("16", ["13"], net.c16), activation("17", ["16"]),
        product("18", ["17", "15"]),
        reshape("19", ["18"], [1, 1, 74]),
        gru("20", ["19"], net.g20), gru("21", ["20"], net.g21), gru("22", ["21"], net.g22),
        reshape("23", ["22"], [1, 256]),
        dense,
        activation("25", ["24"]),
    ]
    root = {
        "serialization_protocol_version": PROTOCOL_VERSION,
        "serializable_type": "ZVModelInfo",
        "squential_output_ids": ["25"],
        "extra_info": {
            "serializable_type": "NetExtraInfo", "version": 4, "app_type": 0, "model_id": 0, "model_base_h": 7,
            "model_base_w": 80, "fmlas": 0,
            "time": {"serializable_type": "TimeInfo", "year": 0, "moon": 0, "day": 0, "hour": 0, "min": 0,
                     "sec": 0},
            "device": "", "summary": "fused denoise network, random weights",
        },
        "squential_ids": [entry["id"] for entry in layers],
        "squential_types": [entry["type"] for entry in layers],
    }
    for entry in layers:
        root[entry["id"]] = entry
    return root


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default=os.path.join(here, "..", "tests", "data"))
    parser.add_argument("--seed", type=int, default=20018)
    parser.add_argument("--blocks", type=int, default=6)
    args = parser.parse_args()

    rng = np.random.default_rng(args.seed)
    torch.manual_seed(args.seed)
    net = DenoiseNet().eval()
    randomize(net, rng)

    inputs = rng.uniform(-1.5, 1.5, size=(args.blocks, 7, 80)).astype(np.float32)
    outputs = np.zeros((args.blocks, 80), dtype=np.float32)
    with torch.no_grad():
        h = tuple(torch.zeros(1, 1, 256) for _ in range(3))
        for b in range(args.blocks):
            y, h = net(torch.from_numpy(inputs[b]).reshape(1, 1, 7, 80), h)
            outputs[b] = y.numpy()

    os.makedirs(args.out, exist_ok=True)
    with open(os.path.join(args.out, "denoise_fused_model.json"), "w") as f:
        json.dump(model_json(net), f, indent=1)
        f.write("\n")
    inputs.astype("<f4").tofile(os.path.join(args.out, "denoise_fused_input.f32"))
    outputs.astype("<f4").tofile(os.path.join(args.out, "denoise_fused_output.f32"))
    nonzero = int((outputs > 0).sum())
    print(f"{args.blocks} blocks, {nonzero} of {outputs.size} outputs above zero, max {outputs.max():.4f}")


if __name__ == "__main__":
    main()

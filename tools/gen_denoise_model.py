#!/usr/bin/python3
"""Builds the denoise network in PyTorch, with the trained weights of a checkpoint (--weights, from
tools/train_denoise.py) or with random ones; writes the bundled model, its configuration and the fixtures of the
tests.

With --weights the fixture blocks are the features of a recording (--audio, the bundled noisy example by default),
so the outputs are the gains the network gives real audio. Without it, weights and blocks are drawn at random.

Every weight (drawn or trained) is narrowed to half precision by truncation toward zero (not rounding) before anything is
computed, so the float32 weights PyTorch runs are exactly those the engine reads back from the binary model
(which stores half precision and narrows by truncation): the binary model and a JSON twin with float32
weights hold the same numbers.

Outputs:
  models/denoise.zvmod          the network as a binary model (layers "0" to "25"), written by
                                `zvkit convert` from the JSON form (half precision)
  models/denoise.cfg.json       the kernel configuration whose cpu_sse runs it on the generic path
  models/denoise_blocks.f32     --stream-blocks blocks of 1 x 7 x 80 float32 features for `zvkit run`
  tests/data/denoise_fused_input.f32    --blocks blocks of 1 x 7 x 80 float32 features, back to back
  tests/data/denoise_fused_output.f32   PyTorch's 80 outputs per block, streaming: the GRU state runs on from
                                        block to block, starting from zero
  --json PATH additionally keeps the JSON model (float32 weights, same values).

Layers: 0 input; 1 depthwise 3x3 (1 channel); 2, 4 pointwise 1 -> 16; 3 hard sigmoid; 5 ReLU; 6 product;
7 depthwise 3x3 (16); 8, 10 pointwise 16 -> 16; 9 hard sigmoid; 11 ReLU; 12 product; 13 depthwise 3x3 (16);
14, 16 pointwise 16 -> 1; 15 hard sigmoid; 17 ReLU; 18 product; 19 reshape to 1 x 74; 20, 21, 22 GRU 256;
23 reshape to 256; 24 dense 256 -> 80; 25 ReLU (the output).

Run with Debian's PyTorch, after building zvkit:
  /usr/bin/python3 tools/gen_denoise_model.py --weights CKPT [--audio WAV] [--zvkit build/zvkit] [--json PATH]
  /usr/bin/python3 tools/gen_denoise_model.py [--seed N] [--blocks N]      (random weights)
"""

import argparse
import base64
import json
import os
import subprocess
import tempfile

import sys

import numpy as np
import torch
import torch.nn as nn
import torch.nn.functional as F

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

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

# Activation codes of the model format.
ACT_RELU = 2
ACT_HSIGMOID = 7


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


def activation(layer_id, inputs, code):
    entry = layer("ActivationInfo", KIND_ACTIVATION, layer_id, inputs)
    entry.update({"activation_type": code, "activation_alpha": 1.0, "activation_beta": 0.0, "num_parameters": 1,
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
        conv("2", ["1"], net.c2), activation("3", ["2"], ACT_HSIGMOID),
        conv("4", ["1"], net.c4), activation("5", ["4"], ACT_RELU),
        product("6", ["5", "3"]),
        conv("7", ["6"], net.c7),
        conv("8", ["7"], net.c8), activation("9", ["8"], ACT_HSIGMOID),
        conv("10", ["7"], net.c10), activation("11", ["10"], ACT_RELU),
        product("12", ["11", "9"]),
        conv("13", ["12"], net.c13),
        conv("14", ["13"], net.c14), activation("15", ["14"], ACT_HSIGMOID),
        conv("16", ["13"], net.c16), activation("17", ["16"], ACT_RELU),
        product("18", ["17", "15"]),
        reshape("19", ["18"], [1, 1, 74]),
        gru("20", ["19"], net.g20), gru("21", ["20"], net.g21), gru("22", ["21"], net.g22),
        reshape("23", ["22"], [1, 256]),
        dense,
        activation("25", ["24"], ACT_RELU),
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
            "device": "", "summary": "denoise network, random weights (half precision)",
        },
        "squential_ids": [entry["id"] for entry in layers],
        "squential_types": [entry["type"] for entry in layers],
    }
    for entry in layers:
        root[entry["id"]] = entry
    return root


# The kernel of every layer on the generic path (configuration member cpu_sse). All of them work on planar
# (CHW) maps, so no layout converter is needed: the reshapes hand the GRUs a sequence and the dense layer a
# vector. The GRUs take their products through the BLAS (the SGEMM member): their three weight sets are most of
# the block's work, and with the host's features and synthesis around each block that member runs the whole
# pipeline about a tenth faster than the SSE one.
KERNELS = {
    "0": "Input_Fallback_M1",
    "1": "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
    "2": "Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
    "3": "HSigmoid_SSE_Float_M1",
    "4": "Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
    "5": "ReLU_SSE_Float_M1",
    "6": "Elementwise_Mul_SSE_Float_M1",
    "7": "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
    "8": "Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1",
    "9": "HSigmoid_SSE_Float_M1",
    "10": "Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1",
    "11": "ReLU_SSE_Float_M1",
    "12": "Elementwise_Mul_SSE_Float_M1",
    "13": "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
    "14": "Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
    "15": "HSigmoid_SSE_Float_M1",
    "16": "Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
    "17": "ReLU_SSE_Float_M1",
    "18": "Elementwise_Mul_SSE_Float_M1",
    "19": "Reshape_Fallback_To_SC_M1",
    "20": "GRU_SSE_SGEMM_SC_F32_M2",
    "21": "GRU_SSE_SGEMM_SC_F32_M2",
    "22": "GRU_SSE_SGEMM_SC_F32_M2",
    "23": "Reshape_Fallback_To_C_M1",
    "24": "FullConnection_SSE_C_Float_M1",
    "25": "ReLU_SSE_Float_M1",
}


def kernel_cfg(name):
    return {"serializable_type": "KernelCfg", "kernel_type": name, "infer_param_type": ""}


def config_json(layer_ids):
    cfg = {"serializable_type": "ZVModelCfg", "summary": "denoise network, generic path",
           "squential_ids": list(layer_ids)}
    for layer_id in layer_ids:
        cfg[layer_id] = {
            "serializable_type": "LayerCfg", "summary": "",
            "input_converters": {"serializable_type": "KernelCfgArr", "kernel_ids": []},
            "kernel": kernel_cfg(KERNELS[layer_id]),
            "output_converters": {"serializable_type": "KernelCfgArr", "kernel_ids": []},
        }
    return {"serialization_protocol_version": PROTOCOL_VERSION, "serializable_type": "ZVModelMultiBackendCfgs",
            "cpu_sse": cfg}


def stream(net, inputs):
    """PyTorch's outputs for the blocks in order, the GRU state carried from block to block from zero."""
    outputs = np.zeros((inputs.shape[0], 80), dtype=np.float32)
    with torch.no_grad():
        h = tuple(torch.zeros(1, 1, 256) for _ in range(3))
        for b in range(inputs.shape[0]):
            y, h = net(torch.from_numpy(inputs[b]).reshape(1, 1, 7, 80), h)
            outputs[b] = y.numpy()
    return outputs


def trained_net(path):
    """The network with a checkpoint's weights, each truncated to half. A checkpoint trained on shifted and
    scaled features, (x + shift) * scale, has that folded into the first convolution: W' = W * scale,
    b' = b + scale * shift * sum(W)."""
    net = DenoiseNet().eval()
    state = torch.load(path)
    net.load_state_dict(state.get("net", state))
    with torch.no_grad():
        if "input_scale" in state:
            scale, shift = state["input_scale"], state["input_shift"]
            w = net.c1.weight.clone()
            net.c1.weight.copy_(w * scale)
            net.c1.bias.add_(scale * shift * w.sum())
        for param in net.parameters():
            param.copy_(torch.from_numpy(truncate_to_half(param.numpy())))
    return net


def audio_blocks(path, count, skip=0):
    """count blocks of the recording's features from block skip on (wrapping around at its end)."""
    import wave
    import audio_features
    with wave.open(path, "rb") as w:
        x = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2").astype(np.float32) / 32768.0
    blocks = audio_features.denoise_blocks(audio_features.features(x))
    return blocks[(skip + np.arange(count)) % len(blocks)].astype(np.float32)


def build_net(seed):
    """The network with the committed weights (same seed, same draws)."""
    rng = np.random.default_rng(seed)
    torch.manual_seed(seed)
    net = DenoiseNet().eval()
    randomize(net, rng)
    return net, rng


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    root = os.path.join(here, "..")
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--models", default=os.path.join(root, "models"))
    parser.add_argument("--out", default=os.path.join(root, "tests", "data"))
    parser.add_argument("--zvkit", default=os.path.join(root, "build", "zvkit"))
    parser.add_argument("--json", default="", help="also keep the JSON model (float32 weights) here")
    parser.add_argument("--seed", type=int, default=20018)
    parser.add_argument("--blocks", type=int, default=60)
    parser.add_argument("--stream-blocks", type=int, default=200)
    parser.add_argument("--weights", default="", help="a checkpoint of tools/train_denoise.py")
    parser.add_argument("--audio", default=os.path.join(root, "models", "example_noisy.wav"),
                        help="with --weights: the recording whose feature blocks the fixtures hold")
    args = parser.parse_args()

    if args.weights:
        net = trained_net(args.weights)
        inputs = audio_blocks(args.audio, args.blocks)
        stream_inputs = audio_blocks(args.audio, args.stream_blocks, skip=args.blocks)
    else:
        net, rng = build_net(args.seed)
        inputs = rng.uniform(-1.5, 1.5, size=(args.blocks, 7, 80)).astype(np.float32)
        stream_inputs = rng.uniform(-1.5, 1.5, size=(args.stream_blocks, 7, 80)).astype(np.float32)
    outputs = stream(net, inputs)

    model = model_json(net)
    if args.weights:
        model["extra_info"]["summary"] = "denoise network, trained weights (half precision)"
    os.makedirs(args.models, exist_ok=True)
    os.makedirs(args.out, exist_ok=True)
    with tempfile.TemporaryDirectory() as tmp:
        json_path = args.json or os.path.join(tmp, "denoise.json")
        with open(json_path, "w") as f:
            json.dump(model, f, indent=1)
            f.write("\n")
        subprocess.run([args.zvkit, "convert", json_path, os.path.join(args.models, "denoise.zvmod"),
                        "--precision", "fp16"], check=True)
    with open(os.path.join(args.models, "denoise.cfg.json"), "w") as f:
        json.dump(config_json(model["squential_ids"]), f, indent=1)
        f.write("\n")
    stream_inputs.astype("<f4").tofile(os.path.join(args.models, "denoise_blocks.f32"))
    inputs.astype("<f4").tofile(os.path.join(args.out, "denoise_fused_input.f32"))
    outputs.astype("<f4").tofile(os.path.join(args.out, "denoise_fused_output.f32"))
    nonzero = int((outputs > 0).sum())
    print(f"{args.blocks} blocks, {nonzero} of {outputs.size} outputs above zero, max {outputs.max():.4f}")


if __name__ == "__main__":
    main()

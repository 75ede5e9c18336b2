#!/usr/bin/python3
"""Builds two small recurrent networks in PyTorch with random weights and writes the fixtures of the
end-to-end tests, which stream them through the two engines' public entry points.

  vad_gru      Input (1 x 2 x 40 block) -> reshape to a sequence [2, 40] -> GRU 40 -> 32 -> reshape to a
               vector [64] -> dense 64 -> 1 -> sigmoid. The VAD engine's kind of network.
  denoise_lstm Input (1 x 3 x 40 block) -> reshape to a sequence [3, 40] -> LSTM 40 -> 24 -> reshape to a
               vector [72] -> dense 72 -> 18 -> ReLU. Run through the denoise engine's generic path.

Files, under tests/data/e2e/ by default:
  <net>.json                 the model, weights as Base64 of little-endian float32, used as drawn
  <net>.cfg.json             the kernel configuration (cpu_sse); vad_gru_sgemm.cfg.json names the SGEMM GRU
  vad_gru.zvmod              binary twin at float32 (the VAD engine reads binary weights at full precision)
  denoise_lstm.zvmod         binary twin at half precision, each weight truncated toward zero (as the denoise
                             engine reads binary models)
  <net>_input.f32            BLOCKS blocks of the model's block size, float32, back to back
  <net>_expected.f32         PyTorch's outputs per block, streaming: the recurrent state runs on from block to
                             block, starting from zero
  denoise_lstm_expected_half.f32   the same from the weights truncated to half, the reference of the binary twin

The binary form is encoded here value by value, independently of the library's writer.

Run with Debian's PyTorch: /usr/bin/python3 tools/gen_e2e_models.py [--out DIR] [--seed N] [--blocks N]
"""

import argparse
import base64
import json
import os
import struct

import numpy as np
import torch
import torch.nn as nn

PROTOCOL_VERSION = 20018

KIND_INPUT = 0
KIND_ACTIVATION = 1
KIND_RESHAPE = 13
KIND_FULLCONNECTION = 17
KIND_LSTM = 36
KIND_GRU = 38

ACT_SIGMOID = 1
ACT_RELU = 2

RNN_LISTS = ["weight_ih_forward", "weight_hh_forward", "bias_ih_forward", "bias_hh_forward",
             "weight_ih_reverse", "weight_hh_reverse", "bias_ih_reverse", "bias_hh_reverse"]


def truncate_to_half(values):
    """float32 -> nearest half -> one step toward zero where rounding went away from zero -> float32."""
    x = np.asarray(values, dtype=np.float32)
    h = x.astype(np.float16)
    away = np.abs(h.astype(np.float32)) > np.abs(x)
    h[away] = np.nextafter(h[away], np.float16(0))
    return h.astype(np.float32)


# ---- the networks -----------------------------------------------------------------------------------------


class RecurrentNet(nn.Module):
    """block [1, T, F] -> sequence [T, F] -> recurrent layer -> vector [T * H] -> dense -> activation."""

    def __init__(self, kind, frames, features, hidden, outputs, activation):
        super().__init__()
        self.kind = kind
        self.frames = frames
        self.features = features
        cls = nn.GRU if kind == "gru" else nn.LSTM
        self.rnn = cls(features, hidden, batch_first=True)
        self.fc = nn.Linear(frames * hidden, outputs)
        self.activation = activation

    def zero_state(self):
        h = torch.zeros(1, 1, self.rnn.hidden_size)
        return h if self.kind == "gru" else (h, torch.zeros_like(h))

    def forward(self, block, state):
        seq, state = self.rnn(block.reshape(1, self.frames, self.features), state)
        y = self.fc(seq.reshape(-1))
        y = torch.sigmoid(y) if self.activation == ACT_SIGMOID else torch.relu(y)
        return y, state


def randomize(net, rng):
    with torch.no_grad():
        for name, param in net.named_parameters():
            if name.startswith("rnn."):
                scale = 0.4 if "bias" in name else (0.25 if "ih" in name else 0.2)
            else:
                scale = 0.1 if name.endswith("bias") else 0.2
            param.copy_(torch.from_numpy(rng.uniform(-scale, scale, size=tuple(param.shape)).astype(np.float32)))


def stream(net, inputs):
    """Runs the blocks one after another, carrying the recurrent state; one output row per block."""
    out = []
    with torch.no_grad():
        state = net.zero_state()
        for block in inputs:
            y, state = net(torch.from_numpy(block), state)
            out.append(y.numpy().copy())
    return np.stack(out).astype(np.float32)


def truncated_copy(net):
    twin = RecurrentNet(net.kind, net.frames, net.features, net.rnn.hidden_size, net.fc.out_features,
                        net.activation)
    with torch.no_grad():
        for (_, dst), (_, src) in zip(twin.named_parameters(), net.named_parameters()):
            dst.copy_(torch.from_numpy(truncate_to_half(src.detach().numpy())))
    return twin.eval()


# ---- the layer list, shared by both file forms ---------------------------------------------------------------


def floats(tensor):
    return tensor.detach().numpy().astype(np.float32).reshape(-1)


def layers_of(net):
    kind = KIND_GRU if net.kind == "gru" else KIND_LSTM
    rnn = net.rnn
    lists = {name: [] for name in RNN_LISTS}
    lists["weight_ih_forward"] = [floats(rnn.weight_ih_l0)]
    lists["weight_hh_forward"] = [floats(rnn.weight_hh_l0)]
    lists["bias_ih_forward"] = [floats(rnn.bias_ih_l0)]
    lists["bias_hh_forward"] = [floats(rnn.bias_hh_l0)]
    return [
        dict(kind=KIND_INPUT, cls="InputInfo", id="input", inputs=[], location=0),
        dict(kind=KIND_RESHAPE, cls="TensorReshapeInfo", id="to_sequence", inputs=["input"],
             new_shape=[1, -1, net.features]),
        dict(kind=kind, cls="GRUInfo" if kind == KIND_GRU else "LSTMInfo", id="rnn", inputs=["to_sequence"],
             in_size=net.features, hidden_size=rnn.hidden_size, if_bias=True, num_layers=1, bidirectional=False,
             complex_rnn_type=0, lists=lists),
        dict(kind=KIND_RESHAPE, cls="TensorReshapeInfo", id="to_vector", inputs=["rnn"], new_shape=[1, -1]),
        dict(kind=KIND_FULLCONNECTION, cls="FullConnectionInfo", id="dense", inputs=["to_vector"],
             in_features=net.fc.in_features, out_features=net.fc.out_features, if_bias=True,
             weight=floats(net.fc.weight), bias=floats(net.fc.bias)),
        dict(kind=KIND_ACTIVATION, cls="ActivationInfo", id="act", inputs=["dense"],
             activation_type=net.activation, activation_alpha=1.0, activation_beta=0.0, num_parameters=1,
             weight=""),
    ]


def extra_info(net, summary):
    return dict(version=1, app_type=0, model_id=0, model_base_h=net.frames, model_base_w=net.features, fmlas=0,
                time=dict(year=2026, moon=1, day=1, hour=0, min=0, sec=0), device="cpu", summary=summary)


# ---- JSON form --------------------------------------------------------------------------------------------


def b64(values):
    if len(values) == 0:
        return ""
    return base64.b64encode(np.asarray(values, dtype="<f4").tobytes()).decode("ascii")


def model_json(layers, extra):
    root = {"serialization_protocol_version": PROTOCOL_VERSION, "serializable_type": "ZVModelInfo",
            "squential_output_ids": [layers[-1]["id"]]}
    info = {"serializable_type": "NetExtraInfo"}
    for key in ("version", "app_type", "model_id", "model_base_h", "model_base_w", "fmlas"):
        info[key] = extra[key]
    info["time"] = dict(serializable_type="TimeInfo", **extra["time"])
    info["device"] = extra["device"]
    info["summary"] = extra["summary"]
    root["extra_info"] = info
    root["squential_ids"] = [l["id"] for l in layers]
    root["squential_types"] = [l["kind"] for l in layers]
    for l in layers:
        obj = {"serializable_type": l["cls"], "type": l["kind"], "id": l["id"], "input_ids": l["inputs"],
               "read_count": 0}
        if l["kind"] == KIND_INPUT:
            obj["location"] = l["location"]
        elif l["kind"] == KIND_RESHAPE:
            obj["new_shape"] = l["new_shape"]
        elif l["kind"] in (KIND_GRU, KIND_LSTM):
            for key in ("in_size", "hidden_size", "if_bias", "num_layers", "bidirectional", "complex_rnn_type"):
                obj[key] = l[key]
            for name in RNN_LISTS:
                obj[name] = [b64(w) for w in l["lists"][name]]
        elif l["kind"] == KIND_FULLCONNECTION:
            obj.update(in_features=l["in_features"], out_features=l["out_features"], if_bias=l["if_bias"],
                       weight=b64(l["weight"]), bias=b64(l["bias"]))
        elif l["kind"] == KIND_ACTIVATION:
            for key in ("activation_type", "activation_alpha", "activation_beta", "num_parameters", "weight"):
                obj[key] = l[key]
        root[l["id"]] = obj
    return root


# ---- binary form: little-endian, no padding, uint64 counts ----------------------------------------------


class Bin:
    def __init__(self, precision):
        self.out = bytearray()
        self.precision = precision

    def pack(self, fmt, *values):
        self.out += struct.pack("<" + fmt, *values)

    def string(self, s):
        data = s.encode("utf-8")
        self.pack("Q", len(data))
        self.out += data

    def strings(self, items):
        self.pack("Q", len(items))
        for s in items:
            self.string(s)

    def vector(self, fmt, items):
        self.pack("Q", len(items))
        for v in items:
            self.pack(fmt, v)

    def weights(self, values):
        """A weight data field: count, then half (truncated toward zero) or float32 values."""
        values = np.asarray(values, dtype=np.float32)
        self.pack("Q", len(values))
        if self.precision == "fp16":
            self.out += truncate_to_half(values).astype("<f2").tobytes()
        else:
            self.out += values.astype("<f4").tobytes()


def model_bin(layers, extra, precision):
    b = Bin(precision)
    b.pack("I", PROTOCOL_VERSION)
    b.string("ZVModelInfo")
    b.strings([layers[-1]["id"]])
    b.string("NetExtraInfo")
    for key in ("version", "app_type", "model_id", "model_base_h", "model_base_w"):
        b.pack("I", extra[key])
    b.pack("Q", extra["fmlas"])
    b.string("TimeInfo")
    for key in ("year", "moon", "day", "hour", "min", "sec"):
        b.pack("I", extra["time"][key])
    b.string(extra["device"])
    b.string(extra["summary"])
    b.strings([l["id"] for l in layers])
    b.vector("H", [l["kind"] for l in layers])
    for l in layers:
        b.string(l["cls"])
        b.pack("H", l["kind"])
        b.string(l["id"])
        b.strings(l["inputs"])
        b.pack("H", 0)  # read_count
        if l["kind"] == KIND_INPUT:
            b.pack("H", l["location"])
        elif l["kind"] == KIND_RESHAPE:
            b.vector("h", l["new_shape"])
        elif l["kind"] in (KIND_GRU, KIND_LSTM):
            b.pack("HH?H?H", l["in_size"], l["hidden_size"], l["if_bias"], l["num_layers"], l["bidirectional"],
                   l["complex_rnn_type"])
            for name in RNN_LISTS:
                b.pack("Q", len(l["lists"][name]))
                for w in l["lists"][name]:
                    b.weights(w)
        elif l["kind"] == KIND_FULLCONNECTION:
            b.pack("HH?", l["in_features"], l["out_features"], l["if_bias"])
            b.weights(l["weight"])
            b.weights(l["bias"])
        elif l["kind"] == KIND_ACTIVATION:
            b.pack("Heeh", l["activation_type"], l["activation_alpha"], l["activation_beta"], l["num_parameters"])
            b.string(l["weight"])
    return bytes(b.out)


# ---- configuration -------------------------------------------------------------------------------------------


def config(kernels, summary):
    empty = {"serializable_type": "KernelCfgArr", "kernel_ids": []}
    sse = {"serializable_type": "ZVModelCfg", "summary": summary, "squential_ids": [k for k, _ in kernels]}
    for layer_id, name in kernels:
        sse[layer_id] = {"serializable_type": "LayerCfg", "summary": "", "input_converters": empty,
                         "kernel": {"serializable_type": "KernelCfg", "kernel_type": name, "infer_param_type": ""},
                         "output_converters": empty}
    return {"serialization_protocol_version": PROTOCOL_VERSION, "serializable_type": "ZVModelMultiBackendCfgs",
            "cpu_sse": sse}


def kernels_of(rnn_kernel, act_kernel):
    return [("input", "Input_Fallback_M1"), ("to_sequence", "Reshape_Fallback_To_SC_M1"), ("rnn", rnn_kernel),
            ("to_vector", "Reshape_Fallback_To_C_M1"), ("dense", "FullConnection_SSE_C_Float_M1"),
            ("act", act_kernel)]


# ---- main ----------------------------------------------------------------------------------------------------


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default=os.path.join(here, "..", "tests", "data", "e2e"))
    parser.add_argument("--seed", type=int, default=20018)
    parser.add_argument("--blocks", type=int, default=100)
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)
    rng = np.random.default_rng(args.seed)
    torch.manual_seed(args.seed)

    def path(name):
        return os.path.join(args.out, name)

    def write_json(name, obj):
        with open(path(name), "w") as f:
            json.dump(obj, f, indent=1)
            f.write("\n")

    def write_bytes(name, data):
        with open(path(name), "wb") as f:
            f.write(data)

    # VAD: two frames of 40 features per block, GRU 32, one probability.
    vad = RecurrentNet("gru", frames=2, features=40, hidden=32, outputs=1, activation=ACT_SIGMOID).eval()
    randomize(vad, rng)
    vad_layers = layers_of(vad)
    vad_extra = extra_info(vad, "VAD-style GRU network, random weights")
    vad_inputs = rng.uniform(-1.5, 1.5, size=(args.blocks, 1, vad.frames, vad.features)).astype(np.float32)
    vad_outputs = stream(vad, vad_inputs)
    write_json("vad_gru.json", model_json(vad_layers, vad_extra))
    write_bytes("vad_gru.zvmod", model_bin(vad_layers, vad_extra, "fp32"))
    write_json("vad_gru.cfg.json", config(kernels_of("GRU_SSE_SC_F32_M1", "Sigmoid_SSE_Float_M1"), "GRU"))
    write_json("vad_gru_sgemm.cfg.json",
               config(kernels_of("GRU_SSE_SGEMM_SC_F32_M2", "Sigmoid_SSE_Float_M1"), "GRU by SGEMM"))
    vad_inputs.astype("<f4").tofile(path("vad_gru_input.f32"))
    vad_outputs.astype("<f4").tofile(path("vad_gru_expected.f32"))

    # Denoise: three frames of 40 features per block, LSTM 24, 18 gains.
    den = RecurrentNet("lstm", frames=3, features=40, hidden=24, outputs=18, activation=ACT_RELU).eval()
    randomize(den, rng)
    den_layers = layers_of(den)
    den_extra = extra_info(den, "LSTM network for the denoise engine, random weights")
    den_inputs = rng.uniform(-1.5, 1.5, size=(args.blocks, 1, den.frames, den.features)).astype(np.float32)
    den_outputs = stream(den, den_inputs)
    den_outputs_half = stream(truncated_copy(den), den_inputs)
    write_json("denoise_lstm.json", model_json(den_layers, den_extra))
    write_bytes("denoise_lstm.zvmod", model_bin(den_layers, den_extra, "fp16"))
    write_json("denoise_lstm.cfg.json", config(kernels_of("LSTM_SSE_SC_F32_M1", "ReLU_SSE_Float_M1"), "LSTM"))
    den_inputs.astype("<f4").tofile(path("denoise_lstm_input.f32"))
    den_outputs.astype("<f4").tofile(path("denoise_lstm_expected.f32"))
    den_outputs_half.astype("<f4").tofile(path("denoise_lstm_expected_half.f32"))

    print("vad: %d blocks, output range [%.4f, %.4f]" % (args.blocks, vad_outputs.min(), vad_outputs.max()))
    print("denoise: %d blocks, %d of %d outputs above zero, max %.4f, largest change from half weights %.2e" % (
        args.blocks, int((den_outputs > 0).sum()), den_outputs.size, den_outputs.max(),
        float(np.abs(den_outputs - den_outputs_half).max())))


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Writes the small model and configuration fixtures under tests/data/.

  tests/data/models/   valid files: a JSON model and configuration, and their binary twins (fp16 weights,
                       the precision the extension route reads; every weight is exact in half precision, so
                       the twins load to the same objects as the JSON files)
  tests/data/bad/      files every loader must refuse cleanly; MANIFEST lists, per file, the loader
                       ("model", "model_fp32" or "cfg") and the text the refusal must carry

The binary form is written here by hand, value by value, independently of the library's writer, so the
fixtures also check the library's reader against a second encoder. Plain python3, no dependencies.

  python3 tools/make_test_models.py [repo root]
"""
import base64
import json
import os
import random
import struct
import sys

VERSION = 20018

# ---- binary encoder: little-endian, no padding, uint64 counts ---------------------------------------------


class Bin:
    def __init__(self):
        self.out = bytearray()

    def u8(self, v):
        self.out += struct.pack("<B", v)

    def boolean(self, v):
        self.u8(1 if v else 0)

    def u16(self, v):
        self.out += struct.pack("<H", v)

    def i16(self, v):
        self.out += struct.pack("<h", v)

    def u32(self, v):
        self.out += struct.pack("<I", v)

    def u64(self, v):
        self.out += struct.pack("<Q", v)

    def half(self, v):
        self.out += struct.pack("<e", v)

    def string(self, s):
        data = s.encode("utf-8")
        self.u64(len(data))
        self.out += data

    def strings(self, items):
        self.u64(len(items))
        for s in items:
            self.string(s)

    def u16s(self, items):
        self.u64(len(items))
        for v in items:
            self.u16(v)

    def weights(self, floats):
        """A weight data field at fp16: count, then the half values."""
        self.u64(len(floats))
        for v in floats:
            self.half(v)

    def weight_list(self, lists):
        self.u64(len(lists))
        for floats in lists:
            self.weights(floats)


def b64(floats):
    """The in-memory and JSON form of weights: Base64 of little-endian float32."""
    if not floats:
        return ""
    return base64.b64encode(struct.pack("<%df" % len(floats), *floats)).decode("ascii")


def half_exact(rng, n):
    # Multiples of 1/64 in [-2, 2]: exact in half precision, so fp16 files lose nothing.
    return [rng.randint(-128, 128) / 64.0 for _ in range(n)]


# ---- the model -------------------------------------------------------------------------------------------

RNN_LISTS = ["weight_ih_forward", "weight_hh_forward", "bias_ih_forward", "bias_hh_forward",
             "weight_ih_reverse", "weight_hh_reverse", "bias_ih_reverse", "bias_hh_reverse"]


def model_layers():
    rng = random.Random(20018)
    fc_w = half_exact(rng, 8 * 4)
    fc_b = half_exact(rng, 4)
    gru = {name: [] for name in RNN_LISTS}
    gru["weight_ih_forward"] = [half_exact(rng, 3 * 3 * 4)]
    gru["weight_hh_forward"] = [half_exact(rng, 3 * 3 * 3)]
    gru["bias_ih_forward"] = [half_exact(rng, 3 * 3)]
    gru["bias_hh_forward"] = [half_exact(rng, 3 * 3)]
    return [
        dict(kind=0, cls="InputInfo", id="input", inputs=[], read_count=1, location=0),
        dict(kind=17, cls="FullConnectionInfo", id="fc", inputs=["input"], read_count=1, in_features=8,
             out_features=4, if_bias=True, weight=fc_w, bias=fc_b),
        dict(kind=38, cls="GRUInfo", id="gru", inputs=["fc"], read_count=1, in_size=4, hidden_size=3,
             if_bias=True, num_layers=1, bidirectional=False, complex_rnn_type=0, lists=gru),
        dict(kind=1, cls="ActivationInfo", id="act", inputs=["gru"], read_count=0, activation_type=2,
             activation_alpha=1.0, activation_beta=0.5, num_parameters=1, weight=""),
    ]


EXTRA = dict(version=3, app_type=1, model_id=77, model_base_h=7, model_base_w=80, fmlas=123456789012,
             time=dict(year=2024, moon=5, day=17, hour=9, min=30, sec=12), device="cpu",
             summary="tiny fixture: input, fully connected, GRU, activation")


def model_json(layers):
    root = {"serialization_protocol_version": VERSION, "serializable_type": "ZVModelInfo",
            "squential_output_ids": ["act"]}
    extra = {"serializable_type": "NetExtraInfo"}
    for key in ("version", "app_type", "model_id", "model_base_h", "model_base_w", "fmlas"):
        extra[key] = EXTRA[key]
    extra["time"] = dict(serializable_type="TimeInfo", **EXTRA["time"])
    extra["device"] = EXTRA["device"]
    extra["summary"] = EXTRA["summary"]
    root["extra_info"] = extra
    root["squential_ids"] = [l["id"] for l in layers]
    root["squential_types"] = [l["kind"] for l in layers]
    for l in layers:
        obj = {"serializable_type": l["cls"], "type": l["kind"], "id": l["id"], "input_ids": l["inputs"],
               "read_count": l["read_count"]}
        if l["kind"] == 0:
            obj["location"] = l["location"]
        elif l["kind"] == 17:
            obj.update(in_features=l["in_features"], out_features=l["out_features"], if_bias=l["if_bias"],
                       weight=b64(l["weight"]), bias=b64(l["bias"]))
        elif l["kind"] == 38:
            for key in ("in_size", "hidden_size", "if_bias", "num_layers", "bidirectional", "complex_rnn_type"):
                obj[key] = l[key]
            for name in RNN_LISTS:
                obj[name] = [b64(w) for w in l["lists"][name]]
        elif l["kind"] == 1:
            for key in ("activation_type", "activation_alpha", "activation_beta", "num_parameters", "weight"):
                obj[key] = l[key]
        root[l["id"]] = obj
    return root


def model_bin(layers, version=VERSION):
    b = Bin()
    b.u32(version)
    b.string("ZVModelInfo")
    b.strings(["act"])
    b.string("NetExtraInfo")
    for key in ("version", "app_type", "model_id", "model_base_h", "model_base_w"):
        b.u32(EXTRA[key])
    b.u64(EXTRA["fmlas"])
    b.string("TimeInfo")
    for key in ("year", "moon", "day", "hour", "min", "sec"):
        b.u32(EXTRA["time"][key])
    b.string(EXTRA["device"])
    b.string(EXTRA["summary"])
    b.strings([l["id"] for l in layers])
    b.u16s([l["kind"] for l in layers])
    for l in layers:
        b.string(l["cls"])
        b.u16(l["kind"])
        b.string(l["id"])
        b.strings(l["inputs"])
        b.u16(l["read_count"])
        if l["kind"] == 0:
            b.u16(l["location"])
        elif l["kind"] == 17:
            b.u16(l["in_features"])
            b.u16(l["out_features"])
            b.boolean(l["if_bias"])
            b.weights(l["weight"])
            b.weights(l["bias"])
        elif l["kind"] == 38:
            b.u16(l["in_size"])
            b.u16(l["hidden_size"])
            b.boolean(l["if_bias"])
            b.u16(l["num_layers"])
            b.boolean(l["bidirectional"])
            b.u16(l["complex_rnn_type"])
            for name in RNN_LISTS:
                b.weight_list(l["lists"][name])
        elif l["kind"] == 1:
            b.u16(l["activation_type"])
            b.half(l["activation_alpha"])
            b.half(l["activation_beta"])
            b.i16(l["num_parameters"])
            b.string(l["weight"])
    return bytes(b.out)


# ---- the configuration -----------------------------------------------------------------------------------

BACKENDS = ["cpu_sse", "cpu_avx", "cpu_armv7", "cpu_armv8", "gpu_opengl", "gpu_metal", "gpu_cuda", "cpu_armv82"]

# cpu_sse: layer id -> (kernel, parameter class, parameter fields, input converters, output converters)
SSE_LAYERS = [
    ("input", "Input_Base", "", None, {}, {}),
    ("fc", "FullConnection_SSE_NCHW_FLOAT32_M0", "InferenceParamActQuant", {"output_step_size": -3},
     {"0": "Reshape_Base"}, {}),
    ("gru", "GRU_SSE_NCHW_FLOAT32_M0", "", None, {}, {"0": "Copy_Base"}),
    ("act", "Activation_SSE_NCHW_FLOAT32_M0", "", None, {}, {}),
]


def kernel_json(kernel, param_type="", param=None):
    obj = {"serializable_type": "KernelCfg", "kernel_type": kernel, "infer_param_type": param_type}
    if param is not None:
        obj["infer_param"] = dict(serializable_type=param_type, **param)
    return obj


def converters_json(entries):
    obj = {"serializable_type": "KernelCfgArr", "kernel_ids": list(entries)}
    for key, kernel in entries.items():
        obj[key] = kernel_json(kernel)
    return obj


def cfg_json():
    root = {"serialization_protocol_version": VERSION, "serializable_type": "ZVModelMultiBackendCfgs"}
    for backend in BACKENDS:
        cfg = {"serializable_type": "ZVModelCfg", "summary": "", "squential_ids": []}
        if backend == "cpu_sse":
            cfg["summary"] = "SSE kernels for the tiny fixture"
            for lid, kernel, ptype, param, ins, outs in SSE_LAYERS:
                cfg["squential_ids"].append(lid)
                cfg[lid] = {"serializable_type": "LayerCfg", "summary": lid,
                            "input_converters": converters_json(ins), "kernel": kernel_json(kernel, ptype, param),
                            "output_converters": converters_json(outs)}
        root[backend] = cfg
    return root


def kernel_bin(b, kernel, param_type="", param=None):
    b.string("KernelCfg")
    b.string(kernel)
    b.string(param_type)
    if param is not None:
        assert param_type == "InferenceParamActQuant"
        b.string(param_type)
        b.i16(param["output_step_size"])


def converters_bin(b, entries):
    b.string("KernelCfgArr")
    b.strings(list(entries))
    for kernel in entries.values():
        kernel_bin(b, kernel)


def cfg_bin(version=VERSION):
    b = Bin()
    b.u32(version)
    b.string("ZVModelMultiBackendCfgs")
    for backend in BACKENDS:
        if backend == "cpu_armv82" and version < 20008:
            continue
        b.string("ZVModelCfg")
        if backend != "cpu_sse":
            b.string("")
            b.strings([])
            continue
        b.string("SSE kernels for the tiny fixture")
        b.strings([l[0] for l in SSE_LAYERS])
        for lid, kernel, ptype, param, ins, outs in SSE_LAYERS:
            b.string("LayerCfg")
            b.string(lid)
            converters_bin(b, ins)
            kernel_bin(b, kernel, ptype, param)
            converters_bin(b, outs)
    return bytes(b.out)


# ---- bad files -------------------------------------------------------------------------------------------

VERSION_MSG = "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__."


def bad_files(layers):
    """(file name, loader, expected text, bytes). An expected text starting with '@' is matched against the
    exception's own text (assertions without a message), any other against the log line of the refusal."""
    good_json = model_json(layers)
    good_bin = model_bin(layers)
    dumps = lambda obj: (json.dumps(obj, indent=4) + "\n").encode()
    out = []

    # Binary files cut short, in the weights and in the header.
    out.append(("truncated_model.zvmod", "model", "failed to read a", good_bin[:len(good_bin) * 2 // 3]))
    out.append(("truncated_header.zvmod", "model", "failed to read a", good_bin[:2]))
    out.append(("empty.zvmod", "model", "failed to read a", b""))
    # A version above the current one, in both forms.
    newer = dict(good_json, serialization_protocol_version=VERSION + 1)
    out.append(("version_20019.json", "model", VERSION_MSG, dumps(newer)))
    out.append(("version_20019.zvmod", "model", VERSION_MSG, struct.pack("<I", VERSION + 1) + good_bin[4:]))
    out.append(("version_20019.zvcfgs", "cfg", VERSION_MSG, struct.pack("<I", VERSION + 1) + cfg_bin()[4:]))
    # JSON whose root is no object, and text that is no JSON at all.
    out.append(("root_is_array.json", "model", "@Assert Failed", b"[1, 2, 3]\n"))
    out.append(("not_json.json", "model", "@Assert Failed", b"squential_ids: [input]\n"))
    out.append(("root_is_array_cfg.json", "cfg", "@Assert Failed", b"[{\"cpu_sse\": {}}]\n"))
    # A required string member left out: a layer's id, a kernel's name.
    no_id = json.loads(json.dumps(good_json))
    del no_id["fc"]["id"]
    out.append(("missing_layer_id.json", "model", "missing string member \"id\".", dumps(no_id)))
    cfg = cfg_json()
    del cfg["cpu_sse"]["gru"]["kernel"]["kernel_type"]
    out.append(("missing_kernel_type.json", "cfg", "missing string member \"kernel_type\".", dumps(cfg)))
    # Layer kinds that have no class, and the unset kind.
    unknown = json.loads(json.dumps(good_json))
    unknown["squential_types"][2] = 4
    out.append(("unknown_layer_kind.json", "model", "Unsupported Layer Type [4].", dumps(unknown)))
    unset = json.loads(json.dumps(good_json))
    unset["squential_types"][1] = 0xFFFF
    out.append(("unset_layer_kind.json", "model", "Unknow Layer Type.", dumps(unset)))
    # Id and type lists of different lengths.
    mismatched = json.loads(json.dumps(good_json))
    mismatched["squential_types"].append(1)
    out.append(("mismatched_lists.json", "model", "Length of layer id and type mismatch.", dumps(mismatched)))
    # A nested object that is a number.
    nested = json.loads(json.dumps(good_json))
    nested["extra_info"] = 5
    out.append(("extra_info_is_number.json", "model", "Created node is a unkown value.", dumps(nested)))
    # A binary count far larger than what the file holds (the output id list claims 2^40 entries).
    huge = bytearray(good_bin)
    offset = 4 + 8 + len("ZVModelInfo")
    huge[offset:offset + 8] = struct.pack("<Q", 1 << 40)
    out.append(("huge_count.zvmod", "model", "failed to read a", bytes(huge)))
    # A weight count larger than the file, read at fp32.
    out.append(("fp16_file_read_as_fp32.zvmod", "model_fp32", "failed to read a", good_bin))
    # Text handed to the binary reader: its first four bytes make a version far above 20018.
    out.append(("text_as_binary.zvmod", "model", VERSION_MSG, dumps(good_json)))
    out.append(("text_as_binary.zvcfg", "cfg", VERSION_MSG, dumps(cfg_json())))
    # A configuration cut short.
    cb = cfg_bin()
    out.append(("truncated_cfg.zvcfgs", "cfg", "failed to read a", cb[:len(cb) // 2]))
    return out


def main():
    root = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), ".."))
    models = os.path.join(root, "tests", "data", "models")
    bad = os.path.join(root, "tests", "data", "bad")
    os.makedirs(models, exist_ok=True)
    os.makedirs(bad, exist_ok=True)
    layers = model_layers()

    def write(path, data):
        with open(path, "wb") as f:
            f.write(data)

    # The JSON fixtures are laid out as the library writes them (4 spaces, no final newline), so that a
    # conversion to binary and back gives the same bytes.
    write(os.path.join(models, "tiny_model.json"), json.dumps(model_json(layers), indent=4).encode())
    write(os.path.join(models, "tiny_model.zvmod"), model_bin(layers))
    write(os.path.join(models, "tiny_cfg.json"), json.dumps(cfg_json(), indent=4).encode())
    write(os.path.join(models, "tiny_cfg.zvcfgs"), cfg_bin())
    # A configuration of protocol 20007: seven backends, no "cpu_armv82".
    write(os.path.join(models, "tiny_cfg_20007.zvcfg"), cfg_bin(20007))

    lines = ["# file<TAB>loader<TAB>expected text ('@' = in the exception's text, else in the logged line)"]
    for name, loader, expected, data in bad_files(layers):
        write(os.path.join(bad, name), data)
        lines.append("%s\t%s\t%s" % (name, loader, expected))
    write(os.path.join(bad, "MANIFEST"), ("\n".join(lines) + "\n").encode())


if __name__ == "__main__":
    main()

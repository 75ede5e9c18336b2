// zvkit convert: a model or a kernel configuration from one file form to the other, by the output's
// extension.
#include <cstdio>

#include "tools/zvkit/model_files.h"
#include "tools/zvkit/zvkit.h"

namespace zvkit {

namespace {
// The precision in which each engine reads a binary model's weights.
std::string EnginePrecision(const std::string& engine) {
  return engine == "vad" ? "fp32" : "fp16";
}
}  // namespace

int CmdConvert(const std::vector<std::string>& args) {
  std::vector<std::string> paths;
  std::string precision, input_precision, engine;  // empty: not given
  for (size_t i = 0; i < args.size(); ++i) {
    if ((args[i] == "--precision" || args[i] == "--input-precision" || args[i] == "--for") &&
        i + 1 < args.size()) {
      (args[i] == "--precision" ? precision : args[i] == "--for" ? engine : input_precision) = args[i + 1];
      ++i;
    } else if (!args[i].empty() && args[i][0] == '-') {
      std::fprintf(stderr, "zvkit convert: unknown option '%s' (see zvkit convert --help)\n",
                   args[i].c_str());
      return 2;
    } else {
      paths.push_back(args[i]);
    }
  }
  if (paths.size() != 2) {
    std::fprintf(stderr, "zvkit convert: need IN and OUT (see zvkit convert --help)\n");
    return 2;
  }
  for (const std::string* p : {&precision, &input_precision}) {
    if (!p->empty() && *p != "fp16" && *p != "fp32") {
      std::fprintf(stderr, "zvkit convert: precision must be fp16 or fp32, not '%s'\n", p->c_str());
      return 2;
    }
  }
  if (!engine.empty()) {
    if (engine != "denoise" && engine != "vad") {
      std::fprintf(stderr, "zvkit convert: --for takes denoise or vad, not '%s'\n", engine.c_str());
      return 2;
    }
    const std::string wanted = EnginePrecision(engine);
    if (!precision.empty() && precision != wanted) {
      std::fprintf(stderr, "zvkit convert: the %s engine reads binary models as %s, not %s\n", engine.c_str(),
                   wanted.c_str(), precision.c_str());
      return 2;
    }
    precision = wanted;
  }
  if (precision.empty()) precision = "fp16";
  const std::string& in = paths[0];
  const std::string& out = paths[1];
  const FileForm in_form = FormOf(in), out_form = FormOf(out);
  if (in_form == FileForm::kUnknown || out_form == FileForm::kUnknown) {
    std::fprintf(stderr,
                 "zvkit convert: %s: unknown extension (use .json, .zvmod, .zvmods, .zvcfg or .zvcfgs)\n",
                 (in_form == FileForm::kUnknown ? in : out).c_str());
    return 1;
  }

  RootKind kind;
  try {
    kind = KindOfRoot(RootTypeOf(in, in_form));
    if (kind == RootKind::kOther) {
      std::fprintf(stderr, "zvkit convert: %s: root object \"%s\" is neither a model nor a configuration\n",
                   in.c_str(), RootTypeOf(in, in_form).c_str());
      return 1;
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zvkit convert: cannot read %s: %s\n", in.c_str(), e.what());
    return 1;
  }
  const bool model = kind == RootKind::kModel;
  if (out_form == FileForm::kBinary && (model ? IsConfigBinaryPath(out) : IsModelBinaryPath(out))) {
    std::fprintf(stderr, "zvkit convert: %s holds a %s; write it to %s\n", in.c_str(),
                 model ? "model" : "configuration",
                 model ? ".json, .zvmod or .zvmods" : ".json, .zvcfg or .zvcfgs");
    return 1;
  }

  auto make = [model]() -> std::unique_ptr<zelva::runtime::Serializable> {
    if (model) return std::make_unique<zelva::runtime::ZVModelInfo>();
    return std::make_unique<zelva::runtime::ZVModelMultiBackendCfgs>();
  };
  std::unique_ptr<zelva::runtime::Serializable> object;
  std::string warnings, reason;
  if (in_form == FileForm::kJson) {
    object = make();
    reason = Load(*object, in, in_form, "", &warnings);
  } else {
    BinaryPrecision found;
    reason = LoadBinaryFindingPrecision(make, in, input_precision, "--input-precision", &object, &found,
                                        &warnings);
    if (reason.empty())
      std::printf("%s: read as %s (%s)\n", in.c_str(), found.precision.c_str(), found.how.c_str());
  }
  if (!reason.empty()) {
    std::fprintf(stderr, "zvkit convert: cannot read %s: %s\n", in.c_str(), reason.c_str());
    return 1;
  }
  if (!warnings.empty()) std::fprintf(stderr, "%s", warnings.c_str());
  reason = Save(*object, out, out_form, precision);
  if (!reason.empty()) {
    std::remove(out.c_str());
    std::fprintf(stderr, "zvkit convert: cannot write %s: %s\n", out.c_str(), reason.c_str());
    return 1;
  }
  if (out_form == FileForm::kJson) {
    std::printf("%s -> %s (%s, JSON)\n", in.c_str(), out.c_str(), model ? "model" : "configuration");
  } else if (!model) {
    std::printf("%s -> %s (configuration, binary: holds no weights, any engine reads it)\n", in.c_str(),
                out.c_str());
  } else {
    const std::string reader = precision == EnginePrecision("denoise") ? "denoise" : "vad";
    std::printf(
        "%s -> %s (model, %s weights: the %s engine reads this file; the %s engine reads binary models "
        "as %s)\n",
        in.c_str(), out.c_str(), precision.c_str(), reader == "denoise" ? "denoise" : "VAD",
        reader == "denoise" ? "VAD" : "denoise",
        EnginePrecision(reader == "denoise" ? "vad" : "denoise").c_str());
  }
  return 0;
}

}  // namespace zvkit

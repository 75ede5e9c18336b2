// Times the denoise network in ONNX Runtime (the npm package onnxruntime-node) on one thread, streaming block
// by block with the three hidden states carried, for bench/compare.py. The package is not a dependency of
// the project: install it in a scratch folder (npm install --ignore-scripts onnxruntime-node) and pass that
// folder's node_modules.
//   node bench/denoise_onnx.js NODE_MODULES MODEL.onnx [BLOCKS] [WARMUP]
// Prints one line: "onnxruntime: median X us, mean Y us, p99 Z us per block (N blocks, 1 thread)".
'use strict';

const path = require('path');

async function main() {
  const [modules, modelPath, blocksArg, warmupArg] = process.argv.slice(2);
  if (!modules || !modelPath) {
    console.error('usage: node bench/denoise_onnx.js NODE_MODULES MODEL.onnx [BLOCKS] [WARMUP]');
    process.exit(2);
  }
  const ort = require(path.resolve(modules, 'onnxruntime-node'));
  const blocks = Number(blocksArg || 2000);
  const warmup = Number(warmupArg || 200);
  const session = await ort.InferenceSession.create(modelPath, {
    intraOpNumThreads: 1,
    interOpNumThreads: 1,
    executionMode: 'sequential',
    graphOptimizationLevel: 'all',
  });

  // 64 blocks of a fixed pseudo-random sequence in [-1.5, 1.5).
  const inputs = [];
  let state = 20018 >>> 0;
  for (let b = 0; b < 64; ++b) {
    const x = new Float32Array(7 * 80);
    for (let i = 0; i < x.length; ++i) {
      state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
      x[i] = (state >>> 8) / 16777216 * 3 - 1.5;
    }
    inputs.push(new ort.Tensor('float32', x, [1, 1, 7, 80]));
  }
  let h = ['h20', 'h21', 'h22'].map(() => new ort.Tensor('float32', new Float32Array(256), [1, 1, 256]));
  const micros = [];
  for (let b = 0; b < warmup + blocks; ++b) {
    const feeds = {x: inputs[b % 64], h20: h[0], h21: h[1], h22: h[2]};
    const t0 = process.hrtime.bigint();
    const out = await session.run(feeds);
    const t1 = process.hrtime.bigint();
    h = [out.h20_out, out.h21_out, out.h22_out];
    if (b >= warmup) micros.push(Number(t1 - t0) / 1000);
  }
  micros.sort((a, b) => a - b);
  const mean = micros.reduce((s, v) => s + v, 0) / micros.length;
  const p99 = micros[Math.min(micros.length - 1, Math.floor(micros.length * 99 / 100))];
  console.log(`onnxruntime: median ${micros[micros.length >> 1].toFixed(1)} us, mean ${mean.toFixed(1)} us, ` +
              `p99 ${p99.toFixed(1)} us per block (${blocks} blocks, 1 thread)`);
}

main().catch((e) => {
  console.error(e);
  process.exit(1);
});

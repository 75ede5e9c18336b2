// The RNNoise peer of the quality bench: node rnnoise_peer.mjs PEERS_DIR IN.f32 OUT.f32
//
// IN and OUT are raw float32 mono at 48 kHz in [-1, 1] (the bench resamples from 16 kHz and back). The
// suppressor works on 480-sample (10 ms) frames of samples scaled to the 16-bit range; the tail is padded with
// zeros and OUT has IN's length (the suppressor's own delay is left in). Prints "cpu_seconds X": the process
// CPU time of the frame calls and the copies in and out of the module's memory (not start-up, module
// compilation or file I/O).
import fs from 'node:fs';
import path from 'node:path';
import { pathToFileURL } from 'node:url';

const [peers, inPath, outPath] = process.argv.slice(2);
if (!outPath) {
  console.error('usage: node rnnoise_peer.mjs PEERS_DIR IN.f32 OUT.f32');
  process.exit(2);
}
const entry = path.join(peers, 'node_modules', '@echogarden', 'rnnoise-wasm', 'rnnoise.js');
const { default: createModule } = await import(pathToFileURL(entry).href);
const m = await createModule();

const bytes = fs.readFileSync(inPath);
const input = new Float32Array(bytes.buffer, bytes.byteOffset, Math.floor(bytes.length / 4));
const frame = m._rnnoise_get_frame_size();
const state = m._rnnoise_create(0);
const inPtr = m._malloc(frame * 4);
const outPtr = m._malloc(frame * 4);
const frames = Math.ceil(input.length / frame);
const output = new Float32Array(frames * frame);
const block = new Float32Array(frame);

const t0 = process.cpuUsage();
for (let f = 0; f < frames; ++f) {
  block.fill(0);
  const src = input.subarray(f * frame, Math.min((f + 1) * frame, input.length));
  for (let i = 0; i < src.length; ++i) block[i] = src[i] * 32768;
  m.HEAPF32.set(block, inPtr >> 2);
  m._rnnoise_process_frame(state, outPtr, inPtr);
  const res = m.HEAPF32.subarray(outPtr >> 2, (outPtr >> 2) + frame);
  for (let i = 0; i < frame; ++i) output[f * frame + i] = res[i] / 32768;
}
const used = process.cpuUsage(t0);
m._rnnoise_destroy(state);
m._free(inPtr);
m._free(outPtr);

fs.writeFileSync(outPath, Buffer.from(output.buffer, 0, input.length * 4));
console.log(`cpu_seconds ${((used.user + used.system) / 1e6).toFixed(6)}`);

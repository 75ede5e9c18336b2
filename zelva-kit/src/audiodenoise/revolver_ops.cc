#include "zelva-kit/src/audiodenoise/revolver_ops.h"

#include <emmintrin.h>
#include <sleef.h>
#include <xmmintrin.h>

#include <cstring>

#include "zelva/src/kernel/functional/lanes.h"

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {

namespace {

inline __m128 MulAdd(__m128 acc, __m128 a, __m128 b) {
  return _mm_add_ps(acc, _mm_mul_ps(a, b));
}

// ((lane0 + lane1) + lane2) + lane3
inline float SumLanesInOrder(__m128 v) {
  alignas(16) float s[4];
  _mm_store_ps(s, v);
  return ((s[0] + s[1]) + s[2]) + s[3];
}

// A 3-lane vector (a, b, c, 0) read without touching the float after c.
inline __m128 Load3(const float* p) {
  return _mm_setr_ps(p[0], p[1], p[2], 0.0f);
}

}  // namespace

// ---- Weight repacking
// -------------------------------------------------------------------------------------------

void RepackDepthwise8(const float* src, float* dst, uint32_t groups, uint32_t out_per_group,
                      uint32_t in_per_group, uint32_t kernel_h, uint32_t kernel_w) {
  const size_t rounded = static_cast<size_t>((groups + 7) / 8 * 8);
  std::memset(dst, 0, rounded * out_per_group * in_per_group * kernel_h * kernel_w * sizeof(float));
  size_t s = 0;
  for (uint32_t gi = 0; gi < groups; ++gi) {
    for (uint32_t o = 0; o < out_per_group; ++o) {
      for (uint32_t i = 0; i < in_per_group; ++i) {
        for (uint32_t ky = 0; ky < kernel_h; ++ky) {
          for (uint32_t kx = 0; kx < kernel_w; ++kx, ++s) {
            const size_t d =
                (((((static_cast<size_t>(gi / 8) * out_per_group + o) * in_per_group + i) * kernel_h + ky) *
                      kernel_w +
                  kx) *
                 8) +
                gi % 8;
            dst[d] = src[s];
          }
        }
      }
    }
  }
}

void RepackPointwise8x8(const float* src, float* dst, uint32_t groups, uint32_t out_per_group,
                        uint32_t in_per_group, uint32_t kernel_h, uint32_t kernel_w) {
  const size_t ob_count = (out_per_group + 7) / 8;
  const size_t ib_count = (in_per_group + 7) / 8;
  // Bytes, not floats: this clears a quarter of the blocks. Callers hand in zeroed memory.
  std::memset(dst, 0, ob_count * ib_count * groups * kernel_h * kernel_w * 64);
  size_t s = 0;
  for (uint32_t gi = 0; gi < groups; ++gi) {
    for (uint32_t o = 0; o < out_per_group; ++o) {
      for (uint32_t i = 0; i < in_per_group; ++i) {
        for (uint32_t ky = 0; ky < kernel_h; ++ky) {
          for (uint32_t kx = 0; kx < kernel_w; ++kx, ++s) {
            const size_t block =
                (((gi * ob_count + o / 8) * ib_count + i / 8) * kernel_h + ky) * kernel_w + kx;
            dst[block * 64 + (i % 8) * 8 + o % 8] = src[s];
          }
        }
      }
    }
  }
}

// ---- Planar convolutions
// ----------------------------------------------------------------------------------------

void DepthwiseConv3x3Planar(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                            float* output, ShapeRecord out_shape) {
  const uint32_t channels = out_shape[0];
  const uint32_t out_h = out_shape[1];
  const uint32_t out_w = out_shape[2];
  const uint32_t in_w = in_shape[2];
  const size_t in_plane = static_cast<size_t>(in_shape[1]) * in_w;
  const size_t out_plane = static_cast<size_t>(out_h) * out_w;
  const uint32_t tiled_h = out_h / 4 * 4;
  const uint32_t tiled_w = out_w / 4 * 4;

  // 1. Bias.
  for (uint32_t c = 0; c < channels; ++c) {
    float* out = output + c * out_plane;
    const __m128 b = _mm_set1_ps(bias[c]);
    size_t p = 0;
    for (; p + 4 <= out_plane; p += 4) _mm_storeu_ps(out + p, b);
    for (; p < out_plane; ++p) out[p] = bias[c];
  }

  for (uint32_t c = 0; c < channels; ++c) {
    const float* in = input + c * in_plane;
    float* out = output + c * out_plane;
    const float* wc = weight + c * 9;
    __m128 w[9];
    for (int t = 0; t < 9; ++t) w[t] = _mm_set1_ps(wc[t]);

    // 2. 4x4 output tiles: six input rows at column offsets 0, 1, 2.
    for (uint32_t y = 0; y < tiled_h; y += 4) {
      for (uint32_t x = 0; x < tiled_w; x += 4) {
        __m128 rows[6][3];
        for (int r = 0; r < 6; ++r) {
          const float* src = in + (y + r) * in_w + x;
          rows[r][0] = _mm_loadu_ps(src);
          rows[r][1] = _mm_loadu_ps(src + 1);
          rows[r][2] = _mm_loadu_ps(src + 2);
        }
        for (int r = 0; r < 4; ++r) {
          float* dst = out + (y + r) * out_w + x;
          __m128 acc = _mm_loadu_ps(dst);
          for (int ky = 0; ky < 3; ++ky) {
            for (int kx = 0; kx < 3; ++kx) acc = MulAdd(acc, w[ky * 3 + kx], rows[r + ky][kx]);
          }
          _mm_storeu_ps(dst, acc);
        }
      }
    }

    // 3. Elements outside the tiles: one row triple per vector, three vectors, then the lanes.
    const __m128 w_row0 = _mm_setr_ps(wc[0], wc[1], wc[2], 0.0f);
    const __m128 w_row1 = _mm_setr_ps(wc[3], wc[4], wc[5], 0.0f);
    const __m128 w_row2 = _mm_setr_ps(wc[6], wc[7], wc[8], 0.0f);
    auto single = [&](uint32_t y, uint32_t x) {
      const float* src = in + y * in_w + x;
      const __m128 t0 = _mm_mul_ps(Load3(src), w_row0);
      const __m128 t1 = _mm_mul_ps(Load3(src + in_w), w_row1);
      const __m128 t2 = _mm_mul_ps(Load3(src + 2 * in_w), w_row2);
      alignas(16) float lanes[4];
      _mm_store_ps(lanes, _mm_add_ps(_mm_add_ps(t0, t1), t2));
      float& dst = out[y * out_w + x];
      dst = ((lanes[0] + lanes[1]) + lanes[2]) + dst;
    };
    for (uint32_t y = 0; y < tiled_h; ++y) {
      for (uint32_t x = tiled_w; x < out_w; ++x) single(y, x);
    }
    for (uint32_t y = tiled_h; y < out_h; ++y) {
      for (uint32_t x = 0; x < out_w; ++x) single(y, x);
    }
  }
}

void PointwiseConvPlanar(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                         float* output, ShapeRecord out_shape) {
  const uint32_t in_c = in_shape[0];
  const uint32_t out_c = out_shape[0];
  const uint32_t h = out_shape[1];
  const uint32_t w = out_shape[2];
  const size_t plane = static_cast<size_t>(h) * w;

  for (uint32_t o = 0; o < out_c; ++o) {
    float* out = output + o * plane;
    const __m128 b = _mm_set1_ps(bias[o]);
    size_t p = 0;
    for (; p + 4 <= plane; p += 4) _mm_storeu_ps(out + p, b);
    for (; p < plane; ++p) out[p] = bias[o];

    for (uint32_t i = 0; i < in_c; ++i) {
      const float wv = weight[o * in_c + i];
      const __m128 wb = _mm_set1_ps(wv);
      const float* in = input + i * plane;
      for (uint32_t y = 0; y < h; ++y) {
        const float* src = in + y * w;
        float* dst = out + y * w;
        uint32_t x = 0;
        for (; x + 4 <= w; x += 4) {
          _mm_storeu_ps(dst + x, _mm_add_ps(_mm_loadu_ps(dst + x), _mm_mul_ps(_mm_loadu_ps(src + x), wb)));
        }
        for (; x < w; ++x) dst[x] = dst[x] + src[x] * wv;
      }
    }
  }
}

// ---- Packed convolutions
// ----------------------------------------------------------------------------------------

void FillBiasPacked8(const float* bias, float* output, ShapeRecord out_shape) {
  const uint32_t blocks = out_shape[0];
  const size_t pixels = static_cast<size_t>(out_shape[1]) * out_shape[2];
  for (uint32_t b = 0; b < blocks; ++b) {
    const __m128 lo = _mm_loadu_ps(bias + 8 * b);
    const __m128 hi = _mm_loadu_ps(bias + 8 * b + 4);
    float* out = output + b * pixels * 8;
    size_t p = 0;
    for (; p + 4 <= pixels; p += 4) {
      for (int k = 0; k < 4; ++k) {
        _mm_storeu_ps(out + (p + k) * 8, lo);
        _mm_storeu_ps(out + (p + k) * 8 + 4, hi);
      }
    }
    for (; p < pixels; ++p) {
      _mm_storeu_ps(out + p * 8, lo);
      _mm_storeu_ps(out + p * 8 + 4, hi);
    }
  }
}

void DepthwiseConv3x3Packed8(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                             float* output, ShapeRecord out_shape) {
  FillBiasPacked8(bias, output, out_shape);
  const uint32_t blocks = out_shape[0];
  const uint32_t out_h = out_shape[1];
  const uint32_t out_w = out_shape[2];
  const uint32_t in_w = in_shape[2];
  const size_t in_block = static_cast<size_t>(in_shape[1]) * in_w * 8;
  const size_t out_block = static_cast<size_t>(out_h) * out_w * 8;
  const size_t in_row = static_cast<size_t>(in_w) * 8;
  const size_t out_row = static_cast<size_t>(out_w) * 8;

  for (uint32_t b = 0; b < blocks; ++b) {
    const float* wb = weight + b * 72;
    __m128 wlo[9], whi[9];
    for (int t = 0; t < 9; ++t) {
      wlo[t] = _mm_loadu_ps(wb + t * 8);
      whi[t] = _mm_loadu_ps(wb + t * 8 + 4);
    }
    const float* in = input + b * in_block;
    float* out = output + b * out_block;

    // One output pixel, both halves: out + t0 + ... + t8 in tap order.
    auto pixel = [&](uint32_t y, uint32_t x) {
      float* dst = out + y * out_row + x * 8;
      __m128 lo = _mm_loadu_ps(dst);
      __m128 hi = _mm_loadu_ps(dst + 4);
      for (int ky = 0; ky < 3; ++ky) {
        const float* src = in + (y + ky) * in_row + x * 8;
        for (int kx = 0; kx < 3; ++kx) {
          lo = MulAdd(lo, wlo[ky * 3 + kx], _mm_loadu_ps(src + kx * 8));
          hi = MulAdd(hi, whi[ky * 3 + kx], _mm_loadu_ps(src + kx * 8 + 4));
        }
      }
      _mm_storeu_ps(dst, lo);
      _mm_storeu_ps(dst + 4, hi);
    };

    uint32_t y = 0;
    for (; y + 2 <= out_h; y += 2) {
      uint32_t x = 0;
      // 2x2 tiles: four input rows, four input pixels; each half of each output in tap order.
      for (; x + 2 <= out_w; x += 2) {
        for (int half = 0; half < 2; ++half) {
          const int lane = half * 4;
          const __m128* wv = half == 0 ? wlo : whi;
          float* d00 = out + y * out_row + x * 8 + lane;
          float* d10 = d00 + out_row;
          __m128 a00 = _mm_loadu_ps(d00), a01 = _mm_loadu_ps(d00 + 8);
          __m128 a10 = _mm_loadu_ps(d10), a11 = _mm_loadu_ps(d10 + 8);
          for (int ky = 0; ky < 3; ++ky) {
            const float* r0 = in + (y + ky) * in_row + x * 8 + lane;
            const float* r1 = r0 + in_row;
            const __m128 p00 = _mm_loadu_ps(r0), p01 = _mm_loadu_ps(r0 + 8), p02 = _mm_loadu_ps(r0 + 16),
                         p03 = _mm_loadu_ps(r0 + 24);
            const __m128 p10 = _mm_loadu_ps(r1), p11 = _mm_loadu_ps(r1 + 8), p12 = _mm_loadu_ps(r1 + 16),
                         p13 = _mm_loadu_ps(r1 + 24);
            const __m128 w0 = wv[ky * 3], w1 = wv[ky * 3 + 1], w2 = wv[ky * 3 + 2];
            a00 = MulAdd(MulAdd(MulAdd(a00, w0, p00), w1, p01), w2, p02);
            a01 = MulAdd(MulAdd(MulAdd(a01, w0, p01), w1, p02), w2, p03);
            a10 = MulAdd(MulAdd(MulAdd(a10, w0, p10), w1, p11), w2, p12);
            a11 = MulAdd(MulAdd(MulAdd(a11, w0, p11), w1, p12), w2, p13);
          }
          _mm_storeu_ps(d00, a00);
          _mm_storeu_ps(d00 + 8, a01);
          _mm_storeu_ps(d10, a10);
          _mm_storeu_ps(d10 + 8, a11);
        }
      }
      // Odd width: the last column as a 2-row x 1-column tile.
      if (x < out_w) {
        pixel(y, x);
        pixel(y + 1, x);
      }
    }
    // Odd height: the last row pixel by pixel.
    if (y < out_h) {
      for (uint32_t x = 0; x < out_w; ++x) pixel(y, x);
    }
  }
}

void PointwiseConvPacked8(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                          float* output, ShapeRecord out_shape) {
  FillBiasPacked8(bias, output, out_shape);
  const uint32_t in_blocks = in_shape[0];
  const uint32_t out_blocks = out_shape[0];
  const uint32_t h = out_shape[1];
  const uint32_t w = out_shape[2];
  const size_t block = static_cast<size_t>(h) * w * 8;

  for (uint32_t ob = 0; ob < out_blocks; ++ob) {
    float* out = output + ob * block;
    for (uint32_t ib = 0; ib < in_blocks; ++ib) {
      const float* wb = weight + (static_cast<size_t>(ob) * in_blocks + ib) * 64;
      __m128 wlo[8], whi[8];
      for (int l = 0; l < 8; ++l) {
        wlo[l] = _mm_loadu_ps(wb + l * 8);
        whi[l] = _mm_loadu_ps(wb + l * 8 + 4);
      }
      const float* in = input + ib * block;
      for (uint32_t y = 0; y < h; ++y) {
        const float* src = in + y * w * 8;
        float* dst = out + y * w * 8;
        uint32_t x = 0;
        // Tiles of 8 pixels: per pixel and half, ((out + l0) + l1) + ... + l7.
        for (; x + 8 <= w; x += 8) {
          __m128 lo[8], hi[8];
          for (int k = 0; k < 8; ++k) {
            lo[k] = _mm_loadu_ps(dst + (x + k) * 8);
            hi[k] = _mm_loadu_ps(dst + (x + k) * 8 + 4);
          }
          for (int l = 0; l < 8; ++l) {
            for (int k = 0; k < 8; ++k) {
              const __m128 v = _mm_set1_ps(src[(x + k) * 8 + l]);
              lo[k] = MulAdd(lo[k], wlo[l], v);
              hi[k] = MulAdd(hi[k], whi[l], v);
            }
          }
          for (int k = 0; k < 8; ++k) {
            _mm_storeu_ps(dst + (x + k) * 8, lo[k]);
            _mm_storeu_ps(dst + (x + k) * 8 + 4, hi[k]);
          }
        }
        for (; x < w; ++x) {
          __m128 lo = _mm_loadu_ps(dst + x * 8);
          __m128 hi = _mm_loadu_ps(dst + x * 8 + 4);
          for (int l = 0; l < 8; ++l) {
            const __m128 v = _mm_set1_ps(src[x * 8 + l]);
            lo = MulAdd(lo, wlo[l], v);
            hi = MulAdd(hi, whi[l], v);
          }
          _mm_storeu_ps(dst + x * 8, lo);
          _mm_storeu_ps(dst + x * 8 + 4, hi);
        }
      }
    }
  }
}

// ---- Layout moves
// -----------------------------------------------------------------------------------------------

void PackChannels8(const float* input, ShapeRecord in_shape, float* output) {
  const uint32_t blocks = in_shape[0] / 8;
  const size_t pixels = static_cast<size_t>(in_shape[1]) * in_shape[2];
  for (uint32_t b = 0; b < blocks; ++b) {
    const float* in = input + b * 8 * pixels;
    float* out = output + b * pixels * 8;
    size_t p = 0;
    for (; p + 4 <= pixels; p += 4) {
      __m128 r0 = _mm_loadu_ps(in + 0 * pixels + p), r1 = _mm_loadu_ps(in + 1 * pixels + p);
      __m128 r2 = _mm_loadu_ps(in + 2 * pixels + p), r3 = _mm_loadu_ps(in + 3 * pixels + p);
      __m128 r4 = _mm_loadu_ps(in + 4 * pixels + p), r5 = _mm_loadu_ps(in + 5 * pixels + p);
      __m128 r6 = _mm_loadu_ps(in + 6 * pixels + p), r7 = _mm_loadu_ps(in + 7 * pixels + p);
      _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
      _MM_TRANSPOSE4_PS(r4, r5, r6, r7);
      float* dst = out + p * 8;
      _mm_storeu_ps(dst + 0, r0);
      _mm_storeu_ps(dst + 4, r4);
      _mm_storeu_ps(dst + 8, r1);
      _mm_storeu_ps(dst + 12, r5);
      _mm_storeu_ps(dst + 16, r2);
      _mm_storeu_ps(dst + 20, r6);
      _mm_storeu_ps(dst + 24, r3);
      _mm_storeu_ps(dst + 28, r7);
    }
    for (; p < pixels; ++p) {
      for (int l = 0; l < 8; ++l) out[p * 8 + l] = in[l * pixels + p];
    }
  }
}

void UnpackChannels8(const float* input, ShapeRecord in_shape, float* output) {
  const uint32_t blocks = in_shape[0];
  const size_t pixels = static_cast<size_t>(in_shape[1]) * in_shape[2];
  for (uint32_t b = 0; b < blocks; ++b) {
    const float* in = input + b * pixels * 8;
    float* out = output + b * 8 * pixels;
    size_t p = 0;
    for (; p + 4 <= pixels; p += 4) {
      const float* src = in + p * 8;
      __m128 r0 = _mm_loadu_ps(src + 0), r4 = _mm_loadu_ps(src + 4);
      __m128 r1 = _mm_loadu_ps(src + 8), r5 = _mm_loadu_ps(src + 12);
      __m128 r2 = _mm_loadu_ps(src + 16), r6 = _mm_loadu_ps(src + 20);
      __m128 r3 = _mm_loadu_ps(src + 24), r7 = _mm_loadu_ps(src + 28);
      _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
      _MM_TRANSPOSE4_PS(r4, r5, r6, r7);
      _mm_storeu_ps(out + 0 * pixels + p, r0);
      _mm_storeu_ps(out + 1 * pixels + p, r1);
      _mm_storeu_ps(out + 2 * pixels + p, r2);
      _mm_storeu_ps(out + 3 * pixels + p, r3);
      _mm_storeu_ps(out + 4 * pixels + p, r4);
      _mm_storeu_ps(out + 5 * pixels + p, r5);
      _mm_storeu_ps(out + 6 * pixels + p, r6);
      _mm_storeu_ps(out + 7 * pixels + p, r7);
    }
    for (; p < pixels; ++p) {
      for (int l = 0; l < 8; ++l) out[l * pixels + p] = in[p * 8 + l];
    }
  }
}

// ---- Element-wise
// -----------------------------------------------------------------------------------------------

namespace {

// 0x3E2AAAAB
constexpr float kSixth = 0.16666667f;

// Body form: max returns its second operand for a NaN, so a NaN becomes 0.
inline __m128 HSigmoidBody(__m128 x) {
  const __m128 t = _mm_max_ps(_mm_add_ps(x, _mm_set1_ps(3.0f)), _mm_setzero_ps());
  return _mm_mul_ps(_mm_min_ps(t, _mm_set1_ps(6.0f)), _mm_set1_ps(kSixth));
}
// Rest form: the NaN survives the test against 0 and fails the test against 6, so it becomes 6 * (1/6) = 1.
inline __m128 HSigmoidRest(__m128 x) {
  const __m128 t = _mm_max_ps(_mm_setzero_ps(), _mm_add_ps(x, _mm_set1_ps(3.0f)));
  return _mm_mul_ps(_mm_min_ps(t, _mm_set1_ps(6.0f)), _mm_set1_ps(kSixth));
}
inline float HSigmoidRest(float x) {
  float t = x + 3.0f;
  t = 0.0f > t ? 0.0f : t;
  t = t < 6.0f ? t : 6.0f;
  return t * kSixth;
}

template <class Body, class Rest4, class Rest1>
inline void MapFloats(const float* in, float* out, size_t n, Body body, Rest4 rest4, Rest1 rest1) {
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128 x0 = _mm_loadu_ps(in + i), x1 = _mm_loadu_ps(in + i + 4);
    const __m128 x2 = _mm_loadu_ps(in + i + 8), x3 = _mm_loadu_ps(in + i + 12);
    _mm_storeu_ps(out + i, body(x0));
    _mm_storeu_ps(out + i + 4, body(x1));
    _mm_storeu_ps(out + i + 8, body(x2));
    _mm_storeu_ps(out + i + 12, body(x3));
  }
  for (; i + 4 <= n; i += 4) _mm_storeu_ps(out + i, rest4(_mm_loadu_ps(in + i)));
  for (; i < n; ++i) out[i] = rest1(in[i]);
}

}  // namespace

void HSigmoidPass(const float* input, float* output, ShapeRecord shape) {
  MapFloats(
      input, output, shape.ElementCount(), [](__m128 x) { return HSigmoidBody(x); },
      [](__m128 x) { return HSigmoidRest(x); }, [](float x) { return HSigmoidRest(x); });
}

void ReluPass(const float* input, float* output, ShapeRecord shape) {
  MapFloats(
      input, output, shape.ElementCount(), [](__m128 x) { return _mm_max_ps(x, _mm_setzero_ps()); },
      [](__m128 x) { return _mm_max_ps(_mm_setzero_ps(), x); }, [](float x) { return x < 0.0f ? 0.0f : x; });
}

void AddVectors(const float* a, const float* b, size_t count, float* out) {
  ::zelva::kernel::functional::AddLanes(a, b, count, out);
}

void SubVectors(const float* a, const float* b, size_t count, float* out) {
  ::zelva::kernel::functional::SubLanes(a, b, count, out);
}

void MulVectors(const float* a, const float* b, size_t count, float* out) {
  ::zelva::kernel::functional::MulLanes(a, b, count, out);
}

void CopyBytes(const void* input, void* output, ShapeRecord shape) {
  std::memcpy(output, input, shape.ByteCount());
}

// ---- Matrix-vector
// ----------------------------------------------------------------------------------------------

namespace {

// Four accumulators over `rounds` rounds of 16 floats.
inline void Accumulate16(const float* w, const float* x, int rounds, __m128& a0, __m128& a1, __m128& a2,
                         __m128& a3) {
  for (int k = 0; k < rounds; ++k) {
    const float* wk = w + 16 * k;
    const float* xk = x + 16 * k;
    a0 = MulAdd(a0, _mm_loadu_ps(wk), _mm_loadu_ps(xk));
    a1 = MulAdd(a1, _mm_loadu_ps(wk + 4), _mm_loadu_ps(xk + 4));
    a2 = MulAdd(a2, _mm_loadu_ps(wk + 8), _mm_loadu_ps(xk + 8));
    a3 = MulAdd(a3, _mm_loadu_ps(wk + 12), _mm_loadu_ps(xk + 12));
  }
}

// Row sum of a 256-float row: s = (a3 + a2) + (a1 + a0), then ((s0 + s1) + s2) + s3.
inline float FinishRow(__m128 a0, __m128 a1, __m128 a2, __m128 a3) {
  return SumLanesInOrder(_mm_add_ps(_mm_add_ps(a3, a2), _mm_add_ps(a1, a0)));
}

inline void MatVecRows256(const float* weight, const float* x, const float* bias, float* y, int rows) {
  int r = 0;
  // Two rows at a time share the loads of x and run eight independent accumulators; each row keeps its order.
  for (; r + 2 <= rows; r += 2) {
    const float* w0 = weight + static_cast<size_t>(r) * 256;
    const float* w1 = w0 + 256;
    __m128 a0 = _mm_setzero_ps(), a1 = a0, a2 = a0, a3 = a0;
    __m128 c0 = a0, c1 = a0, c2 = a0, c3 = a0;
    for (int k = 0; k < 256; k += 16) {
      const __m128 x0 = _mm_loadu_ps(x + k), x1 = _mm_loadu_ps(x + k + 4);
      const __m128 x2 = _mm_loadu_ps(x + k + 8), x3 = _mm_loadu_ps(x + k + 12);
      a0 = MulAdd(a0, _mm_loadu_ps(w0 + k), x0);
      a1 = MulAdd(a1, _mm_loadu_ps(w0 + k + 4), x1);
      a2 = MulAdd(a2, _mm_loadu_ps(w0 + k + 8), x2);
      a3 = MulAdd(a3, _mm_loadu_ps(w0 + k + 12), x3);
      c0 = MulAdd(c0, _mm_loadu_ps(w1 + k), x0);
      c1 = MulAdd(c1, _mm_loadu_ps(w1 + k + 4), x1);
      c2 = MulAdd(c2, _mm_loadu_ps(w1 + k + 8), x2);
      c3 = MulAdd(c3, _mm_loadu_ps(w1 + k + 12), x3);
    }
    y[r] = FinishRow(a0, a1, a2, a3) + (bias != nullptr ? bias[r] : 0.0f);
    y[r + 1] = FinishRow(c0, c1, c2, c3) + (bias != nullptr ? bias[r + 1] : 0.0f);
  }
  for (; r < rows; ++r) {
    __m128 a0 = _mm_setzero_ps(), a1 = a0, a2 = a0, a3 = a0;
    Accumulate16(weight + static_cast<size_t>(r) * 256, x, 16, a0, a1, a2, a3);
    y[r] = FinishRow(a0, a1, a2, a3) + (bias != nullptr ? bias[r] : 0.0f);
  }
}

}  // namespace

void MatVec768x256(const float* weight, const float* x, const float* bias, float* y) {
  MatVecRows256(weight, x, bias, y, 768);
}

void MatVec80x256(const float* weight, const float* x, const float* bias, float* y) {
  MatVecRows256(weight, x, bias, y, 80);
}

void MatVecRows256Sse(const float* weight, const float* x, const float* bias, float* y, int rows) {
  MatVecRows256(weight, x, bias, y, rows);
}

void MatVec768x74(const float* weight, const float* x, const float* bias, float* y) {
  MatVecRows74Sse(weight, x, bias, y, 768);
}

void MatVecRows74Sse(const float* weight, const float* x, const float* bias, float* y, int rows) {
  for (int r = 0; r < rows; ++r) {
    const float* w = weight + static_cast<size_t>(r) * 74;
    __m128 a0 = _mm_setzero_ps(), a1 = a0, a2 = a0, a3 = a0;
    Accumulate16(w, x, 4, a0, a1, a2, a3);
    a0 = MulAdd(a0, _mm_loadu_ps(w + 64), _mm_loadu_ps(x + 64));
    a1 = MulAdd(a1, _mm_loadu_ps(w + 68), _mm_loadu_ps(x + 68));
    const __m128 s = _mm_add_ps(_mm_add_ps(a3, a2), _mm_add_ps(a1, a0));
    const float b = bias != nullptr ? bias[r] : 0.0f;
    y[r] = SumLanesInOrder(s) + (w[73] * x[73] + (w[72] * x[72] + b));
  }
}

// ---- GRU
// --------------------------------------------------------------------------------------------------------

void GruGates(const float* h_in, float* h_out, float* gates_x, float* gates_h) {
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 zero = _mm_setzero_ps();
  // r and z: sigmoid(gx + gh) = 1 / (1 + exp(0 - v)); an overflowing exp gives exactly 0.
  for (int i = 0; i < 512; i += 4) {
    const __m128 v = _mm_add_ps(_mm_loadu_ps(gates_x + i), _mm_loadu_ps(gates_h + i));
    const __m128 e = Sleef_expf4_u10(_mm_sub_ps(zero, v));
    _mm_storeu_ps(gates_h + i, _mm_div_ps(one, _mm_add_ps(one, e)));
  }
  // n = tanh(gx_n + gh_n * r); h' = n - z * (n - h).
  for (int i = 0; i < 256; i += 4) {
    const __m128 r = _mm_loadu_ps(gates_h + i);
    const __m128 z = _mm_loadu_ps(gates_h + 256 + i);
    const __m128 hn = _mm_mul_ps(_mm_loadu_ps(gates_h + 512 + i), r);
    const __m128 n = Sleef_tanhf4_u10(_mm_add_ps(_mm_loadu_ps(gates_x + 512 + i), hn));
    _mm_storeu_ps(gates_h + 512 + i, n);
    const __m128 d = _mm_sub_ps(n, _mm_loadu_ps(h_in + i));
    _mm_storeu_ps(h_out + i, _mm_sub_ps(n, _mm_mul_ps(z, d)));
  }
}

void GruStep256(const float* x, const float* h_in, const float* w_ih, const float* w_hh, const float* b_ih,
                const float* b_hh, float* h_out, float* gates_x, float* gates_h) {
  MatVec768x256(w_ih, x, b_ih, gates_x);
  MatVec768x256(w_hh, h_in, b_hh, gates_h);
  GruGates(h_in, h_out, gates_x, gates_h);
}

void GruStep74(const float* x, const float* h_in, const float* w_ih, const float* w_hh, const float* b_ih,
               const float* b_hh, float* h_out, float* gates_x, float* gates_h) {
  MatVec768x74(w_ih, x, b_ih, gates_x);
  MatVec768x256(w_hh, h_in, b_hh, gates_h);
  GruGates(h_in, h_out, gates_x, gates_h);
}

void GruLayer256(const float* input, ShapeRecord in_shape, float* output, const float* w_ih,
                 const float* w_hh, const float* b_ih, const float* b_hh, float* hidden, float* gates_x,
                 float* gates_h) {
  for (uint32_t t = 0; t < in_shape[0]; ++t) {
    GruStep256(input + 256 * t, hidden, w_ih, w_hh, b_ih, b_hh, hidden, gates_x, gates_h);
    std::memcpy(output + 256 * t, hidden, 256 * sizeof(float));
  }
}

void GruLayer74(const float* input, ShapeRecord in_shape, float* output, const float* w_ih, const float* w_hh,
                const float* b_ih, const float* b_hh, float* hidden, float* gates_x, float* gates_h) {
  for (uint32_t t = 0; t < in_shape[0]; ++t) {
    GruStep74(input + 74 * t, hidden, w_ih, w_hh, b_ih, b_hh, hidden, gates_x, gates_h);
    std::memcpy(output + 256 * t, hidden, 256 * sizeof(float));
  }
}

void DenseLayer256x80(const float* input, const float* weight, const float* bias, float* output) {
  MatVec80x256(weight, input, bias, output);
}

}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific

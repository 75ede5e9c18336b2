// The fused operators where the network's own run does not pin them (revolver_test.cc pins every
// exp-free stage of the network bit for bit at its shapes): the repacking formulas and their clearing on
// shapes the network does not have, the planar depthwise's tile and tail orders, the activations' NaN
// handling, the unused vector operators, the recurrent products and steps against double precision.
#include "zelva-kit/src/audiodenoise/revolver_ops.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {
namespace {

using Floats = std::vector<float>;

Floats Random(size_t n, std::mt19937& rng, float lo = -1.0f, float hi = 1.0f) {
  std::uniform_real_distribution<float> dist(lo, hi);
  Floats v(n);
  for (float& x : v) x = dist(rng);
  return v;
}

// Values over several orders of magnitude, so that a different summation order shows in the bits.
Floats Spread(size_t n, std::mt19937& rng) {
  std::uniform_real_distribution<float> mant(-1.0f, 1.0f);
  std::uniform_int_distribution<int> exp2(-8, 8);
  Floats v(n);
  for (float& x : v) x = std::ldexp(mant(rng), exp2(rng));
  return v;
}

uint32_t Bits(float f) {
  uint32_t u;
  std::memcpy(&u, &f, 4);
  return u;
}

::testing::AssertionResult SameBits(const Floats& got, const Floats& want) {
  if (got.size() != want.size()) return ::testing::AssertionFailure() << "sizes differ";
  for (size_t i = 0; i < got.size(); ++i) {
    if (Bits(got[i]) != Bits(want[i])) {
      return ::testing::AssertionFailure() << "element " << i << ": " << got[i] << " vs " << want[i];
    }
  }
  return ::testing::AssertionSuccess();
}

// ---- Repacking
// ----------------------------------------------------------------------------------------------

// Each source element lands at its index; the destination is cleared first over `cleared` floats, and
// nothing past that is touched where no element lands.
void ExpectRepack(const Floats& src, const Floats& dst, size_t cleared,
                  const std::function<size_t(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t)>& index,
                  uint32_t groups, uint32_t o, uint32_t i, uint32_t k) {
  const float kSentinel = -777.0f;
  std::vector<bool> hit(dst.size(), false);
  size_t s = 0;
  for (uint32_t g = 0; g < groups; ++g)
    for (uint32_t oo = 0; oo < o; ++oo)
      for (uint32_t ii = 0; ii < i; ++ii)
        for (uint32_t ky = 0; ky < k; ++ky)
          for (uint32_t kx = 0; kx < k; ++kx, ++s) {
            const size_t d = index(g, oo, ii, ky, kx);
            ASSERT_EQ(dst[d], src[s]) << groups << " " << o << " " << i << " " << k;
            hit[d] = true;
          }
  for (size_t d = 0; d < dst.size(); ++d) {
    if (!hit[d]) {
      ASSERT_EQ(dst[d], d < cleared ? 0.0f : kSentinel) << groups << " " << o << " " << i << " " << d;
    }
  }
}

TEST(RevolverOps, RepackingFollowsItsIndexAndClearsItsStatedExtent) {
  std::mt19937 rng(1);
  // Depthwise by 8: groups rounded up to whole blocks are cleared.
  for (uint32_t groups : {1u, 12u}) {
    for (uint32_t o : {1u, 2u}) {
      const uint32_t i = 3, k = 3;
      const size_t cleared = (groups + 7) / 8 * 8 * o * i * k * k;
      const Floats src = Random(groups * o * i * k * k, rng);
      Floats dst(cleared + 16, -777.0f);
      RepackDepthwise8(src.data(), dst.data(), groups, o, i, k, k);
      ExpectRepack(
          src, dst, cleared,
          [&](uint32_t g, uint32_t oo, uint32_t ii, uint32_t ky, uint32_t kx) {
            return (((((g / 8) * o + oo) * i + ii) * k + ky) * k + kx) * 8 + g % 8;
          },
          groups, o, i, k);
    }
  }
  // Pointwise by 8 x 8: the clearing counts bytes, so only a quarter of the blocks is cleared.
  struct Case {
    uint32_t groups, o, i, k;
  };
  for (const Case& c : {Case{1, 12, 12, 1}, Case{2, 5, 9, 1}, Case{1, 8, 3, 3}}) {
    const size_t ob = (c.o + 7) / 8, ib = (c.i + 7) / 8, total = ob * ib * c.groups * c.k * c.k * 64;
    const Floats src = Random(c.groups * c.o * c.i * c.k * c.k, rng);
    Floats dst(total, -777.0f);
    RepackPointwise8x8(src.data(), dst.data(), c.groups, c.o, c.i, c.k, c.k);
    ExpectRepack(
        src, dst, total / 4,
        [&](uint32_t g, uint32_t o, uint32_t i, uint32_t ky, uint32_t kx) {
          return ((((g * ob + o / 8) * ib + i / 8) * c.k + ky) * c.k + kx) * 64 + (i % 8) * 8 + o % 8;
        },
        c.groups, c.o, c.i, c.k);
  }
}

// ---- Planar convolutions
// -------------------------------------------------------------------------------------

TEST(RevolverOps, DepthwiseConv3x3PlanarTileBodyAndTailsInTheirOwnOrder) {
  std::mt19937 rng(3);
  for (uint32_t channels : {1u, 2u}) {
    for (uint32_t h = 1; h <= 9; ++h) {
      for (uint32_t w = 1; w <= 10; ++w) {
        const uint32_t ih = h + 2, iw = w + 2;
        const Floats in = Spread(channels * ih * iw, rng);
        const Floats wt = Spread(channels * 9, rng);
        const Floats bias = Spread(channels, rng);
        Floats out(channels * h * w, 123.0f), want(out.size());
        DepthwiseConv3x3Planar(wt.data(), bias.data(), in.data(), {channels, ih, iw, 4}, out.data(),
                               {channels, h, w, 4});
        for (uint32_t c = 0; c < channels; ++c) {
          const float* k = &wt[c * 9];
          auto at = [&](uint32_t y, uint32_t x) { return in[(c * ih + y) * iw + x]; };
          for (uint32_t y = 0; y < h; ++y) {
            for (uint32_t x = 0; x < w; ++x) {
              float v;
              if (y < h / 4 * 4 && x < w / 4 * 4) {
                v = bias[c];
                for (int t = 0; t < 9; ++t) v = v + k[t] * at(y + t / 3, x + t % 3);
              } else {
                float lane[3];
                for (int j = 0; j < 3; ++j) {
                  lane[j] = (k[j] * at(y, x + j) + k[3 + j] * at(y + 1, x + j)) + k[6 + j] * at(y + 2, x + j);
                }
                v = ((lane[0] + lane[1]) + lane[2]) + bias[c];
              }
              want[(c * h + y) * w + x] = v;
            }
          }
        }
        ASSERT_TRUE(SameBits(out, want)) << "C " << channels << " H " << h << " W " << w;
      }
    }
  }
}

// ---- Element-wise
// --------------------------------------------------------------------------------------------

float HSigmoidOf(float x, bool body) {
  float t = x + 3.0f;
  if (body) {
    t = t > 0.0f ? t : 0.0f;  // a NaN falls to 0
  } else {
    t = 0.0f > t ? 0.0f : t;  // a NaN passes
  }
  t = t < 6.0f ? t : 6.0f;  // a NaN becomes 6
  return t * 0.16666667f;
}

float ReluOf(float x, bool body) {
  if (body) return x > 0.0f ? x : 0.0f;
  return 0.0f > x ? 0.0f : x;
}

TEST(RevolverOps, ActivationsOnEveryTailLengthWithNaNsInBodyAndRest) {
  std::mt19937 rng(8);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (uint32_t n = 0; n <= 40; ++n) {
    Floats in = Random(n, rng, -8.0f, 8.0f);
    for (uint32_t i = 0; i < n; i += 5) in[i] = nan;
    const uint32_t body_end = n / 16 * 16;
    Floats hs(n), relu(in), want_hs(n), want_relu(n);
    HSigmoidPass(in.data(), hs.data(), {n, 4});
    ReluPass(relu.data(), relu.data(), {1, n, 4});  // in place, three-entry shape
    for (uint32_t i = 0; i < n; ++i) {
      want_hs[i] = HSigmoidOf(in[i], i < body_end);
      want_relu[i] = ReluOf(in[i], i < body_end);
    }
    ASSERT_TRUE(SameBits(hs, want_hs)) << n;
    ASSERT_TRUE(SameBits(relu, want_relu)) << n;
  }
}

TEST(RevolverOps, AddSubMulVectorsOnEveryTailLengthAndInPlace) {
  std::mt19937 rng(9);
  for (size_t n = 0; n <= 37; ++n) {
    const Floats a = Spread(n, rng), b = Spread(n, rng);
    Floats sum(n), diff(a), prod(b);
    AddVectors(a.data(), b.data(), n, sum.data());
    SubVectors(diff.data(), b.data(), n, diff.data());  // out == a
    MulVectors(a.data(), prod.data(), n, prod.data());  // out == b
    for (size_t i = 0; i < n; ++i) {
      EXPECT_EQ(Bits(sum[i]), Bits(a[i] + b[i]));
      EXPECT_EQ(Bits(diff[i]), Bits(a[i] - b[i]));
      EXPECT_EQ(Bits(prod[i]), Bits(a[i] * b[i]));
    }
  }
}

// ---- Matrix-vector
// -------------------------------------------------------------------------------------------

// The reference row sum of rows of 256 (or the first 72 of 74): four 4-lane accumulators, their tree, the
// lanes.
float RowSum(const float* w, const float* x, int rounds, int extra_groups) {
  float acc[4][4] = {};
  for (int k = 0; k < rounds; ++k)
    for (int a = 0; a < 4; ++a)
      for (int l = 0; l < 4; ++l) acc[a][l] = acc[a][l] + w[16 * k + 4 * a + l] * x[16 * k + 4 * a + l];
  for (int a = 0; a < extra_groups; ++a)
    for (int l = 0; l < 4; ++l)
      acc[a][l] = acc[a][l] + w[16 * rounds + 4 * a + l] * x[16 * rounds + 4 * a + l];
  float s[4];
  for (int l = 0; l < 4; ++l) s[l] = (acc[3][l] + acc[2][l]) + (acc[1][l] + acc[0][l]);
  return ((s[0] + s[1]) + s[2]) + s[3];
}

TEST(RevolverOps, MatVecRowsSumInTheStatedOrderWithAndWithoutBias) {
  std::mt19937 rng(10);
  const Floats x256 = Spread(256, rng), x74 = Spread(74, rng);
  const Floats w256 = Spread(768 * 256, rng), w74 = Spread(768 * 74, rng);
  const Floats bias = Spread(768, rng);
  for (bool with_bias : {true, false}) {
    const float* b = with_bias ? bias.data() : nullptr;
    Floats y768(768), y80(80), dense(80), y74(768), want768(768), want74(768);
    MatVec768x256(w256.data(), x256.data(), b, y768.data());
    MatVec80x256(w256.data(), x256.data(), b, y80.data());
    MatVec768x74(w74.data(), x74.data(), b, y74.data());
    DenseLayer256x80(x256.data(), w256.data(), b, dense.data());
    for (int r = 0; r < 768; ++r) {
      const float br = with_bias ? bias[r] : 0.0f;
      want768[r] = RowSum(&w256[r * 256], x256.data(), 16, 0) + br;
      const float* w = &w74[r * 74];
      want74[r] = RowSum(w, x74.data(), 4, 2) + (w[73] * x74[73] + (w[72] * x74[72] + br));
    }
    EXPECT_TRUE(SameBits(y768, want768));
    EXPECT_TRUE(SameBits(y80, Floats(want768.begin(), want768.begin() + 80)));
    EXPECT_TRUE(SameBits(dense, y80));
    EXPECT_TRUE(SameBits(y74, want74));
  }
}

// ---- GRU
// -----------------------------------------------------------------------------------------------------

struct GruWeights {
  size_t input;
  Floats w_ih, w_hh, b_ih, b_hh;
  GruWeights(size_t in, std::mt19937& rng, float scale)
      : input(in),
        w_ih(Random(768 * in, rng, -scale, scale)),
        w_hh(Random(768 * 256, rng, -scale, scale)),
        b_ih(Random(768, rng)),
        b_hh(Random(768, rng)) {}
};

// One step in double precision: r, z = sigmoid; n = tanh(Wx + b + r (Uh + b)); h' = (1 - z) n + z h.
std::vector<double> GruStepReference(const GruWeights& g, const Floats& x, const Floats& h) {
  std::vector<double> gx(768), gh(768), out(256);
  for (int r = 0; r < 768; ++r) {
    double sx = g.b_ih[r], sh = g.b_hh[r];
    for (size_t i = 0; i < g.input; ++i) sx += double(g.w_ih[r * g.input + i]) * x[i];
    for (int i = 0; i < 256; ++i) sh += double(g.w_hh[r * 256 + i]) * h[i];
    gx[r] = sx;
    gh[r] = sh;
  }
  for (int j = 0; j < 256; ++j) {
    const double r = 1.0 / (1.0 + std::exp(-(gx[j] + gh[j])));
    const double z = 1.0 / (1.0 + std::exp(-(gx[256 + j] + gh[256 + j])));
    const double n = std::tanh(gx[512 + j] + r * gh[512 + j]);
    out[j] = (1.0 - z) * n + z * h[j];
  }
  return out;
}

using StepFn = void (*)(const float*, const float*, const float*, const float*, const float*, const float*,
                        float*, float*, float*);

TEST(RevolverOps, GruGateWithOverflowingExpIsExactlyZero) {
  // Zero matrices; update gate preactivation -200 makes exp(200) overflow: z = 0 and h' = n whatever h was.
  // Reset gate preactivation -200 as well: r = 0, so n = tanh(b_ih_n) and b_hh_n drops out.
  Floats w_ih(768 * 74, 0.0f), w_hh(768 * 256, 0.0f), b_ih(768, 0.0f), b_hh(768, 0.0f);
  for (int j = 0; j < 512; ++j) b_ih[j] = -200.0f;
  for (int j = 0; j < 256; ++j) {
    b_ih[512 + j] = -3.0f + 6.0f * j / 255.0f;
    b_hh[512 + j] = 1e30f;
  }
  const Floats x(74, 0.5f);
  Floats h1(256, 0.75f), h2(256, -0.25f), gx(768), gh(768);
  GruStep74(x.data(), h1.data(), w_ih.data(), w_hh.data(), b_ih.data(), b_hh.data(), h1.data(), gx.data(),
            gh.data());
  GruStep74(x.data(), h2.data(), w_ih.data(), w_hh.data(), b_ih.data(), b_hh.data(), h2.data(), gx.data(),
            gh.data());
  EXPECT_TRUE(SameBits(h1, h2));
  for (int j = 0; j < 256; ++j) {
    EXPECT_EQ(gh[j], 0.0f);
    EXPECT_EQ(gh[256 + j], 0.0f);
    EXPECT_NEAR(h1[j], std::tanh(static_cast<double>(b_ih[512 + j])), 1e-6) << j;
  }
}

// The layers run the time loop in place on the state and copy each hidden vector out; every step holds to
// the cell equations in double precision, and a step apart (h_out not h_in) gives the same bits.
TEST(RevolverOps, GruLayersStepByTheCellEquationsInPlaceAndApart) {
  std::mt19937 rng(12);
  for (size_t input : {74u, 256u}) {
    const StepFn step = input == 74 ? GruStep74 : GruStep256;
    const GruWeights g(input, rng, 0.15f);
    const uint32_t steps = 3;
    const Floats x = Random(input * steps, rng, -2.0f, 2.0f);
    const Floats h0 = Random(256, rng);
    Floats h = h0, out(256 * steps), gx(768), gh(768), apart(256);
    const ShapeRecord shape{steps, static_cast<uint32_t>(input), 4};
    (input == 74 ? GruLayer74 : GruLayer256)(x.data(), shape, out.data(), g.w_ih.data(), g.w_hh.data(),
                                             g.b_ih.data(), g.b_hh.data(), h.data(), gx.data(), gh.data());
    step(x.data(), h0.data(), g.w_ih.data(), g.w_hh.data(), g.b_ih.data(), g.b_hh.data(), apart.data(),
         gx.data(), gh.data());
    EXPECT_TRUE(SameBits(Floats(out.begin(), out.begin() + 256), apart)) << input;
    Floats previous = h0;
    for (uint32_t t = 0; t < steps; ++t) {
      const std::vector<double> want = GruStepReference(g, Floats(x.begin() + t * input, x.end()), previous);
      previous.assign(out.begin() + 256 * t, out.begin() + 256 * (t + 1));
      for (int j = 0; j < 256; ++j)
        ASSERT_NEAR(previous[j], want[j], 2e-6) << input << " step " << t << " " << j;
    }
    EXPECT_TRUE(SameBits(h, previous));
  }
}

}  // namespace
}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific

/* SPDX-License-Identifier: GPL-2.0-only */
/* The two loops over all taps that the echo canceller runs for each sample, in place of the release's own; the results
   are the same to the last bit. The history stands twice, one copy behind the other, so that a loop meets it in one
   piece wherever the newest sample is. Sums and products wrap (-fwrapv), as the release's do.
   Included by echo.c after spandsp's headers; compiled once for every instruction set. */
#pragma once

#if defined(__SSE2__)
#include <immintrin.h>
#endif

static __inline__ const int16_t *echo_history_create(fir16_state_t *fir, const int16_t *coeffs, int taps)
{
    fir->taps = taps;
    fir->curr_pos = taps - 1;
    fir->coeffs = coeffs;
    fir->history = (int16_t *) calloc(2*taps, sizeof(int16_t));
    return fir->history;
}

static __inline__ void echo_history_flush(fir16_state_t *fir)
{
    memset(fir->history, 0, 2*fir->taps*sizeof(int16_t));
}

#if defined(__SSE2__)
static __inline__ __m128i echo_products(const int16_t *a, const int16_t *b)
{
    return _mm_madd_epi16(_mm_loadu_si128((const __m128i *) a), _mm_loadu_si128((const __m128i *) b));
}
#endif

#if defined(__AVX2__)
static __inline__ __m256i echo_products_wide(const int16_t *a, const int16_t *b)
{
    return _mm256_madd_epi16(_mm256_loadu_si256((const __m256i *) a), _mm256_loadu_si256((const __m256i *) b));
}
#endif

static __inline__ int32_t echo_sum_of_products(const int16_t *__restrict a, const int16_t *__restrict b, int count)
{
    int32_t sum = 0;
    int i = 0;
#if defined(__SSE2__)
    __m128i sums = _mm_setzero_si128();
    __m128i others = _mm_setzero_si128();
#if defined(__AVX2__)
    __m256i wide_sums = _mm256_setzero_si256();
    __m256i wide_others = _mm256_setzero_si256();

    for (  ;  i + 32 <= count;  i += 32)
    {
        wide_sums = _mm256_add_epi32(wide_sums, echo_products_wide(a + i, b + i));
        wide_others = _mm256_add_epi32(wide_others, echo_products_wide(a + i + 16, b + i + 16));
    }
    wide_sums = _mm256_add_epi32(wide_sums, wide_others);
    sums = _mm256_castsi256_si128(wide_sums);
    others = _mm256_extracti128_si256(wide_sums, 1);
#endif
    for (  ;  i + 16 <= count;  i += 16)
    {
        sums = _mm_add_epi32(sums, echo_products(a + i, b + i));
        others = _mm_add_epi32(others, echo_products(a + i + 8, b + i + 8));
    }
    if (i + 8 <= count)
    {
        sums = _mm_add_epi32(sums, echo_products(a + i, b + i));
        i += 8;
    }
    sums = _mm_add_epi32(sums, others);
    sums = _mm_add_epi32(sums, _mm_shuffle_epi32(sums, 0x4E));
    sums = _mm_add_epi32(sums, _mm_shuffle_epi32(sums, 0xB1));
    sum = _mm_cvtsi128_si32(sums);
#endif
    for (  ;  i < count;  i++)
        sum += a[i]*b[i];
    return sum;
}

/* The echo of the samples so far, this one the newest. */
static __inline__ int16_t echo_filter(fir16_state_t *fir, int16_t sample)
{
    int16_t *newest = fir->history + fir->curr_pos;
    int32_t y;

    newest[0] = sample;
    newest[fir->taps] = sample;
    y = echo_sum_of_products(fir->coeffs, newest, fir->taps);
    if (fir->curr_pos <= 0)
        fir->curr_pos = fir->taps;
    fir->curr_pos--;
    return (int16_t) (y >> 15);
}

/* taps32 += history*factor, taps16 = taps32 >> 15. factor within -65536 to 65534: it is split into two of 16 bits, so
   that one multiplication of pairs makes each product. */
static __inline__ void echo_move_taps(int32_t *__restrict taps32, int16_t *__restrict taps16,
                                      const int16_t *__restrict history, int count, int factor)
{
    int i = 0;
#if defined(__SSE2__)
    const int half = factor >> 1;
    const __m128i halves = _mm_set1_epi32((half & 0xFFFF) | (int) ((unsigned) (factor - half) << 16));
#if defined(__AVX2__)
    const __m256i wide_halves = _mm256_broadcastsi128_si256(halves);

    for (  ;  i + 16 <= count;  i += 16)
    {
        /* Quarters 0 2 1 3: what is unpacked and packed within each half of a register comes out in order. */
        __m256i h = _mm256_permute4x64_epi64(_mm256_loadu_si256((const __m256i *) (history + i)), 0xD8);
        __m256i low = _mm256_madd_epi16(_mm256_unpacklo_epi16(h, h), wide_halves);
        __m256i high = _mm256_madd_epi16(_mm256_unpackhi_epi16(h, h), wide_halves);

        low = _mm256_add_epi32(low, _mm256_loadu_si256((const __m256i *) (taps32 + i)));
        high = _mm256_add_epi32(high, _mm256_loadu_si256((const __m256i *) (taps32 + i + 8)));
        _mm256_storeu_si256((__m256i *) (taps32 + i), low);
        _mm256_storeu_si256((__m256i *) (taps32 + i + 8), high);
        /* Bit 31 goes, so that packing has nothing to saturate. */
        low = _mm256_srai_epi32(_mm256_slli_epi32(low, 1), 16);
        high = _mm256_srai_epi32(_mm256_slli_epi32(high, 1), 16);
        _mm256_storeu_si256((__m256i *) (taps16 + i),
                            _mm256_permute4x64_epi64(_mm256_packs_epi32(low, high), 0xD8));
    }
#endif
    for (  ;  i + 8 <= count;  i += 8)
    {
        __m128i h = _mm_loadu_si128((const __m128i *) (history + i));
        __m128i low = _mm_madd_epi16(_mm_unpacklo_epi16(h, h), halves);
        __m128i high = _mm_madd_epi16(_mm_unpackhi_epi16(h, h), halves);

        low = _mm_add_epi32(low, _mm_loadu_si128((const __m128i *) (taps32 + i)));
        high = _mm_add_epi32(high, _mm_loadu_si128((const __m128i *) (taps32 + i + 4)));
        _mm_storeu_si128((__m128i *) (taps32 + i), low);
        _mm_storeu_si128((__m128i *) (taps32 + i + 4), high);
        low = _mm_srai_epi32(_mm_slli_epi32(low, 1), 16);
        high = _mm_srai_epi32(_mm_slli_epi32(high, 1), 16);
        _mm_storeu_si128((__m128i *) (taps16 + i), _mm_packs_epi32(low, high));
    }
#endif
    for (  ;  i < count;  i++)
    {
        taps32[i] += history[i]*factor;
        taps16[i] = (int16_t) (taps32[i] >> 15);
    }
}

/* Moves the taps by the history. The residual of two 16-bit samples, and so the factor, is within -65535 to 65535. */
static __inline__ void echo_learn(echo_can_state_t *ec, int factor)
{
    const int16_t *newest = ec->fir_state.history + ec->curr_pos;

    if (factor == 65535)
    {
        echo_move_taps(ec->fir_taps32, ec->fir_taps16[ec->tap_set], newest, ec->taps, 1);
        factor--;
    }
    echo_move_taps(ec->fir_taps32, ec->fir_taps16[ec->tap_set], newest, ec->taps, factor);
}

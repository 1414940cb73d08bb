/* SPDX-License-Identifier: GPL-2.0-only */

/* What the platform's C library has, as the echo canceller's sources ask for it. */
#pragma once
#define HAVE_INTTYPES_H 1
#define HAVE_STDINT_H 1
#define HAVE_MATH_H 1
#define HAVE_TGMATH_H 1
#define HAVE_LRINT 1
#define HAVE_LRINTF 1
#define HAVE_SINF 1
#define HAVE_COSF 1
#define HAVE_TANF 1
#define HAVE_ASINF 1
#define HAVE_ACOSF 1
#define HAVE_ATANF 1
#define HAVE_ATAN2F 1
#define HAVE_CEILF 1
#define HAVE_FLOORF 1
#define HAVE_POWF 1
#define HAVE_EXPF 1
#define HAVE_LOGF 1
#define HAVE_LOG10F 1

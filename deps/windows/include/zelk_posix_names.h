/* SPDX-License-Identifier: GPL-2.0-only */

/* Included before every source that uses libpri on Windows: the BSD names and the byte order that it takes for granted
 * (without them its frames would be laid out for the other byte order). */
#pragma once
#include <stdint.h>
#include <sys/time.h>

typedef uint8_t u_int8_t;
typedef uint16_t u_int16_t;
typedef uint32_t u_int32_t;

#define __LITTLE_ENDIAN __ORDER_LITTLE_ENDIAN__
#define __BIG_ENDIAN __ORDER_BIG_ENDIAN__
#define __BYTE_ORDER __BYTE_ORDER__

/* SPDX-License-Identifier: GPL-2.0-only */

/*
 * libpri's clock in the fuzz build: it stands still until a target moves it on, so that timers of minutes run within a
 * test and an input does the same each time.
 */
#include <stdint.h>
#include <sys/time.h>

extern int64_t zelk_fuzz_clock_ms;
int zelk_fuzz_time_of_day(struct timeval* now, void* zone);

int64_t zelk_fuzz_clock_ms = 0;

int zelk_fuzz_time_of_day(struct timeval* now, void* zone) {
  (void)zone;
  now->tv_sec = zelk_fuzz_clock_ms / 1000;
  now->tv_usec = zelk_fuzz_clock_ms % 1000 * 1000;
  return 0;
}

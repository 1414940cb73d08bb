/* SPDX-License-Identifier: GPL-2.0-only */

/*
 * libpri's clock on Windows: UTC as Unix seconds and whole milliseconds times 1000, the same reading that the control
 * thread compares libpri's timers with.
 */
#include <windows.h>

#include <stdint.h>
#include <sys/time.h>

int zelk_time_of_day(struct timeval* now, void* zone);

int zelk_time_of_day(struct timeval* now, void* zone) {
  static const uint64_t kTicksToUnixEpoch = 116444736000000000ULL; /* of 100 ns, from 1601 to 1970 */
  FILETIME system;
  uint64_t milliseconds;
  (void)zone;
  GetSystemTimeAsFileTime(&system);
  milliseconds = (((uint64_t)system.dwHighDateTime << 32 | system.dwLowDateTime) - kTicksToUnixEpoch) / 10000U;
  now->tv_sec = (long)(milliseconds / 1000U);
  now->tv_usec = (long)(milliseconds % 1000U) * 1000;
  return 0;
}

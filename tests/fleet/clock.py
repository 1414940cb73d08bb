# SPDX-License-Identifier: GPL-2.0-only
"""A host whose clock is wrong, and what may not come of it."""
import datetime
import os
from pathlib import Path

from world import command

# Only what a clock shows is changed, not what it measures: who waits until a time waits as long as with a right clock.
CLOCK = """
#define _GNU_SOURCE
#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>
#include <time.h>
int clock_gettime(clockid_t clock, struct timespec* time) {
  int (*real)(clockid_t, struct timespec*) = dlsym(RTLD_NEXT, "clock_gettime");
  int result = real(clock, time);
  if (clock == CLOCK_REALTIME) {
    time->tv_sec += AHEAD;
  }
  return result;
}
int gettimeofday(struct timeval* restrict time, void* restrict zone) {
  int (*real)(struct timeval*, void*) = dlsym(RTLD_NEXT, "gettimeofday");
  int result = real(time, zone);
  time->tv_sec += AHEAD;
  return result;
}
time_t time(time_t* at) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (at) {
    *at = now.tv_sec;
  }
  return now.tv_sec;
}
/* Which clock a condition has is not to be seen; the times of the other one are since the computer started. */
static struct timespec ToReal(const struct timespec* time) {
  struct timespec real = *time;
  real.tv_sec -= real.tv_sec > 1000000000 ? AHEAD : 0;
  return real;
}
int pthread_cond_timedwait(pthread_cond_t* restrict cond, pthread_mutex_t* restrict lock, const struct timespec* restrict time) {
  typedef int Wait(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);
  /* There is an older one on some computers; ThreadSanitizer, where it is, has one of its own and must see who waits. */
  Wait* real = dlsym(RTLD_DEFAULT, "__tsan_init") ? 0 : dlvsym(RTLD_NEXT, "pthread_cond_timedwait", "GLIBC_2.3.2");
  real = real ? real : dlsym(RTLD_NEXT, "pthread_cond_timedwait");
  struct timespec until = ToReal(time);
  return real(cond, lock, &until);
}
int pthread_cond_clockwait(pthread_cond_t* restrict cond, pthread_mutex_t* restrict lock, clockid_t clock,
                           const struct timespec* restrict time) {
  int (*real)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const struct timespec*) = dlsym(RTLD_NEXT, "pthread_cond_clockwait");
  struct timespec until = ToReal(time);
  return real(cond, lock, clock, &until);
}
"""


def wrong_clock(folder, seconds):
    """The environment of a program whose clock is so many seconds ahead."""
    source = Path(folder) / "clock.c"
    source.write_text(CLOCK)
    command("cc", "-shared", "-fPIC", f"-DAHEAD={seconds}", "-o", source.with_suffix(".so"), source, "-ldl")
    # AddressSanitizer wants to be loaded first, and does without.
    asan = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
    return {**os.environ, "LD_PRELOAD": str(source.with_suffix(".so")), "ASAN_OPTIONS": asan}


def clock_faults(world, seconds):
    """Whether the clock of the first host is so far ahead, and those of the others are right: a start has its time in its name."""
    faults = []
    boots = {node["node"]: int(node["boot"].split("-")[-2]) / 1e6 for node in world.nodes()}
    for host in world.hosts:
        ahead = boots[host.name] - host.started
        if abs(ahead - (seconds if host.number == 1 else 0)) > 60:
            faults.append(f"the clock of {host.name} is {ahead:.0f} s ahead")
    return faults


def wrong_times(results, began, ended):
    """All are by the servers' clock, which is this computer's; what a host reads from afar is not exact."""
    about = 5
    times = [datetime.datetime.fromisoformat(text.replace("Z", "+00:00")).timestamp()
             for result in results for text in result["times"].values()]
    wrong = [each - began for each in times if not began - about <= each <= ended + about]
    return [f"{len(wrong)} of {len(times)} times are not of this run, one is {wrong[0]:.0f} s after its begin"] if wrong else []

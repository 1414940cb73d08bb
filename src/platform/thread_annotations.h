// SPDX-License-Identifier: GPL-2.0-only
#pragma once

// Names for clang's thread-safety analysis; other compilers see nothing. The analysis runs in `scripts/dev lint`.
#if defined(__clang__)
#define ZELK_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZELK_THREAD_ATTRIBUTE(x)
#endif

#define ZELK_CAPABILITY(x) ZELK_THREAD_ATTRIBUTE(capability(x))
#define ZELK_SCOPED_CAPABILITY ZELK_THREAD_ATTRIBUTE(scoped_lockable)
#define ZELK_GUARDED_BY(x) ZELK_THREAD_ATTRIBUTE(guarded_by(x))
#define ZELK_PT_GUARDED_BY(x) ZELK_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define ZELK_REQUIRES(...) ZELK_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZELK_EXCLUDES(...) ZELK_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ZELK_ACQUIRE(...) ZELK_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZELK_TRY_ACQUIRE(...) ZELK_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define ZELK_RELEASE(...) ZELK_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZELK_NO_THREAD_SAFETY_ANALYSIS ZELK_THREAD_ATTRIBUTE(no_thread_safety_analysis)

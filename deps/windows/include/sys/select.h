/* SPDX-License-Identifier: GPL-2.0-only */

/* Windows has no such header: what a POSIX source wants of it (fd_set, struct timeval) stands in these. */
#pragma once
#include <winsock2.h>
#include <sys/time.h>

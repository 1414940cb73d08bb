// SPDX-License-Identifier: GPL-2.0-only
#pragma once

// The system's own sockets for tests that play the other end, with the names of POSIX on every system.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

inline void CloseSocket(int descriptor) {
  close(descriptor);
}

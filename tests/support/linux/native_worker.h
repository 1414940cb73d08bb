// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <thread>

// A thread of a test, where the same test runs in a simulated world too.
using CWorker = std::thread;

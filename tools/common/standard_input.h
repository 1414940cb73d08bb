// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>

namespace tool {

// Waits for bytes on standard input and takes up to `room` of them; 0 at its end, and when it cannot be read. Takes no
// lock, so a thread that waits in here does not keep the program from ending.
std::size_t ReadStandardInput(char* to, std::size_t room);

// C's and C++'s standard streams take and give bytes as they are from now on: some systems write ends of lines
// otherwise.
void KeepStandardBytes();

}  // namespace tool

// SPDX-License-Identifier: GPL-2.0-only

// What libFuzzer calls, over the one target that is linked in. With "--seeds DIRECTORY" the program only writes the
// target's seeds there, a file each.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "fuzz/target.h"

namespace zelk::fuzz {
namespace {

int WriteSeeds(const std::string& directory) {
  int number = 0;
  for (const Bytes& seed : Targets().front().seeds()) {
    std::ofstream file(directory + "/seed-" + std::to_string(number++), std::ios::binary);
    file.write(reinterpret_cast<const char*>(seed.data()), static_cast<std::streamsize>(seed.size()));
    if (!file.flush()) {
      std::fprintf(stderr, "cannot write the seeds to %s\n", directory.c_str());
      return EXIT_FAILURE;
    }
  }
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace zelk::fuzz

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
  if (*count == 3 && std::strcmp((*arguments)[1], "--seeds") == 0) {
    std::exit(zelk::fuzz::WriteSeeds((*arguments)[2]));
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  zelk::fuzz::Targets().front().run(bytes, length);
  return 0;
}

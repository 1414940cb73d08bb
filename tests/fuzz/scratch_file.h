// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "fuzz/target.h"

namespace zelk::fuzz {

// One file for all inputs of a target, in the temporary folder; it goes with the program. Thread: one.
class CScratchFile {
 public:
  explicit CScratchFile(const std::string& ending)
      : path((std::filesystem::temp_directory_path() / ("zelk-fuzz-" + std::to_string(std::random_device()()) + ending))
                 .string()) {}
  ~CScratchFile() { std::remove(path.c_str()); }
  CScratchFile(const CScratchFile&) = delete;
  CScratchFile& operator=(const CScratchFile&) = delete;

  const char* Write(const Bytes& content) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    Require(file != nullptr, "the scratch file can be made");
    const size_t written = content.empty() ? 0 : std::fwrite(content.data(), 1, content.size(), file);
    Require(std::fclose(file) == 0 && written == content.size(), "the scratch file can be written");
    return path.c_str();
  }

 private:
  const std::string path;
};

}  // namespace zelk::fuzz

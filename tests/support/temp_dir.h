// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace zelk {

// A directory of a test's own, removed with all that is in it.
class CTempDir {
 public:
  CTempDir() {
    static std::atomic<uint64_t> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    root = std::filesystem::temp_directory_path() /
           ("zelk-test-" + std::to_string(stamp) + "-" + std::to_string(counter.fetch_add(1)));
    std::filesystem::create_directories(root);
  }
  ~CTempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
  CTempDir(const CTempDir&) = delete;
  CTempDir& operator=(const CTempDir&) = delete;

  std::string Path(const std::string& name = "") const { return name.empty() ? root.string() : (root / name).string(); }

  std::string Write(const std::string& name, std::string_view content) const {
    std::ofstream(root / name, std::ios::binary | std::ios::trunc)
        .write(content.data(), static_cast<std::streamsize>(content.size()));
    return Path(name);
  }

 private:
  std::filesystem::path root;
};

inline std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace zelk

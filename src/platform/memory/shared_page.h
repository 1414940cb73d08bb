// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelk {

// Memory that is a file, for programs that read it while this one writes.
// Thread: one at a time for Map and Leave, which block on the disk; the memory any.
class CSharedPage {
 public:
  constexpr CSharedPage() = default;
  CSharedPage(const CSharedPage&) = delete;
  CSharedPage& operator=(const CSharedPage&) = delete;

  // Makes the file at this path, or takes it over from a process that has ended, and zeroes it. Its disk space is taken
  // here: writing the memory cannot fail later. False when the file cannot be made or has no room, or another process
  // has it like this; true also when it was mapped before.
  bool Map(const std::string& path, size_t bytes);
  // The file is others' from here on, with what is in it. Where threads may still run, what they write goes nowhere.
  void Leave();
  void* Data() const { return data; }  // null before Map and after Leave

 private:
  void* data = nullptr;
  [[maybe_unused]] size_t size = 0;     // a simulated system has no use for the two
  [[maybe_unused]] intptr_t file = -1;  // open, so that another process finds it taken
};

// The system's number of this process.
uint32_t OwnProcessNumber();

}  // namespace zelk

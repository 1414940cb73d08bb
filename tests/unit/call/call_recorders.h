// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "call/application_events.h"
#include "runtime/config.h"
#include "runtime/log.h"
#include "runtime/log_writer.h"

namespace zelk::test {

struct SPosted {
  int32_t channel;
  uint32_t event;
  int32_t param;

  bool operator==(const SPosted&) const = default;
};

inline void PrintTo(const SPosted& posted, std::ostream* out) {
  *out << "{channel " << posted.channel << ", event 0x" << std::hex << posted.event << std::dec << ", " << posted.param
       << "}";
}

// The application: notes every event, and does what the test wants inside the callback.
class CEventRecorder {
 public:
  CEventRecorder() {
    Current() = this;
    ApplicationEvents().SetEventCallback(&CEventRecorder::OnEvent);
  }
  ~CEventRecorder() {
    ApplicationEvents().SetEventCallback(nullptr);
    Current() = nullptr;
  }
  CEventRecorder(const CEventRecorder&) = delete;
  CEventRecorder& operator=(const CEventRecorder&) = delete;

  std::vector<SPosted> Take() {
    const std::lock_guard<std::mutex> held(mutex);
    return std::exchange(posted, {});
  }

  std::function<void(const SPosted&)> reaction;

 private:
  static CEventRecorder*& Current() {
    static CEventRecorder* current = nullptr;
    return current;
  }
  static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param) {
    CEventRecorder* self = Current();
    {
      const std::lock_guard<std::mutex> held(self->mutex);
      self->posted.push_back({channel, event, param});
    }
    if (self->reaction) {
      self->reaction({channel, event, param});
    }
  }

  std::mutex mutex;
  std::vector<SPosted> posted;
};

// What is logged between its construction and Text(), at the given level.
class CLogCapture {
 public:
  explicit CLogCapture(int32_t level)
      : path(std::filesystem::temp_directory_path() /
             ("zelk-call-test-" + std::to_string(std::random_device()()) + ".log")) {
    // What was pending goes to the file, and the file goes.
    Log().Start(path.string());
    Log().Stop();
    std::filesystem::remove(path);
    Config().level = level;
    Log().Start(path.string());
  }
  ~CLogCapture() {
    Log().Stop();
    std::filesystem::remove(path);
    Config().level = 2;
  }
  CLogCapture(const CLogCapture&) = delete;
  CLogCapture& operator=(const CLogCapture&) = delete;

  // Nothing waits to be written afterwards: the next line needs memory.
  void WriteOut() {
    Log().Stop();
    Log().Start(path.string());
  }

  // The texts of the lines, tagged with their channel ("  5 :text") or "  G :text", in order.
  std::vector<std::string> Lines() {
    Log().Stop();
    std::ifstream file(path);
    std::vector<std::string> lines;
    constexpr size_t kStampChars = 20;
    for (std::string line; std::getline(file, line);) {
      if (!line.empty() && line.back() == '\r') {
        line.pop_back();
      }
      lines.push_back(line.substr(std::min(kStampChars, line.size())));
    }
    return lines;
  }

 private:
  const std::filesystem::path path;
};

}  // namespace zelk::test

// SPDX-License-Identifier: GPL-2.0-only
#include "phone/input.h"

#include <array>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "common/standard_input.h"

namespace phone {

struct CInput::SShared {
  // Whoever writes faster than the telephone works is made to wait.
  static constexpr size_t kMostLines = 1000;

  std::mutex lock;
  std::condition_variable room;
  std::deque<SInputLine> lines;  // guarded by lock
  bool isOver = false;           // guarded by lock
  std::function<void()> wake;    // guarded by lock
};

CInput::CInput(std::function<void()> wake) : shared(std::make_shared<SShared>()) {
  shared->wake = std::move(wake);
  std::thread([keptAlive = shared] { Read(keptAlive); }).detach();
}

CInput::~CInput() {
  const std::lock_guard<std::mutex> guard(shared->lock);
  shared->wake = [] {};
}

bool CInput::Take(SInputLine& line) {
  const std::lock_guard<std::mutex> guard(shared->lock);
  if (shared->lines.empty()) {
    return false;
  }
  line = std::move(shared->lines.front());
  shared->lines.pop_front();
  shared->room.notify_one();
  return true;
}

bool CInput::IsOver() const {
  const std::lock_guard<std::mutex> guard(shared->lock);
  return shared->isOver && shared->lines.empty();
}

void CInput::Read(const std::shared_ptr<SShared>& shared) {
  CLineSplitter splitter;
  std::array<char, 4096> bytes{};
  size_t taken = 0;
  do {
    taken = tool::ReadStandardInput(bytes.data(), bytes.size());
    std::unique_lock<std::mutex> guard(shared->lock);
    shared->room.wait(guard, [&] { return shared->lines.size() < SShared::kMostLines; });
    if (taken > 0) {
      splitter.Feed({bytes.data(), taken}, shared->lines);
    } else {
      splitter.End(shared->lines);
      shared->isOver = true;
    }
    shared->wake();
  } while (taken > 0);
}

}  // namespace phone

#include "runtime/log_batch.h"

#include <utility>

namespace zelk {

namespace {

// Long enough to gather bursts, short enough that a log that was moved away is followed by a new one at once.
constexpr uint32_t kKeptOpenMs = 500;

}  // namespace

void CLogBatch::Take(std::string& text) {
  if (batch.empty()) {
    batch.swap(text);
  } else {
    batch += text;
  }
  text.clear();
}

void CLogBatch::WriteOut(const std::string& path, bool closeAtOnce, uint32_t nowMs) {
  if (batch.empty()) {
    return;
  }
  if (!file.IsOpen()) {
    file.Open(path);
    openedAtMs = nowMs;  // also when it failed
  }
  if (!file.IsOpen() || !WriteText()) {
    return;
  }
  if (closeAtOnce) {
    file.Close();
  } else if (nowMs - openedAtMs >= kKeptOpenMs) {
    file.Close();
    openedAtMs = nowMs;
  }
}

bool CLogBatch::WriteText() {
  const int64_t written = file.Write(batch.data(), batch.size());
  if (written < 0) {
    return false;
  }
  batch.erase(0, static_cast<size_t>(written));
  return true;
}

std::string CLogBatch::TakeBack() {
  return std::exchange(batch, std::string());
}

}  // namespace zelk

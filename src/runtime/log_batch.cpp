// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log_batch.h"

#include <iterator>
#include <new>
#include <utility>

namespace zelk {

namespace {

// Long enough to gather bursts, short enough that a log that was moved away is followed by a new one at once.
constexpr uint32_t kKeptOpenMs = 500;
// Text is copied into the last piece. Pieces of this size keep that short, however much is waiting.
constexpr size_t kPieceBytes = 64U << 10;

}  // namespace

// The first piece grows as it needs to, so that a few lines take little memory; after a full one a full one is likely.
void AddText(LogPieces& pieces, std::string_view text) {
  if (!pieces.empty() && pieces.back().size() + text.size() <= kPieceBytes) {
    pieces.back() += text;
    return;
  }
  std::string piece;
  piece.reserve(pieces.empty() ? text.size() : kPieceBytes);
  piece += text;
  pieces.push_back(std::move(piece));
}

void CLogBatch::Take(LogPieces& text) noexcept {
  batch.splice(batch.end(), text);
}

size_t CLogBatch::WriteOut(const std::string& path, bool closeAtOnce, uint32_t nowMs) {
  size_t written = 0;
  if (batch.empty()) {
    return written;
  }
  if (!file.IsOpen()) {
    file.Open(path);
    openedAtMs = nowMs;  // also when it failed
  }
  if (!file.IsOpen() || !WriteText(written)) {
    return written;
  }
  if (closeAtOnce) {
    file.Close();
  } else if (nowMs - openedAtMs >= kKeptOpenMs) {
    file.Close();
    openedAtMs = nowMs;
  }
  return written;
}

// One piece of all, so that it goes out with one call. Without the memory for it the pieces go out one by one.
void CLogBatch::Join() {
  size_t bytes = 0;
  for (const std::string& piece : batch) {
    bytes += piece.size();
  }
  std::string& first = batch.front();
  try {
    first.reserve(bytes);
  } catch (const std::bad_alloc&) {
    return;
  }
  for (auto piece = std::next(batch.begin()); piece != batch.end(); piece = batch.erase(piece)) {
    first += *piece;
  }
}

// False when a write failed. One that wrote a part ends the pass like one that wrote all.
bool CLogBatch::WriteText(size_t& written) {
  Join();
  while (!batch.empty()) {
    std::string& piece = batch.front();
    const int64_t result = file.Write(piece.data(), piece.size());
    if (result < 0) {
      return false;
    }
    written += static_cast<size_t>(result);
    if (static_cast<size_t>(result) < piece.size()) {
      piece.erase(0, static_cast<size_t>(result));
      return true;
    }
    batch.pop_front();
  }
  return true;
}

LogPieces CLogBatch::TakeBack() noexcept {
  return std::exchange(batch, LogPieces());
}

}  // namespace zelk

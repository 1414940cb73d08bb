// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/board_live.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <thread>

#include "common/child_process.h"
#include "trace/live/live_capture.h"
#include "trace/program/board_screen.h"
#include "trace/program/board_view.h"
#include "trace/program/run.h"

namespace trace {
namespace {

constexpr std::chrono::milliseconds kBeat{600};  // longer than a library takes from one to the next

Time WallClock() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

// Job: the board of a status page, which is read anew at each look. Thread: one.
class CPageSource : public IBoardSource {
 public:
  explicit CPageSource(const std::string& pagePath) : path(pagePath) {}

  SBoardView Look() override {
    SBoardView view;
    try {
      look = LookAtPage(path);
      if (look.why.empty()) {
        view = ViewOf(look.page, look.now);
      }
      view.remark = look.why;
    } catch (const CTraceError& error) {
      look = {};
      view.remark = error.what();
    }
    return view;
  }
  std::vector<std::string> Details(const std::string& trunk, int cell) override {
    return look.why.empty() ? DetailsOf(look.page, trunk, cell) : std::vector<std::string>{look.why};
  }

 private:
  const std::string path;
  SPageLook look;
};

// Job: the board of an adapter: a thread takes its packets, the screen's thread looks. Thread: as said; what they share
// is under the lock.
class CWireSource : public IBoardSource {
 public:
  CWireSource(const SInput& liveInput, const std::string& pagePath) : input(liveInput), page(pagePath) {
    hasPage = !pagePath.empty();
    reader = std::thread([this] { Read(); });
  }
  ~CWireSource() override {
    StopLiveCapture();
    reader.join();
  }

  SBoardView Look() override {
    if (hasPage) {
      pageRemark = page.Look().remark;
    }
    const std::lock_guard<std::mutex> held(lock);
    SBoardView view = ViewOf(board, WallClock());
    view.remark = isOver ? "The capture has ended." : pageRemark;
    return view;
  }
  std::vector<std::string> Details(const std::string& trunk, int cell) override {
    std::vector<std::string> lines;
    {
      const std::lock_guard<std::mutex> held(lock);
      WatchLevel(trunk, cell);
      lines = DetailsOf(board, calls, levels, trunk, cell);
    }
    if (hasPage) {
      const std::vector<std::string> more = page.Details(trunk, cell);
      lines.emplace_back();
      lines.insert(lines.end(), more.begin(), more.end());
    }
    return lines;
  }
  // The capture could not begin, or broke off.
  bool HasFailed() const { return hasFailed; }
  void Rethrow() const {
    if (hasFailed) {
      std::rethrow_exception(failure);
    }
  }

 private:
  void Read() {
    CTee both({&board, &calls, &levels}, &lock);
    try {
      Analyse(input, both);
    } catch (...) {
      failure = std::current_exception();
      hasFailed = true;
    }
    isOver = true;
  }

  void WatchLevel(const std::string& trunk, int cell) {
    for (const auto& [address, card] : board.Cards()) {
      for (std::size_t i = 0; i < card.trunks.size(); ++i) {
        if (CardNameOf(card) + "-" + std::to_string(i + 1) == trunk) {
          levels.Watch(address, static_cast<int>(i), TimeslotOfCell(cell), static_cast<int>(card.trunks.size()));
        }
      }
    }
  }

  const SInput input;
  bool hasPage = false;
  CPageSource page;
  std::string pageRemark;
  std::mutex lock;
  CBoard board;
  CLastCalls calls;
  CLevelMeter levels;
  std::exception_ptr failure;
  std::atomic<bool> hasFailed{false};
  std::atomic<bool> isOver{false};
  std::thread reader;
};

EExit ShowWire(const SBoardOptions& options) {
  CWireSource source(options.input, options.status);
  // Screen and capture both take the signals, and which of them comes last is the scheduler's choice.
  ShowBoard(source, "zelk-trace " + options.input.adapter,
            [&] { return source.HasFailed() || IsLiveCaptureStopped(); });
  source.Rethrow();
  return EExit::kDone;
}

}  // namespace

SPageLook LookAtPage(const std::string& path) {
  SPageLook look{ReadStatusPage(path), WallClock(), {}};
  bool lives = tool::ProcessLives(look.page.process);
  if (!lives && WhyNotLive(look.page, look.now, true, path).empty()) {
    std::this_thread::sleep_for(kBeat);
    const Time before = look.page.heartbeat;
    look = {ReadStatusPage(path), WallClock(), {}};
    lives = look.page.heartbeat > before;
  }
  look.why = WhyNotLive(look.page, look.now, lives, path);
  return look;
}

EExit RunLiveBoard(const SBoardOptions& options) {
  if (!options.input.adapter.empty()) {
    return ShowWire(options);
  }
  CPageSource source(options.status);
  ReadStatusPage(options.status);  // throws for what is none
  ShowBoard(source, "zelk-trace " + options.status, [] { return false; });
  return EExit::kDone;
}

}  // namespace trace

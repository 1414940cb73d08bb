// SPDX-License-Identifier: GPL-2.0-only
#include "trace/live/live_capture.h"

#include <atomic>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "common/child_process.h"
#include "trace/core/trace_error.h"

namespace trace {
namespace {

// All that cards and library say to each other; a card may send audio from any port.
constexpr char kFilter[] = "tcp port 5854 or udp port 5854 or udp[8:2] = 0xff55";

std::atomic<tool::CChildProcess*> running{nullptr};
std::atomic<bool> isStopped{false};

void OnSignal(int) {
  StopLiveCapture();
}

std::vector<std::string> CommandOf(const SLiveInput& input) {
  std::vector<std::string> command = {"dumpcap", "-q", "-i", input.adapter, "-f", kFilter, "-w", "-"};
  if (input.seconds > 0) {
    command.insert(command.end(), {"-a", "duration:" + std::to_string(input.seconds)});
  }
  return command;
}

// What dumpcap complains of, in one line.
std::string Complaint(const std::string& errors) {
  std::istringstream lines(errors);
  std::string text;
  for (std::string line; std::getline(lines, line);) {
    line.erase(line.find_last_not_of('\r') + 1);
    const bool isUsual = line.empty() || line.starts_with("Capturing on") || line.starts_with("File: ") ||
                         line.starts_with("Packets ") || line.starts_with("Running as user");
    text += isUsual ? "" : (text.empty() ? "" : " ") + line;
  }
  return text.empty() ? "dumpcap gives no packets" : text;
}

// The child while signals and other threads may end it.
class CRunning {
 public:
  explicit CRunning(tool::CChildProcess& child) {
    running = &child;
    tool::OnEndRequest(OnSignal);
    if (isStopped) {
      child.Stop();
    }
  }
  ~CRunning() { running = nullptr; }
  CRunning(const CRunning&) = delete;
  CRunning& operator=(const CRunning&) = delete;
};

// Null when it was stopped before its first packet.
std::unique_ptr<CCaptureFile> Open(tool::CChildProcess& child, const std::string& adapter) {
  try {
    return std::make_unique<CCaptureFile>(child.TakeOutput(), adapter);
  } catch (const CTraceError& error) {
    child.Stop();
    const std::string errors = child.Wait();
    if (isStopped) {
      return nullptr;
    }
    throw CTraceError(error.Code(), adapter + ": cannot be captured (" + Complaint(errors) + ")");
  }
}

}  // namespace

void StopLiveCapture() {
  isStopped = true;
  if (tool::CChildProcess* const child = running) {
    child->Stop();
  }
}

bool IsLiveCaptureStopped() {
  return isStopped;
}

EExit CaptureLive(const SLiveInput& input, const std::function<EExit(CCaptureFile&)>& read) {
  tool::GiveWay();
  try {
    tool::CChildProcess child(CommandOf(input));
    const CRunning stoppable(child);
    const std::unique_ptr<CCaptureFile> file = Open(child, input.adapter);
    return file == nullptr ? EExit::kDone : read(*file);
  } catch (const CTraceError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw CTraceError(EExit::kBadInput, std::string(error.what()) + "; it is in Wireshark's package");
  }
}

}  // namespace trace

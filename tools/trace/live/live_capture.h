// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "trace/core/analysis.h"
#include "trace/core/trace_error.h"

namespace trace {

// An adapter, and for how long: 0 seconds until somebody ends it.
struct SLiveInput {
  std::string adapter;
  int seconds = 0;
};

// Has `read` take an adapter's packets from dumpcap, from now until the capture ends: after its time, or because
// somebody asks this program to end. Throws CTraceError when the adapter cannot be captured.
EExit CaptureLive(const SLiveInput& input, const std::function<EExit(CCaptureFile&)>& read);
// Ends the capture that runs, if one does. Thread: any; signal handlers too.
void StopLiveCapture();
// Somebody asked for the end, of the capture or of the program. Thread: any.
bool IsLiveCaptureStopped();

// Job: hands all that it hears to others, under a lock when it has one. Thread: one; who holds the lock may look at the
// others.
class CTee : public ITraceSink {
 public:
  explicit CTee(std::vector<ITraceSink*> listeners, std::mutex* sharedLock = nullptr)
      : sinks(std::move(listeners)), lock(sharedLock) {}

  void OnPacket(Time time) override {
    Each([&](ITraceSink& sink) { sink.OnPacket(time); });
  }
  void OnDiscovery(const SDiscovery& datagram) override {
    Each([&](ITraceSink& sink) { sink.OnDiscovery(datagram); });
  }
  void OnConnected(const SConnection& connection) override {
    Each([&](ITraceSink& sink) { sink.OnConnected(connection); });
  }
  void OnControl(const SConnection& connection, const SControl& message) override {
    Each([&](ITraceSink& sink) { sink.OnControl(connection, message); });
  }
  void OnDisconnected(const SConnection& connection, Time time) override {
    Each([&](ITraceSink& sink) { sink.OnDisconnected(connection, time); });
  }
  void OnAudio(const SAudio& audio) override {
    Each([&](ITraceSink& sink) { sink.OnAudio(audio); });
  }
  void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame& decoded,
               EVerdict verdict) override {
    Each([&](ITraceSink& sink) { sink.OnFrame(connection, frame, decoded, verdict); });
  }
  void OnCallBegins(const SCall& call) override {
    Each([&](ITraceSink& sink) { sink.OnCallBegins(call); });
  }
  void OnCallMessage(const SCall& call, const SSignal& signal) override {
    Each([&](ITraceSink& sink) { sink.OnCallMessage(call, signal); });
  }
  void OnCallEnds(const SCall& call) override {
    Each([&](ITraceSink& sink) { sink.OnCallEnds(call); });
  }

 private:
  template <class Act>
  void Each(Act act) {
    std::unique_lock<std::mutex> held;
    if (lock != nullptr) {
      held = std::unique_lock<std::mutex>(*lock);
    }
    for (ITraceSink* sink : sinks) {
      act(*sink);
    }
  }

  const std::vector<ITraceSink*> sinks;
  std::mutex* const lock;
};

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "trace/core/calls.h"
#include "trace/core/traffic.h"

namespace trace {

// All that a capture tells, in its order.
class ITraceSink : public ICallSink, public ITrafficSink {};

// Job: from packets to calls: one capture read from end to end. Thread: one. Owns what it knows of the capture; the
// sink must outlive it.
class CAnalysis : private ITrafficSink {
 public:
  // `trunkCount`: trunks of cards of which the capture does not tell it; 0 for none.
  CAnalysis(ITraceSink& traceSink, int trunkCount);

  // Reads to the end of the file, or to where it makes no sense any more. Throws CTraceError for a link type without
  // IP. `watch` sees each packet of TCP or UDP before it is taken apart.
  void Run(CCaptureFile& file, const std::function<void(const SPacket&)>& watch = {});
  // The same by the packet: each in turn, then the end.
  void TakePacket(const SPacket& packet) { traffic.OnPacket(packet); }
  void Finish();

  // What was passed over, is missing or was guessed, a sentence each.
  std::vector<std::string> Notes() const;
  // One sentence about a capture in which no card says anything; else empty.
  std::string Emptiness(const CCaptureFile& file) const;
  STrafficCounts TrafficCounts() const { return traffic.Counts(); }
  const SPacketCounts& PacketCounts() const { return packets; }

 private:
  void OnPacket(Time time) override { sink.OnPacket(time); }
  void OnDiscovery(const SDiscovery& datagram) override { sink.OnDiscovery(datagram); }
  void OnConnected(const SConnection& connection) override { sink.OnConnected(connection); }
  void OnControl(const SConnection& connection, const SControl& message) override;
  void OnDisconnected(const SConnection& connection, Time time) override;
  void OnAudio(const SAudio& audio) override { sink.OnAudio(audio); }

  ITraceSink& sink;
  CTraffic traffic;
  CCalls calls;
  SPacketCounts packets;
};

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/analysis.h"

#include <fmt/format.h>

namespace trace {
namespace {

void Note(std::vector<std::string>& notes, std::uint64_t count, const char* text) {
  if (count > 0) {
    notes.push_back(fmt::format(fmt::runtime(text), count));
  }
}

}  // namespace

CAnalysis::CAnalysis(ITraceSink& traceSink, int trunkCount)
    : sink(traceSink), traffic(*this, trunkCount), calls(traceSink) {}

void CAnalysis::Run(CCaptureFile& file, const std::function<void(const SPacket&)>& watch) {
  CPacketReader reader(file);
  for (SCaptured captured; file.Next(captured);) {
    if (const std::optional<SPacket> packet = reader.Read(captured)) {
      if (watch) {
        watch(*packet);
      }
      TakePacket(*packet);
    }
  }
  Finish();
  packets = reader.Counts();
}

void CAnalysis::Finish() {
  traffic.Finish();
  calls.Finish();
}

void CAnalysis::OnControl(const SConnection& connection, const SControl& message) {
  sink.OnControl(connection, message);
  calls.OnControl(connection, message);
}

void CAnalysis::OnDisconnected(const SConnection& connection, Time time) {
  calls.OnDisconnected(connection, time);
  sink.OnDisconnected(connection, time);
}

std::vector<std::string> CAnalysis::Notes() const {
  const STrafficCounts counts = traffic.Counts();
  const SLinkCounts links = calls.LinkCounts();
  std::vector<std::string> notes;
  Note(notes, packets.fragments, "{} IPv4 fragments were passed over");
  Note(notes, packets.malformed, "{} packets have broken headers");
  Note(notes, packets.cut, "{} packets were captured without their ends");
  Note(notes, packets.setBack, "{} times the clock of the capture was set back; durations across that are wrong");
  Note(notes, counts.oneSided, "{} control connections are captured in one direction alone");
  Note(notes, counts.begunBefore, "{} control connections began before the capture");
  Note(notes, counts.withoutTrunkCount,
       "{} control connections do not show how many trunks their card has, so nothing of what it said was read; "
       "--trunks tells it");
  Note(notes, counts.tcp.gaps, "{} gaps in the control connections");
  Note(notes, counts.tcp.bytesMissing, "{} bytes of the control connections are not in the capture");
  Note(notes, counts.tcp.repeated, "{} TCP segments came once more");
  Note(notes, counts.tcp.outOfOrder, "{} TCP segments came before one of their predecessors");
  Note(notes, counts.tcp.strays + counts.afterTheEnd, "{} TCP segments are of no connection that lives");
  Note(notes, counts.messages.bytesSkipped, "{} bytes of the control connections are no message that is whole");
  Note(notes, links.broken, "{} D-channel frames are broken");
  Note(notes, links.repeated, "{} D-channel frames came once more");
  Note(notes, links.outOfSequence, "{} D-channel frames came out of sequence");
  Note(notes, links.missing, "{} D-channel frames are not in the capture");
  return notes;
}

std::string CAnalysis::Emptiness(const CCaptureFile& file) const {
  if (!traffic.Counts().IsEmpty()) {
    return {};
  }
  return fmt::format("{}: none of its {} packets is of a card", file.Name(), packets.packets);
}

}  // namespace trace

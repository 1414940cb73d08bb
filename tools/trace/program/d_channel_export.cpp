// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/d_channel_export.h"

#include "trace/core/trace_error.h"

namespace trace {
namespace {

constexpr std::size_t kMostWaiting = 100'000;

}  // namespace

CDChannelExport::CDChannelExport(std::ostream& stream, SDChannelChoice choice)
    : chosen(std::move(choice)), out(stream), writer(stream) {
  if (chosen.isLive) {
    Flush();  // the reader opens with the head of the file
  }
}

bool CDChannelExport::IsWanted(const std::string& card, int trunk) const {
  return chosen.trunks.empty() || chosen.trunks.count(card) > 0 ||
         chosen.trunks.count(card + "-" + std::to_string(trunk + 1)) > 0;
}

void CDChannelExport::OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame&, EVerdict) {
  const std::string card = CardName(connection);
  if (!IsWanted(card, frame.trunk)) {
    return;
  }
  const Key key{connection.number, frame.trunk};
  links[key].OnFrame(frame, tool::DecodeFrame(frame.body));
  waiting.push_back({key, {card, connection.serial, frame.trunk, false, frame}});
  WriteKnown();
  while (chosen.isLive ? !waiting.empty() : waiting.size() > kMostWaiting) {
    WriteFirst();
  }
  if (chosen.isLive) {
    Flush();
  }
}

std::uint64_t CDChannelExport::End() {
  while (!waiting.empty()) {
    WriteFirst();
  }
  return written;
}

void CDChannelExport::WriteKnown() {
  while (!waiting.empty() && links[waiting.front().first].IsLibraryNetwork()) {
    WriteFirst();
  }
}

void CDChannelExport::WriteFirst() {
  SExported& exported = waiting.front().second;
  exported.isLibraryNetwork = links[waiting.front().first].IsLibraryNetwork().value_or(false);
  if (chosen.anonymise) {
    exported.frame.body = anonymiser.Anonymise(exported.frame.body);
  }
  writer.Write(exported);
  waiting.pop_front();
  ++written;
}

void CDChannelExport::Flush() {
  if (!out.flush()) {
    throw CTraceError(EExit::kDone, "the reader has gone");
  }
}

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_receiver.h"

#include <cstdio>
#include <cstring>

#include "runtime/status_page.h"

namespace zelk {
namespace {

constexpr uint32_t kFailurePauseMs = 100;
// A read in so many asks whether packets wait. Of a thread that keeps up one in two seconds finds none even at the
// slowest pace of a card, 178 packets a second.
constexpr uint32_t kReadsAProbe = 16;

using EAction = SSequenceDecision::EAction;

}  // namespace

bool CAudioReceiver::Create(CCardRings& rings) {
  trunks = static_cast<uint32_t>(rings.PositionCount() / kTimeslotsPerTrunk);
  rules = CSequenceRules();
  return demultiplexer.Create(rings, controls.card);
}

void CAudioReceiver::Run(CSocket& socket, SIpv4Address cardAddress) {
  while (!stop.IsSet()) {
    size_t length = 0;
    if (ReadPacket(socket, cardAddress, length))
      OnPacket(buffer.data(), length);
  }
}

// The usual read is one call that waits. It does not tell whether its packet had to wait, so now and then one that does
// not wait goes before it.
bool CAudioReceiver::ReadPacket(CSocket& socket, SIpv4Address cardAddress, size_t& length) {
  SIpv4Endpoint source;
  int received = reads++ % kReadsAProbe == 0 ? ReadWaiting(socket, source) : 0;
  if (received <= 0)
    received = socket.ReceiveFromWaiting(buffer.data(), buffer.size(), source);
  if (received < 0) {
    if (!socket.IsOpen() || socket.WaitReadable(kWaitForever) == EWait::kError)
      stop.SleepFor(kFailurePauseMs);
    return false;
  }
  if (received == 0 || source.address != cardAddress)
    return false;
  length = static_cast<size_t>(received);
  return true;
}

// A packet that is there already.
int CAudioReceiver::ReadWaiting(CSocket& socket, SIpv4Endpoint& source) {
  const int received = socket.ReceiveFrom(buffer.data(), buffer.size(), source);
  if (received > 0)
    WatchBacklog();
  else
    backlog.CaughtUp();
  if (StatusPage().Get() != nullptr)
    StatusPage().NoteTurn(controls.card, kStatusReceive, received > 0 ? backlog.BehindMs() : 0);
  return received;
}

void CAudioReceiver::WatchBacklog() {
  if (!backlog.IsLineDue(clock(), controls.backlogLine) || stop.IsSet())
    return;
  char line[kMaxNoticeChars];
  std::snprintf(line, sizeof line,
                "Audio packets have waited for %u ms without a break, receive thread cannot keep up.",
                backlog.BehindMs());
  notice.OnAudioNotice(line);
}

void CAudioReceiver::OnPacket(uint8_t* packet, size_t length) {
  SAudioHeader header;
  if (!ReadAudioHeader(packet, length, header))
    return;
  Carry(rules.Judge(header.sequence, header.backlogHint), packet, length);
  if (!stop.IsSet() && rules.HeldDue() && ReadAudioHeader(heldPacket.data(), heldLength, header))
    Carry(rules.TakeHeld(header.backlogHint), heldPacket.data(), heldLength);
}

void CAudioReceiver::Carry(const SSequenceDecision& decision, uint8_t* packet, size_t length) {
  Report(decision);
  for (uint32_t i = 0; i < decision.replies; ++i)
    sender.Send(length);
  if (stop.IsSet())
    return;
  if (decision.action == EAction::kHold) {
    std::memcpy(heldPacket.data(), packet, length);
    heldLength = length;
  } else if (decision.action == EAction::kProcess) {
    Process(packet, length);
  }
}

void CAudioReceiver::Report(const SSequenceDecision& decision) {
  char lines[2][kMaxNoticeChars];
  const size_t count = NoticeLines(decision, lines);
  for (size_t i = 0; i < count && !stop.IsSet(); ++i)
    notice.OnAudioNotice(lines[i]);
}

void CAudioReceiver::Process(uint8_t* packet, size_t length) {
  const size_t frames = FrameCount(length, trunks);
  const SSentPacket sent = sender.TakeSent();
  echo.Process(packet + kAudioHeaderBytes, frames, trunks, sent, controls);
  demultiplexer.Add(packet + kAudioHeaderBytes, frames);
  sender.ReturnSent(sent);
}

}  // namespace zelk

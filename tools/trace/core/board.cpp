// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/board.h"

#include <algorithm>

namespace trace {
namespace {

constexpr std::uint8_t kStarved = 0x54;

EChannel StateOf(const SCall& call) {
  if (call.clearing != 0) {
    return EChannel::kClearing;
  }
  if (call.connected != 0) {
    return EChannel::kConnected;
  }
  return call.fromLibrary ? EChannel::kDialled : EChannel::kRinging;
}

}  // namespace

const char* ChannelName(EChannel state) {
  switch (state) {
    case EChannel::kIdle:
      return "idle";
    case EChannel::kRinging:
      return "ringing";
    case EChannel::kDialled:
      return "dialled";
    case EChannel::kConnected:
      return "connected";
    case EChannel::kClearing:
      return "clearing";
    case EChannel::kDown:
      break;
  }
  return "down";
}

char LetterOf(EChannel state) {
  return ".ioC-x"[static_cast<std::size_t>(state)];
}

char LetterOf(const SBoardTrunk& trunk, int timeslot, Time now) {
  const auto at = static_cast<std::size_t>(timeslot);
  const bool isSilent = trunk.channels[at] == EChannel::kConnected && now - trunk.heard[at] >= kSilentCall;
  return isSilent ? 'h' : LetterOf(trunk.channels[at]);
}

void CBoard::OnPacket(Time time) {
  begin = begin == 0 ? time : begin;
  now = std::max(now, time);
}

void CBoard::OnConnected(const SConnection& connection) {
  SBoardCard& card = cards[connection.card];
  card.address = connection.card;
  card.isConnected = true;
  card.trunks.assign(static_cast<std::size_t>(connection.trunks), {});
  card.replies.Restart(!connection.isBegunBefore);
}

SBoardTrunk* CBoard::Find(std::uint32_t card, int trunk) {
  const auto found = cards.find(card);
  if (found == cards.end() || trunk < 0 || static_cast<std::size_t>(trunk) >= found->second.trunks.size()) {
    return nullptr;
  }
  return &found->second.trunks[static_cast<std::size_t>(trunk)];
}

void CBoard::OnControl(const SConnection& connection, const SControl& message) {
  SBoardCard& card = cards[connection.card];
  card.serial = connection.serial;
  card.heard = message.direction == EDirection::kToLibrary ? message.time : card.heard;
  card.trunks.resize(static_cast<std::size_t>(connection.trunks));
  if (message.kind == EControl::kStatus) {
    for (std::size_t i = 0; i < std::min(message.body.size(), card.trunks.size()); ++i) {
      SBoardTrunk& trunk = card.trunks[i];
      trunk.changed = trunk.status == message.body[i] ? trunk.changed : message.time;
      trunk.status = message.body[i];
    }
  } else if (message.kind == EControl::kHdlcError) {
    if (SBoardTrunk* trunk = Find(connection.card, message.trunk)) {
      ++trunk->hdlcErrors;
    }
  }
}

void CBoard::OnDisconnected(const SConnection& connection, Time time) {
  SBoardCard& card = cards[connection.card];
  card.isConnected = false;
  for (SBoardTrunk& trunk : card.trunks) {
    trunk.changed = time;
    trunk.isUp = false;
    trunk.channels.fill(EChannel::kDown);
    trunk.callOn.fill(0);
  }
}

void CBoard::OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame& decoded, EVerdict) {
  SBoardTrunk* trunk = Find(connection.card, frame.trunk);
  if (trunk == nullptr) {
    return;
  }
  CDataLink& link = links[{connection.number, frame.trunk}];
  link.OnFrame(frame, decoded);
  if (link.IsUp() == trunk->isUp) {
    return;
  }
  trunk->changed = frame.time;
  trunk->isUp = link.IsUp();
  for (std::size_t i = 0; i < trunk->channels.size(); ++i) {
    if (trunk->callOn[i] == 0) {
      trunk->channels[i] = *trunk->isUp ? EChannel::kIdle : EChannel::kDown;
    }
  }
}

void CBoard::Hold(SBoardTrunk& trunk, const SCall& call, EChannel state, Time time) {
  for (std::size_t i = 0; i < trunk.callOn.size(); ++i) {
    if (trunk.callOn[i] == call.number) {  // it may have moved
      trunk.callOn[i] = 0;
      trunk.channels[i] = EChannel::kIdle;
    }
  }
  if (call.timeslot >= 0 && call.timeslot < tool::kTimeslots && state != EChannel::kIdle) {
    trunk.callOn[static_cast<std::size_t>(call.timeslot)] = call.number;
    trunk.channels[static_cast<std::size_t>(call.timeslot)] = state;
    trunk.heard[static_cast<std::size_t>(call.timeslot)] = time;
  }
}

void CBoard::OnCallMessage(const SCall& call, const SSignal& signal) {
  if (SBoardTrunk* trunk = Find(call.card, call.trunk)) {
    Hold(*trunk, call, StateOf(call), signal.frame.time);
  }
}

void CBoard::OnCallEnds(const SCall& call) {
  SBoardTrunk* trunk = Find(call.card, call.trunk);
  if (trunk == nullptr || call.how == ECallEnd::kOpen) {
    return;
  }
  ++trunk->calls;
  trunk->connected += call.connected != 0 ? 1 : 0;
  if (call.cause >= 0) {
    ++trunk->causes[call.cause];
  }
  Hold(*trunk, call, EChannel::kIdle, call.end);
}

void CBoard::OnAudio(const SAudio& audio) {
  const auto found = cards.find(audio.card);
  if (found == cards.end()) {
    return;
  }
  SBoardCard& card = found->second;
  if (audio.direction == EDirection::kToLibrary) {
    card.replies.OnPacket(audio.sequence, audio.hint, audio.time);
    return;
  }
  card.replies.OnReply(audio.sequence, audio.time);
  const std::size_t step = card.trunks.size() * tool::kTimeslots;
  for (std::size_t i = 0; i < card.trunks.size(); ++i) {
    CountStarved(card.trunks[i], runs[{audio.card, static_cast<int>(i)}], audio.samples, i * tool::kTimeslots, step);
  }
}

void CBoard::CountStarved(SBoardTrunk& trunk, Runs& lines, ByteView samples, std::size_t at, std::size_t step) const {
  for (std::size_t slot = 0; slot < lines.size(); ++slot) {
    if (trunk.channels[slot] != EChannel::kConnected) {
      lines[slot] = 0;
      continue;
    }
    for (std::size_t place = at + slot; place < samples.size(); place += step) {
      ++trunk.connectedSamples;
      lines[slot] = samples[place] == kStarved ? lines[slot] + 1 : 0;
      if (lines[slot] == kStarvedRun) {
        ++trunk.starvedBlocks;
        lines[slot] = 0;
      }
    }
  }
}

}  // namespace trace

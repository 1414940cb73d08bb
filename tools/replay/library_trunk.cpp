// SPDX-License-Identifier: GPL-2.0-only
#include "replay/library_trunk.h"

#include <memory>
#include <utility>

#include "card/event_router.h"
#include "common/fcs.h"

namespace replay {

using namespace zelk;  // NOLINT(google-build-using-namespace): all of this file is about the library

CLibraryTrunk::CLibraryTrunk(const SPlace& place, Sink frameSink)
    : trunk(place.trunk),
      firstChannel((place.trunksBefore + place.trunk) * kChannelsPerTrunk),
      sink(std::move(frameSink)),
      card(place.cardsBefore),
      handlers(table, place.cardsBefore) {
  card.RestoreSerialNumber(place.serial);
  AddChannels(place);
  handlers.Place(place.trunksBefore, place.trunksBefore * kChannelsPerTrunk);
}

// Those of earlier cards only keep their places.
void CLibraryTrunk::AddChannels(const SPlace& place) {
  for (std::uint32_t each = 0; each < place.trunksBefore + place.trunks; ++each) {
    const bool isOwnCard = each >= place.trunksBefore;
    for (std::uint32_t timeslot = 0; timeslot < kTimeslotsPerTrunk; ++timeslot) {
      if (!IsBchannel(timeslot)) {
        continue;
      }
      const auto number = static_cast<std::uint32_t>(table.Count());
      const SDevicePlace devicePlace{isOwnCard ? static_cast<std::int32_t>(place.cardsBefore) : -1,
                                     isOwnCard ? static_cast<std::int32_t>(each - place.trunksBefore) : 0, timeslot,
                                     number};
      if (table.Add(std::make_unique<CDevice>(card, devicePlace)) && isOwnCard) {
        table.Find(static_cast<std::int32_t>(number))->Open();
      }
    }
  }
}

CLibraryTrunk::~CLibraryTrunk() {
  const CScopedLock<CRecursiveMutex> held(Trunk().lock);
  Trunk().controller.reset();
}

void CLibraryTrunk::Open(const STrunkSettings& settings) {
  CTrunk& entry = Trunk();
  if (wasOpen) {
    {
      const CScopedLock<CRecursiveMutex> held(entry.lock);
      entry.controller.reset();
      entry.isDchannelUp = false;
      entry.isUpReported = false;
    }
    handlers.OnCardReopening(never);
  }
  hdlcRule = CHdlcErrorRule();
  entry.lineStatus = kLineUnknown;
  entry.hangupOnAlerting = settings.hangupOnAlerting;
  entry.numberType = settings.numberType;
  entry.nodeType = NodeTypeOf(settings.clientType);
  entry.switchType = settings.switchType;
  entry.echoEnabled = settings.echoCanceller;
  isConnected = true;
  {
    const CScopedLock<CRecursiveMutex> held(entry.lock);
    entry.controller = CPriController::Create(*this, trunk, entry.nodeType, entry.switchType);
  }
  if (std::exchange(wasOpen, true)) {
    handlers.OnCardUp();
  }
}

void CLibraryTrunk::Receive(ByteView frame) {
  hdlcRule.OnGoodFrame();
  tool::Bytes whole(frame.begin(), frame.end());
  const std::uint16_t fcs = tool::FrameCheckSequence(frame);
  whole.push_back(static_cast<std::uint8_t>(fcs));
  whole.push_back(static_cast<std::uint8_t>(fcs >> 8));
  CTrunk& entry = Trunk();
  const CScopedLock<CRecursiveMutex> held(entry.lock);
  SPriEvent event;
  if (isConnected && entry.controller != nullptr && entry.controller->Receive(whole.data(), whole.size(), event)) {
    Route(event);
  }
  PassTime();
}

void CLibraryTrunk::OnHdlcError(std::uint8_t code) {
  switch (hdlcRule.OnError(Trunk().lineStatus, NowMs())) {
    case EHdlcReport::kError:
      return handlers.OnHdlcError(trunk, code);
    case EHdlcReport::kLinkReset:
      return handlers.OnLinkReset(card, trunk, code);
    case EHdlcReport::kNone:
      return;
  }
}

void CLibraryTrunk::RunTimers() {
  if (!isConnected) {
    return;
  }
  CTrunk& entry = Trunk();
  {
    const CScopedLock<CRecursiveMutex> held(entry.lock);
    SPriEvent event;
    if (entry.controller != nullptr && entry.controller->RunTimers(event)) {
      Route(event);
    }
  }
  PassTime();
}

void CLibraryTrunk::PassTime() {
  if (isConnected) {
    handlers.OnTime(card, NowMs(), never);
  }
}

std::optional<Time> CLibraryTrunk::NextTimer() const {
  if (!isConnected) {
    return std::nullopt;
  }
  std::optional<Time> next;
  CTrunk& entry = card.Trunk(trunk);
  const CScopedLock<CRecursiveMutex> held(entry.lock);
  SUnixTime due{};
  if (entry.controller != nullptr && entry.controller->NextTimer(due)) {
    next = due.seconds * trace::kSecond + Time{due.microseconds} * 1000;
  }
  return next;
}

CDevice* CLibraryTrunk::ChannelOf(int timeslot) {
  if (timeslot < 0 || timeslot >= static_cast<int>(kTimeslotsPerTrunk) ||
      !IsBchannel(static_cast<std::uint32_t>(timeslot))) {
    return nullptr;
  }
  return table.At(firstChannel + VoiceIndexOf(static_cast<std::uint32_t>(timeslot)));
}

int CLibraryTrunk::OnPriFrame(std::uint32_t, const std::uint8_t* frame, std::size_t length) {
  if (length < kFcsBytes) {
    return 0;
  }
  if (isConnected) {
    sink({frame, length - kFcsBytes});
  }
  return static_cast<int>(length);
}

int CLibraryTrunk::TimeslotChosenAs(int bchannel) const {
  for (std::uint32_t index = 0; index < kChannelsPerTrunk; ++index) {
    if (CCardChannels::BchannelOfWholeTable(firstChannel + index) == bchannel) {
      return static_cast<int>(BchannelOf(index));
    }
  }
  return -1;
}

void CLibraryTrunk::Route(const SPriEvent& event) {
  RouteEvent({card, &handlers, Trunk(), trunk}, event, never);
}

std::uint32_t CLibraryTrunk::NowMs() {
  return static_cast<std::uint32_t>(Now() / trace::kMillisecond);
}

}  // namespace replay

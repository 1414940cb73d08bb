// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/status_page.h"

#include <chrono>
#include <new>

#include "platform/clock.h"

namespace zelk {

namespace {

constexpr uint64_t kBlockUs = uint64_t{kBlockMs} * 1000;
constexpr uint8_t kUnknownLine = 3;

uint64_t Microseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

// True when the value was the largest yet.
template <class Value>
bool RaiseTo(std::atomic<Value>& largest, Value value) {
  Value before = largest.load(std::memory_order_relaxed);
  while (value > before) {
    if (largest.compare_exchange_weak(before, value, std::memory_order_relaxed))
      return true;
  }
  return false;
}

void FillHeader(SStatusHeader& header, uint32_t starts) {
  StatusSet(header.version, kStatusVersion);
  StatusSet(header.size, sizeof(SStatusLayout));
  StatusSet(header.process, OwnProcessNumber());
  StatusSet(header.cards, kStatusCards);
  StatusSet(header.trunks, kMaxTrunks);
  StatusSet(header.timeslots, kTimeslotsPerTrunk);
  StatusSet(header.starts, starts);
  StatusSet(header.started, StatusNow());
  StatusSet(header.heartbeat, StatusNow());
  StatusSet(header.isRunning, 1);
  header.magic.store(kStatusMagic, std::memory_order_release);
}

}  // namespace

// Ready before any constructor runs, and never destroyed.
constinit CStatusPage statusPage;

uint64_t StatusNow() {
  const SUnixTime now = UnixNow();
  return static_cast<uint64_t>(now.seconds) * 1000 + static_cast<uint64_t>(now.microseconds) / 1000;
}

void CStatusPage::Open(const std::string& path) {
  if (!page.Map(path, sizeof(SStatusLayout)))
    return;
  auto* const made = new (page.Data()) SStatusLayout();  // zeroed, the magic number with it
  for (auto& trunks : made->trunks) {
    for (SStatusTrunk& trunk : trunks)
      StatusSet(trunk.lineStatus, kUnknownLine);
  }
  FillHeader(made->header, ++starts);
  layout.store(made, std::memory_order_release);
}

void CStatusPage::Close() {
  if (SStatusLayout* const closed = layout.exchange(nullptr, std::memory_order_acq_rel))
    StatusSet(closed->header.isRunning, 0);
}

void CStatusPage::Leave() {
  Close();
  page.Leave();
}

SStatusCard* CStatusPage::Card(uint32_t card) const {
  SStatusLayout* const shown = Get();
  return shown != nullptr && card < kStatusCards ? &shown->cards[card] : nullptr;
}

SStatusTrunk* CStatusPage::Trunk(uint32_t card, uint32_t trunk) const {
  SStatusLayout* const shown = Get();
  return shown != nullptr && card < kStatusCards && trunk < kMaxTrunks ? &shown->trunks[card][trunk] : nullptr;
}

SStatusChannel* CStatusPage::Channel(uint32_t card, uint32_t trunk, uint32_t timeslot) const {
  return trunk < kMaxTrunks && timeslot < kTimeslotsPerTrunk ? Position(card, PositionOf(trunk, timeslot)) : nullptr;
}

SStatusChannel* CStatusPage::Position(uint32_t card, size_t position) const {
  SStatusLayout* const shown = Get();
  return shown != nullptr && card < kStatusCards && position < kMaxPositions ? &shown->channels[card][position]
                                                                             : nullptr;
}

void CStatusPage::CardOpens(uint32_t card, uint32_t serialNumber, SIpv4Address address, uint32_t trunkCount) const {
  if (SStatusCard* const shown = Card(card)) {
    StatusSet(shown->serial, serialNumber);
    StatusSet(shown->address, address.networkOrder);
    StatusSet(shown->trunks, trunkCount);
    StatusSet(shown->changed, StatusNow());
    StatusAdd(shown->opens);
    StatusSet(shown->state, kStatusCardOpen);
  }
}

void CStatusPage::CardCloses(uint32_t card, EStatusCardState state) const {
  SStatusCard* const shown = Card(card);
  if (shown == nullptr || shown->state.load(std::memory_order_relaxed) == kStatusNoCard)
    return;
  StatusSet(shown->changed, StatusNow());
  StatusSet(shown->state, state);
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    LineIs(card, trunk, kUnknownLine);
    DchannelIs(card, trunk, false);
  }
}

void CStatusPage::LineIs(uint32_t card, uint32_t trunk, uint32_t lineStatus) const {
  SStatusTrunk* const shown = Trunk(card, trunk);
  if (shown != nullptr && shown->lineStatus.exchange(lineStatus, std::memory_order_relaxed) != lineStatus)
    StatusSet(shown->changed, StatusNow());
}

void CStatusPage::DchannelIs(uint32_t card, uint32_t trunk, bool isUp) const {
  SStatusTrunk* const shown = Trunk(card, trunk);
  const uint32_t now = isUp ? 1 : 0;
  if (shown != nullptr && shown->isDchannelUp.exchange(now, std::memory_order_relaxed) != now)
    StatusSet(shown->changed, StatusNow());
}

void CStatusPage::Beat() const {
  if (SStatusLayout* const shown = Get())
    StatusSet(shown->header.heartbeat, StatusNow());
}

void CStatusPage::NoteTurn(uint32_t card, EStatusThread thread, uint32_t lateMs) const {
  SStatusCard* const shown = Card(card);
  if (shown == nullptr)
    return;
  SStatusThread& record = shown->threads[thread];
  const uint64_t now = StatusNow();
  StatusSet(record.seen, now);
  if (RaiseTo(record.latestMs, lateMs))
    StatusSet(record.latestAt, now);
}

// When two are the slowest at the same moment, channel and time may be the other one's.
void CStatusPage::NoteCallback(EStatusCallback kind, uint32_t channel, uint64_t microseconds) const {
  SStatusLayout* const shown = Get();
  if (shown == nullptr)
    return;
  SStatusCallback& record = shown->header.callbacks[kind];
  if (microseconds > kBlockUs)
    StatusAdd(record.overBlock);
  if (RaiseTo(record.slowestUs, microseconds)) {
    StatusSet(record.slowestChannel, channel);
    StatusSet(record.slowestAt, StatusNow());
  }
}

CCallbackWatch::CCallbackWatch(EStatusCallback callbackKind, uint32_t callbackChannel)
    : kind(callbackKind), channel(callbackChannel), isOn(StatusPage().Get() != nullptr) {
  if (isOn)
    begin = Microseconds();
}

CCallbackWatch::~CCallbackWatch() {
  if (isOn)
    StatusPage().NoteCallback(kind, channel, Microseconds() - begin);
}

}  // namespace zelk

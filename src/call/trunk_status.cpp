// SPDX-License-Identifier: GPL-2.0-only
#include "call/trunk_status.h"

#include "call/application_events.h"
#include "call/disconnect_cause.h"
#include "card/trunk_lock.h"
#include "runtime/log.h"
#include "runtime/status_page.h"

namespace zelk {

namespace {

// The controllers are gone by then: only a callback that hangs holds a trunk's lock for longer.
constexpr uint32_t kReopenLockMs = 100;

// False when the caller has been given up.
bool PostState(const CDevice& device, int32_t state, const CStopFlag& caller) {
  ApplicationEvents().Post(device.ChannelNumber(), EVENT_CHANNEL_STATE, state);
  return !caller.IsSet();
}

// The channel goes down with whatever call it has; no disconnected event, and the direction stays. The trunk's lock
// keeps new calls away meanwhile; where it is not to be had, whoever has it is in a callback and begins none.
// False when the caller has been given up.
bool BringDown(CDevice& device, const SLockPatience& patience) {
  {
    const CTrunkLock held(device.Trunk().lock, patience);
    if (patience.caller.IsSet()) {
      return false;
    }
    device.Call().Lose();
    device.ClearCallInfo(kCauseNormalClearing);
  }
  return PostState(device, 0, patience.caller);
}

const char* QueueOverflowText(uint32_t queue) {
  switch (queue) {
    case 0:
      return "Incoming HDLC Queue Overflow Error";
    case 1:
      return "Outgoing HDLC Queue Overflow Error";
    default:
      return "Unknown HDLC Queue Overflow Error";
  }
}

const char* HdlcErrorText(uint8_t error) {
  switch (error) {
    case 2:
      return "HDLC CRC Error";
    case 3:
      return "HDLC ABORT Error";
    case 4:
      return "HDLC OVERRUN Error";
    case 8:
      return "HDLC Buffer Overflow Error";
    default:
      return "HDLC Unknown Error";
  }
}

}  // namespace

CTrunkStatus::CTrunkStatus(const CCardChannels& cardChannels) : channels(cardChannels) {}

void CTrunkStatus::OnCardUp() const {
  LogFormat(ELogClass::kStatus, kGeneralLine, "Card %u is up", channels.CardIndex());
}

void CTrunkStatus::OnCardDown(const CStopFlag& caller) const {
  LogFormat(ELogClass::kStatus, kGeneralLine, "Card %u is down", channels.CardIndex());
  LoseCard(caller);
}

void CTrunkStatus::OnNotice(const char* text) const {
  LogFormat(ELogClass::kStatus, kGeneralLine, "Card %u: %s", channels.CardIndex(), text);
}

void CTrunkStatus::OnDchannelUp(uint32_t trunk, const CStopFlag& caller) const {
  StatusPage().DchannelIs(channels.CardIndex(), trunk, true);
  LogLine(trunk, "DCHANNEL UP");
  SetTrunkUp(trunk, caller);
}

void CTrunkStatus::OnDchannelDown(uint32_t trunk, const CStopFlag& caller) const {
  StatusPage().DchannelIs(channels.CardIndex(), trunk, false);
  LogLine(trunk, "DCHANNEL DOWN");
  SetTrunkDown(trunk, caller);
}

void CTrunkStatus::OnConfigError(uint32_t trunk) const {
  LogLine(trunk, "Configuration Incorrect. Please set ClientType=1 for NT or ClientType=2 for TE");
}

void CTrunkStatus::OnQueueOverflow(uint32_t trunk, uint32_t queue) const {
  if (SStatusTrunk* const shown = StatusPage().Trunk(channels.CardIndex(), trunk)) {
    StatusAdd(shown->queueOverflows);
  }
  LogLine(trunk, QueueOverflowText(queue));
}

void CTrunkStatus::OnHdlcError(uint32_t trunk, uint8_t error) const {
  LogLine(trunk, HdlcErrorText(error));
}

void CTrunkStatus::OnLinkReset(CCard& card, uint32_t trunk) const {
  if (SStatusTrunk* const shown = StatusPage().Trunk(channels.CardIndex(), trunk)) {
    StatusAdd(shown->linkResets);
  }
  if (LogEnabled(ELogClass::kStatus)) {
    // The trunk before gets its configuration too, for trunk 0 with the trunk byte 0: cards have come to expect it.
    card.SendTrunkConfiguration(trunk - 1);
    LogLine(trunk, "Link Reset (Too Many HDLC Errors)");
  }
  card.SendTrunkConfiguration(trunk);
}

void CTrunkStatus::OnRegister(uint32_t trunk, uint16_t registerNumber, uint8_t value) const {
  LogFormat(ELogClass::kDetail, kGeneralLine, "READREG: CardNo=%u LinkNo=%u, Reg[0x%04X] = %02X ",
            channels.FirstTrunk(), trunk, unsigned{registerNumber}, unsigned{value});
}

// The card number of these lines is the number of trunks of all earlier cards.
void CTrunkStatus::LogLine(uint32_t trunk, const char* text) const {
  LogFormat(ELogClass::kStatus, kGeneralLine, "Card %u: Trunk %u - %s", channels.FirstTrunk(), trunk, text);
}

// Slots are looked up afresh each time: the application may shut the library down while its callback runs.
void CTrunkStatus::SetTrunkUp(uint32_t trunk, const CStopFlag& caller) const {
  const CCardChannels::SSlots slots = channels.SlotsOfTrunk(trunk);
  for (size_t slot = slots.first; slot < slots.end; ++slot) {
    CDevice* device = channels.At(slot);
    if (device != nullptr && device->Call().TrunkUp() && !PostState(*device, 1, caller)) {
      return;
    }
  }
}

void CTrunkStatus::SetTrunkDown(uint32_t trunk, const CStopFlag& caller) const {
  const SLockPatience patience(kNoLimitMs, caller);
  const CCardChannels::SSlots slots = channels.SlotsOfTrunk(trunk);
  for (size_t slot = slots.first; slot < slots.end; ++slot) {
    CDevice* device = channels.At(slot);
    if (device != nullptr && device->Call().View().linkState != -1 && !BringDown(*device, patience)) {
      return;
    }
  }
}

void CTrunkStatus::LoseCard(const CStopFlag& caller) const {
  const SLockPatience patience(kNoLimitMs, caller);
  const CCardChannels::SSlots slots = channels.SlotsOfCard();
  for (size_t slot = slots.first; slot < slots.end; ++slot) {
    if (CDevice* device = channels.At(slot)) {
      device->Trunk().lineStatus = kLineUnknown;
      if (!BringDown(*device, patience)) {
        return;
      }
    }
  }
}

void CTrunkStatus::OnCardReopening(const CStopFlag& caller) const {
  if (!BringCallsDown(caller)) {
    return;
  }
  // The controllers take their calls with them: nothing will be said of a lost call again.
  const CCardChannels::SSlots slots = channels.SlotsOfCard();
  for (size_t slot = slots.first; slot < slots.end; ++slot) {
    if (CDevice* device = channels.At(slot)) {
      device->Call().ForgetAllLost();
    }
  }
}

bool CTrunkStatus::BringCallsDown(const CStopFlag& caller) const {
  const SLockPatience patience(kReopenLockMs, caller);
  const CCardChannels::SSlots slots = channels.SlotsOfCard();
  for (size_t slot = slots.first; slot < slots.end; ++slot) {
    CDevice* device = channels.At(slot);
    if (device != nullptr && device->Call().View().callHandle != nullptr && !BringDown(*device, patience)) {
      return false;
    }
  }
  return true;
}

}  // namespace zelk

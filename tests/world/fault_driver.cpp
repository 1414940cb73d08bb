// SPDX-License-Identifier: GPL-2.0-only
#include "world/fault_driver.h"

#include <algorithm>

namespace world {
namespace {

using cardsim::Bytes;
using cardsim::CCard;
using std::chrono::milliseconds;
using zelk::sim::kUsPerMs;

constexpr int64_t kRecoveryMs = 15'000;
constexpr std::uint8_t kLineLost = 1;
constexpr int kBetweenAnnouncementsMs = 10;

bool IsOfSound(EFault kind) {
  return kind == EFault::kAudioStops || kind == EFault::kAudioPause || kind == EFault::kAudioBad ||
         kind == EFault::kSequenceJump;
}

bool IsOfCard(EFault kind) {
  return kind == EFault::kDropControl || kind == EFault::kResetControl || kind == EFault::kSilence ||
         kind == EFault::kAnnounce || kind == EFault::kTornControl;
}

// Messages that fit nothing: types that do not come then, or are none; elements cut short.
Bytes OddMessage(int amount) {
  static const Bytes kMessages[] = {
      {0x08, 0x02, 0x7F, 0x21, 0x01},                                            // ALERTING of a call that nobody knows
      {0x08, 0x02, 0xFF, 0x22, 0x07},                                            // CONNECT
      {0x08, 0x02, 0x00, 0x09, 0x5A, 0x08, 0x02, 0x81, 0x90},                    // RELEASE COMPLETE
      {0x08, 0x02, 0x80, 0x01, 0x45, 0x08, 0x02, 0x81, 0x90},                    // DISCONNECT of a low call reference
      {0x08, 0x02, 0x80, 0x01, 0x7D, 0x08, 0x02, 0x81, 0xE5, 0x14, 0x01, 0x00},  // STATUS: no call
      {0x08, 0x02, 0x80, 0x02, 0x75},                                            // STATUS ENQUIRY
      {0x08, 0x02, 0x12, 0x34, 0x05, 0x04, 0x03, 0x80, 0x90},                    // SETUP cut short
      {0x08, 0x02, 0x80, 0x01, 0x99, 0x01},                                      // no type
      {0x08, 0x0F, 0x80},
      {0x08},
  };
  return kMessages[static_cast<size_t>(amount) % std::size(kMessages)];
}

}  // namespace

CFaultDriver::CFaultDriver(zelk::sim::CWorld& ownWorld, cardsim::CSimulator& simulator, const SWorldPlan& worldPlan)
    : world(ownWorld), sim(simulator), plan(worldPlan) {}

void CFaultDriver::Begin(int64_t baseUs) {
  beginUs = baseUs;
  for (const SFault& fault : plan.faults) {
    world.At(baseUs + fault.atMs * kUsPerMs, [this, &fault] { Do(fault); });
  }
}

void CFaultDriver::Do(const SFault& fault) {
  if (IsOfCard(fault.kind)) {
    DoToCard(fault);
  } else if (IsOfSound(fault.kind)) {
    DoToSound(fault);
  } else {
    DoToTrunk(fault);
  }
}

void CFaultDriver::Last(const SFault& fault, int place, const std::function<void(bool)>& change) {
  const Key key{fault.kind, place};
  ++lasting[key];
  change(true);
  world.After(fault.lengthMs * kUsPerMs, [this, key, change] {
    if (--lasting[key] == 0) {
      change(false);
    }
  });
}

void CFaultDriver::DoToCard(const SFault& fault) {
  CCard& card = sim.Card(static_cast<size_t>(fault.card));
  switch (fault.kind) {
    case EFault::kResetControl:
      card.ResetControl();
      card.Announce();
      break;
    case EFault::kSilence:
      Last(fault, fault.card, [&card](bool on) {
        card.SetControlSilent(on);
        if (!on) {
          card.Announce();
        }
      });
      break;
    case EFault::kAnnounce:
      for (int i = 0; i < fault.amount; ++i) {
        world.After(int64_t{i} * kBetweenAnnouncementsMs * kUsPerMs, [&card] { card.Announce(); });
      }
      break;
    case EFault::kTornControl:
      Last(fault, fault.card, [&card, bytes = fault.amount](bool on) {
        card.SetControlPieces(on ? static_cast<size_t>(bytes) : 0, milliseconds(0));
      });
      break;
    default:
      card.Restart();
  }
}

void CFaultDriver::DoToTrunk(const SFault& fault) {
  CCard& card = sim.Card(static_cast<size_t>(fault.card));
  const int trunk = fault.trunk;
  const int place = fault.card * 8 + trunk;
  switch (fault.kind) {
    case EFault::kLineDown:
      Last(fault, place, [&card, trunk](bool on) { card.SetTrunkStatus(trunk, on ? kLineLost : 0); });
      [[fallthrough]];
    case EFault::kFramesLost:
      // One counter for both: the line is whole when nothing cuts it any more.
      Last({fault.atMs, EFault::kFramesLost, fault.card, trunk, fault.lengthMs, 0}, place,
           [&card, trunk](bool on) { card.CutLine(trunk, on); });
      break;
    case EFault::kLayer2Down:
      card.TakeLayer2Down(trunk);
      break;
    case EFault::kSlowExchange:
      Last(fault, place, [&card, trunk](bool on) { card.HoldFromLibrary(trunk, on); });
      break;
    case EFault::kRestartSlot:
      TellOdd(fault);
      card.RestartTimeslot(trunk, fault.amount);
      break;
    case EFault::kRestartAll:
      TellOdd(fault);
      card.RestartInterface(trunk);
      break;
    case EFault::kHdlcErrors:
      card.SendHdlcErrors(trunk, 2, fault.amount);
      break;
    default:
      SendOdd(fault);
  }
}

void CFaultDriver::TellOdd(const SFault& fault) {
  if (onOdd) {
    onOdd(fault.card, fault.trunk);
  }
}

void CFaultDriver::SendOdd(const SFault& fault) {
  TellOdd(fault);
  sim.Card(static_cast<size_t>(fault.card)).SendQ931(fault.trunk, OddMessage(fault.amount));
}

void CFaultDriver::DoToSound(const SFault& fault) {
  cardsim::CAudioPort& audio = sim.Card(static_cast<size_t>(fault.card)).Audio();
  if (fault.kind == EFault::kAudioPause) {
    audio.PauseFor(milliseconds(fault.lengthMs));
  } else if (fault.kind == EFault::kSequenceJump) {
    audio.SetNextSequence(0U - static_cast<uint32_t>(fault.amount));
  } else if (fault.kind == EFault::kAudioStops) {
    Last(fault, fault.card, [&audio](bool on) { audio.SetPacing(!on); });
  } else {
    cardsim::SAudioFaults faults;
    faults.loss = faults.duplicates = faults.reordered = fault.amount;
    faults.jitter = milliseconds(fault.amount);
    faults.seed = static_cast<uint32_t>(plan.seed + static_cast<uint64_t>(fault.atMs));
    Last(fault, fault.card, [&audio, faults](bool on) { audio.SetFaults(on ? faults : cardsim::SAudioFaults()); });
  }
}

bool CFaultDriver::Overlaps(const SFault& fault, int64_t fromUs, int64_t toUs) const {
  const int64_t faultBegins = beginUs + fault.atMs * kUsPerMs;
  const int64_t faultIsOver = faultBegins + (fault.lengthMs + kRecoveryMs) * kUsPerMs;
  return fromUs <= faultIsOver && faultBegins <= toUs;
}

void CFaultDriver::BeginTouch() {
  touches.emplace_back(world.NowUs(), zelk::sim::kNever);
}

void CFaultDriver::EndTouch() {
  touches.back().second = world.NowUs();
}

bool CFaultDriver::IsTouched(int64_t fromUs, int64_t toUs) const {
  return std::any_of(touches.begin(), touches.end(),
                     [&](const auto& touch) { return fromUs <= touch.second && touch.first <= toUs; });
}

bool CFaultDriver::TouchesSignalling(int card, int trunk, int64_t fromUs, int64_t toUs) const {
  return IsTouched(fromUs, toUs) || std::any_of(plan.faults.begin(), plan.faults.end(), [&](const SFault& fault) {
           return fault.card == card && !IsOfSound(fault.kind) && (IsOfCard(fault.kind) || fault.trunk == trunk) &&
                  Overlaps(fault, fromUs, toUs);
         });
}

bool CFaultDriver::TouchesSound(int card, int trunk, int64_t fromUs, int64_t toUs) const {
  return TouchesSignalling(card, trunk, fromUs, toUs) ||
         std::any_of(plan.faults.begin(), plan.faults.end(), [&](const SFault& fault) {
           return fault.card == card && IsOfSound(fault.kind) && Overlaps(fault, fromUs, toUs);
         });
}

}  // namespace world

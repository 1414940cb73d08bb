// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_pacer.h"

#include <algorithm>
#include <utility>

#include "formats/g711.h"
#include "platform/clock.h"
#include "runtime/status_page.h"

namespace zelk {
namespace {

// A stop came from another thread while the application had the block. When the application wrote what cannot be known,
// and no other thread may write into the block meanwhile. What it changed, from the first changed byte to the last,
// counts as written after the stop and stays; the rest came from the queue before it.
void SilenceQueued(SBlockFill& fill) {
  fill.uniform = kNotUniform;
  if (!fill.isKept) {
    std::fill_n(fill.data, kBlockBytes, kIdleByte);
    return;
  }
  uint8_t* const end = fill.data + kBlockBytes;
  uint8_t* const first = std::mismatch(fill.data, end, fill.queued.begin()).first;
  uint8_t* rest = end;
  while (rest != first && rest[-1] == fill.queued[static_cast<size_t>(rest - fill.data) - 1])
    --rest;
  std::fill(fill.data, first, kIdleByte);
  std::fill(rest, end, kIdleByte);
}

// How many positions ahead a channel's memory is asked for: what is done at them takes as long as it takes to come.
constexpr size_t kForeseen = 16;

}  // namespace

void CAudioPacer::Run(CStopFlag& stop) {
  CPacerSchedule schedule(TickMs());
  while (!stop.IsSet()) {
    const uint32_t waitMs = Turn(schedule, TickMs(), stop);
    if (waitMs == 0)
      continue;
    if (atRest) {
      rings.Rest().WaitForMove(movesBefore, stop);
      schedule.Skip(TickMs());
      atRest = false;
    } else {
      stop.SleepFor(waitMs);
    }
  }
}

uint32_t CAudioPacer::Turn(CPacerSchedule& schedule, uint32_t now, const CStopFlag& stop) {
  uint32_t waitMs = 0;
  uint32_t lateMs = 0;
  if (schedule.PassDue(now, waitMs, &lateMs)) {
    StatusPage().NoteTurn(controls.card, kStatusPacer, lateMs);
    Pass(stop);
  }
  return waitMs;
}

void CAudioPacer::Pass(const CStopFlag& stop) {
  // Once a pass: a hook that is removed meanwhile still gets the blocks of this one, so none is lost.
  IMediaHook* hook = controls.hook.load(std::memory_order_acquire);
  atRest = hook != nullptr;
  if (hook == nullptr)
    return;
  movesBefore = rings.Rest().Moves();
  CFillRegister::CEntry entry(controls.fills);
  FindDigitsOfAll();
  for (size_t position = 0; position < rings.PositionCount() && !stop.IsSet(); ++position) {
    Foresee(*hook, position + kForeseen);
    if (!RefillTransmit(*hook, position, stop, entry) || !DeliverReceived(*hook, position, stop))
      return;
  }
}

// In every position's oldest block at once: a digit is in the detector's hands before its block's turn comes.
void CAudioPacer::FindDigitsOfAll() {
  size_t count = 0;
  for (size_t position = 0; position < rings.PositionCount(); ++position) {
    const SPoolBlock block = rings.DetectsDigits(position) ? rings.Receive().NextReady(position) : SPoolBlock();
    if (block)
      jobs[count++] = {&rings.Detector(position), block.data, block.note->uniform};
    isSearched[position] = static_cast<bool>(block);
  }
  FindDigits(jobs.data(), count);
}

void CAudioPacer::Foresee(IMediaHook& hook, size_t position) {
  if (position >= rings.PositionCount())
    return;
  rings.Transmit().Foresee(position);
  hook.Foresee(TrunkOf(position), TimeslotOf(position));
}

bool CAudioPacer::RefillTransmit(IMediaHook& hook, size_t position, const CStopFlag& stop,
                                 CFillRegister::CEntry& entry) {
  CBlockPool& pool = rings.Transmit();
  while (const SPoolBlock block = pool.NextFree(position)) {
    atRest = false;
    fill.Begin(block.data, controls.flushCounts[position].load(std::memory_order_acquire), block.note->uniform);
    block.note->uniform = kNotUniform;  // until the fill is through
    Fill(hook, position, entry);
    if (stop.IsSet())
      return false;
    const bool endsPlay = hook.EndsPlay(TrunkOf(position), TimeslotOf(position));
    if (stop.IsSet())
      return false;
    *block.note = {fill.flushCount, endsPlay, fill.uniform};
    pool.PushReady(position);
  }
  return true;
}

// A stop from now on finds the block in the ring with an older count, and silences it there.
void CAudioPacer::Fill(IMediaHook& hook, size_t position, CFillRegister::CEntry& entry) {
  entry.Begin(position, fill);
  hook.FillBlock(TrunkOf(position), TimeslotOf(position), fill);
  entry.End();
  const uint32_t now = controls.flushCounts[position].load(std::memory_order_acquire);
  if (now == fill.flushCount)
    return;
  SilenceQueued(fill);
  fill.flushCount = now;
}

bool CAudioPacer::DeliverReceived(IMediaHook& hook, size_t position, const CStopFlag& stop) {
  CBlockPool& pool = rings.Receive();
  while (const SPoolBlock block = pool.NextReady(position)) {
    atRest = false;
    if (rings.DetectsDigits(position)) {
      if (!std::exchange(isSearched[position], false)) {
        const SDigitJob further{&rings.Detector(position), block.data, block.note->uniform};
        FindDigits(&further, 1);
      }
      if (!ReportDigits(hook, position, stop))
        return false;
    }
    if (hook.OnBlockReceived(TrunkOf(position), TimeslotOf(position), AudioBlock(block.data, kBlockBytes)))
      block.note->uniform = kNotUniform;
    if (stop.IsSet())
      return false;
    pool.PushFree(position);
  }
  return true;
}

bool CAudioPacer::ReportDigits(IMediaHook& hook, size_t position, const CStopFlag& stop) {
  while (const char digit = rings.Detector(position).TakeDigit()) {
    hook.OnDigit(TrunkOf(position), TimeslotOf(position), digit);
    if (stop.IsSet())
      return false;
  }
  return true;
}

}  // namespace zelk

#include "media/audio_pacer.h"

#include "platform/clock.h"

namespace zelk {
namespace {

uint16_t Trunk(size_t position) {
  return static_cast<uint16_t>(position / kTimeslotsPerTrunk);
}
uint16_t Timeslot(size_t position) {
  return static_cast<uint16_t>(position % kTimeslotsPerTrunk);
}

}  // namespace

void CAudioPacer::Run(CStopFlag& stop) {
  CPacerSchedule schedule(TickMs());
  while (!stop.IsSet()) {
    if (const uint32_t waitMs = Turn(schedule, TickMs(), stop))
      stop.SleepFor(waitMs);
  }
}

uint32_t CAudioPacer::Turn(CPacerSchedule& schedule, uint32_t now, const CStopFlag& stop) {
  uint32_t waitMs = 0;
  if (schedule.PassDue(now, waitMs))
    Pass(stop);
  return waitMs;
}

void CAudioPacer::Pass(const CStopFlag& stop) {
  // Once a pass: a hook that is removed meanwhile still gets the blocks of this one, so none is lost.
  IMediaHook* hook = controls.hook.load(std::memory_order_acquire);
  if (hook == nullptr)
    return;
  for (size_t position = 0; position < rings.PositionCount() && !stop.IsSet(); ++position) {
    RefillTransmit(*hook, position);
    DeliverReceived(*hook, position);
  }
}

void CAudioPacer::RefillTransmit(IMediaHook& hook, size_t position) {
  CBlockPool& pool = rings.At(position).transmit;
  while (uint8_t* block = pool.PopFree()) {
    // Before the fill: audio taken from a queue that is flushed while it is filled must not pass for newer.
    const uint32_t epoch = controls.flushEpoch[position].load(std::memory_order_acquire);
    hook.OnMedia(Trunk(position), Timeslot(position), MEDIA_PLAY, block, kBlockBytes);
    uint32_t mark = 0;
    hook.OnMedia(Trunk(position), Timeslot(position), MEDIA_PLAY_MARK, &mark, 0);
    pool.PushReady(block, mark != 0, epoch);
  }
}

void CAudioPacer::DeliverReceived(IMediaHook& hook, size_t position) {
  SChannelRings& channel = rings.At(position);
  for (SReadyBlock block = channel.receive.PopReady(); block.data != nullptr; block = channel.receive.PopReady()) {
    if (channel.detectDigits) {
      channel.dtmf.ProcessBlock(block.data, kBlockBytes);
      while (const char digit = channel.dtmf.TakeDigit())
        hook.OnMedia(Trunk(position), Timeslot(position), MEDIA_DTMF, nullptr, static_cast<uint8_t>(digit));
    }
    hook.OnMedia(Trunk(position), Timeslot(position), MEDIA_RECORD, block.data, kBlockBytes);
    channel.receive.PushFree(block.data);
  }
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_stream.h"

#include <new>
#include <utility>

#include "platform/thread.h"
#include "stream/audio_controls.h"
#include "stream/audio_session.h"

namespace zelk {

namespace {

// False too when there is no memory for the thread's record.
template <class Body>
bool StartThread(CThread& thread, const char* name, EThreadPriority priority, Body body) {
  try {
    return thread.Start(name, std::move(body), priority);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

class CAudioStream::CImpl {
 public:
  CImpl(IAudioNotice& cardNotice, uint32_t cardNumber)
      : notice(cardNotice), controls(std::make_shared<SAudioControls>()) {
    controls->card = cardNumber;
  }

  IAudioNotice& notice;
  const std::shared_ptr<SAudioControls> controls;
  SDtmfSettings dtmf;                      // of the next generation
  std::shared_ptr<CAudioSession> session;  // opener's; null while closed
  CThread pacer;
  CThread receiver;
};

CAudioStream::CAudioStream(IAudioNotice& notice, uint32_t cardNumber)
    : impl(std::make_shared<CImpl>(notice, cardNumber)) {}

CAudioStream::~CAudioStream() {
  RequestStop();
  CloseSocket();
}

// Counters and detectors are part of a generation: OpenSocket makes them new.
void CAudioStream::ResetChannels(const SDtmfSettings& dtmf) {
  impl->dtmf = dtmf;
}

bool CAudioStream::OpenSocket(SIpv4Address localAddress, SIpv4Address cardAddress, uint32_t trunkCount,
                              uint32_t blocks) {
  impl->session.reset();
  try {
    auto session = std::make_shared<CAudioSession>(impl->controls, impl->notice);
    if (session->Create(localAddress, cardAddress, trunkCount, blocks, impl->dtmf))
      impl->session = std::move(session);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return impl->session != nullptr;
}

uint16_t CAudioStream::LocalPort() const {
  return impl->session == nullptr ? 0 : impl->session->LocalPort();
}

bool CAudioStream::StartPacer() {
  const std::shared_ptr<CAudioSession> session = impl->session;
  return session != nullptr &&
         StartThread(impl->pacer, "zelk-pacer", EThreadPriority::kNormal, [session] { session->RunPacer(); });
}

bool CAudioStream::StartReceiver() {
  const std::shared_ptr<CAudioSession> session = impl->session;
  return session != nullptr &&
         StartThread(impl->receiver, "zelk-audio", EThreadPriority::kProAudio, [session] { session->RunReceiver(); });
}

void CAudioStream::ConfigureEcho(uint32_t trunk, int32_t tailMs) {
  if (impl->session != nullptr)
    impl->session->Echo().Configure(trunk, tailMs);
}

void CAudioStream::RequestStop() {
  if (impl->session != nullptr)
    impl->session->Stop();
}

void CAudioStream::CloseSocket() {
  if (impl->session != nullptr)
    impl->session->CloseSocket();
}

bool CAudioStream::JoinReceiver(uint32_t timeoutMs) {
  return impl->receiver.JoinFor(timeoutMs);
}

bool CAudioStream::JoinPacer(uint32_t timeoutMs) {
  return impl->pacer.JoinFor(timeoutMs);
}

// A thread that outlived its join keeps its generation's memory until it ends.
void CAudioStream::FreeBuffers() {
  impl->session.reset();
}

void CAudioStream::SetHook(IMediaHook* hook) {
  impl->controls->hook.store(hook, std::memory_order_release);
}

void CAudioStream::SetEchoSwitch(uint32_t trunk, bool on) {
  if (trunk < kMaxTrunks)
    impl->controls->echoSwitch[trunk].store(on, std::memory_order_relaxed);
}

bool CAudioStream::EchoSwitch(uint32_t trunk) const {
  return trunk < kMaxTrunks && impl->controls->echoSwitch[trunk].load(std::memory_order_relaxed);
}

void CAudioStream::SilenceTransmit(uint32_t trunk, uint32_t timeslot) {
  if (trunk < kMaxTrunks && timeslot < kTimeslotsPerTrunk)
    impl->controls->Flush(PositionOf(trunk, timeslot));
}

const std::atomic<uint32_t>* CAudioStream::FlushCounter(uint32_t trunk, uint32_t timeslot) const {
  const bool known = trunk < kMaxTrunks && timeslot < kTimeslotsPerTrunk;
  return known ? &impl->controls->flushCounts[PositionOf(trunk, timeslot)] : nullptr;
}

}  // namespace zelk

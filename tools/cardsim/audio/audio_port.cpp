// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_port.h"

#include <algorithm>

namespace cardsim {
namespace {

constexpr std::chrono::microseconds kFrameTime{125};

int FramesOf(const SCardConfig& config) {
  const int largest = LargestFrameCount(config.identity.trunks);
  return config.framesPerPacket > 0 ? std::min(config.framesPerPacket, largest) : largest;
}

}  // namespace

CAudioPort::CAudioPort(IReactor& audioReactor, const SCardConfig& config, ProbeHandler probeHandler)
    : reactor(audioReactor),
      trunks(config.identity.trunks),
      frames(FramesOf(config)),
      socket(audioReactor, std::move(probeHandler), [this](ByteView reply) { OnReply(reply, reactor.Now()); }),
      timeslots(config.identity.trunks),
      checker(config.lateAfter),
      hint(config.backlogHint) {}

void CAudioPort::Close() {
  Stop();
  socket.Close();
}

void CAudioPort::Start(const std::string& address, std::uint16_t port) {
  socket.SetLibrary(address, port);
  const std::lock_guard guard(lock);
  checker.Restart(reactor.Now());
  network.Clear();
  streaming = true;
  due = reactor.Now();
  lastSent = due;
  nextSequence = 1;
  framesSent = 0;
  framesHeard = 0;
}

void CAudioPort::Stop() {
  {
    const std::lock_guard guard(lock);
    streaming = false;
    network.Clear();
    checker.Finish(reactor.Now());
  }
  changed.notify_all();
}

std::optional<CAudioPort::Time> CAudioPort::SendDue(Time now) {
  const std::lock_guard guard(lock);
  if (!streaming) {
    return std::nullopt;
  }
  return SendStream(now);
}

CAudioPort::Time CAudioPort::SendStream(Time now) {
  Time next = now + kReplyPatience;
  if (pacing) {
    if (waitForReplies) {
      due = std::max(due, now - kMostMadeUp);
    }
    const auto mayGo = [&] {
      return due <= now && (!waitForReplies || checker.Outstanding() == 0 || now - lastSent >= kReplyPatience);
    };
    while (mayGo()) {
      SendNext(now);
      due += frames * kFrameTime;
    }
    // A reply that is waited for makes its own turn.
    next = due <= now ? next : due;
  }
  return SendUnderWay(now, next);
}

CAudioPort::Time CAudioPort::SendUnderWay(Time now, Time next) {
  while (const std::optional<SAudioPacket> arrived = network.Pop(now)) {
    Launch(*arrived, now);
    if (network.IsIdle(now)) {
      changed.notify_all();
    }
  }
  return std::min(next, network.NextDue().value_or(next));
}

void CAudioPort::SendNext(Time now) {
  const std::size_t bytes = AudioPacketBytes(trunks, frames);
  packet.bytes.resize(bytes);
  packet.sequence = nextSequence++;
  packet.hint = hint;
  packet.frame = framesSent;
  WriteAudioHeader(packet.bytes.data(), packet.sequence, hint);
  const bool ended = timeslots.Fill(std::span(packet.bytes).subspan(kAudioHeaderBytes), frames, framesSent);
  framesSent += static_cast<std::uint64_t>(frames);
  lastSent = now;
  if (network.IsIdle(now)) {
    Launch(packet, now);
  } else {
    network.Push(packet, now);
  }
  if (ended) {
    changed.notify_all();
  }
}

void CAudioPort::Launch(const SAudioPacket& datagram, Time now) {
  // Counted before it is sent: the reply may be there first.
  checker.OnSent({datagram.sequence, datagram.hint, datagram.bytes.size(), datagram.frame}, now);
  socket.SendToLibrary(datagram.bytes);
}

void CAudioPort::SendPacket(std::optional<std::uint32_t> sequence) {
  reactor.Call([&] {
    const std::lock_guard guard(lock);
    if (streaming) {
      const auto now = reactor.Now();
      nextSequence = sequence.value_or(nextSequence);
      SendNext(now);
      SendUnderWay(now, now);
    }
  });
}

void CAudioPort::SetPacing(bool on) {
  const std::lock_guard guard(lock);
  if (on && !pacing) {
    due = reactor.Now();
  }
  pacing = on;
}

void CAudioPort::SetFaults(const SAudioFaults& faults) {
  const std::lock_guard guard(lock);
  network.Set(faults);
}

void CAudioPort::PauseFor(std::chrono::milliseconds time) {
  const std::lock_guard guard(lock);
  network.PauseUntil(reactor.Now() + time);
}

SAudioFaultCounts CAudioPort::FaultCounts() const {
  const std::lock_guard guard(lock);
  return network.Counts();
}

bool CAudioPort::WaitArrived(std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [&] { return network.IsIdle(reactor.Now()); });
}

void CAudioPort::SetWaitForReplies(bool on) {
  const std::lock_guard guard(lock);
  waitForReplies = on;
}

void CAudioPort::SetEcho(int trunk, int timeslot, const std::optional<SEchoPath>& path) {
  const std::lock_guard guard(lock);
  timeslots.SetEcho(trunk, timeslot, path);
}

std::uint64_t CAudioPort::EchoesTooLate() const {
  const std::lock_guard guard(lock);
  return timeslots.EchoesTooLate();
}

void CAudioPort::SetBacklogHint(std::uint8_t value) {
  const std::lock_guard guard(lock);
  hint = value;
}

void CAudioPort::SetNextSequence(std::uint32_t sequence) {
  const std::lock_guard guard(lock);
  nextSequence = sequence;
}

void CAudioPort::OnReply(ByteView reply, Time now) {
  {
    const std::lock_guard guard(lock);
    if (!streaming) {
      return;
    }
    const std::uint64_t first = checker.OnReply(reply, now).value_or(framesHeard);
    const std::size_t area = reply.size() < kAudioHeaderBytes ? 0 : reply.size() - kAudioHeaderBytes;
    const int heard = static_cast<int>(area / static_cast<std::size_t>(trunks * kTimeslots));
    timeslots.Record(reply.last(area), heard, first);
    framesHeard = first + static_cast<std::uint64_t>(heard);
    if (waitForReplies) {
      SendStream(now);
    }
    if (!keepReplies) {
      return;
    }
    replies.push_back({Bytes(reply.begin(), reply.end()), now});
  }
  changed.notify_all();
}

void CAudioPort::KeepReplies(bool on) {
  const std::lock_guard guard(lock);
  keepReplies = on;
  if (on) {
    replies.clear();
  }
}

std::vector<SReply> CAudioPort::Replies() const {
  const std::lock_guard guard(lock);
  return replies;
}

bool CAudioPort::WaitReplies(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [&] { return replies.size() >= count; });
}

void CAudioPort::Play(int trunk, int timeslot, AudioSource source) {
  const std::lock_guard guard(lock);
  timeslots.SetSource(trunk, timeslot, std::move(source));
}

void CAudioPort::StopPlaying(int trunk, int timeslot, const AudioSource& source) {
  {
    const std::lock_guard guard(lock);
    timeslots.ClearSource(trunk, timeslot, source);
  }
  changed.notify_all();
}

bool CAudioPort::WaitPlayed(const AudioSource& source, std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [&] { return !timeslots.IsPlaying(source); });
}

void CAudioPort::AddRecorder(int trunk, int timeslot, Recorder recorder) {
  const std::lock_guard guard(lock);
  timeslots.AddRecorder(trunk, timeslot, std::move(recorder));
}

void CAudioPort::RemoveRecorder(int trunk, int timeslot, const Recorder& recorder) {
  const std::lock_guard guard(lock);
  timeslots.RemoveRecorder(trunk, timeslot, recorder);
}

SAudioStatistics CAudioPort::Statistics() const {
  const std::lock_guard guard(lock);
  return checker.Statistics();
}

std::uint64_t CAudioPort::FramesSent() const {
  const std::lock_guard guard(lock);
  return framesSent;
}

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cardsim/audio/audio_faults.h"
#include "cardsim/audio/audio_socket.h"
#include "cardsim/audio/reply_checker.h"
#include "cardsim/audio/timeslot_audio.h"
#include "cardsim/base/config.h"
#include "cardsim/base/reactor.h"

namespace cardsim {

struct SReply {
  Bytes bytes;
  std::chrono::steady_clock::time_point time;
};

// Job: a card's audio. Sends packets at the lines' pace and hears the replies; its socket also carries discovery
// replies and whatever datagram a test wants. Packet n of a stream is due (n - 1) x F x 125 us after the first: a late
// thread sends what is due at once and never drifts.
// Thread: any for the public methods; packets are built and replies taken on the audio thread. Open throws
// std::system_error when the address cannot be bound. WaitReplies and WaitPlayed block.
class CAudioPort {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using ProbeHandler = CAudioSocket::ProbeHandler;

  CAudioPort(IReactor& audioReactor, const SCardConfig& config, ProbeHandler probeHandler);

  void Open(const std::string& address) { socket.Open(address); }
  void Close();

  // Begins a stream of packets, numbered from 1, to the library.
  void Start(const std::string& address, std::uint16_t port);
  void Stop();
  // Audio thread: sends what is due and returns when the next packet is; nothing while no stream runs.
  std::optional<Time> SendDue(Time now);

  void SendTo(Bytes datagram, const std::string& address, std::uint16_t port) {
    socket.SendTo(std::move(datagram), address, port);
  }

  // Test control. With pacing off, packets go only by SendPacket; when it is switched on again the pace starts anew.
  void SetPacing(bool on);
  void SetBacklogHint(std::uint8_t hint);
  void SetNextSequence(std::uint32_t sequence);
  void SendPacket(std::optional<std::uint32_t> sequence = std::nullopt);
  // What the network does to packets from now on.
  void SetFaults(const SAudioFaults& faults);
  // Holds all packets back for so long, then they go at once.
  void PauseFor(std::chrono::milliseconds time);
  SAudioFaultCounts FaultCounts() const;
  // Until no packet is under way any more.
  bool WaitArrived(std::chrono::milliseconds timeout) const;
  // On: no packet goes before the one before it was answered (or kReplyPatience has passed), so that sound does not
  // depend on how busy the machine is. Of the time that this takes, kMostMadeUp at most is made up for, so that no
  // burst overruns what takes the sound on.
  void SetWaitForReplies(bool on);
  static constexpr std::chrono::milliseconds kReplyPatience{500};
  static constexpr std::chrono::milliseconds kMostMadeUp{40};
  // A packet exactly as given, outside all counting, to the library's audio port.
  void SendRaw(Bytes raw) { socket.PostToLibrary(std::move(raw)); }

  // Every reply is kept while on. Switching on forgets those kept before.
  void KeepReplies(bool on);
  std::vector<SReply> Replies() const;
  bool WaitReplies(std::size_t count, std::chrono::milliseconds timeout) const;

  void Play(int trunk, int timeslot, AudioSource source);
  void StopPlaying(int trunk, int timeslot, const AudioSource& source);
  bool WaitPlayed(const AudioSource& source, std::chrono::milliseconds timeout) const;
  // Nothing takes the echo away. See CAudioEcho.
  void SetEcho(int trunk, int timeslot, const std::optional<SEchoPath>& path);
  std::uint64_t EchoesTooLate() const;
  void AddRecorder(int trunk, int timeslot, Recorder recorder);
  void RemoveRecorder(int trunk, int timeslot, const Recorder& recorder);

  SAudioStatistics Statistics() const;
  // Frames sent since the stream began.
  std::uint64_t FramesSent() const;
  int FramesPerPacket() const { return frames; }

 private:
  void OnReply(ByteView reply, Time now);
  Time SendStream(Time now);
  void SendNext(Time now);
  void Launch(const SAudioPacket& datagram, Time now);
  Time SendUnderWay(Time now, Time next);

  IReactor& reactor;
  const int trunks;
  const int frames;
  CAudioSocket socket;

  mutable std::mutex lock;
  mutable std::condition_variable changed;
  CTimeslotAudio timeslots;        // guarded by lock
  CReplyChecker checker;           // guarded by lock
  bool streaming = false;          // guarded by lock
  bool pacing = true;              // guarded by lock
  Time due;                        // guarded by lock; of the next packet
  std::uint32_t nextSequence = 1;  // guarded by lock
  std::uint64_t framesSent = 0;    // guarded by lock
  std::uint64_t framesHeard = 0;   // guarded by lock; frame number after the last reply
  std::uint8_t hint;               // guarded by lock
  CAudioFaults network;            // guarded by lock
  bool waitForReplies = false;     // guarded by lock
  Time lastSent;                   // guarded by lock
  bool keepReplies = false;        // guarded by lock
  std::vector<SReply> replies;     // guarded by lock
  SAudioPacket packet;             // guarded by lock; the one that is built
};

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/wire.h"
#include "trace/core/analysis.h"
#include "trace/core/reply_watch.h"

namespace trace {

enum class EChannel { kIdle, kRinging, kDialled, kConnected, kClearing, kDown };

struct SBoardTrunk {
  std::optional<std::uint8_t> status;  // of layer 1, as the card tells it; 0: in service
  std::optional<bool> isUp;            // layer 2
  Time changed = 0;                    // layer 1 or 2, last
  std::uint64_t hdlcErrors = 0;
  std::uint64_t calls = 0;
  std::uint64_t connected = 0;
  std::uint64_t starvedBlocks = 0;
  std::uint64_t connectedSamples = 0;  // to the line, in connected calls
  std::map<int, std::uint64_t> causes;
  std::array<EChannel, tool::kTimeslots> channels{};
  std::array<std::uint64_t, tool::kTimeslots> callOn{};  // number of the call that holds the channel; 0: none
  std::array<Time, tool::kTimeslots> heard{};            // the last message of that call
};

struct SBoardCard {
  std::uint32_t serial = 0;
  std::uint32_t address = 0;
  bool isConnected = false;
  Time heard = 0;  // its last message on the control connection
  std::vector<SBoardTrunk> trunks;
  CReplyWatch replies;
};

// Job: what stands on each trunk and channel at the moment that the capture has come to. Thread: one. Owns all it
// shows.
class CBoard : public ITraceSink {
 public:
  // Samples of 0x54 in a row on a connected channel that count as a block without sound.
  static constexpr int kStarvedRun = 160;

  void OnPacket(Time time) override;
  void OnConnected(const SConnection& connection) override;
  void OnControl(const SConnection& connection, const SControl& message) override;
  void OnDisconnected(const SConnection& connection, Time time) override;
  void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame& decoded,
               EVerdict verdict) override;
  void OnCallMessage(const SCall& call, const SSignal& signal) override;
  void OnCallEnds(const SCall& call) override;
  void OnAudio(const SAudio& audio) override;

  // By address.
  const std::map<std::uint32_t, SBoardCard>& Cards() const { return cards; }
  Time Begin() const { return begin; }
  Time Now() const { return now; }

 private:
  // The last sample of a line, and how often in a row it was that of a starved one.
  using Runs = std::array<int, tool::kTimeslots>;

  SBoardTrunk* Find(std::uint32_t card, int trunk);
  static void Hold(SBoardTrunk& trunk, const SCall& call, EChannel state, Time time);
  void CountStarved(SBoardTrunk& trunk, Runs& runs, ByteView samples, std::size_t at, std::size_t step) const;

  std::map<std::uint32_t, SBoardCard> cards;
  std::map<std::pair<int, int>, CDataLink> links;      // by connection and trunk
  std::map<std::pair<std::uint32_t, int>, Runs> runs;  // by card and trunk
  Time begin = 0;
  Time now = 0;
};

const char* ChannelName(EChannel state);

// A connected call of which no message has come for this long gets a letter of its own.
inline constexpr Time kSilentCall = 3600 * kSecond;

// What a board shows for a state, and for a channel at this moment: "C", or "h" where its call has been silent for
// long.
char LetterOf(EChannel state);
char LetterOf(const SBoardTrunk& trunk, int timeslot, Time now);

}  // namespace trace

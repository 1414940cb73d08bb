// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "trace/core/tcp_stream.h"

namespace trace {

enum class EDirection { kToLibrary, kFromLibrary };

enum class EControl {
  kInformationRequest,
  kInformation,
  kStart,
  kAudioPort,
  kConfiguration,
  kRegisterRead,
  kRegisterValue,
  kStatus,
  kFrame,
  kHdlcError
};

// A message of the control connection.
struct SControl {
  EControl kind = EControl::kStart;
  EDirection direction = EDirection::kToLibrary;
  Time time = 0;
  std::uint64_t packet = 0;  // the one with its last byte
  int trunk = -1;            // from 0; -1 where a message has none
  Bytes body;                // the frame without its FCS, the status of each trunk, the 22 bytes of information
  bool isFcsGood = true;     // of a frame to the library
  std::uint16_t value = 0;   // audio port, register, code of an HDLC error
  bool isAfterGap = false;   // messages of this direction before it are not in the capture
};

struct SControlCounts {
  std::uint64_t messages = 0;
  std::uint64_t badFcs = 0;
  std::uint64_t bytesSkipped = 0;  // that were no message, or a part of one
  std::uint64_t resyncs = 0;       // times that the begin of a message had to be looked for
};

// Job: takes one direction of a control stream apart, as the side that reads it does. After a gap, and in a capture
// that begins in the middle, it looks for a place from which on messages make sense. The length of a trunk status
// follows from the number of trunks; where that is not known, the card's bytes are kept until it is told, or has shown
// by a status that came twice in a segment of its own. Thread: one. Owns the bytes of what is not complete, at most
// kMostKept. Nothing fails.
class CControlDecoder {
 public:
  using Sink = std::function<void(SControl&&)>;
  static constexpr std::size_t kMostKept = 1 << 20;

  // `trunkCount` 0: not known.
  CControlDecoder(EDirection streamDirection, int trunkCount, Sink messageSink)
      : direction(streamDirection), trunks(trunkCount), sink(std::move(messageSink)) {}

  // The first piece, or the next, is somewhere in a message.
  void LoseSync();
  void Feed(const SPiece& piece);
  int Trunks() const { return trunks; }
  bool IsSynced() const { return synced; }
  const SControlCounts& Counts() const { return counts; }

 private:
  // Where a piece begins in `kept`.
  struct SMark {
    std::size_t at;
    Time time;
    std::uint64_t packet;
    bool isSegmentStart;
  };
  enum class EFit { kNo, kMaybe, kFits };

  void Learn(const SPiece& piece);
  void Keep(const SPiece& piece);
  void Drop(std::size_t count);
  bool FindSync();
  EFit Judge(std::size_t at) const;
  EFit JudgeFrame(ByteView bytes) const;
  EFit JudgeShort(ByteView bytes, bool isSegmentStart) const;
  void Parse();
  bool ParseOne(std::size_t& at);
  void ReturnLead(std::size_t& at);
  bool HasItsEnd(ByteView message) const;
  std::size_t SizeOf(ByteView bytes) const;
  void Emit(ByteView message, std::size_t end);
  void FillFromCard(ByteView message, SControl& out);
  void FillFromLibrary(ByteView message, SControl& out);
  void FillFrame(ByteView message, SControl& out);
  const SMark& MarkOf(std::size_t at) const;
  bool IsFromCard() const { return direction == EDirection::kToLibrary; }

  const EDirection direction;
  int trunks;
  Sink sink;
  SControlCounts counts;
  bool synced = true;
  bool isAfterGap = false;
  bool inType = false;  // FF has come, or a message after which a type may stand at once
  int shownTrunks = 0;  // by the last segment that looks like a status
  Bytes kept;
  std::vector<SMark> marks;
};

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "trace/core/capture_file.h"

namespace replay {

using trace::Bytes;
using trace::ByteView;
using trace::Time;

enum class EItem : std::uint8_t {
  kOpen,        // the library has opened the card: its next frame is a SABME
  kReceived,    // a frame that the card gave the library
  kSent,        // a frame that the library gave the card
  kHdlcError,   // with its code
  kLineStatus,  // another one than before
  kClosed,      // nothing more came over the control connection
  kCardDown,    // the card has been silent for as long as the library bears
};

// What happened on the trunk, without what came before the first opening.
struct SItem {
  EItem kind;
  Time time;
  std::uint64_t packet = 0;  // in the file
  int opening = 0;           // counts the openings of the card
  bool isNew = false;        // a received message in its turn
  std::uint8_t value = 0;    // code or status
  Bytes frame{};             // without FCS
};

struct SRecording {
  std::vector<SItem> items;  // in their order
  std::uint32_t serial = 0;  // of the card; 0: not known
  int trunk = 0;             // from 0
  int trunks = 0;            // of the card; 0: not known
  int cardsBefore = 0;       // that the library opened before this one, as far as they are in the capture
  int trunksBefore = 0;      // of those
  bool isLibraryNetwork = false;
  bool showsOpenings = true;
  std::vector<std::string> notes;  // what is missing in the capture, a sentence each
};

// Reads what happened on one trunk, named as zelk-trace names it: "100001-2", or the card's address for its serial
// number. From a capture of the network, or from what `zelk-trace export` has made of one, where an opening of the card
// is not to be seen: a SABME that the library sends begins there. `trunkCount`: of cards of which the capture does not
// tell it; 0 for none. Throws CTraceError (kBadInput) when there is nothing to replay.
SRecording ReadRecording(const std::string& path, const std::string& trunkName, int trunkCount);
// The same of a file that is open.
SRecording ReadRecording(trace::CCaptureFile& file, const std::string& trunkName, int trunkCount);

}  // namespace replay

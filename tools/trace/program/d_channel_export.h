// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <deque>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <utility>

#include "trace/core/analysis.h"
#include "trace/core/anonymiser.h"
#include "trace/core/pcapng_writer.h"

namespace trace {

struct SDChannelChoice {
  bool anonymise = false;
  bool isLive = false;           // somebody looks on: frames are not held back
  std::set<std::string> trunks;  // "100001-2", or "100001" for all of a card; empty for all
};

// Job: writes D-channels as pcapng, in their order. A frame waits until its trunk's roles are known, because the
// pseudo-header tells them; where somebody looks on it does not, as they may not be told for hours.
// Thread: one. The stream is its owner's. Live, a reader that has gone is thrown as a CTraceError of kDone.
class CDChannelExport : public ITraceSink {
 public:
  CDChannelExport(std::ostream& stream, SDChannelChoice choice);

  void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame&, EVerdict) override;
  // Writes what waits still; the number of all frames.
  std::uint64_t End();

 private:
  using Key = std::pair<int, int>;  // connection and trunk

  bool IsWanted(const std::string& card, int trunk) const;
  void WriteKnown();
  void WriteFirst();
  void Flush();

  const SDChannelChoice chosen;
  std::ostream& out;
  CPcapngWriter writer;
  CAnonymiser anonymiser;
  std::map<Key, CDataLink> links;
  std::deque<std::pair<Key, SExported>> waiting;
  std::uint64_t written = 0;
};

}  // namespace trace

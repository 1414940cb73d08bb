// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "doctor/core/clock_fit.h"
#include "doctor/core/sound_watch.h"
#include "doctor/core/trunk_watch.h"
#include "doctor/core/wire_facts.h"
#include "trace/core/board.h"

namespace doctor {

// Job: gathers the facts of a capture. Thread: one. Owns them. Nothing fails.
class CWireObserver : public trace::ITraceSink {
 public:
  // Reads to the end, or to where the file makes no sense any more. Throws trace::CTraceError for a link type without
  // IP. `trunks`: of cards of which the capture does not tell it.
  SWireFacts Run(trace::CCaptureFile& file, int trunks);

  void OnDiscovery(const trace::SDiscovery& datagram) override;
  void OnConnected(const trace::SConnection& connection) override;
  void OnControl(const trace::SConnection& connection, const trace::SControl& message) override;
  void OnDisconnected(const trace::SConnection& connection, Time time) override;
  void OnFrame(const trace::SConnection& connection, const trace::SControl& frame, const tool::SQ921Frame& decoded,
               trace::EVerdict verdict) override;
  void OnCallBegins(const trace::SCall& call) override;
  void OnCallMessage(const trace::SCall& call, const trace::SSignal& signal) override;
  void OnCallEnds(const trace::SCall& call) override;
  void OnAudio(const trace::SAudio& audio) override;

 private:
  struct SCard {
    SCardFacts facts;
    std::vector<CTrunkWatch> trunks;
    CSoundWatch sound;
    CClockFit clock;
    bool isConnected = false;
    bool isSetUp = false;     // the card is watched for silence
    bool isEndTaken = false;  // of the connection that lives
    SMark heard;              // its last bytes on the control connection
    Time lastAudio = 0;
  };
  // A connection that the library asks for.
  struct SAttempt {
    SMark mark;
    bool isAnswered = false;
  };

  void TakePacket(const trace::SPacket& packet);
  void OnSegmentOfCard(const trace::SPacket& packet);
  void OnSegmentOfLibrary(const trace::SPacket& packet);
  void TakeSilence(SCard& card, Time now);
  void OnInformation(SCard& card, const trace::SControl& message);
  CTrunkWatch* Find(std::uint32_t card, int trunk);
  void Finish();
  void FinishCard(SCard& card);

  trace::CBoard board;
  std::map<std::uint32_t, SCard> cards;
  std::map<std::pair<std::uint32_t, trace::SEndpoint>, SAttempt> attempts;
  STally probes;
  SWireFacts wire;
};

}  // namespace doctor

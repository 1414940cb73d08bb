// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/q931_decode.h"
#include "trace/core/data_link.h"
#include "trace/core/traffic.h"

namespace trace {

enum class ECallEnd {
  kOpen,            // not ended in the capture
  kReleased,        // by the procedure of ITU-T Q.931
  kRestarted,       // its channel or interface was restarted
  kConnectionLost,  // went with the control connection
  kReplaced         // its reference was used again; its end is not in the capture
};

// A call as the D-channel tells it. Times are 0 where it has not come to that.
struct SCall {
  std::uint64_t number = 0;  // in the capture, from 1, in the order of the first messages
  int connection = 0;
  std::uint32_t card = 0;    // address
  std::uint32_t serial = 0;  // 0: not known
  int trunk = 0;             // from 0
  int reference = 0;
  bool fromLibrary = false;
  int timeslot = -1;  // not named
  std::string calling;
  std::string called;
  std::string redirecting;
  Time begin = 0;  // its first message
  Time alerting = 0;
  Time connected = 0;  // CONNECT
  Time clearing = 0;   // the first of DISCONNECT, RELEASE, RELEASE COMPLETE
  Time end = 0;
  int cause = -1;  // of the first clearing message that has one
  std::optional<EDirection> clearedBy;
  ECallEnd how = ECallEnd::kOpen;
  bool isBegunBefore = false;  // its SETUP is not in the capture
  bool isPassedGap = false;    // messages of its D-channel are missing while it went on
};

// A Q.931 message of a call, or of none (reference 0).
struct SSignal {
  const SConnection& connection;
  const SControl& frame;
  const tool::SQ931Message& message;
};

// What hears of calls; all of it is called in the order of the capture.
class ICallSink {
 public:
  virtual ~ICallSink() = default;
  // A frame of a D-channel, before what it means.
  virtual void OnFrame(const SConnection&, const SControl&, const tool::SQ921Frame&, EVerdict) {}
  virtual void OnCallBegins(const SCall&) {}
  // After the call has taken the message in.
  virtual void OnCallMessage(const SCall&, const SSignal&) {}
  virtual void OnCallEnds(const SCall&) {}
};

// Job: makes calls of the frames of all D-channels. Thread: one. Owns the calls under way; one that has ended is handed
// out and forgotten. Nothing fails.
class CCalls {
 public:
  explicit CCalls(ICallSink& callSink) : sink(callSink) {}

  void OnControl(const SConnection& connection, const SControl& message);
  void OnDisconnected(const SConnection& connection, Time time);
  // The capture is over: what is under way is handed out as it is.
  void Finish();
  std::uint64_t Count() const { return made; }
  SLinkCounts LinkCounts() const { return links; }

 private:
  // Connection, trunk, whose reference, reference.
  struct SKey {
    int connection;
    int trunk;
    bool fromLibrary;
    int reference;
    auto operator<=>(const SKey&) const = default;  // NOLINT(modernize-use-nullptr): the check misreads it
  };

  void OnMessage(const SConnection& connection, const SControl& frame, const tool::SQ931Message& message);
  void OnGlobal(const SConnection& connection, const SControl& frame, const tool::SQ931Message& message);
  SCall* Find(const SKey& key, const SConnection& connection, const SControl& frame, const tool::SQ931Message& message);
  void Apply(SCall& call, const SControl& frame, const tool::SQ931Message& message);
  bool IsEndedBy(SCall& call, const SControl& frame, const tool::SQ931Message& message);
  void End(std::map<SKey, SCall>::iterator call, ECallEnd how, Time time);
  void MarkGap(const SConnection& connection);

  ICallSink& sink;
  std::map<std::pair<int, int>, CDataLink> dataLinks;  // by connection and trunk
  std::map<SKey, SCall> open;
  std::set<SKey> restarted;      // ended by a restart, of which messages may still come
  std::map<SKey, int> releases;  // who has sent RELEASE: a bit a direction
  std::uint64_t made = 0;
  SLinkCounts links;
};

}  // namespace trace

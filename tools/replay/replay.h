// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "replay/application.h"
#include "replay/library_trunk.h"
#include "replay/recording.h"
#include "replay/report.h"
#include "zelk/ZelkApi.h"

namespace replay {

// Job: has the library live through a recording once more, up to the first frame that it sends otherwise.
//
//   received    given to the library at its time. The library read it later than the card sent it: where the next frame
//               that it sent does not know of it yet, that one comes first.
//   sent        compared when the library writes it. Where it has not come by its time, the application did something:
//               that is done now; else a timer ran out that is due within kSlack of it.
//   timers      run when they are due by more than kSlack: the recorded times are those of the network, and the library
//               may have been busy. Those that nobody asks for in time run then.
//
// Thread: one, and one replay at a time, as the library's callbacks lead to it. The recording and the report must
// outlive it.
class CReplay {
 public:
  // Times in which the library acts, and those on the wire, may differ by so much.
  static constexpr Time kSlack = 200 * trace::kMillisecond;
  // As often time is passed to calls that wait for it. The library does so seldom enough to be up to 100 ms later.
  static constexpr Time kTick = 10 * trace::kMillisecond;
  // A frame that comes so much earlier than recorded is another one.
  static constexpr Time kMostEarly = 500 * trace::kMillisecond;
  // A received frame is not read later than this.
  static constexpr Time kMostUnread = trace::kSecond;
  // So many frames are looked at to find out what happened: more than a D-channel carries in a second.
  static constexpr std::size_t kMostAhead = 1500;
  // A SETUP does not wait longer for its trunk to come up: the library has given the call up by then.
  static constexpr Time kMostDialledBefore = 30 * trace::kSecond;

  // Without settings: those that the recording shows, and the defaults.
  CReplay(const SRecording& recorded, const std::optional<zelk::STrunkSettings>& trunkSettings, CReport& eventReport);
  ~CReplay();
  CReplay(const CReplay&) = delete;
  CReplay& operator=(const CReplay&) = delete;

  // Whether all was as recorded.
  bool Run();

 private:
  struct SSent {
    const SItem* item;
    tool::SQ921Frame frame;
  };

  static void ZELK_CALL OnEvent(std::int32_t channel, std::uint32_t event, std::int32_t parameter);

  void Step(const SItem& item);
  void Open(const SItem& item);
  void Receive(const SItem& item);
  void Send(const SItem& item);
  void Act(std::size_t index);
  void ActBefore(const SItem& item, const tool::SQ931Message& message);
  std::size_t AnswerTo(const SItem& item, const tool::SQ931Message& message) const;
  void SendWhatCameBefore(const SItem& received);
  bool IsSentBefore(const SItem& received, const tool::SQ921Frame& frame) const;
  bool HasSoon(const SItem& received, tool::EFrameKind kind, bool isFinal) const;
  void DialWhileDown(const SItem& item);
  bool IsSoon(std::size_t index, Time time, Time most) const;
  bool TrySend(const SItem& item);
  void PassTimeTo(Time time);
  bool RunTimersUntil(Time time, std::size_t awaited);

  std::vector<zelk::CDevice*> ClosedTo(const tool::SQ931Message& setup, const SItem& received);
  void OnWritten(ByteView frame);
  void OnLibraryEvent(std::int32_t channel, std::uint32_t event, std::int32_t parameter);
  const SItem* Expected() const;
  void Fail(const std::string& what, const SItem* expected, ByteView got);

  const SRecording& recording;
  zelk::STrunkSettings settings;
  CReport& report;
  CLibraryTrunk trunk;
  CApplication application;
  std::vector<SSent> sent;  // of the recording
  std::size_t written = 0;  // so many of them
  std::vector<bool> acted;  // for which of them the application has acted
  std::uint64_t received = 0;
  int opening = 0;
  std::map<int, Time> ends;  // of what is recorded, by opening
  Time end = 0;              // of this one
  bool isUp = false;         // the trunk, as far as the application has been told
  bool isDifferent = false;
};

}  // namespace replay

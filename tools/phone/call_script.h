// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "phone/hang_up_watch.h"
#include "phone/recorder.h"
#include "phone/report.h"
#include "phone/session.h"

namespace phone {

// What is done on a connected call.
struct SCallScript {
  std::string digits;      // DTMF, sent once connected, before the file; see RenderDigits
  std::string playFile;    // empty: nothing is played
  std::string recordFile;  // empty: nothing is recorded; from the answer or the dialling on
  int holdSeconds = 0;     // hang up so long after the connection; 0: leave it to the far end
  bool hangupAfterPlay = false;
};

// How a call ended.
struct SCallEnd {
  bool connected = false;
  bool lost = false;    // the trunk or card went down, or the user stopped the program
  bool gaveUp = false;  // it was not connected in time
  int32_t cause = 0;
};

// Throws CPhoneError when there is no such channel.
void RequireChannel(const CSession& session, int channel);

// Refuses a script whose files cannot be used, before a call is made: throws CPhoneError.
void CheckScript(const SCallScript& script);

// Follows one call to its end: reports progress, plays, records, hangs up. Made before the call is answered or dialled,
// because the recording starts here: the far end may speak before the connected event has arrived.
// Thread: main.
class CCallRun {
 public:
  CCallRun(CSession& ofSession, CRecorder& toRecorder, CReport& toReport, int32_t onChannel,
           const SCallScript& withScript);
  // connectSeconds: how long the call may take to be connected before it is given up.
  SCallEnd Run(int connectSeconds);

 private:
  using Clock = std::chrono::steady_clock;

  void Take(const SPhoneEvent& event);
  void Handle(const SPhoneEvent& event);
  void OnConnected();
  void Fail(const std::string& what, const std::string& why);
  void HangUpWhenDue(int connectSeconds);
  void ShowStatus();
  void HangUp(const char* why);
  void Say(const char* type, const std::string& text, const Json& fields = Json::object());
  void FinishRecording();

  CSession& session;
  CRecorder& recorder;
  CReport& report;
  const int32_t channel;
  const SCallScript& script;
  SCallEnd end;
  std::string state = "calling";
  bool over = false;
  bool playDone = false;
  CHangUpWatch hangUp;
  Clock::time_point started = Clock::now();
  Clock::time_point connectedAt;
};

}  // namespace phone

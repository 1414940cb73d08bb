// SPDX-License-Identifier: GPL-2.0-only
#include "phone/commands.h"
#include "phone/input.h"
#include "phone/recorder_bank.h"
#include "phone/served_channels.h"
#include "phone/session.h"
#include "phone/snapshot.h"

namespace phone {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kTurn{50};
// The network confirms a hang-up in well under a second; past this the call is given up.
constexpr seconds kClearingLimit{10};

void TakeEvents(CSession& session, CServedChannels& served, milliseconds wait) {
  SPhoneEvent event;
  for (bool isThere = session.NextEvent(event, wait); isThere; isThere = session.NextEvent(event, milliseconds(0))) {
    served.Take(event);
  }
}

// A command finds its channel in the state in which all events have left it that came before.
void TakeLines(CSession& session, CServedChannels& served, CInput& input) {
  constexpr int kMostInATurn = 100;  // what was recorded is to be written meanwhile
  SInputLine line;
  for (int i = 0; i < kMostInATurn && !CSession::StopRequested() && input.Take(line); ++i) {
    TakeEvents(session, served, milliseconds(0));
    served.Execute(line);
  }
}

void ClearCalls(CSession& session, CServedChannels& served) {
  served.EndCalls();
  const auto begin = Clock::now();
  while (served.HasCalls() && Clock::now() - begin < kClearingLimit) {
    TakeEvents(session, served, kTurn);
    served.EndCalls();  // of callers who came meanwhile
    served.Turn();
  }
}

}  // namespace

void RunServe(CReport& report, int trunkSeconds) {
  CRecorderBank recorders;
  CSession session(recorders);
  for (int32_t channel = 0; channel < session.ChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
  }
  session.WaitForTrunks(seconds(trunkSeconds));
  report.Say("snapshot", "", SnapshotJson());
  CServedChannels served(recorders, report);
  CInput input([&session] { session.Wake(); });
  while (!CSession::StopRequested() && !input.IsOver()) {
    TakeEvents(session, served, kTurn);
    TakeLines(session, served, input);
    served.Turn();
  }
  ClearCalls(session, served);
}

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "fleet/link.h"
#include "fleet/names.h"
#include "node/asks.h"
#include "node/incoming.h"
#include "node/job_desk.h"
#include "node/lease.h"
#include "node/mailbox.h"
#include "node/options.h"
#include "node/sounds.h"
#include "node/speaker.h"
#include "phone/recorder_bank.h"
#include "phone/served_channels.h"
#include "phone/session.h"

namespace node {

// A host of a fleet: the library, all of its channels, and the connection to the servers.
// Thread: main. Failures of the start throw phone::CPhoneError, fleet::CLinkError or std::invalid_argument.
class CNode {
 public:
  explicit CNode(const SNodeOptions& nodeOptions);

  // Until SIGINT or SIGTERM, and then until the calls are over.
  void Run();

 private:
  // What the fleet's streams were made with.
  struct STimes {
    std::chrono::milliseconds life{};     // of a host's entry
    std::chrono::milliseconds ackWait{};  // of a job
  };
  static constexpr int kAnswers = 1;  // subscriptions
  static constexpr int kJobs = 2;
  static constexpr int kRequests = 3;

  STimes ReadTimes();
  SDeskOptions DeskOptions() const;
  phone::Json Entry();
  void Subscribe();
  void TakeEvents(std::chrono::milliseconds wait);
  void TakeMails();
  void TakeMail(const fleet::SMail& mail);
  void Execute(const fleet::SMail& mail);
  using Carried = std::function<void(const phone::Json& answer)>;
  // Carries out a command whose files are names in the host's folder, or sounds of the fleet.
  void Carry(const std::string& text, const Carried& carried);
  void CarryWithFile(const phone::Json& command, const Carried& carried);
  void Turn(std::chrono::milliseconds wait);
  void Drain();
  void Leave();

  const SNodeOptions options;
  const fleet::SNames names;
  const std::string boot;
  const std::string inbox;
  CMailbox mailbox;
  phone::CRecorderBank recorders;
  phone::CSession session;
  fleet::CLink link;
  CAsks asks;
  CSpeaker speaker;
  phone::CServedChannels served;
  CSounds sounds;
  const STimes times;
  CLease lease;
  CJobDesk desk;
  CIncoming incoming;
  Clock::time_point nextRound;
  uint64_t placedBefore = 0;
  Clock::time_point minuteBegan = Clock::now();
  double callsPerMinute = 0;
};

}  // namespace node

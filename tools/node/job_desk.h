// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "fleet/rate.h"
#include "node/claims.h"
#include "node/pulls.h"
#include "node/sounds.h"
#include "node/work.h"
#include "phone/served_channels.h"

namespace node {

// A line that was said of a channel.
struct SSaid {
  std::string type;
  phone::Json fields;
  phone::UtcTime time;
};

struct SDeskOptions {
  std::string node;
  std::string boot;
  double rate = 0;   // calls a second; 0: as they come
  int channels = 0;  // jobs at a time; 0: as many as there are channels
  std::chrono::milliseconds signEvery{10000};
};

// Takes jobs as long as channels are free, has each of them claimed, dials, does what the job says, has the result
// stored, and only then acknowledges. Thread: the node's.
class CJobDesk {
 public:
  CJobDesk(const SDeskOptions& deskOptions, fleet::CLink& toLink, CAsks& toAsks, CLease& hostLease,
           const fleet::SNames& fleetNames, phone::CServedChannels& channels, CSounds& hostSounds,
           const std::string& jobsAt);

  // A job, or the end of a request for jobs.
  void Take(const fleet::SMail& mail);
  // What is said of a channel; acted upon by the next Act.
  void Hear(SSaid said);
  void Act();
  void Turn(Clock::time_point now);
  void Reconnected() { pulls.Forget(); }
  void Drain() { isDraining = true; }
  bool IsDraining() const { return isDraining; }
  bool HasWork() const { return !works.empty(); }
  size_t WorkCount() const { return works.size(); }
  int FreeChannels() const;
  bool IsReserved(int32_t channel) const { return byChannel[static_cast<size_t>(channel)] != nullptr; }
  uint64_t CallsPlaced() const { return placed; }
  uint64_t ResultsStored() const { return stored; }

 private:
  // taking
  void Consider(const fleet::SJob& job, const std::string& ackTo);
  void GiveBack(const std::string& ackTo, std::chrono::milliseconds delay);
  int32_t FreeChannelFor(const fleet::SJob& job);
  bool Serves(const fleet::SJob& job, int32_t channel) const;
  bool HasTrunkFor(const fleet::SJob& job) const;
  void Claimed(const Work& work, EClaimed outcome);
  void FindSound(const Work& work);
  int Capacity() const;
  // calling
  void Dial(const Work& work);
  void OnSaid(const SSaid& said);
  void OnConnected(const Work& work);
  void Play(const Work& work);
  void Played(const Work& work, Clock::time_point now);
  void Hangup(const Work& work);
  void CallOver(const Work& work, const SSaid& said);
  void TurnCall(const Work& work, Clock::time_point now);
  bool Carry(const Work& work, phone::Json command);
  void Note(const Work& work, const char* step, phone::UtcTime time);
  // storing
  bool WantsAnother(const Work& work, const phone::Json& result) const;
  phone::Json ResultOf(const Work& work, const char* outcome, const std::string& message) const;
  void Finish(const Work& work, const phone::Json& result);
  void Store(const Work& work, const std::string& result);
  void Acknowledge(const Work& work);
  void Leave(const Work& work, std::chrono::milliseconds delay);
  void FreeChannel(const Work& work);

  const SDeskOptions options;
  fleet::CLink& link;
  CAsks& asks;
  CLease& lease;
  const fleet::SNames& names;
  phone::CServedChannels& served;
  CSounds& sounds;
  CClaims claims;
  CPulls pulls;
  fleet::CRate rate;
  std::unordered_map<std::string, Work> works;  // by id
  std::vector<Work> byChannel;
  std::vector<fleet::STrunkName> trunks;  // of each channel
  std::vector<SSaid> heard;
  size_t cursor = 0;
  bool isDraining = false;
  uint64_t taken = 0;
  uint64_t placed = 0;
  uint64_t stored = 0;
};

}  // namespace node

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/simulated/world.h"
#include "world/application.h"
#include "world/call_grammar.h"

namespace world {

// What is said of an export: how long it may take in a world whose callbacks return within callbackMs.
struct SBounds {
  int cards = 1;
  int trunks = 1;
  int64_t callbackMs = 0;

  int64_t CallMs() const;  // exports for one channel
  int64_t InitMs() const;
  int64_t ShutdownMs(bool isBehindCallback) const;
};

// Job: what must hold in every world, asked with each export and event. Failures are kept, each with its time.
// Thread: tasks and acts of the world; the exports are called here, by tasks.
class CChecks {
 public:
  CChecks(zelk::sim::CWorld& ownWorld, const SBounds& ownBounds) : world(ownWorld), bounds(ownBounds) {}
  CChecks(const CChecks&) = delete;
  CChecks& operator=(const CChecks&) = delete;

  void Fail(const std::string& what);
  // Nothing when it holds.
  void Require(bool holds, const std::string& what);
  const std::vector<std::string>& Failures() const { return failures; }

  void SetChannels(int32_t count, bool isNetworkSide, bool isForgetful = false);
  // The channels are new ones.
  void ForgetCalls();
  void OnEvent(const SEvent& event);
  CCallGrammar& Grammar(int32_t channel) { return grammars.at(static_cast<size_t>(channel)); }

  // The exports, within their bounds and as the grammar knows them.
  bool Init();
  void Shutdown(bool isBehindCallback = false);
  bool Dial(int32_t channel, const std::string& number);
  bool Answer(int32_t channel);
  bool Reject(int32_t channel);
  bool Hangup(int32_t channel);
  bool Play(int32_t channel, const cardsim::Bytes& sound);
  void StopPlay(int32_t channel);
  void ReadInfo(int32_t channel);
  bool Open(int32_t channel);
  uint32_t State(int32_t channel);

  // Does body, which is an export of that name, and returns its result.
  template <class Body>
  auto Timed(const char* name, int32_t channel, int64_t mostMs, Body body) {
    const int64_t beganUs = world.NowUs();
    const auto result = body();
    CheckTime(name, channel, mostMs, world.NowUs() - beganUs);
    return result;
  }

 private:
  void CheckTime(const char* name, int32_t channel, int64_t mostMs, int64_t tookUs);
  template <class Body>
  bool Act(const char* name, EAction action, int32_t channel, Body body);

  zelk::sim::CWorld& world;
  const SBounds bounds;
  std::vector<CCallGrammar> grammars;
  CCallGrammar fresh;  // of a channel without calls
  std::vector<std::string> failures;
};

}  // namespace world

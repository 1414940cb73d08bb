// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "stream/audio_controls.h"
#include "stream/media_hook.h"
#include "stream/packet_sender.h"

namespace zelk {

using Packet = std::vector<uint8_t>;

// Keeps what is sent.
class CFakeSink : public IPacketSink {
 public:
  int SendPacket(const uint8_t* packet, size_t length) override {
    sent.emplace_back(packet, packet + length);
    onSend();
    return result == kAsSent ? static_cast<int>(length) : result;
  }
  void WaitToSend(int32_t timeoutMs) override { waits.push_back(timeoutMs); }

  static constexpr int kAsSent = -2;
  int result = kAsSent;
  std::function<void()> onSend = [] {};
  std::vector<Packet> sent;
  std::vector<int32_t> waits;
};

class CFakeNotice : public IAudioNotice {
 public:
  void OnAudioNotice(const char* text) override { lines.emplace_back(text); }
  std::vector<std::string> lines;
};

enum class EMediaCall { kFillBlock, kEndsPlay, kMarkSent, kBlockReceived, kDigit };

// Plays silence and ends no play; tells of each call first.
class CIdleHook : public IMediaHook {
 public:
  void FillBlock(uint32_t, uint32_t, SBlockFill& fill) override {
    OnCall(EMediaCall::kFillBlock);
    Fill(fill, 0xD5);
  }
  bool EndsPlay(uint32_t, uint32_t) override {
    OnCall(EMediaCall::kEndsPlay);
    return false;
  }
  void OnMarkSent(uint32_t, uint32_t) override { OnCall(EMediaCall::kMarkSent); }
  bool OnBlockReceived(uint32_t, uint32_t, AudioBlock) override {
    OnCall(EMediaCall::kBlockReceived);
    return false;
  }
  void OnDigit(uint32_t, uint32_t, char) override { OnCall(EMediaCall::kDigit); }

 protected:
  virtual void OnCall(EMediaCall) {}
  static void Fill(SBlockFill& fill, uint8_t byte) {
    std::memset(fill.data, byte, kBlockBytes);
    fill.KeepQueued();
  }
};

// Writes its calls down and fills blocks with a number that counts up.
class CFakeHook : public IMediaHook {
 public:
  void FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) override {
    calls.push_back("play " + Place(trunk, timeslot));
    std::memset(fill.data, nextFill++, kBlockBytes);
    fill.KeepQueued();
  }
  bool EndsPlay(uint32_t trunk, uint32_t timeslot) override {
    calls.push_back("query " + Place(trunk, timeslot));
    return mark;
  }
  void OnMarkSent(uint32_t trunk, uint32_t timeslot) override { calls.push_back("sent " + Place(trunk, timeslot)); }
  bool OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) override {
    calls.push_back("record " + Place(trunk, timeslot) + " " + std::to_string(block[0]));
    return false;
  }
  void OnDigit(uint32_t trunk, uint32_t timeslot, char digit) override {
    calls.push_back("digit " + Place(trunk, timeslot) + " " + std::string(1, digit));
  }

  uint8_t nextFill = 1;
  bool mark = false;
  std::vector<std::string> calls;

 private:
  static std::string Place(uint32_t trunk, uint32_t timeslot) {
    return std::to_string(trunk) + "." + std::to_string(timeslot);
  }
};

}  // namespace zelk

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
class CFakeLink : public IAudioLink {
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

// Writes its calls down and fills blocks with a number that counts up.
class CFakeHook : public IMediaHook {
 public:
  void OnMedia(uint16_t trunk, uint16_t timeslot, EMediaCode code, void* data, uint32_t length) override {
    const std::string place = std::to_string(trunk) + "." + std::to_string(timeslot);
    const auto* bytes = static_cast<const uint8_t*>(data);
    if (code == MEDIA_PLAY) {
      calls.push_back("play " + place + " " + std::to_string(length));
      std::memset(data, nextFill++, length);
    } else if (code == MEDIA_PLAY_MARK && data != nullptr) {
      calls.push_back("query " + place);
      std::memcpy(data, &mark, sizeof mark);
    } else if (code == MEDIA_PLAY_MARK) {
      calls.push_back("sent " + place + " " + std::to_string(length));
    } else if (code == MEDIA_RECORD) {
      calls.push_back("record " + place + " " + std::to_string(length) + " " + std::to_string(bytes[0]));
    } else if (code == MEDIA_DTMF) {
      calls.push_back("digit " + place + " " + std::string(1, static_cast<char>(length)) +
                      (data == nullptr ? "" : " with data"));
    }
  }

  uint8_t nextFill = 1;
  uint32_t mark = 0;
  std::vector<std::string> calls;
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "bindings/support/stand_in.h"

#include <thread>

#include "bindings/support/function_table.h"

namespace {

CStandIn* current = nullptr;

std::string Quoted(const char* text) {
  return text == nullptr ? " null" : std::string(" '") + text + "'";
}

bool Noted(const std::string& call) {
  if (current->onCall) {
    current->onCall();
  }
  current->Note(call);
  return current->result;
}

bool OfChannel(const char* name, int32_t channel, const std::string& more = {}) {
  return Noted(name + (" " + std::to_string(channel)) + more);
}

void SetLibrary(table::SFunctions& to) {
  to.Init = []() -> bool {
    current->Note("Init");
    if (current->onInit) {
      current->onInit();
    }
    return current->initResult;
  };
  to.Shutdown = [] {
    current->Note("Shutdown");
    if (current->onShutdown) {
      current->onShutdown();
    }
  };
  to.GetChannelCount = [] { return CStandIn::kChannels; };
  to.SetEventCallback = [](ZelkEventCallback callback) { current->event = callback; };
  to.SetRecordCallback = [](ZelkRecordCallback callback) { current->record = callback; };
  to.SetPlayCallback = [](ZelkPlayCallback callback) { current->play = callback; };
  to.DisconnectReasonToString = [](int32_t cause) { return cause == 16 ? "NORMAL" : "REASON_UNKNOWN"; };
}

void SetInformation(table::SFunctions& to) {
  to.GetLastError = [](int32_t channel) { return OfChannel("GetLastError", channel) ? 7U : 0U; };
  to.GetChannelInfo = [](int32_t channel, uint32_t key) { return current->Number(channel, key); };
  to.GetChannelInfoString = [](int32_t channel, uint32_t key) { return current->Text(channel, key); };
  to.SetChannelInfo = [](int32_t channel, int32_t key, int32_t value) -> uint32_t {
    return OfChannel("SetChannelInfo", channel, " " + std::to_string(key) + " " + std::to_string(value)) ? 1 : 0;
  };
}

void SetCalls(table::SFunctions& to) {
  to.OpenChannel = [](int32_t channel) { return OfChannel("OpenChannel", channel); };
  to.CloseChannel = [](int32_t channel) { OfChannel("CloseChannel", channel); };
  to.Dial = [](int32_t channel, const char* number, const char* calling) {
    return OfChannel("Dial", channel, Quoted(number) + Quoted(calling));
  };
  to.Answer = [](int32_t channel) { return OfChannel("Answer", channel); };
  to.Reject = [](int32_t channel) { return OfChannel("Reject", channel); };
  to.Hangup = [](int32_t channel) { return OfChannel("Hangup", channel); };
  to.PlayBuffer = [](int32_t channel, const void*, uint32_t length) {
    return OfChannel("PlayBuffer", channel, " " + std::to_string(length));
  };
  to.PlayTimeLeft = [](int32_t channel) { return OfChannel("PlayTimeLeft", channel) ? 250U : 0U; };
  to.StopPlay = [](int32_t channel) { OfChannel("StopPlay", channel); };
}

}  // namespace

CStandIn::CStandIn() {
  current = this;
  table::Functions() = {};
  SetLibrary(table::Functions());
  SetInformation(table::Functions());
  SetCalls(table::Functions());
}

CStandIn::~CStandIn() {
  current = nullptr;
}

void CStandIn::BringEvent(int32_t channel, uint32_t code, int32_t param) const {
  if (const ZelkEventCallback callback = event) {
    callback(channel, code, param);
  }
}

void CStandIn::BringSound(uint32_t channel, uint8_t fill) const {
  BringSound(channel, std::vector<uint8_t>(ZELK_BLOCK_BYTES, fill));
}

void CStandIn::BringSound(uint32_t channel, const std::vector<uint8_t>& block) const {
  if (const ZelkRecordCallback callback = record) {
    callback(channel, block.data(), static_cast<uint32_t>(block.size()));
  }
}

std::vector<uint8_t> CStandIn::TakeSound(uint32_t channel) const {
  std::vector<uint8_t> block(ZELK_BLOCK_BYTES, 0xD5);
  if (const ZelkPlayCallback callback = play) {
    callback(channel, block.data(), ZELK_BLOCK_BYTES);
  }
  return block;
}

std::vector<std::string> CStandIn::Calls() const {
  const std::lock_guard<std::mutex> held(lock);
  return calls;
}

void CStandIn::Forget() {
  const std::lock_guard<std::mutex> held(lock);
  calls.clear();
}

void CStandIn::Note(const std::string& call) {
  const std::lock_guard<std::mutex> held(lock);
  calls.push_back(call);
}

const char* CStandIn::Text(int32_t channel, uint32_t key) {
  if (key > 50) {
    return nullptr;
  }
  std::array<char, 64>& text = texts[static_cast<size_t>(channel)];
  for (size_t i = 0; i < 10 + key; ++i) {
    text[i] = static_cast<char>('A' + key % 26);
    text[i + 1] = 0;
  }
  std::this_thread::yield();  // another thread's request, where nothing keeps it out
  return text.data();
}

uint32_t CStandIn::Number(int32_t channel, uint32_t key) {
  texts[static_cast<size_t>(channel)][0] = '?';
  return 1000 * static_cast<uint32_t>(channel) + key;
}

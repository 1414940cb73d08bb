// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "card/pri_adapter.h"
#include "platform/ipv4_address.h"

namespace zelk {

using Message = std::vector<uint8_t>;

bool StartsWith(const Message& message, const Message& head);

// The control connection from the card's side, on the system's own calls: listens on an address of its own, takes the
// library's messages apart, answers information requests and, on request, plays the network with libpri on every trunk.
// Thread: any; the card has one of its own.
class CFakeCard : public IPriWriter {
 public:
  struct SOptions {
    std::string address = "127.0.0.2";
    uint8_t trunkCount = 2;
    uint32_t serialNumber = 4711;
    bool answersInformation = true;
    bool sendsBadInformation = false;
    bool playsNetwork = false;
    bool keepsTalking = true;  // a trunk status every 50 ms once it has been started
  };

  CFakeCard() : CFakeCard(SOptions()) {}
  explicit CFakeCard(SOptions chosen);
  ~CFakeCard() override;
  CFakeCard(const CFakeCard&) = delete;
  CFakeCard& operator=(const CFakeCard&) = delete;

  bool IsReady() const { return isReady; }
  SIpv4Address Address() const;
  void Hang(bool on) { answers = !on; }

  // Bytes of the control stream, sent by the card's own thread.
  void Send(const Message& bytes);
  void ClosePeer() { closeRequested = true; }
  void ResetPeer() { resetRequested = true; }
  // Runs on the card's thread, which reads nothing meanwhile.
  void OnCard(std::function<void()> action);
  // The same with the network's controller of a trunk.
  void OnNetwork(std::function<void(CPriController&)> action, uint32_t trunk = 0);
  // For such actions: bytes of the library that have arrived and are not read, of 64 KiB at most; and whether there are
  // more than that within the time.
  void Write(const Message& bytes);
  size_t Waiting() const;
  bool WaitForMore(size_t waiting, int timeoutMs) const;

  std::vector<Message> Messages() const;
  size_t Count(const Message& head) const;
  bool WaitFor(const Message& head, size_t times = 1, int timeoutMs = 10000) const;
  bool WaitForNetworkEvent(int code, int times = 1, int timeoutMs = 10000) const;
  std::vector<SPriEvent> NetworkEvents() const;
  int Connections() const { return connections; }
  int Reads() const { return reads; }  // that brought bytes, of all connections
  bool WaitDisconnected(int timeoutMs = 10000) const;

  int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) override;

 private:
  bool WaitUntil(const std::function<bool()>& condition, int timeoutMs) const;  // looked at under the lock
  size_t CountHeld(const Message& head) const;
  void Run();
  void Accept();
  void Disconnect();
  void Read();
  size_t MessageLength() const;
  void TakeMessages();
  void Handle(const Message& message);
  void Start();
  void TakeFrame(const Message& message);
  void Note(const SPriEvent& event);
  void Work();
  void Talk();
  Message Information() const;

  const SOptions options;
  const int listener;
  bool isReady = false;
  std::atomic<bool> stopping{false};
  std::atomic<bool> answers{true};
  std::atomic<bool> closeRequested{false};
  std::atomic<bool> resetRequested{false};
  std::atomic<int> connections{0};
  std::atomic<int> reads{0};
  std::atomic<bool> isConnected{false};
  // The worker's own.
  int connection = -1;
  bool isStarted = false;
  Message stream;
  std::vector<std::unique_ptr<CPriController>> controllers;
  std::chrono::steady_clock::time_point lastTalk;
  // Shared.
  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::vector<Message> messages;
  std::vector<SPriEvent> networkEvents;
  Message outgoing;
  std::vector<std::function<void()>> actions;
  std::thread worker;
};

}  // namespace zelk

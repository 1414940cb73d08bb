#pragma once

#include <algorithm>
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

#include "native_sockets.h"
#include "pri_pair.h"

namespace zelk {

using Message = std::vector<uint8_t>;

inline bool StartsWith(const Message& message, const Message& head) {
  return message.size() >= head.size() && std::equal(head.begin(), head.end(), message.begin());
}

inline sockaddr_in SystemAddress(const std::string& address, uint16_t port) {
  sockaddr_in system{};
  system.sin_family = AF_INET;
  system.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &system.sin_addr);
  return system;
}

// The control connection from the card's side, on the system's own calls: listens on an address of its own, takes the
// library's messages apart, answers information requests and, on request, plays the network with libpri on every trunk.
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
  explicit CFakeCard(SOptions chosen) : options(std::move(chosen)), listener(socket(AF_INET, SOCK_STREAM, 0)) {
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in local = SystemAddress(options.address, 5854);
    isReady = bind(listener, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 && listen(listener, 8) == 0;
    worker = std::thread([this] { Run(); });
  }
  ~CFakeCard() override {
    stopping = true;
    worker.join();
    controllers.clear();
    Disconnect();
    CloseSocket(listener);
  }
  CFakeCard(const CFakeCard&) = delete;
  CFakeCard& operator=(const CFakeCard&) = delete;

  bool IsReady() const { return isReady; }
  const char* Address() const { return options.address.c_str(); }
  void SetTalking(bool on) { talking = on; }
  void Hang(bool on) { answers = !on; }

  // Bytes of the control stream, sent by the card's own thread.
  void Send(const Message& bytes) {
    const std::lock_guard<std::mutex> held(lock);
    outgoing.insert(outgoing.end(), bytes.begin(), bytes.end());
  }
  void ClosePeer() { closeRequested = true; }
  void ResetPeer() { resetRequested = true; }
  // Runs on the card's thread, with the network's controller of a trunk.
  void OnNetwork(std::function<void(CPriController&)> action, uint32_t trunk = 0) {
    const std::lock_guard<std::mutex> held(lock);
    actions.push_back([this, action = std::move(action), trunk] {
      if (trunk < controllers.size()) {
        action(*controllers[trunk]);
      }
    });
  }

  std::vector<Message> Messages() const {
    const std::lock_guard<std::mutex> held(lock);
    return messages;
  }
  size_t Count(const Message& head) const {
    const std::vector<Message> all = Messages();
    return static_cast<size_t>(
        std::count_if(all.begin(), all.end(), [&](const Message& message) { return StartsWith(message, head); }));
  }
  bool WaitFor(const Message& head, size_t times = 1, int timeoutMs = 10000) const {
    return WaitUntil([&] { return Count(head) >= times; }, timeoutMs);
  }
  bool WaitForNetworkEvent(int code, int times = 1, int timeoutMs = 10000) const {
    const auto isMet = [&] {
      return std::count_if(networkEvents.begin(), networkEvents.end(),
                           [&](const SPriEvent& event) { return event.code == code; }) >= times;
    };
    return WaitUntil(isMet, timeoutMs, true);
  }
  std::vector<SPriEvent> NetworkEvents() const {
    const std::lock_guard<std::mutex> held(lock);
    return networkEvents;
  }
  int Connections() const { return connections; }
  bool WaitDisconnected(int timeoutMs = 10000) const {
    return WaitUntil([this] { return !isConnected; }, timeoutMs);
  }

  int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) override {
    Message message{0xFF, 0x10, static_cast<uint8_t>(trunk + 1), static_cast<uint8_t>(length),
                    static_cast<uint8_t>(length >> 8)};
    message.insert(message.end(), frame, frame + length);
    Write(message);
    return static_cast<int>(length);
  }

 private:
  bool WaitUntil(const std::function<bool()>& condition, int timeoutMs, bool underLock = false) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::mutex> held(lock);
    while (true) {
      if (!underLock) {
        held.unlock();
      }
      const bool isMet = condition();
      if (!underLock) {
        held.lock();
      }
      if (isMet || std::chrono::steady_clock::now() >= end) {
        return isMet;
      }
      changed.wait_for(held, std::chrono::milliseconds(20));
    }
  }

  void Run() {
    while (!stopping) {
      pollfd polled[2] = {{listener, POLLIN, 0}, {connection, POLLIN, 0}};
      poll(polled, connection >= 0 ? 2 : 1, 10);
      if (polled[0].revents != 0) {
        Accept();
      } else if (connection >= 0 && polled[1].revents != 0) {
        Read();
      }
      Work();
    }
  }

  void Accept() {
    Disconnect();
    connection = accept(listener, nullptr, nullptr);
    stream.clear();
    isStarted = false;
    isConnected = true;
    ++connections;
  }

  void Disconnect() {
    controllers.clear();
    if (connection >= 0) {
      CloseSocket(connection);
      connection = -1;
      isConnected = false;
    }
  }

  void Write(const Message& bytes) {
    if (connection >= 0 && !bytes.empty()) {
      (void)!send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
  }

  void Read() {
    uint8_t buffer[4096];
    const ssize_t received = recv(connection, buffer, sizeof buffer, 0);
    if (received <= 0) {
      Disconnect();
      return;
    }
    stream.insert(stream.end(), buffer, buffer + received);
    TakeMessages();
  }

  // Lengths of the library's messages by type; the stream is expected to hold nothing else.
  size_t MessageLength() const {
    if (stream.size() < 2) {
      return 0;
    }
    switch (stream[1]) {
      case 0x02:
        return 6;
      case 0x05:
        return 5;
      case 0x10:
        return stream.size() < 5 ? 0 : static_cast<size_t>(stream[3] | stream[4] << 8) + 6;
      case 0x12:
        return 9;
      default:
        return 2;
    }
  }

  void TakeMessages() {
    for (size_t length = MessageLength(); length != 0 && stream.size() >= length; length = MessageLength()) {
      const Message message(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(length));
      stream.erase(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(length));
      {
        // Kept before it is handled: who waits for what follows from it may look for it here.
        const std::lock_guard<std::mutex> held(lock);
        messages.push_back(message);
      }
      Handle(message);
      changed.notify_all();
    }
  }

  void Handle(const Message& message) {
    if (message[1] == 0x01 && options.answersInformation && answers) {
      Write(Information());
    } else if (message[1] == 0x04) {
      Start();
    } else if (message[1] == 0x10) {
      TakeFrame(message);
    }
  }

  void Start() {
    isStarted = true;
    if (options.playsNetwork) {
      for (uint32_t trunk = 0; trunk < options.trunkCount; ++trunk) {
        controllers.push_back(CPriController::Create(*this, trunk, 1, 5));
      }
    }
  }

  void TakeFrame(const Message& message) {
    const uint32_t trunk = message[2] - 1U;
    if (trunk >= controllers.size()) {
      return;
    }
    Message frame(message.begin() + 5, message.end() - 1);
    frame.insert(frame.end(), 2, 0);
    SPriEvent event;
    if (controllers[trunk]->Receive(frame.data(), frame.size(), event)) {
      Note(event);
    }
  }

  void Note(const SPriEvent& event) {
    const std::lock_guard<std::mutex> held(lock);
    networkEvents.push_back(event);
    changed.notify_all();
  }

  void Work() {
    std::vector<std::function<void()>> due;
    Message bytes;
    {
      const std::lock_guard<std::mutex> held(lock);
      due.swap(actions);
      bytes.swap(outgoing);
    }
    Write(bytes);
    for (const auto& action : due) {
      action();
    }
    for (const auto& controller : controllers) {
      SPriEvent event;
      if (controller->RunTimers(event)) {
        Note(event);
      }
    }
    Talk();
    if (resetRequested.exchange(false)) {
      const linger none{1, 0};
      setsockopt(connection, SOL_SOCKET, SO_LINGER, &none, sizeof none);
      Disconnect();
    }
    // The end of the stream; what still comes is read, so that no reset follows it.
    if (closeRequested.exchange(false)) {
      isStarted = false;
      controllers.clear();
      shutdown(connection, SHUT_WR);
    }
  }

  void Talk() {
    const auto now = std::chrono::steady_clock::now();
    if (isStarted && talking && options.keepsTalking && now - lastTalk >= std::chrono::milliseconds(50)) {
      lastTalk = now;
      Message status{0xFF, 0x07};
      status.insert(status.end(), options.trunkCount, 0);
      Write(status);
    }
  }

  Message Information() const {
    Message body{0xFF, 0x01, 'Z', 'E', 'L', 'K', ' ', 3, options.trunkCount, 0xEF, 0xBE, 0xAD, 0xDE};
    for (int shift = 0; shift < 32; shift += 8) {
      body.push_back(static_cast<uint8_t>(options.serialNumber >> shift));
    }
    for (const int part : {20, 24, 11, 30, 13, 5, 9}) {
      body.push_back(static_cast<uint8_t>(part));
    }
    if (options.sendsBadInformation) {
      body[2] = 'X';
    }
    return body;
  }

  const SOptions options;
  const int listener;
  bool isReady = false;
  std::atomic<bool> stopping{false};
  std::atomic<bool> talking{true};
  std::atomic<bool> answers{true};
  std::atomic<bool> closeRequested{false};
  std::atomic<bool> resetRequested{false};
  std::atomic<int> connections{0};
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

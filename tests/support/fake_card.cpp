// SPDX-License-Identifier: GPL-2.0-only
#include "support/fake_card.h"

#include <algorithm>

#include "runtime/q931_types.h"
#include "support/addresses.h"
#include "support/system_address.h"

namespace zelk {

bool StartsWith(const Message& message, const Message& head) {
  return message.size() >= head.size() && std::equal(head.begin(), head.end(), message.begin());
}

CFakeCard::CFakeCard(SOptions chosen) : options(std::move(chosen)), listener(socket(AF_INET, SOCK_STREAM, 0)) {
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in local = SystemAddress(options.address, 5854);
  isReady = bind(listener, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 && listen(listener, 8) == 0;
  worker = std::thread([this] { Run(); });
}

CFakeCard::~CFakeCard() {
  stopping = true;
  worker.join();
  controllers.clear();
  Disconnect();
  CloseSocket(listener);
}

SIpv4Address CFakeCard::Address() const {
  return zelk::Address(options.address);
}

void CFakeCard::Send(const Message& bytes) {
  const std::lock_guard<std::mutex> held(lock);
  outgoing.insert(outgoing.end(), bytes.begin(), bytes.end());
}

void CFakeCard::OnCard(std::function<void()> action) {
  const std::lock_guard<std::mutex> held(lock);
  actions.push_back(std::move(action));
}

size_t CFakeCard::Waiting() const {
  pollfd polled{connection, POLLIN, 0};
  if (poll(&polled, 1, 0) <= 0) {
    return 0;
  }
  std::vector<char> bytes(65536);
  return static_cast<size_t>(std::max<long>(recv(connection, bytes.data(), bytes.size(), MSG_PEEK), 0));
}

bool CFakeCard::WaitForMore(size_t waiting, int timeoutMs) const {
  pollfd polled{connection, POLLIN, 0};
  const auto letPollEndAt = [this](size_t bytes) {
    const int mark = static_cast<int>(bytes);
    setsockopt(connection, SOL_SOCKET, SO_RCVLOWAT, &mark, sizeof mark);
  };
  letPollEndAt(waiting + 1);
  const bool hasCome = poll(&polled, 1, timeoutMs) > 0;
  letPollEndAt(1);
  return hasCome;
}

void CFakeCard::OnNetwork(std::function<void(CPriController&)> action, uint32_t trunk) {
  OnCard([this, action = std::move(action), trunk] {
    if (trunk < controllers.size()) {
      action(*controllers[trunk]);
    }
  });
}

std::vector<Message> CFakeCard::Messages() const {
  const std::lock_guard<std::mutex> held(lock);
  return messages;
}

size_t CFakeCard::Count(const Message& head) const {
  const std::lock_guard<std::mutex> held(lock);
  return CountHeld(head);
}

size_t CFakeCard::CountHeld(const Message& head) const {
  return static_cast<size_t>(std::count_if(messages.begin(), messages.end(),
                                           [&](const Message& message) { return StartsWith(message, head); }));
}

bool CFakeCard::WaitUntil(const std::function<bool()>& condition, int timeoutMs) const {
  std::unique_lock<std::mutex> held(lock);
  return changed.wait_for(held, std::chrono::milliseconds(timeoutMs), condition);
}

bool CFakeCard::WaitFor(const Message& head, size_t times, int timeoutMs) const {
  return WaitUntil([&] { return CountHeld(head) >= times; }, timeoutMs);
}

bool CFakeCard::WaitForNetworkEvent(int code, int times, int timeoutMs) const {
  const auto isWanted = [code](const SPriEvent& event) { return event.code == code; };
  return WaitUntil([&] { return std::count_if(networkEvents.begin(), networkEvents.end(), isWanted) >= times; },
                   timeoutMs);
}

std::vector<SPriEvent> CFakeCard::NetworkEvents() const {
  const std::lock_guard<std::mutex> held(lock);
  return networkEvents;
}

bool CFakeCard::WaitDisconnected(int timeoutMs) const {
  return WaitUntil([this] { return !isConnected; }, timeoutMs);
}

int CFakeCard::OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) {
  Message message{0xFF, 0x10, static_cast<uint8_t>(trunk + 1), static_cast<uint8_t>(length),
                  static_cast<uint8_t>(length >> 8)};
  message.insert(message.end(), frame, frame + length);
  Write(message);
  return static_cast<int>(length);
}

void CFakeCard::Run() {
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

void CFakeCard::Accept() {
  Disconnect();
  connection = accept(listener, nullptr, nullptr);
  const int on = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  stream.clear();
  isStarted = false;
  isConnected = true;
  ++connections;
}

void CFakeCard::Disconnect() {
  controllers.clear();
  if (connection >= 0) {
    CloseSocket(connection);
    connection = -1;
    const std::lock_guard<std::mutex> held(lock);
    isConnected = false;
    changed.notify_all();
  }
}

void CFakeCard::Write(const Message& bytes) {
  if (connection >= 0 && !bytes.empty()) {
    (void)!send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
}

void CFakeCard::Read() {
  uint8_t buffer[4096];
  const ssize_t received = recv(connection, buffer, sizeof buffer, 0);
  if (received <= 0) {
    Disconnect();
    return;
  }
  ++reads;
  stream.insert(stream.end(), buffer, buffer + received);
  TakeMessages();
}

// Lengths of the library's messages by type; the stream is expected to hold nothing else.
size_t CFakeCard::MessageLength() const {
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

void CFakeCard::TakeMessages() {
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

void CFakeCard::Handle(const Message& message) {
  if (message[1] == 0x01 && options.answersInformation && answers) {
    Write(Information());
  } else if (message[1] == 0x04) {
    Start();
  } else if (message[1] == 0x10) {
    TakeFrame(message);
  }
}

void CFakeCard::Start() {
  isStarted = true;
  if (options.playsNetwork) {
    for (uint32_t trunk = 0; trunk < options.trunkCount; ++trunk) {
      controllers.push_back(CPriController::Create(*this, trunk, kNetworkSide, kEuroIsdnE1));
    }
  }
}

void CFakeCard::TakeFrame(const Message& message) {
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

void CFakeCard::Note(const SPriEvent& event) {
  const std::lock_guard<std::mutex> held(lock);
  networkEvents.push_back(event);
  changed.notify_all();
}

void CFakeCard::Work() {
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

void CFakeCard::Talk() {
  const auto now = std::chrono::steady_clock::now();
  if (isStarted && options.keepsTalking && now - lastTalk >= std::chrono::milliseconds(50)) {
    lastTalk = now;
    Message status{0xFF, 0x07};
    status.insert(status.end(), options.trunkCount, 0);
    Write(status);
  }
}

Message CFakeCard::Information() const {
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

}  // namespace zelk

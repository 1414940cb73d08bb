// SPDX-License-Identifier: GPL-2.0-only
#include "mini_library.h"

namespace cardsim::test {

CMiniLibrary::CMiniLibrary(const std::string& card, int trunkCount)
    : trunks(trunkCount),
      cardAddress(asio::ip::make_address_v4(card)),
      peer(
          SPeerRole{true, 5}, [this](ByteView frame) { SendFrame(frame); },
          [this](const SPriEvent& event) { OnEvent(event); }) {
  control.connect({cardAddress, kCardPort});
  audio.open(asio::ip::udp::v4());
  audio.bind({asio::ip::make_address_v4("127.0.0.1"), 0});
  ReadControl();
  ReadAudio();
  Tick();
}

CMiniLibrary::~CMiniLibrary() {
  io.stop();
  if (thread.joinable()) {
    thread.join();
  }
}

void CMiniLibrary::Run() {
  thread = std::thread([this] { io.run(); });
}

void CMiniLibrary::SetUp() {
  Write({0xFF, 0x01});
  Write({0xFF, 0x04});
  Write({0xFF, 0x12, 0x01, 0x01, 0x00, 0, 0, 0, 0});
  const std::uint16_t port = audio.local_endpoint().port();
  Write({0xFF, 0x05, static_cast<std::uint8_t>(port & 0xFF), static_cast<std::uint8_t>(port >> 8), 0xFF});
  Run();
  asio::post(io, [this] { peer.Start(); });
}

void CMiniLibrary::Dial(int timeslot, const std::string& number) {
  asio::post(io, [this, timeslot, number] { dialled = peer.Setup({timeslot, true, "700", number, 0x21, "", 0}); });
}

void CMiniLibrary::Hangup(int cause) {
  asio::post(io, [this, cause] { peer.Hangup(dialled, cause); });
}

bool CMiniLibrary::WaitEvent(int code, std::chrono::milliseconds timeout, int count) {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [&] { return counts[code] >= count; });
}

SPriEvent CMiniLibrary::Event(int code) {
  const std::lock_guard guard(lock);
  return events.at(code);
}

Bytes CMiniLibrary::Received() {
  const std::lock_guard guard(lock);
  return received;
}

bool CMiniLibrary::WaitReceived(std::size_t bytes, std::chrono::milliseconds timeout) {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [&] { return received.size() >= bytes; });
}

bool CMiniLibrary::WaitClosed(std::chrono::milliseconds timeout) {
  std::unique_lock guard(lock);
  return changed.wait_for(guard, timeout, [&] { return closed; });
}

void CMiniLibrary::ReadControl() {
  control.async_read_some(asio::buffer(controlBuffer), [this](const asio::error_code& error, std::size_t bytes) {
    {
      const std::lock_guard guard(lock);
      received.insert(received.end(), controlBuffer.begin(),
                      controlBuffer.begin() + static_cast<std::ptrdiff_t>(bytes));
      closed = closed || static_cast<bool>(error);
    }
    changed.notify_all();
    if (!error) {
      stream.insert(stream.end(), controlBuffer.begin(), controlBuffer.begin() + static_cast<std::ptrdiff_t>(bytes));
      TakeMessages();
      ReadControl();
    }
  });
}

void CMiniLibrary::TakeMessages() {
  while (stream.size() >= 2) {
    const std::map<int, std::size_t> sizes{
        {0x01, 24}, {0x07, 2U + static_cast<std::size_t>(trunks)}, {0x11, 4}, {0x02, 6}};
    std::size_t size = 0;
    if (stream[1] == 0x10) {
      if (stream.size() < 5) {
        return;
      }
      size = 5U + ReadLe16(&stream[3]);
    } else {
      size = sizes.at(stream[1]);
    }
    if (stream.size() < size) {
      return;
    }
    if (stream[1] == 0x10) {
      peer.Receive(ByteView(stream).subspan(5, size - 7));
    }
    stream.erase(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size));
  }
}

void CMiniLibrary::SendFrame(ByteView frame) {
  Bytes out{0xFF, 0x10, 0x01, static_cast<std::uint8_t>(frame.size()), static_cast<std::uint8_t>(frame.size() >> 8)};
  out.insert(out.end(), frame.begin(), frame.end());
  out.push_back(0xFF);
  asio::error_code ignored;
  asio::write(control, asio::buffer(out), ignored);
}

void CMiniLibrary::ReadAudio() {
  audio.async_receive_from(asio::buffer(audioBuffer), from, [this](const asio::error_code& error, std::size_t bytes) {
    if (error) {
      return;
    }
    ++packets;
    const bool firstPacket = previous.empty();
    Bytes now(audioBuffer.begin(), audioBuffer.begin() + static_cast<std::ptrdiff_t>(bytes));
    if (!firstPacket && replyToAudio) {
      WriteAudioHeader(previous.data(), counter++, 0);
      asio::error_code ignored;
      audio.send_to(asio::buffer(previous), {cardAddress, kCardPort}, 0, ignored);
    }
    previous = std::move(now);
    ReadAudio();
  });
}

void CMiniLibrary::Tick() {
  timer.expires_after(10ms);
  timer.async_wait([this](const asio::error_code& error) {
    if (!error) {
      peer.RunTimers();
      Tick();
    }
  });
}

void CMiniLibrary::OnEvent(const SPriEvent& event) {
  if (event.code == kRing && refuseCause != 0) {
    peer.Proceeding(event.call, event.timeslot);
    peer.Hangup(event.call, refuseCause);
  } else if (event.code == kRing) {
    peer.Proceeding(event.call, event.timeslot);
    peer.Alerting(event.call, event.timeslot);
    peer.Connect(event.call, event.timeslot);
  } else if (event.code == kAnswer) {
    peer.ConnectAcknowledge(event.call);
  } else if (event.code == kHangup || event.code == kHangupReq) {
    peer.Hangup(event.call, event.cause);
  }
  {
    const std::lock_guard guard(lock);
    events[event.code] = event;
    ++counts[event.code];
  }
  changed.notify_all();
}

}  // namespace cardsim::test

// SPDX-License-Identifier: GPL-2.0-only
#include "load/audio_side.h"

#include <array>
#include <cstring>

namespace load {

namespace {

constexpr size_t kAtOnce = 16;
constexpr int kSocketBytes = 4 << 20;  // the card must not be who loses

// The system's own time of arrival: when this thread gets round to it does not matter.
int64_t ArrivalOf(msghdr& message) {
  for (cmsghdr* each = CMSG_FIRSTHDR(&message); each != nullptr; each = CMSG_NXTHDR(&message, each)) {
    if (each->cmsg_level == SOL_SOCKET && each->cmsg_type == SCM_TIMESTAMPNS) {
      timespec time{};
      std::memcpy(&time, CMSG_DATA(each), sizeof time);
      return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
    }
  }
  return NowNs(CLOCK_REALTIME);
}

}  // namespace

CAudioLine::CAudioLine(const SOptions& lineOptions, std::unique_ptr<ILineSound> lineSound)
    : options(lineOptions),
      packetBytes(kHeaderBytes + FramesOf(options.trunks) * options.trunks * kTimeslots),
      intervalNs(static_cast<int64_t>(FramesOf(options.trunks)) * 125000),
      descriptor(OpenSocket(SOCK_DGRAM, options.address, kCardPort)),
      sound(std::move(lineSound)),
      replySound(options.trunks, options.firstChannel) {
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
  setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &kSocketBytes, sizeof kSocketBytes);
}

void CAudioLine::SetTarget(const std::string& address, uint16_t port) {
  target = zelk::SystemAddress(address, port);
}

void CAudioLine::Send() {
  std::array<uint8_t, kLongestPacket> packet;
  WriteHeader(packet.data(), static_cast<uint32_t>(sent.size() + 1));
  sound->Write(sent.size(), packet.data() + kHeaderBytes);
  sent.push_back({NowNs(CLOCK_REALTIME), false});
  sendto(descriptor, packet.data(), packetBytes, 0, reinterpret_cast<const sockaddr*>(&target), sizeof target);
  due += intervalNs;
}

void CAudioLine::TakeReplies() {
  std::array<std::array<uint8_t, 2048>, kAtOnce> packets;
  std::array<std::array<char, CMSG_SPACE(sizeof(timespec))>, kAtOnce> controls;
  std::array<iovec, kAtOnce> places;
  std::array<mmsghdr, kAtOnce> messages{};
  for (size_t i = 0; i < kAtOnce; ++i) {
    places[i] = {packets[i].data(), packets[i].size()};
    messages[i].msg_hdr.msg_iov = &places[i];
    messages[i].msg_hdr.msg_iovlen = 1;
    messages[i].msg_hdr.msg_control = controls[i].data();
    messages[i].msg_hdr.msg_controllen = controls[i].size();
  }
  const int received = recvmmsg(descriptor, messages.data(), kAtOnce, MSG_DONTWAIT, nullptr);
  for (int i = 0; i < received; ++i) {
    const auto at = static_cast<size_t>(i);
    Take(packets[at].data(), messages[at].msg_len, ArrivalOf(messages[at].msg_hdr));
  }
}

void CAudioLine::Take(const uint8_t* packet, size_t length, int64_t arrived) {
  const uint32_t reply = SequenceOf(packet);
  const size_t index = size_t{reply} + (options.answersFirst ? 0 : 1);
  if (length != packetBytes || index >= sent.size()) {
    ++exchange.unexpected;
    return;
  }
  if (sent[index].isAnswered) {
    ++exchange.repeated;
    return;
  }
  sent[index].isAnswered = true;
  if (IsInWindow(index)) {
    exchange.delays.push_back(arrived - sent[index].at);
  }
  if (options.checksSound) {
    replySound.Take(reply, packet + kHeaderBytes);
  }
}

void CAudioLine::Begin() {
  exchange = SExchange();
  beginOfWindow = sent.size();
}

const SExchange& CAudioLine::Exchange() {
  exchange.sent = endOfWindow - beginOfWindow;
  exchange.answered = exchange.delays.size();
  return exchange;
}

}  // namespace load

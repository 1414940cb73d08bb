// SPDX-License-Identifier: GPL-2.0-only
#include "node/asks.h"

#include <cstdlib>
#include <vector>

namespace node {

namespace {

constexpr int kNoResponders = 503;

}  // namespace

void CAsks::Ask(const std::string& subject, const std::string& data, Handler handler, const fleet::Headers& headers,
                std::chrono::milliseconds limit) {
  const uint64_t number = ++last;
  if (link.IsConnected()) {
    link.Publish(subject, data, inbox + "." + std::to_string(number), headers);
  }
  open[number] = {std::move(handler), Clock::now() + limit};
}

void CAsks::After(std::chrono::milliseconds time, std::function<void()> what) {
  open[++last] = {[what = std::move(what)](const SReply& /*reply*/) { what(); }, Clock::now() + time};
}

void CAsks::Take(const fleet::SMail& mail) {
  const size_t dot = mail.subject.rfind('.');
  if (dot != std::string::npos) {
    const uint64_t number = std::strtoull(mail.subject.c_str() + dot + 1, nullptr, 10);
    // Who asks JetStream while its leader is elected hears that nobody listens: time will tell.
    Answer(number, {mail.status != kNoResponders, mail.data});
  }
}

void CAsks::Answer(uint64_t number, const SReply& reply) {
  const auto found = open.find(number);
  if (found != open.end()) {
    const Handler handler = std::move(found->second.handler);
    open.erase(found);
    handler(reply);
  }
}

void CAsks::Turn(Clock::time_point now) {
  std::vector<uint64_t> due;
  for (const auto& [number, each] : open) {
    if (each.deadline <= now) {
      due.push_back(number);
    }
  }
  for (const uint64_t number : due) {
    Answer(number, {});
  }
}

}  // namespace node

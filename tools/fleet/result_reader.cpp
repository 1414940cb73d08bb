// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/result_reader.h"

#include <algorithm>

#include "fleet/delivery.h"
#include "phone/json_line.h"

namespace fleet {

namespace {

using phone::Json;

constexpr size_t kMostOpen = 200;
constexpr std::chrono::seconds kAgain{2};
constexpr std::chrono::seconds kPatience{30};

}  // namespace

CResultReader::CResultReader(CLink& toLink, const SLinkOptions& options, const SNames& fleetNames)
    : link(toLink), names(fleetNames), inbox(CLink::NewInbox(options)) {
  Check(natsConnection_SubscribeSync(&answers, link.Raw(), (inbox + ".*").c_str()), "an inbox");
}

uint64_t CResultReader::LastNumber() {
  constexpr jsErrCode kNoStream = JSStreamNotFoundErr;
  const auto end = Clock::now() + kPatience;
  while (true) {
    jsStreamInfo* info = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetStreamInfo(&info, link.JetStream(), names.results.c_str(), nullptr, &code);
    if (status == NATS_OK) {
      next = std::max(next, info->State.FirstSeq);
      const uint64_t last = info->State.LastSeq;
      jsStreamInfo_Destroy(info);
      return last;
    }
    // While the servers elect a leader there is no answer.
    if (code == kNoStream || Clock::now() > end) {
      Check(status, "no stream " + names.results + " (made by zelk-fleet init)");
    }
  }
}

void CResultReader::Ask(uint64_t number) {
  link.Publish("$JS.API.STREAM.MSG.GET." + names.results, Json{{"seq", number}}.dump(),
               inbox + "." + std::to_string(number));
  open[number] = Clock::now() + kAgain;
}

void CResultReader::AskAgain() {
  const auto now = Clock::now();
  if (now - lastAnswer > kPatience) {
    throw CLinkError("the servers do not answer");
  }
  for (const auto& [number, due] : std::map(open)) {
    if (now >= due) {
      Ask(number);
    }
  }
}

void CResultReader::TakeAnswer() {
  natsMsg* message = nullptr;
  if (natsSubscription_NextMsg(&message, answers, 100) != NATS_OK) {
    AskAgain();
    return;
  }
  const std::string subject = natsMsg_GetSubject(message);
  const std::string data(natsMsg_GetData(message), static_cast<size_t>(natsMsg_GetDataLength(message)));
  natsMsg_Destroy(message);
  const uint64_t number = std::stoull(subject.substr(subject.rfind('.') + 1));
  const Json answer = Json::parse(data, nullptr, false);
  const bool isThere = answer.is_object() && answer.contains("message");
  constexpr int kNoMessage = 10037;
  const bool isPast =
      answer.is_object() && answer.contains("error") && answer["error"].value("err_code", 0) == kNoMessage;
  if ((isThere || isPast) && open.erase(number) > 0) {
    lastAnswer = Clock::now();
    come[number] = isThere ? FromBase64(answer["message"].value("data", std::string())).value_or("") : "";
  }
}

void CResultReader::ReadNew(const std::function<void(const std::string& result)>& take) {
  const uint64_t last = LastNumber();
  uint64_t toAsk = next;
  lastAnswer = Clock::now();
  while (next <= last) {
    while (toAsk <= last && open.size() < kMostOpen) {
      Ask(toAsk++);
    }
    TakeAnswer();
    for (auto first = come.find(next); first != come.end(); first = come.find(next)) {
      if (!first->second.empty()) {
        take(first->second);
      }
      come.erase(first);
      ++next;
    }
  }
}

}  // namespace fleet

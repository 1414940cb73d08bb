// SPDX-License-Identifier: GPL-2.0-only
#include <chrono>
#include <cstdio>
#include <deque>
#include <map>

#include "fleet/commands.h"
#include "fleet/delivery.h"
#include "fleet/node_list.h"

namespace fleet {

namespace {

using Clock = std::chrono::steady_clock;

// Counts results as they come, those that are there already first.
class CCount {
 public:
  CCount(CLink& link, const SNames& names) {
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Ordered = true;
    options.Stream = names.results.c_str();
    jsErrCode code{};
    Check(js_SubscribeSync(&results, link.JetStream(), names.Result(">").c_str(), nullptr, &options, &code),
          "no stream " + names.results + " (made by zelk-fleet init)");
  }
  ~CCount() { natsSubscription_Destroy(results); }
  CCount(const CCount&) = delete;
  CCount& operator=(const CCount&) = delete;

  // Until the time is over; or, before that, until the last result that was there at the beginning.
  void Read(Clock::time_point until, uint64_t upTo) {
    for (auto now = Clock::now(); now < until && (upTo == 0 || sequence < upTo); now = Clock::now()) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - now).count() + 1;
      natsMsg* message = nullptr;
      if (natsSubscription_NextMsg(&message, results, left) == NATS_OK) {
        Take(message);
        natsMsg_Destroy(message);
      }
    }
  }

  uint64_t all = 0;
  std::map<std::string, uint64_t> byOutcome;
  std::map<std::string, uint64_t> byNode;

 private:
  void Take(natsMsg* message) {
    const char* reply = natsMsg_GetReply(message);
    sequence = ParseDelivery(reply == nullptr ? "" : reply).value_or(SDelivery{}).sequence;
    const std::string text(natsMsg_GetData(message), static_cast<size_t>(natsMsg_GetDataLength(message)));
    const Json result = Json::parse(text, nullptr, false);
    if (result.is_object()) {
      ++all;
      ++byOutcome[result.value("outcome", std::string())];
      ++byNode[result.value("node", std::string())];
    }
  }

  natsSubscription* results = nullptr;
  uint64_t sequence = 0;
};

uint64_t LastResult(jsCtx* js, const SNames& names) {
  jsStreamInfo* info = nullptr;
  jsErrCode code{};
  Check(js_GetStreamInfo(&info, js, names.results.c_str(), nullptr, &code), "the results");
  const uint64_t last = info->State.Msgs == 0 ? 0 : info->State.LastSeq;
  jsStreamInfo_Destroy(info);
  return last;
}

Json Standing(CLink& link, const SNames& names, const CCount& count, double perSecond) {
  Json line = {
      {"done", count.all}, {"doneEachSecond", perSecond}, {"byOutcome", count.byOutcome}, {"byNode", count.byNode}};
  jsConsumerInfo* jobs = nullptr;
  jsErrCode code{};
  if (js_GetConsumerInfo(&jobs, link.JetStream(), names.jobs.c_str(), kConsumer, nullptr, &code) == NATS_OK) {
    line["waiting"] = jobs->NumPending;
    line["running"] = jobs->NumAckPending;
    jsConsumerInfo_Destroy(jobs);
  }
  return line;
}

void Print(const Json& line, bool asJson) {
  if (asJson) {
    std::printf("%s\n", line.dump().c_str());
  } else {
    std::string text = "waiting " + line.value("waiting", Json("?")).dump() + ", running " +
                       line.value("running", Json("?")).dump() + ", done " + line["done"].dump() + ":";
    for (const auto& [outcome, number] : line["byOutcome"].items()) {
      text += " " + outcome + " " + number.dump();
    }
    for (const auto& [node, number] : line["byNode"].items()) {
      text += ", " + node + " " + number.dump();
    }
    std::printf("%s, %.1f a second\n", text.c_str(), line["doneEachSecond"].get<double>());
  }
  std::fflush(stdout);
}

}  // namespace

int RunWatch(const SLinkOptions& link, const SNames& names, bool asJson, bool isOnce) {
  constexpr std::chrono::seconds kEvery{1};
  constexpr std::chrono::seconds kPatience{60};
  CLink connection(link, [](SMail&& /*mail*/) {});
  CCount count(connection, names);
  const uint64_t last = LastResult(connection.JetStream(), names);
  if (last > 0) {
    count.Read(Clock::now() + kPatience, last);
  }
  Print(Standing(connection, names, count, 0), asJson);
  while (!isOnce && std::ferror(stdout) == 0) {
    const uint64_t before = count.all;
    const auto began = Clock::now();
    count.Read(began + kEvery, 0);
    const std::chrono::duration<double> span = Clock::now() - began;
    Print(Standing(connection, names, count, static_cast<double>(count.all - before) / span.count()), asJson);
  }
  return 0;
}

}  // namespace fleet

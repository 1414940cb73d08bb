// SPDX-License-Identifier: GPL-2.0-only
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <thread>

#include "fleet/commands.h"
#include "fleet/node_list.h"
#include "fleet/result_reader.h"

namespace fleet {

namespace {

struct SCount {
  uint64_t all = 0;
  std::map<std::string, uint64_t> byOutcome;
  std::map<std::string, uint64_t> byNode;

  void Take(const std::string& text) {
    const Json result = Json::parse(text, nullptr, false);
    if (result.is_object()) {
      ++all;
      ++byOutcome[result.value("outcome", std::string())];
      ++byNode[result.value("node", std::string())];
    }
  }
};

Json Standing(CLink& link, const SNames& names, const SCount& count, double perSecond) {
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
  using Clock = std::chrono::steady_clock;
  CLink connection(link, [](SMail&& /*mail*/) {});
  CResultReader reader(connection, link, names);
  SCount count;
  const auto take = [&count](const std::string& text) { count.Take(text); };
  reader.ReadNew(take);
  Print(Standing(connection, names, count, 0), asJson);
  while (!isOnce && std::ferror(stdout) == 0) {
    const uint64_t before = count.all;
    const auto began = Clock::now();
    std::this_thread::sleep_for(kEvery);
    reader.ReadNew(take);
    const std::chrono::duration<double> span = Clock::now() - began;
    Print(Standing(connection, names, count, static_cast<double>(count.all - before) / span.count()), asJson);
  }
  return 0;
}

}  // namespace fleet

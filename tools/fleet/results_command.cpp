// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>

#include "fleet/commands.h"
#include "fleet/delivery.h"
#include "fleet/job.h"

namespace fleet {

namespace {

constexpr const char* kColumns[] = {"id",   "to",      "outcome", "cause",     "causeName", "attempt",
                                    "node", "channel", "digits",  "recording", "message"};
constexpr const char* kTimes[] = {"taken", "dialled", "proceeding", "alerting", "connected", "played", "ended"};

std::string Cell(const Json& object, const char* name) {
  const auto member = object.find(name);
  if (member == object.end() || member->is_null()) {
    return "";
  }
  const std::string text = member->is_string() ? member->get<std::string>() : member->dump();
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    return text;
  }
  std::string quoted = "\"";
  for (const char byte : text) {
    quoted += byte == '"' ? "\"\"" : std::string(1, byte);
  }
  return quoted + "\"";
}

void PrintHead() {
  std::string line;
  for (const char* name : kColumns) {
    line += (line.empty() ? "" : ",") + std::string(name);
  }
  for (const char* name : kTimes) {
    line += std::string(",") + name;
  }
  std::printf("%s\n", line.c_str());
}

void PrintRow(const std::string& text) {
  const Json result = Json::parse(text, nullptr, false);
  std::string line;
  bool isFirst = true;
  for (const char* name : kColumns) {
    line += (isFirst ? "" : ",") + Cell(result, name);
    isFirst = false;
  }
  const Json times = result.value("times", Json::object());
  for (const char* name : kTimes) {
    line += "," + Cell(times, name);
  }
  std::printf("%s\n", line.c_str());
}

// How many results there are now: more may come while they are read.
uint64_t CountOf(jsCtx* js, const SNames& names) {
  jsStreamInfo* info = nullptr;
  jsErrCode code{};
  Check(js_GetStreamInfo(&info, js, names.results.c_str(), nullptr, &code),
        "no stream " + names.results + " (made by zelk-fleet init)");
  const uint64_t last = info->State.Msgs == 0 ? 0 : info->State.LastSeq;
  jsStreamInfo_Destroy(info);
  return last;
}

}  // namespace

int RunResults(const SLinkOptions& link, const SNames& names, bool asTable) {
  constexpr int64_t kWaitMs = 10000;
  CLink connection(link, [](SMail&& /*mail*/) {});
  jsCtx* js = connection.JetStream();
  const uint64_t last = CountOf(js, names);
  if (asTable) {
    PrintHead();
  }
  if (last == 0) {
    return 0;
  }
  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Ordered = true;
  options.Stream = names.results.c_str();
  natsSubscription* results = nullptr;
  jsErrCode code{};
  Check(js_SubscribeSync(&results, js, names.Result(">").c_str(), nullptr, &options, &code), "the results");
  for (uint64_t sequence = 0; sequence < last;) {
    natsMsg* message = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&message, results, kWaitMs);
    if (status != NATS_OK) {
      natsSubscription_Destroy(results);
      Check(status, "the results");
    }
    const char* reply = natsMsg_GetReply(message);
    sequence = ParseDelivery(reply == nullptr ? "" : reply).value_or(SDelivery{}).sequence;
    const std::string text(natsMsg_GetData(message), static_cast<size_t>(natsMsg_GetDataLength(message)));
    natsMsg_Destroy(message);
    if (asTable) {
      PrintRow(text);
    } else {
      std::printf("%s\n", text.c_str());
    }
  }
  natsSubscription_Destroy(results);
  return 0;
}

}  // namespace fleet

// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>

#include "fleet/commands.h"
#include "fleet/node_list.h"

namespace fleet {

std::vector<Json> ReadNodes(CLink& link, const SNames& names) {
  kvStore* store = nullptr;
  Check(js_KeyValue(&store, link.JetStream(), names.nodes.c_str()),
        "no bucket " + names.nodes + " (made by zelk-fleet init)");
  kvWatcher* watcher = nullptr;
  kvWatchOptions options;
  kvWatchOptions_Init(&options);
  options.IgnoreDeletes = true;
  std::vector<Json> nodes;
  natsStatus status = kvStore_WatchAll(&watcher, store, &options);
  while (status == NATS_OK) {
    constexpr int64_t kWaitMs = 5000;
    kvEntry* entry = nullptr;
    status = kvWatcher_Next(&entry, watcher, kWaitMs);
    if (status != NATS_OK || entry == nullptr) {
      break;  // no entry: all that were there have been told
    }
    Json node = Json::parse(
        std::string(static_cast<const char*>(kvEntry_Value(entry)), static_cast<size_t>(kvEntry_ValueLen(entry))),
        nullptr, false);
    kvEntry_Destroy(entry);
    if (node.is_object()) {
      nodes.push_back(std::move(node));
    }
  }
  kvWatcher_Destroy(watcher);
  kvStore_Destroy(store);
  Check(status, "the hosts");
  return nodes;
}

int RunNodes(const SLinkOptions& link, const SNames& names, bool asJson) {
  CLink connection(link, [](SMail&& /*mail*/) {});
  if (!asJson) {
    std::printf("%-20s %8s %8s %6s %6s %10s  %s\n", "host", "channels", "usable", "free", "jobs", "calls/min",
                "version");
  }
  for (const Json& node : ReadNodes(connection, names)) {
    if (asJson) {
      std::printf("%s\n", node.dump().c_str());
    } else {
      std::printf("%-20s %8d %8d %6d %6d %10.1f  %s%s\n", node.value("node", std::string()).c_str(),
                  node.value("channels", 0), node.value("usable", 0), node.value("free", 0), node.value("jobs", 0),
                  node.value("callsPerMinute", 0.0), node.value("version", std::string()).c_str(),
                  node.value("draining", false) ? ", draining" : "");
    }
  }
  return 0;
}

int RunDrain(const SLinkOptions& link, const SNames& names, const std::string& node) {
  constexpr int64_t kWaitMs = 5000;
  CLink connection(link, [](SMail&& /*mail*/) {});
  if (!IsName(node, kLongestName)) {
    throw std::invalid_argument("\"" + node + "\" is no name of a host");
  }
  natsMsg* answer = nullptr;
  Check(natsConnection_RequestString(&answer, connection.Raw(), names.Do(node).c_str(), R"({"id":1,"do":"drain"})",
                                     kWaitMs),
        "host " + node);
  natsMsg_Destroy(answer);
  std::printf("%s takes no more jobs\n", node.c_str());
  return 0;
}

}  // namespace fleet

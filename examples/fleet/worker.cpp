// SPDX-License-Identifier: GPL-2.0-only
// Decides what is done with the incoming calls of a fleet: numbers that begin with 0180 are refused, the others are
// answered and hear a sound, and are hung up when it is played. Start as many as there is work for: each call goes to
// one of them.
// Usage: example-fleet-worker URL FLEET SOUND [USER PASSWORD]
#include <nats/nats.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

namespace {

using nlohmann::json;

struct SWorker {
  std::string root;  // of the fleet's subjects
  std::string sound;
};

json ObjectOf(natsMsg* message) {
  json object =
      json::parse(natsMsg_GetData(message), natsMsg_GetData(message) + natsMsg_GetDataLength(message), nullptr, false);
  return object.is_object() ? object : json::object();
}

// A call is offered. Called by a thread of libnats, for one call after another.
void OnIncoming(natsConnection* nc, natsSubscription* /*sub*/, natsMsg* message, void* closure) {
  const auto* worker = static_cast<SWorker*>(closure);
  const json call = ObjectOf(message);
  const std::string called = call.value("called", "");
  const json answer = called.rfind("0180", 0) == 0 ? json{{"do", "reject"}, {"reason", "not here"}}
                                                   : json{{"do", "answer"}, {"play", worker->sound}};
  std::printf("%s calls %s: %s\n", call.value("calling", "").c_str(), called.c_str(), answer["do"].dump().c_str());
  natsConnection_PublishString(nc, natsMsg_GetReply(message), answer.dump().c_str());
  natsMsg_Destroy(message);
}

// Something happened on a channel of a host: "zelk.FLEET.event.HOST.CHANNEL".
void OnEvent(natsConnection* nc, natsSubscription* /*sub*/, natsMsg* message, void* closure) {
  const auto* worker = static_cast<SWorker*>(closure);
  const json event = ObjectOf(message);
  if (event.value("type", "") == "played") {
    std::string host = natsMsg_GetSubject(message) + worker->root.size() + std::strlen("event.");
    host.resize(host.find('.'));
    const json command = {{"id", 1}, {"do", "hangup"}, {"channel", event["channel"]}};
    natsConnection_PublishString(nc, (worker->root + "do." + host).c_str(), command.dump().c_str());
  }
  natsMsg_Destroy(message);
}

bool IsDone(natsStatus status, const char* what) {
  if (status != NATS_OK) {
    std::fprintf(stderr, "example-fleet-worker: %s: %s\n", what, natsStatus_GetText(status));
  }
  return status == NATS_OK;
}

bool Connect(natsConnection** nc, char** words, bool hasUser) {
  natsOptions* options = nullptr;
  const bool isMade = IsDone(natsOptions_Create(&options), "options") &&
                      IsDone(natsOptions_SetURL(options, words[0]), words[0]) &&
                      IsDone(natsOptions_SetMaxReconnect(options, -1), "options") &&
                      (!hasUser || IsDone(natsOptions_SetUserInfo(options, words[3], words[4]), words[3])) &&
                      IsDone(natsConnection_Connect(nc, options), words[0]);
  natsOptions_Destroy(options);
  return isMade;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 6) {
    std::fprintf(stderr, "usage: example-fleet-worker URL FLEET SOUND [USER PASSWORD]\n");
    return 2;
  }
  sigset_t ends;  // no thread is interrupted by them, the main one waits for them
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  SWorker worker{"zelk." + std::string(argv[2]) + ".", argv[3]};
  natsConnection* nc = nullptr;
  natsSubscription* calls = nullptr;
  natsSubscription* events = nullptr;
  if (!Connect(&nc, argv + 1, argc == 6) ||
      !IsDone(
          natsConnection_QueueSubscribe(&calls, nc, (worker.root + "incoming").c_str(), "workers", OnIncoming, &worker),
          "calls") ||
      !IsDone(
          natsConnection_QueueSubscribe(&events, nc, (worker.root + "event.>").c_str(), "workers", OnEvent, &worker),
          "events")) {
    return 1;
  }
  std::printf("working\n");
  std::fflush(stdout);
  int number = 0;
  sigwait(&ends, &number);
  natsConnection_Drain(nc);
  natsSubscription_Destroy(calls);
  natsSubscription_Destroy(events);
  natsConnection_Destroy(nc);
  nats_Close();
  return 0;
}

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <nats/nats.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace fleet {

// How the servers are reached.
struct SLinkOptions {
  std::string servers = "nats://127.0.0.1:4222";
  bool usesTls = false;
  bool allowsPlain = false;  // without TLS to another computer
  std::string ca;            // files
  std::string certificate;
  std::string key;
  std::string credentials;
  std::string user;
  std::string passwordFile;
  std::string name;                      // of this client, as the server lists it
  int kiloBytesKept = 8192;              // of what is published while no server is there
  std::chrono::milliseconds wait{2000};  // for the first server
};

// A message that came.
struct SMail {
  enum class EKind { kMessage, kConnected, kDisconnected };
  EKind kind = EKind::kMessage;
  int subscription = 0;  // as the subscriber numbers it
  std::string subject;
  std::string reply;
  std::string data;
  int status = 0;  // of a message that the server itself sent: 404, 408, 409, 503
};

using Headers = std::vector<std::pair<const char*, std::string>>;

class CLinkError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A connection that comes back by itself. What arrives is handed to one function, on threads of libnats: it must not
// block. Thread: Publish any; everything else the owner's. Failures of the start throw CLinkError,
// std::invalid_argument for a wrong address.
class CLink {
 public:
  using Receiver = std::function<void(SMail&&)>;

  CLink(const SLinkOptions& options, Receiver toReceiver);
  ~CLink();
  CLink(const CLink&) = delete;
  CLink& operator=(const CLink&) = delete;

  void Subscribe(int number, const std::string& subject, const std::string& queue = {});
  // False when it was not taken: too much waits for a server already, or it is larger than the server allows.
  bool Publish(const std::string& subject, const std::string& data, const std::string& reply = {},
               const Headers& headers = {});
  bool IsConnected() const;
  // Waits until the server has what was published.
  bool Flush(std::chrono::milliseconds limit);
  // A new subject on which answers to this client come. Those of a user stand under its name, so that the servers can
  // keep them from others.
  static std::string NewInbox(const SLinkOptions& options);
  natsConnection* Raw() const { return connection; }
  jsCtx* JetStream();

 private:
  struct SSubscriber {
    CLink* link = nullptr;
    int number = 0;
    natsSubscription* subscription = nullptr;
  };

  static void OnMessage(natsConnection* nc, natsSubscription* sub, natsMsg* msg, void* closure);
  static void OnConnected(natsConnection* nc, void* closure);
  static void OnDisconnected(natsConnection* nc, void* closure);

  const Receiver receiver;
  natsConnection* connection = nullptr;
  jsCtx* context = nullptr;
  std::vector<std::unique_ptr<SSubscriber>> subscribers;
};

// Throws CLinkError with "what: ..." for any status but NATS_OK.
void Check(natsStatus status, const std::string& what);

}  // namespace fleet

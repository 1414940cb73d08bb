// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/link.h"

#include <cstdlib>
#include <fstream>

#include "fleet/servers.h"

namespace fleet {

namespace {

constexpr int64_t kReconnectMs = 250;

struct SFree {
  void operator()(natsOptions* options) const { natsOptions_Destroy(options); }
  void operator()(natsMsg* message) const { natsMsg_Destroy(message); }
};
using OptionsPointer = std::unique_ptr<natsOptions, SFree>;
using MessagePointer = std::unique_ptr<natsMsg, SFree>;

std::string FirstLineOf(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line)) {
    throw CLinkError("the file " + path + " has no password in its first line");
  }
  return line;
}

void SetSafety(natsOptions* made, const SLinkOptions& options, bool usesTls) {
  if (usesTls) {
    Check(natsOptions_SetSecure(made, true), "TLS");
  }
  if (!options.ca.empty()) {
    Check(natsOptions_LoadCATrustedCertificates(made, options.ca.c_str()), "the certificates of " + options.ca);
  }
  if (!options.certificate.empty()) {
    Check(natsOptions_LoadCertificatesChain(made, options.certificate.c_str(), options.key.c_str()),
          "the certificate of " + options.certificate + " with the key of " + options.key);
  }
  if (!options.credentials.empty()) {
    Check(natsOptions_SetUserCredentialsFromFiles(made, options.credentials.c_str(), nullptr),
          "the credentials of " + options.credentials);
  }
  if (!options.user.empty()) {
    const std::string password = options.passwordFile.empty() ? "" : FirstLineOf(options.passwordFile);
    Check(natsOptions_SetUserInfo(made, options.user.c_str(), password.c_str()), "the user " + options.user);
  }
}

std::string InboxesOf(const SLinkOptions& options) {
  return options.user.empty() ? "_INBOX" : "_INBOX." + options.user;
}

OptionsPointer Make(const SLinkOptions& options) {
  const std::vector<std::string> servers = ReadServers(options.servers, options.usesTls, options.allowsPlain);
  natsOptions* raw = nullptr;
  Check(natsOptions_Create(&raw), "the options");
  OptionsPointer made(raw);
  std::vector<const char*> texts;
  bool usesTls = options.usesTls;
  for (const std::string& server : servers) {
    texts.push_back(server.c_str());
    usesTls = usesTls || server.rfind("tls:", 0) == 0;
  }
  Check(natsOptions_SetServers(raw, texts.data(), static_cast<int>(texts.size())), "the servers " + options.servers);
  SetSafety(raw, options, usesTls);
  Check(natsOptions_SetName(raw, options.name.c_str()), "the name " + options.name);
  Check(natsOptions_SetCustomInboxPrefix(raw, InboxesOf(options).c_str()), "the user " + options.user);
  Check(natsOptions_SetTimeout(raw, options.wait.count()), "the time to connect");
  Check(natsOptions_SetMaxReconnect(raw, -1), "reconnecting");
  Check(natsOptions_SetReconnectWait(raw, kReconnectMs), "reconnecting");
  // A server that is gone without a word is missed after two of them.
  Check(natsOptions_SetPingInterval(raw, 2000), "pings");
  Check(natsOptions_SetMaxPingsOut(raw, 2), "pings");
  Check(natsOptions_SetReconnectBufSize(raw, options.kiloBytesKept * 1024), "the buffer");
  Check(natsOptions_SetSendAsap(raw, false), "sending");
  return made;
}

int StatusOf(natsMsg* message) {
  const char* text = nullptr;
  return natsMsgHeader_Get(message, "Status", &text) == NATS_OK && text != nullptr ? std::atoi(text) : 0;
}

}  // namespace

void Check(natsStatus status, const std::string& what) {
  if (status != NATS_OK) {
    const char* last = nats_GetLastError(nullptr);
    throw CLinkError(what + ": " + (last != nullptr && *last != '\0' ? last : natsStatus_GetText(status)));
  }
}

CLink::CLink(const SLinkOptions& options, Receiver toReceiver) : receiver(std::move(toReceiver)) {
  const OptionsPointer made = Make(options);
  Check(natsOptions_SetDisconnectedCB(made.get(), OnDisconnected, this), "a callback");
  Check(natsOptions_SetReconnectedCB(made.get(), OnConnected, this), "a callback");
  const natsStatus status = natsConnection_Connect(&connection, made.get());
  if (status != NATS_OK) {
    Check(status, "no connection to " + options.servers);
  }
}

CLink::~CLink() {
  for (const auto& each : subscribers) {
    natsSubscription_Unsubscribe(each->subscription);
  }
  jsCtx_Destroy(context);
  natsConnection_Close(connection);
  for (const auto& each : subscribers) {
    natsSubscription_Destroy(each->subscription);
  }
  natsConnection_Destroy(connection);
  nats_Close();  // waits until no callback runs
}

void CLink::Subscribe(int number, const std::string& subject, const std::string& queue) {
  auto made = std::make_unique<SSubscriber>();
  made->link = this;
  made->number = number;
  Check(queue.empty()
            ? natsConnection_Subscribe(&made->subscription, connection, subject.c_str(), OnMessage, made.get())
            : natsConnection_QueueSubscribe(&made->subscription, connection, subject.c_str(), queue.c_str(), OnMessage,
                                            made.get()),
        "the subject " + subject);
  subscribers.push_back(std::move(made));
}

bool CLink::Publish(const std::string& subject, const std::string& data, const std::string& reply,
                    const Headers& headers) {
  natsMsg* raw = nullptr;
  if (natsMsg_Create(&raw, subject.c_str(), reply.empty() ? nullptr : reply.c_str(), data.data(),
                     static_cast<int>(data.size())) != NATS_OK) {
    return false;
  }
  const MessagePointer message(raw);
  for (const auto& [name, value] : headers) {
    natsMsgHeader_Set(raw, name, value.c_str());
  }
  return natsConnection_PublishMsg(connection, raw) == NATS_OK;
}

bool CLink::IsConnected() const {
  return natsConnection_Status(connection) == NATS_CONN_STATUS_CONNECTED;
}

bool CLink::Flush(std::chrono::milliseconds limit) {
  return natsConnection_FlushTimeout(connection, limit.count()) == NATS_OK;
}

std::string CLink::NewInbox(const SLinkOptions& options) {
  natsInbox* inbox = nullptr;
  Check(natsInbox_Create(&inbox), "an inbox");
  const std::string text = inbox;
  natsInbox_Destroy(inbox);
  return InboxesOf(options) + text.substr(text.rfind('.'));
}

jsCtx* CLink::JetStream() {
  if (context == nullptr) {
    Check(natsConnection_JetStream(&context, connection, nullptr), "JetStream");
  }
  return context;
}

void CLink::OnMessage(natsConnection* /*nc*/, natsSubscription* /*sub*/, natsMsg* msg, void* closure) {
  const MessagePointer owned(msg);
  const auto* subscriber = static_cast<SSubscriber*>(closure);
  SMail mail;
  mail.subscription = subscriber->number;
  mail.subject = natsMsg_GetSubject(msg);
  mail.reply = natsMsg_GetReply(msg) == nullptr ? "" : natsMsg_GetReply(msg);
  mail.data.assign(natsMsg_GetData(msg), static_cast<size_t>(natsMsg_GetDataLength(msg)));
  mail.status = StatusOf(msg);
  subscriber->link->receiver(std::move(mail));
}

void CLink::OnConnected(natsConnection* /*nc*/, void* closure) {
  SMail mail;
  mail.kind = SMail::EKind::kConnected;
  static_cast<CLink*>(closure)->receiver(std::move(mail));
}

void CLink::OnDisconnected(natsConnection* /*nc*/, void* closure) {
  SMail mail;
  mail.kind = SMail::EKind::kDisconnected;
  static_cast<CLink*>(closure)->receiver(std::move(mail));
}

}  // namespace fleet

// SPDX-License-Identifier: GPL-2.0-only
#include "node/node.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <thread>

#include "common/port_holders.h"
#include "phone/snapshot.h"

namespace node {

namespace {

using fleet::Check;
using phone::Json;
using std::chrono::milliseconds;

constexpr milliseconds kTurn{50};
constexpr milliseconds kRound{10};
constexpr std::chrono::seconds kClearingLimit{10};
constexpr milliseconds kFlushLimit{3000};
constexpr std::chrono::seconds kPatience{60};
constexpr milliseconds kAskAgain{200};

milliseconds FromNanoseconds(int64_t time) {
  return std::chrono::duration_cast<milliseconds>(std::chrono::nanoseconds(time));
}

// Another text at each start.
std::string NewBoot() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count()) + "-" +
         std::to_string(tool::OwnProcessId());
}

// While the servers elect a leader there is no answer. What they say is not there is told at once.
void AskPatiently(const std::string& what, const std::function<natsStatus(jsErrCode& code)>& ask) {
  const auto end = Clock::now() + kPatience;
  while (true) {
    jsErrCode code{};
    const natsStatus status = ask(code);
    if (status == NATS_OK) {
      return;
    }
    if (code == JSStreamNotFoundErr || code == JSConsumerNotFoundErr || Clock::now() > end ||
        phone::CSession::StopRequested()) {
      Check(status, what + " (made by zelk-fleet init)");
    }
    std::this_thread::sleep_for(kAskAgain);
  }
}

// The channels are opened before anything is said of them.
void OpenAll(phone::CSession& session, int trunkSeconds) {
  for (int32_t channel = 0; channel < session.ChannelCount(); ++channel) {
    ZELK_OpenChannel(channel);
  }
  session.WaitForTrunks(std::chrono::seconds(trunkSeconds));
}

fleet::SLinkOptions Named(fleet::SLinkOptions link, const SNodeOptions& options) {
  link.name = "zelk-node " + options.node;
  return link;
}

const std::string& Checked(const std::string& node) {
  if (!fleet::IsName(node, fleet::kLongestName)) {
    throw std::invalid_argument("\"" + node + "\" is no name of a host: letters, digits, - and _, 32 at most");
  }
  return node;
}

}  // namespace

CNode::CNode(const SNodeOptions& nodeOptions)
    : options(nodeOptions),
      names(options.fleet),
      boot(Checked(options.node) + "-" + NewBoot()),
      inbox(fleet::CLink::NewInbox(options.link)),
      session(recorders),
      link(Named(options.link, options),
           [this](fleet::SMail&& mail) {
             mailbox.Put(std::move(mail));
             session.Wake();
           }),
      asks(link, inbox + ".a"),
      speaker(link, names, options.node, options.hidesNumbers),
      served((OpenAll(session, options.trunkSeconds), recorders), speaker),
      sounds(asks, names, options.files),
      times(ReadTimes()),
      lease(asks, names, options.node, times.life, [this] { return Entry(); }),
      desk(DeskOptions(), link, asks, lease, names, served, sounds, inbox + ".j"),
      incoming({options.node, milliseconds(options.incomingMs), options.incomingDefault}, asks, names,
               [this](const Json& command) { Carry(command.dump(), [](const Json& /*answer*/) {}); }) {
  speaker.SetListener([this](const char* type, const Json& fields, phone::UtcTime time) {
    incoming.Hear(type, fields, time);
    desk.Hear({type, fields, time});
  });
  Subscribe();
}

CNode::STimes CNode::ReadTimes() {
  jsStreamInfo* bucket = nullptr;
  jsConsumerInfo* consumer = nullptr;
  STimes read;
  AskPatiently("no bucket " + names.nodes, [&](jsErrCode& code) {
    return js_GetStreamInfo(&bucket, link.JetStream(), ("KV_" + names.nodes).c_str(), nullptr, &code);
  });
  read.life = FromNanoseconds(bucket->Config->MaxAge);
  jsStreamInfo_Destroy(bucket);
  AskPatiently("no stream " + names.jobs, [&](jsErrCode& code) {
    return js_GetConsumerInfo(&consumer, link.JetStream(), names.jobs.c_str(), fleet::kConsumer, nullptr, &code);
  });
  read.ackWait = FromNanoseconds(consumer->Config->AckWait);
  jsConsumerInfo_Destroy(consumer);
  return read;
}

SDeskOptions CNode::DeskOptions() const {
  return {options.node, boot, options.rate, options.channels, times.ackWait / 3};
}

void CNode::Subscribe() {
  link.Subscribe(kAnswers, inbox + ".a.*");
  link.Subscribe(kJobs, inbox + ".j.*");
  link.Subscribe(kRequests, names.Do(options.node));
}

Json CNode::Entry() {
  const auto now = Clock::now();
  const std::chrono::duration<double> span = now - minuteBegan;
  if (span.count() >= 10) {
    callsPerMinute = static_cast<double>(desk.CallsPlaced() - placedBefore) * 60 / span.count();
    placedBefore = desk.CallsPlaced();
    minuteBegan = now;
  }
  const Json all = phone::SnapshotJson();
  int usable = 0;
  for (const Json& trunk : all["trunks"]) {
    usable += trunk["usable"].get<int>();
  }
  return {{"node", options.node},
          {"boot", boot},
          {"version", ZELK_VERSION_STRING},
          {"cards", all["cards"]},
          {"trunks", all["trunks"]},
          {"channels", session.ChannelCount()},
          {"usable", usable},
          {"free", desk.FreeChannels()},
          {"jobs", desk.WorkCount()},
          {"calls", desk.CallsPlaced()},
          {"callsPerMinute", callsPerMinute},
          {"results", desk.ResultsStored()},
          {"events", speaker.Published()},
          {"eventsDropped", speaker.Dropped()},
          {"incomingAnswered", incoming.Answered()},
          {"incomingDefaulted", incoming.Defaulted()},
          {"draining", desk.IsDraining()}};
}

void CNode::TakeEvents(milliseconds wait) {
  phone::SPhoneEvent event;
  for (bool isThere = session.NextEvent(event, wait); isThere; isThere = session.NextEvent(event, milliseconds(0))) {
    served.Take(event);
  }
}

void CNode::TakeMails() {
  fleet::SMail mail;
  while (mailbox.Take(mail)) {
    TakeMail(mail);
  }
}

void CNode::TakeMail(const fleet::SMail& mail) {
  if (mail.kind == fleet::SMail::EKind::kConnected) {
    desk.Reconnected();
    lease.Renew();
  } else if (mail.kind == fleet::SMail::EKind::kMessage) {
    if (mail.subscription == kAnswers) {
      asks.Take(mail);
    } else if (mail.subscription == kJobs) {
      desk.Take(mail);
    } else {
      Execute(mail);
    }
  }
}

void CNode::Execute(const fleet::SMail& mail) {
  const auto reply = [this, to = mail.reply](const Json& answer) {
    if (!to.empty()) {
      link.Publish(to, phone::JsonLine("result", std::chrono::system_clock::now(), answer));
    }
  };
  const Json object = Json::parse(mail.data, nullptr, false);
  if (object.is_object() && object.value("do", Json()) == "drain") {
    desk.Drain();
    reply({{"id", object.value("id", Json(nullptr))}, {"ok", true}});
  } else {
    Carry(mail.data, reply);
  }
}

void CNode::Carry(const std::string& text, const Carried& carried) {
  const Json command = Json::parse(text, nullptr, false);
  if (command.is_object() && command.contains("file") && command["file"].is_string()) {
    CarryWithFile(command, carried);
  } else {
    carried(served.Carry({text, text.size() > phone::CLineSplitter::kLongest}));
  }
}

void CNode::CarryWithFile(const Json& command, const Carried& carried) {
  const std::string name = command["file"];
  const auto go = [this, command, carried](const std::string& file, const std::string& trouble) {
    if (file.empty()) {
      const std::string text = trouble.empty() ? "the servers do not answer" : trouble;
      carried({{"id", command.value("id", Json(nullptr))}, {"ok", false}, {"error", "file"}, {"message", text}});
      return;
    }
    Json placed = command;
    placed["file"] = file;
    carried(served.Carry({placed.dump(), false}));
  };
  if (command.value("do", Json()) != "record") {
    sounds.Find(name, go);
  } else if (CSounds::IsName(name)) {
    go(sounds.FileOf(name), "");
  } else {
    go("", "\"" + name + "\" is no name of a file");
  }
}

void CNode::Turn(milliseconds wait) {
  TakeEvents(wait);
  TakeMails();
  desk.Act();
  // What goes through all channels, or all that is open, need not be done for each event.
  const auto now = Clock::now();
  if (now >= nextRound) {
    nextRound = now + kRound;
    asks.Turn(now);
    desk.Turn(now);
    lease.Turn(now);
    served.Turn();
  }
}

void CNode::Run() {
  speaker.Say(
      "hello", "",
      {{"schema", phone::kSchema}, {"program", "zelk-node"}, {"version", ZELK_VERSION_STRING}, {"command", "serve"}});
  speaker.Say("snapshot", "", phone::SnapshotJson());
  while (!phone::CSession::StopRequested()) {
    Turn(kTurn);
  }
  Drain();
  Leave();
}

// No job is taken any more; the calls come to their ends, and their results are stored.
void CNode::Drain() {
  desk.Drain();
  const auto end = Clock::now() + std::chrono::seconds(options.drainSeconds);
  while (desk.HasWork() && Clock::now() < end) {
    Turn(kTurn);
  }
  const auto cleared = Clock::now() + kClearingLimit;
  served.EndCalls();
  while ((served.HasCalls() || desk.HasWork()) && Clock::now() < cleared) {
    Turn(kTurn);
    served.EndCalls();
  }
}

void CNode::Leave() {
  lease.Remove(link);
  speaker.Say("end", "", {{"code", 0}, {"name", "done"}});
  link.Flush(kFlushLimit);
}

void RunNode(const SNodeOptions& options) {
  CNode node(options);
  std::printf("node %s of fleet %s: %d channels\n", options.node.c_str(), options.fleet.c_str(),
              ZELK_GetChannelCount());
  std::fflush(stdout);
  node.Run();
}

}  // namespace node

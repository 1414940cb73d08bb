// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>
#include <string>

#include "fleet/commands.h"
#include "phone/json_line.h"

namespace fleet {

namespace {

using phone::Json;

// Gives each question a number, and each answer back to where the question came from.
// Thread: Take that of libnats, Answer main.
class CDesk {
 public:
  void Take(const SMail& mail) {
    Json question = Json::parse(mail.data, nullptr, false);
    if (!question.is_object()) {
      return;
    }
    const std::lock_guard<std::mutex> guard(lock);
    if (mail.subscription == kIncoming) {
      open[++last] = mail.reply;
      question["id"] = last;
    }
    std::printf("%s\n", question.dump().c_str());
    std::fflush(stdout);
  }

  void Answer(CLink& link, const SNames& names, const std::string& inbox, const std::string& line) {
    const Json answer = Json::parse(line, nullptr, false);
    if (!answer.is_object()) {
      std::fprintf(stderr, "zelk-fleet: no JSON object: %s\n", line.c_str());
      return;
    }
    const Json node = answer.value("node", Json());
    if (node.is_string()) {
      Json command = answer;
      command.erase("node");
      link.Publish(names.Do(node), command.dump(), inbox);
      return;
    }
    const std::lock_guard<std::mutex> guard(lock);
    const Json id = answer.value("id", Json());
    const auto found = open.find(id.is_number_unsigned() ? id.get<uint64_t>() : 0);
    if (found == open.end()) {
      std::fprintf(stderr, "zelk-fleet: no call waits for %s\n", line.c_str());
      return;
    }
    link.Publish(found->second, answer.dump());
    open.erase(found);
  }

  static constexpr int kIncoming = 1;
  static constexpr int kResults = 2;

 private:
  std::mutex lock;
  std::map<uint64_t, std::string> open;
  uint64_t last = 0;
};

}  // namespace

int RunWork(const SLinkOptions& link, const SNames& names) {
  constexpr std::chrono::seconds kLimit{5};
  CDesk desk;
  const std::string inbox = CLink::NewInbox(link);
  CLink connection(link, [&desk](SMail&& mail) {
    if (mail.kind == SMail::EKind::kMessage && mail.status == 0) {
      desk.Take(mail);
    }
  });
  connection.Subscribe(CDesk::kResults, inbox);
  connection.Subscribe(CDesk::kIncoming, names.Incoming(), "workers");
  std::string line;
  while (std::getline(std::cin, line)) {
    desk.Answer(connection, names, inbox, line);
  }
  connection.Flush(kLimit);
  return 0;
}

}  // namespace fleet

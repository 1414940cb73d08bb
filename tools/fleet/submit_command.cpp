// SPDX-License-Identifier: GPL-2.0-only
#include <chrono>
#include <cstdio>
#include <deque>
#include <fstream>
#include <iterator>
#include <sstream>

#include "common/standard_input.h"
#include "common/terminal.h"
#include "fleet/commands.h"
#include "fleet/job_list.h"

namespace fleet {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMostSent = 500;  // jobs that the server has not answered for
constexpr std::chrono::seconds kAnswerLimit{5};
constexpr std::chrono::seconds kAnswerPatience{120};  // without a single answer
constexpr size_t kMostFaults = 20;                    // told one by one

std::string ReadAll(const std::string& path) {
  std::ostringstream text;
  if (path == "-") {
    char bytes[65536];
    while (const size_t count = tool::ReadStandardInput(bytes, sizeof bytes)) {
      text.write(bytes, static_cast<std::streamsize>(count));
    }
    return text.str();
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw CLinkError("the file " + path + " cannot be read");
  }
  text << file.rdbuf();
  return text.str();
}

struct SSubmitted {
  size_t stored = 0;
  size_t known = 0;  // in the stream already
};

// Publishes jobs, many at a time, each until the server has said that it is stored. One that is sent twice is known to
// the server by its id.
class CSubmission {
 public:
  CSubmission(CLink& toLink, std::string answersAt, const SNames& fleetNames, const std::vector<SJob>& list)
      : link(toLink), names(fleetNames), jobs(list), inbox(std::move(answersAt)), isDone(list.size()) {
    Check(natsConnection_SubscribeSync(&answers, link.Raw(), (inbox + ".*").c_str()), "an inbox");
    natsSubscription_SetPendingLimits(answers, -1, -1);
  }
  ~CSubmission() { natsSubscription_Destroy(answers); }
  CSubmission(const CSubmission&) = delete;
  CSubmission& operator=(const CSubmission&) = delete;

  SSubmitted Run() {
    lastAnswer = Clock::now();
    while (next < jobs.size() || !open.empty()) {
      while (next < jobs.size() && open.size() < kMostSent) {
        Send(next++);
      }
      TakeAnswer();
      SendAgain();
      Show(false);
    }
    Show(true);
    return submitted;
  }

 private:
  struct SOpen {
    size_t job = 0;
    Clock::time_point deadline;
  };

  void Send(size_t job) {
    const SJob& each = jobs[job];
    link.Publish(names.Job(each.id), JsonOf(each).dump(), inbox + "." + std::to_string(job),
                 {{"Nats-Msg-Id", each.id}});
    open.push_back({job, Clock::now() + kAnswerLimit});
  }

  void TakeAnswer() {
    natsMsg* message = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&message, answers, 100);
    if (status != NATS_OK) {
      if (Clock::now() - lastAnswer > kAnswerPatience) {
        throw CLinkError("the servers do not answer; " + std::to_string(submitted.stored + submitted.known) + " of " +
                         std::to_string(jobs.size()) + " jobs are stored, submit the same file again");
      }
      return;
    }
    const std::string subject = natsMsg_GetSubject(message);
    const Json answer = Json::parse(
        std::string(natsMsg_GetData(message), static_cast<size_t>(natsMsg_GetDataLength(message))), nullptr, false);
    natsMsg_Destroy(message);
    const size_t job = std::stoul(subject.substr(subject.rfind('.') + 1));
    if (answer.is_object() && answer.contains("seq") && !answer.contains("error") && !isDone[job]) {
      isDone[job] = true;
      lastAnswer = Clock::now();
      ++(answer.value("duplicate", false) ? submitted.known : submitted.stored);
    }
    // An answer of another kind: no leader, no room. The same job goes again when its time is over.
  }

  void SendAgain() {
    const auto now = Clock::now();
    while (!open.empty() && (isDone[open.front().job] || open.front().deadline < now)) {
      const size_t job = open.front().job;
      open.pop_front();
      if (!isDone[job]) {
        Send(job);
      }
    }
  }

  void Show(bool isLast) {
    const size_t count = submitted.stored + submitted.known;
    const auto now = Clock::now();
    if (tool::StderrIsTerminal() && (isLast || now - shown > std::chrono::milliseconds(100))) {
      shown = now;
      constexpr size_t kWidth = 40;
      const size_t full = jobs.empty() ? kWidth : count * kWidth / jobs.size();
      std::fprintf(stderr, "\r[%s%s] %zu of %zu%s", std::string(full, '#').c_str(),
                   std::string(kWidth - full, '.').c_str(), count, jobs.size(), isLast ? "\n" : "");
    }
  }

  CLink& link;
  const SNames& names;
  const std::vector<SJob>& jobs;
  const std::string inbox;
  natsSubscription* answers = nullptr;
  std::vector<bool> isDone;
  std::deque<SOpen> open;
  size_t next = 0;
  SSubmitted submitted;
  Clock::time_point lastAnswer;
  Clock::time_point shown;
};

}  // namespace

int RunSubmit(const SLinkOptions& link, const SNames& names, const std::string& path) {
  const SJobList list = ReadJobs(ReadAll(path));
  if (!list.faults.empty()) {
    for (size_t i = 0; i < list.faults.size() && i < kMostFaults; ++i) {
      std::fprintf(stderr, "zelk-fleet: %s\n", list.faults[i].c_str());
    }
    std::fprintf(stderr, "zelk-fleet: %zu of %zu jobs are none; nothing was submitted\n", list.faults.size(),
                 list.faults.size() + list.jobs.size());
    return 2;
  }
  CLink connection(link, [](SMail&& /*mail*/) {});
  const SSubmitted submitted = CSubmission(connection, CLink::NewInbox(link), names, list.jobs).Run();
  std::printf("%zu jobs submitted, %zu were there already\n", submitted.stored, submitted.known);
  return 0;
}

}  // namespace fleet

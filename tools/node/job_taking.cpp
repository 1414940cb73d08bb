// SPDX-License-Identifier: GPL-2.0-only
// How the desk takes jobs and gives them back.
#include <algorithm>

#include "node/job_desk.h"
#include "phone/session.h"

namespace node {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLater{2000};  // for another host, or for the one that has it
constexpr milliseconds kAtOnce{100};
constexpr milliseconds kLongest{600000};  // and then it is looked at again

milliseconds Until(phone::UtcTime time, phone::UtcTime now) {
  return std::min(std::chrono::duration_cast<milliseconds>(time - now) + milliseconds(1), kLongest);
}

}  // namespace

CJobDesk::CJobDesk(const SDeskOptions& deskOptions, fleet::CLink& toLink, CAsks& toAsks, CLease& hostLease,
                   const fleet::SNames& fleetNames, phone::CServedChannels& channels, CSounds& hostSounds,
                   const std::string& jobsAt)
    : options(deskOptions),
      link(toLink),
      asks(toAsks),
      lease(hostLease),
      names(fleetNames),
      served(channels),
      sounds(hostSounds),
      claims(toAsks, fleetNames, hostLease),
      pulls(toLink, fleetNames, jobsAt),
      rate(deskOptions.rate, Clock::now()),
      byChannel(static_cast<size_t>(ZELK_GetChannelCount())) {
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    trunks.push_back({phone::InfoNumber(channel, ZELK_INFO_SERIALNO), phone::InfoNumber(channel, ZELK_INFO_TRUNK) + 1});
  }
}

void CJobDesk::Take(const fleet::SMail& mail) {
  if (mail.status != 0) {
    pulls.Ended(mail.subject);
    return;
  }
  pulls.Came();
  try {
    Consider(fleet::ParseJob(mail.data), mail.reply);
  } catch (const fleet::CJobError& error) {
    // What came past zelk-fleet; its id is that of its subject.
    Work work = std::make_shared<SWork>();
    work->job.id = mail.subject.substr(mail.subject.rfind('.') + 1);
    work->ackTo = mail.reply;
    works[work->job.id] = work;
    Finish(work, ResultOf(work, "bad-job", error.what()));
  }
}

void CJobDesk::Consider(const fleet::SJob& job, const std::string& ackTo) {
  const auto known = works.find(job.id);
  if (known != works.end()) {
    known->second->ackTo = ackTo;  // it was slow to be told that the job is in work
    return;
  }
  const phone::UtcTime now = lease.ServerNow();
  if (job.notBefore && now < *job.notBefore) {
    GiveBack(ackTo, Until(*job.notBefore, now));
    return;
  }
  const bool isLate = job.notAfter && now > *job.notAfter;
  const int32_t channel = isLate || isDraining ? -1 : FreeChannelFor(job);
  if (channel < 0 && !isLate) {
    GiveBack(ackTo, isDraining || HasTrunkFor(job) ? kAtOnce : kLater);
    return;
  }
  const Work work = std::make_shared<SWork>();
  work->job = job;
  work->ackTo = ackTo;
  work->claim = {options.node, options.boot, std::to_string(++taken), fleet::EClaimState::kHeld};
  work->nextSign = Clock::now() + options.signEvery;
  work->times["taken"] = phone::IsoTime(now);
  works[job.id] = work;
  if (channel >= 0) {
    work->channel = channel;
    byChannel[static_cast<size_t>(channel)] = work;
  }
  claims.Acquire(work, [this, work, isLate](EClaimed outcome) {
    if (isLate && outcome == EClaimed::kHeld) {
      Finish(work, ResultOf(work, "too-late", "its time was over before a channel was free"));
    } else {
      Claimed(work, outcome);
    }
  });
}

void CJobDesk::Claimed(const Work& work, EClaimed outcome) {
  if (outcome != EClaimed::kHeld && work->channel >= 0) {
    FreeChannel(work);
  }
  switch (outcome) {
    case EClaimed::kHeld:
      FindSound(work);
      break;
    case EClaimed::kHasResult:
      Acknowledge(work);
      break;
    case EClaimed::kHostLost:
      Finish(work, ResultOf(work, "host-lost", "host lost in the call"));
      break;
    case EClaimed::kLater:
      Leave(work, kLater);
      break;
  }
}

void CJobDesk::FindSound(const Work& work) {
  if (work->job.play.empty()) {
    Dial(work);
    return;
  }
  sounds.Find(work->job.play, [this, work](const std::string& file, const std::string& trouble) {
    work->sound = file;
    if (!trouble.empty()) {
      Finish(work, ResultOf(work, "bad-job", trouble));
    } else if (file.empty() || !lease.IsHeld(Clock::now())) {
      claims.Update(work, fleet::EClaimState::kFree, [this, work] { Leave(work, kLater); });
    } else {
      Dial(work);
    }
  });
}

void CJobDesk::GiveBack(const std::string& ackTo, milliseconds delay) {
  link.Publish(ackTo, "-NAK {\"delay\": " + std::to_string(std::chrono::nanoseconds(delay).count()) + "}");
}

void CJobDesk::Leave(const Work& work, milliseconds delay) {
  FreeChannel(work);
  GiveBack(work->ackTo, delay);
  works.erase(work->job.id);
}

void CJobDesk::FreeChannel(const Work& work) {
  if (work->channel >= 0) {
    byChannel[static_cast<size_t>(work->channel)] = nullptr;
    work->channel = -1;
  }
}

bool CJobDesk::Serves(const fleet::SJob& job, int32_t channel) const {
  return job.trunks.empty() ||
         std::find(job.trunks.begin(), job.trunks.end(), trunks[static_cast<size_t>(channel)]) != job.trunks.end();
}

bool CJobDesk::HasTrunkFor(const fleet::SJob& job) const {
  return job.trunks.empty() || std::any_of(job.trunks.begin(), job.trunks.end(), [this](const auto& trunk) {
           return std::find(trunks.begin(), trunks.end(), trunk) != trunks.end();
         });
}

// Channels go round, so that one that is cleared rests before its next call.
int32_t CJobDesk::FreeChannelFor(const fleet::SJob& job) {
  for (size_t i = 0; i < byChannel.size(); ++i) {
    cursor = (cursor + 1) % byChannel.size();
    const auto channel = static_cast<int32_t>(cursor);
    if (!IsReserved(channel) && served.IsFree(channel) && Serves(job, channel)) {
      return channel;
    }
  }
  return -1;
}

int CJobDesk::FreeChannels() const {
  int count = 0;
  for (int32_t channel = 0; static_cast<size_t>(channel) < byChannel.size(); ++channel) {
    count += !IsReserved(channel) && served.IsFree(channel) ? 1 : 0;
  }
  return count;
}

int CJobDesk::Capacity() const {
  if (isDraining || !lease.IsHeld(Clock::now())) {
    return 0;
  }
  const int most = options.channels > 0 ? options.channels : static_cast<int>(byChannel.size());
  return std::max(0, std::min(FreeChannels(), most - static_cast<int>(works.size())));
}

}  // namespace node

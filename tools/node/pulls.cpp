// SPDX-License-Identifier: GPL-2.0-only
#include "node/pulls.h"

#include <algorithm>
#include <cstdlib>

#include "phone/json_line.h"

namespace node {

namespace {

constexpr std::chrono::seconds kOpenFor{5};

}  // namespace

CPulls::CPulls(fleet::CLink& toLink, const fleet::SNames& names, std::string jobsAt)
    : link(toLink),
      subject("$JS.API.CONSUMER.MSG.NEXT." + names.jobs + "." + fleet::kConsumer),
      inbox(std::move(jobsAt)) {}

int CPulls::Open() const {
  int jobs = 0;
  for (const SPull& each : open) {
    jobs += each.left;
  }
  return jobs;
}

void CPulls::Ask(int jobs, Clock::time_point now) {
  while (!open.empty() && open.front().until < now) {
    missing += open.front().left;
    open.pop_front();
  }
  if (jobs <= 0 || !link.IsConnected()) {
    missing += std::max(jobs, 0);
    return;
  }
  const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(kOpenFor).count();
  const phone::Json request = {{"batch", jobs}, {"expires", nanoseconds}};
  if (link.Publish(subject, request.dump(), inbox + "." + std::to_string(++last))) {
    // A server that ends it says so; one that is gone does not.
    open.push_back({last, jobs, now + kOpenFor + std::chrono::seconds(1)});
  } else {
    missing += jobs;
  }
}

void CPulls::Came() {
  if (!open.empty() && --open.front().left <= 0) {
    open.pop_front();
  }
}

void CPulls::Ended(const std::string& ended) {
  const size_t dot = ended.rfind('.');
  const uint64_t number = dot == std::string::npos ? 0 : std::strtoull(ended.c_str() + dot + 1, nullptr, 10);
  for (SPull& each : open) {
    if (each.number == number) {
      missing += std::exchange(each.left, 0);
    }
  }
  std::erase_if(open, [](const SPull& each) { return each.left == 0; });
}

void CPulls::Forget() {
  missing += Open();
  open.clear();
}

}  // namespace node

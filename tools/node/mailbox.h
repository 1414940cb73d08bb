// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <deque>
#include <mutex>

#include "fleet/link.h"

namespace node {

// What came from the fleet, in order. Thread: Put any, Take the node's.
class CMailbox {
 public:
  void Put(fleet::SMail&& mail) {
    const std::lock_guard<std::mutex> guard(lock);
    mails.push_back(std::move(mail));
  }
  bool Take(fleet::SMail& mail) {
    const std::lock_guard<std::mutex> guard(lock);
    if (mails.empty()) {
      return false;
    }
    mail = std::move(mails.front());
    mails.pop_front();
    return true;
  }

 private:
  std::mutex lock;
  std::deque<fleet::SMail> mails;  // guarded by lock
};

}  // namespace node

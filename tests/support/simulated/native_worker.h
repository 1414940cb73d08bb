// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>

#include "platform/thread.h"

// A thread of a test in a simulated world: a task of it, used as std::thread is.
class CWorker {
 public:
  explicit CWorker(std::function<void()> body) : task(std::make_unique<zelk::CThread>()) {
    if (!task->Start("worker", std::move(body))) {
      throw std::runtime_error("no task");
    }
  }
  // The destructor of the task waits without a limit.
  void join() { task.reset(); }

 private:
  std::unique_ptr<zelk::CThread> task;
};

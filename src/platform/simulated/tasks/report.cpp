// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/report.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace zelk::sim {

namespace {

std::string Formatted(const char* format, uint64_t value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Demangled(const char* name) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> plain(abi::__cxa_demangle(name, nullptr, nullptr, &status),
                                                          &std::free);
  return plain == nullptr ? name : plain.get();
}

std::string DescribeFrame(const void* frame) {
  // A return address stands behind the call.
  const auto address = reinterpret_cast<uintptr_t>(frame) - 1;
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(address), &info) == 0 || info.dli_fname == nullptr) {
    return Formatted("0x%" PRIx64, address);
  }
  const std::string file = info.dli_fname;
  const std::string place = file.substr(file.rfind('/') + 1) +
                            Formatted("+0x%" PRIx64, address - reinterpret_cast<uintptr_t>(info.dli_fbase));
  return info.dli_sname == nullptr ? place : Demangled(info.dli_sname) + " (" + place + ")";
}

std::string NameOf(uint32_t number, const std::vector<const STask*>& tasks) {
  const auto found =
      std::find_if(tasks.begin(), tasks.end(), [number](const STask* task) { return task->number == number; });
  return Formatted("%" PRIu64, number) + (found == tasks.end() ? " that has ended" : " '" + (*found)->name + "'");
}

std::string DescribeWait(const STask& task, const std::vector<const STask*>& tasks, int64_t nowUs) {
  const SWait& wait = task.wait;
  if (wait.what == EWaitFor::kNothing) {
    return "can run";
  }
  std::string text = "waits for ";
  const std::string address = Formatted(" 0x%" PRIx64, reinterpret_cast<uintptr_t>(wait.object));
  switch (wait.what) {
    case EWaitFor::kMutex:
      text += "mutex" + address + ", held by task " + NameOf(wait.holder, tasks);
      break;
    case EWaitFor::kEvent:
      text += "event" + address;
      break;
    case EWaitFor::kSocket:
      text += "socket" + address;
      break;
    default:
      text += "its time";
  }
  text += Formatted(", for %" PRIu64 " us", static_cast<uint64_t>(nowUs - task.waitsSinceUs));
  if (wait.what != EWaitFor::kMutex) {
    text += wait.dueUs == kNever ? ", without an end"
                                 : Formatted(", at most %" PRIu64 " more", static_cast<uint64_t>(wait.dueUs - nowUs));
  }
  return text;
}

}  // namespace

int TakeStack(void** frames, int most) {
  return backtrace(frames, most);
}

std::string DescribeTasks(const std::string& why, const std::vector<const STask*>& tasks, int64_t nowUs) {
  std::string text = why + Formatted(" (at %" PRIu64 " us)\n", static_cast<uint64_t>(nowUs));
  for (const STask* task : tasks) {
    text += "task " + NameOf(task->number, tasks) + " " + DescribeWait(*task, tasks, nowUs) + "\n";
    for (int i = 0; i < task->frameCount; ++i) {
      text += "    " + DescribeFrame(task->frames[static_cast<size_t>(i)]) + "\n";
    }
  }
  return text;
}

}  // namespace zelk::sim

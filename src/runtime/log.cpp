// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log.h"

#include <cstdarg>
#include <exception>
#include <new>

#include "runtime/config.h"
#include "runtime/format.h"

namespace zelk {

namespace {

// Made first and destroyed last of the library's static objects, so that what the others log while they are destroyed
// is written too. The process-wide writer itself is never destroyed: a thread that logs later still finds it.
struct SUnloadGuard {
  ~SUnloadGuard() { Log().Finish(); }
};

constexpr int kBeforeAllOthers = 101;
__attribute__((init_priority(kBeforeAllOthers))) SUnloadGuard unloadGuard;

bool IsAtMost(int32_t limit) {
  return Config().level.load(std::memory_order_relaxed) <= limit;
}

}  // namespace

CLogWriter& Log() {
  alignas(CLogWriter) static unsigned char storage[sizeof(CLogWriter)];
  static CLogWriter* const writer = new (storage) CLogWriter;
  return *writer;
}

void LogLine(const char* text, int32_t channel) {
  Log().Line(text, channel);
}

bool LogEnabled(ELogClass logClass) {
  switch (logClass) {
    case ELogClass::kStatus:
      return IsAtMost(2);
    case ELogClass::kDetail:
      return IsAtMost(1);
    case ELogClass::kAlways:
      break;
  }
  return true;
}

void LogFormat(ELogClass logClass, int32_t channel, const char* format, ...) {
  if (!LogEnabled(logClass)) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  try {
    const CFormattedText text(format, arguments);
    LogLine(text.Text(), channel);
  } catch (const std::exception&) {
    Log().LineLost();
  }
  va_end(arguments);
}

}  // namespace zelk

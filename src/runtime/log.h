// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "runtime/log_writer.h"

namespace zelk {

// The one log writer of the process: collects lines from load on, writes them from Start on. Unloading the library
// stops it and writes what is pending; a line that comes even later is dropped with the process. Thread: any.
CLogWriter& Log();

// Which lines the configured level lets through.
enum class ELogClass {
  kAlways,  // every level
  kStatus,  // level 2 and below
  kDetail,  // level 1 and below
};

// Adds one line to the log, tagged with a channel number or, for kGeneralLine, as a general line. Never blocks on the
// file, never fails visibly, never looks at the level. Thread: any.
void LogLine(const char* text, int32_t channel);

// True when lines of this class are written at the configured level; callers ask before they build a text.
bool LogEnabled(ELogClass logClass);

// Formats and adds one line when its class is enabled. Thread: any.
void LogFormat(ELogClass logClass, int32_t channel, const char* format, ...) __attribute__((format(printf, 3, 4)));

}  // namespace zelk

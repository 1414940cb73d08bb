// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "phone/event_queue.h"
#include "phone/json_line.h"

namespace phone {

// How an event of the library is told: to a program by type and fields, to a person by the text.
struct SEventLine {
  const char* type;
  std::string text;
  Json fields;
};

SEventLine LineOf(const SPhoneEvent& event);

// The name of a call cause with its number, as the user sees it.
std::string CauseText(int32_t cause);

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "phone/json_line.h"

namespace phone {

// Whoever is told what happens: a person, a program, other hosts. Thread: that of the teller.
class ISpeaker {
 public:
  virtual ~ISpeaker() = default;

  // One thing that happened. A person sees the text (nothing when it is empty), a program type, time and fields.
  void Say(const char* type, const std::string& text, const Json& fields = Json::object(),
           UtcTime time = std::chrono::system_clock::now()) {
    Tell(type, text, fields, time);
  }

 protected:
  virtual void Tell(const char* type, const std::string& text, const Json& fields, UtcTime time) = 0;
};

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#include "phone/report.h"

#include <cerrno>
#include <iostream>

#include "phone/session.h"
#include "zelk/ZelkApi.h"

namespace phone {

void CReport::Tell(const char* type, const std::string& text, const Json& fields, UtcTime time) {
  if (!json) {
    Text(text);
  } else if (!closed) {
    errno = 0;
    std::cout << JsonLine(type, time, fields) << std::endl;
    Check();
  }
}

void CReport::Text(const std::string& text) {
  if (!json && !closed && !text.empty()) {
    errno = 0;
    progress.Line(text);
    Check();
  }
}

void CReport::Status(const std::string& text) {
  if (Live()) {
    progress.Status(text);
  }
}

void CReport::Check() {
  if (!std::cout) {
    closed = true;
    failed = errno != EPIPE;
    CSession::RequestStop();
  }
}

void CReport::Hello(const std::string& command) {
  Say("hello", "",
      {{"schema", kSchema}, {"program", "zelk-phone"}, {"version", ZELK_VERSION_STRING}, {"command", command}});
}

void CReport::End(EExit code, const std::string& message) {
  Json fields = {{"code", static_cast<int>(code)}, {"name", ExitName(code)}};
  if (!message.empty()) {
    fields["message"] = message;
  }
  Say("end", "", fields);
}

}  // namespace phone

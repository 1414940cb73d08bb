// SPDX-License-Identifier: GPL-2.0-only
#include "node/speaker.h"

namespace node {

namespace {

void HideNumbers(phone::Json& fields) {
  for (const char* name : {"calling", "called", "redirecting", "number", "from"}) {
    if (fields.contains(name)) {
      fields[name] = "";
    }
  }
}

}  // namespace

void CSpeaker::Tell(const char* type, const std::string& /*text*/, const phone::Json& fields, phone::UtcTime time) {
  phone::Json shown;
  if (hidesNumbers) {
    shown = fields;
    HideNumbers(shown);
  }
  const auto channel = fields.find("channel");
  const std::string subject = names.Event(node, channel == fields.end() ? -1 : channel->get<int32_t>());
  ++(link.Publish(subject, phone::JsonLine(type, time, hidesNumbers ? shown : fields)) ? published : dropped);
  if (listener) {
    listener(type, fields, time);
  }
}

}  // namespace node

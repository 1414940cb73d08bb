// SPDX-License-Identifier: GPL-2.0-only
#include "node/replies.h"

#include "fleet/delivery.h"
#include "fleet/job.h"

namespace node {

namespace {

using phone::Json;

constexpr int kWrongLastSequence = 10071;  // codes of the server
constexpr int kNoMessage = 10037;

Json ObjectOf(const SReply& reply) {
  const Json object = reply.isThere ? Json::parse(reply.data, nullptr, false) : Json();
  return object.is_object() ? object : Json();
}

int ErrorOf(const Json& object) {
  const auto error = object.find("error");
  return error != object.end() && error->is_object() ? error->value("err_code", 0) : 0;
}

// The server's times have up to nine digits behind the second.
phone::UtcTime TimeOf(const std::string& text) {
  const size_t dot = text.find('.');
  std::string part = dot == std::string::npos ? "" : text.substr(dot + 1, 3);
  while (!part.empty() && part.back() == 'Z') {
    part.pop_back();
  }
  part.resize(3, '0');
  const std::string whole = text.substr(0, dot == std::string::npos ? text.size() - 1 : dot);
  return fleet::ParseTime(whole + "." + part + "Z").value_or(phone::UtcTime());
}

}  // namespace

SStored StoredOf(const SReply& reply) {
  const Json object = ObjectOf(reply);
  if (!object.is_object()) {
    return {};
  }
  if (ErrorOf(object) == kWrongLastSequence) {
    return {SStored::EKind::kRefused, 0};
  }
  const auto sequence = object.find("seq");
  if (object.contains("error") || sequence == object.end() || !sequence->is_number_unsigned()) {
    return {};
  }
  return {SStored::EKind::kStored, sequence->get<uint64_t>()};
}

SFound FoundOf(const SReply& reply) {
  SFound found;
  const Json object = ObjectOf(reply);
  if (!object.is_object()) {
    return found;
  }
  if (ErrorOf(object) == kNoMessage) {
    found.kind = SFound::EKind::kMissing;
  }
  const auto message = object.find("message");
  if (message != object.end() && message->is_object()) {
    found.kind = SFound::EKind::kThere;
    found.sequence = message->value("seq", uint64_t{0});
    found.data = fleet::FromBase64(message->value("data", std::string())).value_or("");
    found.time = TimeOf(message->value("time", std::string("Z")));
  }
  return found;
}

std::string LastOfSubject(const std::string& subject) {
  return Json{{"last_by_subj", subject}}.dump();
}

std::string GetSubject(const std::string& stream) {
  return "$JS.API.STREAM.MSG.GET." + stream;
}

}  // namespace node

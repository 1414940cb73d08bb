// SPDX-License-Identifier: GPL-2.0-only
#include "phone/request.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

namespace phone {

namespace {

constexpr const char* kBadRequest = "bad-request";

// What a command is called and which members it has beside id and do; those in brackets may be left out.
struct SForm {
  const char* name;
  EDo what;
  std::array<std::string_view, 3> members;
};

constexpr std::array<SForm, 9> kForms{{{"dial", EDo::kDial, {"channel", "number", "[from]"}},
                                       {"answer", EDo::kAnswer, {"channel"}},
                                       {"reject", EDo::kReject, {"channel"}},
                                       {"hangup", EDo::kHangup, {"channel"}},
                                       {"play", EDo::kPlay, {"channel", "file"}},
                                       {"stop", EDo::kStop, {"channel", "[what]"}},
                                       {"record", EDo::kRecord, {"channel", "file"}},
                                       {"digits", EDo::kDigits, {"channel", "digits"}},
                                       {"state", EDo::kState, {"[channel]"}}}};

[[noreturn]] void Fail(const std::string& text) {
  throw CRequestError(kBadRequest, text);
}

bool IsMember(const SForm& form, const std::string& name) {
  const auto isIt = [&name](std::string_view member) {
    const bool isOptional = !member.empty() && member.front() == '[';
    return !member.empty() && (isOptional ? member.substr(1, member.size() - 2) : member) == name;
  };
  return name == "id" || name == "do" || std::any_of(form.members.begin(), form.members.end(), isIt);
}

const SForm& FormOf(const Json& object) {
  const auto name = object.find("do");
  if (name == object.end() || !name->is_string()) {
    Fail("\"do\" is missing or is no text");
  }
  const auto form =
      std::find_if(kForms.begin(), kForms.end(), [&name](const SForm& each) { return *name == each.name; });
  if (form == kForms.end()) {
    Fail("there is no command " + name->dump());
  }
  for (const auto& member : object.items()) {
    if (!IsMember(*form, member.key())) {
      Fail(std::string(form->name) + " has no \"" + member.key() + "\"");
    }
  }
  for (const std::string_view member : form->members) {
    if (!member.empty() && member.front() != '[' && !object.contains(member)) {
      Fail(std::string(form->name) + " needs \"" + std::string(member) + "\"");
    }
  }
  return *form;
}

// Empty when it is not there.
std::optional<std::string> TextOf(const Json& object, const char* name) {
  const auto member = object.find(name);
  if (member == object.end()) {
    return std::nullopt;
  }
  if (!member->is_string() || member->get_ref<const std::string&>().find('\0') != std::string::npos) {
    Fail("\"" + std::string(name) + "\" is no text");
  }
  return member->get<std::string>();
}

std::optional<std::string> NumberOf(const Json& object, const char* name) {
  constexpr size_t kLongest = 31;
  std::optional<std::string> number = TextOf(object, name);
  if (number && (number->size() > kLongest || number->find_first_not_of("0123456789*#+") != std::string::npos)) {
    Fail("\"" + std::string(name) + "\" is no number of at most 31 characters 0-9 * # +");
  }
  return number;
}

std::optional<int32_t> ChannelOf(const Json& object) {
  const auto member = object.find("channel");
  if (member == object.end()) {
    return std::nullopt;
  }
  // A number that is too large for its type is none of these.
  if (!member->is_number_unsigned() || member->get<uint64_t>() > std::numeric_limits<int32_t>::max()) {
    Fail("\"channel\" is no number of a channel");
  }
  return member->get<int32_t>();
}

Json IdOf(const Json& object) {
  constexpr size_t kLongest = 100;
  const auto id = object.find("id");
  if (id == object.end() || !(id->is_number_integer() || id->is_string()) ||
      (id->is_string() && id->get_ref<const std::string&>().size() > kLongest)) {
    Fail("\"id\" is missing, or neither an integer nor a text of at most 100 bytes");
  }
  return *id;
}

void ReadMembers(const Json& object, SRequest& request) {
  request.what = FormOf(object).what;
  request.channel = ChannelOf(object);
  request.number = NumberOf(object, "number").value_or("");
  if (request.what == EDo::kDial && request.number.empty()) {
    Fail("\"number\" is empty");
  }
  request.from = NumberOf(object, "from");
  request.file = TextOf(object, "file").value_or("");
  request.digits = TextOf(object, "digits").value_or("");
  if (const std::optional<std::string> what = TextOf(object, "what")) {
    request.stopsPlay = *what == "play";
    request.stopsRecord = *what == "record";
    if (!request.stopsPlay && !request.stopsRecord) {
      Fail("\"what\" is neither \"play\" nor \"record\"");
    }
  }
}

}  // namespace

SRequest ParseRequest(const std::string& line) {
  Json object;
  try {
    object = Json::parse(line);
  } catch (const Json::parse_error& error) {
    throw CRequestError("bad-json", "no JSON at byte " + std::to_string(error.byte));
  }
  if (!object.is_object()) {
    throw CRequestError("bad-json", "no JSON object");
  }
  SRequest request;
  request.id = IdOf(object);
  try {
    ReadMembers(object, request);
  } catch (CRequestError& error) {
    error.id = request.id;
    throw;
  }
  return request;
}

}  // namespace phone

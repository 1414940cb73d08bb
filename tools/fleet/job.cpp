// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/job.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "fleet/names.h"

namespace fleet {

namespace {

constexpr size_t kLongestNumber = 31;
constexpr size_t kLongestFile = 200;
constexpr int kLongestWait = 3600;
constexpr int kMostDigits = 64;
constexpr int kMostAttempts = 20;

[[noreturn]] void Fail(const std::string& text) {
  throw CJobError(text);
}

std::string Quoted(const std::string& name) {
  return "\"" + name + "\"";
}

std::string TextOf(const std::string& name, const Json& value) {
  if (!value.is_string() || value.get_ref<const std::string&>().find('\0') != std::string::npos) {
    Fail(Quoted(name) + " is no text");
  }
  return value.get<std::string>();
}

std::string NumberOf(const std::string& name, const Json& value) {
  std::string number = TextOf(name, value);
  if (number.empty() || number.size() > kLongestNumber ||
      number.find_first_not_of("0123456789*#+") != std::string::npos) {
    Fail(Quoted(name) + " is no number of 1 to 31 characters 0-9 * # +");
  }
  return number;
}

int CountOf(const std::string& name, const Json& value, int least, int most) {
  const bool isThere = value.is_number_integer() && value.get<int64_t>() >= least && value.get<int64_t>() <= most;
  if (!isThere) {
    Fail(Quoted(name) + " is no whole number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return value.get<int>();
}

// A name in a folder: nothing that leads out of it.
std::string FileOf(const std::string& name, const Json& value) {
  std::string file = TextOf(name, value);
  if (file.empty() || file.size() > kLongestFile || file.front() == '.' || file.find('/') != std::string::npos) {
    Fail(Quoted(name) + " is no name of a file: no / in it, no dot in front, 1 to 200 bytes");
  }
  return file;
}

UtcTime TimeOf(const std::string& name, const Json& value) {
  const std::optional<UtcTime> time = ParseTime(TextOf(name, value));
  if (!time) {
    Fail(Quoted(name) + " is no time as 2026-01-31T08:09:10Z");
  }
  return *time;
}

STrunkName TrunkOf(const std::string& text) {
  STrunkName trunk;
  const char* end = text.data() + text.size();
  const auto card = std::from_chars(text.data(), end, trunk.card);
  if (card.ec == std::errc() && card.ptr != end && *card.ptr == '/') {
    const auto number = std::from_chars(card.ptr + 1, end, trunk.trunk);
    if (number.ec == std::errc() && number.ptr == end && trunk.trunk > 0) {
      return trunk;
    }
  }
  Fail("\"" + text + "\" in \"trunks\" is no trunk as 100001/1");
}

std::vector<STrunkName> TrunksOf(const Json& value) {
  if (!value.is_array()) {
    Fail("\"trunks\" is no list");
  }
  std::vector<STrunkName> trunks;
  for (const Json& each : value) {
    trunks.push_back(TrunkOf(TextOf("trunks", each)));
  }
  return trunks;
}

struct SMember {
  const char* name;
  void (*read)(SJob& job, const Json& value);
};

constexpr SMember kMembers[] = {
    {"id",
     [](SJob& job, const Json& value) {
       job.id = TextOf("id", value);
       if (!IsName(job.id, kLongestId)) {
         Fail("\"id\" has 1 to 64 letters, digits, - and _");
       }
     }},
    {"to", [](SJob& job, const Json& value) { job.to = NumberOf("to", value); }},
    {"from", [](SJob& job, const Json& value) { job.from = NumberOf("from", value); }},
    {"trunks", [](SJob& job, const Json& value) { job.trunks = TrunksOf(value); }},
    {"giveUpAfter",
     [](SJob& job, const Json& value) {
       job.giveUpAfter = std::chrono::seconds(CountOf("giveUpAfter", value, 1, kLongestWait));
     }},
    {"play", [](SJob& job, const Json& value) { job.play = FileOf("play", value); }},
    {"record", [](SJob& job, const Json& value) { job.record = FileOf("record", value); }},
    {"digits", [](SJob& job, const Json& value) { job.digits = CountOf("digits", value, 0, kMostDigits); }},
    {"attempts", [](SJob& job, const Json& value) { job.attempts = CountOf("attempts", value, 1, kMostAttempts); }},
    {"notBefore", [](SJob& job, const Json& value) { job.notBefore = TimeOf("notBefore", value); }},
    {"notAfter", [](SJob& job, const Json& value) { job.notAfter = TimeOf("notAfter", value); }},
};

const SMember* MemberOf(const std::string& name) {
  const auto* const found = std::find_if(std::begin(kMembers), std::end(kMembers),
                                         [&name](const SMember& each) { return name == each.name; });
  return found == std::end(kMembers) ? nullptr : found;
}

// What a cell of a table says, as the member has it in JSON.
Json ValueOfCell(const std::string& name, const std::string& text) {
  if (name == "trunks") {
    Json list = Json::array();
    for (size_t begin = 0; begin < text.size();) {
      const size_t end = std::min(text.find(' ', begin), text.size());
      if (end > begin) {
        list.push_back(text.substr(begin, end - begin));
      }
      begin = end + 1;
    }
    return list;
  }
  int number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isCount = name == "giveUpAfter" || name == "digits" || name == "attempts";
  const bool isNumber = isCount && read.ec == std::errc() && read.ptr == text.data() + text.size();
  return isNumber ? Json(number) : Json(text);
}

}  // namespace

std::optional<UtcTime> ParseTime(const std::string& text) {
  int year = 0;
  unsigned month = 0;
  unsigned day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int read = 0;
  // NOLINTNEXTLINE(cert-err34-c): the widths keep each number within its type
  if (std::sscanf(text.c_str(), "%4d-%2u-%2uT%2d:%2d:%2d%n", &year, &month, &day, &hour, &minute, &second, &read) !=
      6) {
    return std::nullopt;
  }
  std::string rest = text.substr(static_cast<size_t>(read));
  int milliseconds = 0;
  if (rest.size() == 5 && rest.front() == '.') {
    const auto part = std::from_chars(rest.data() + 1, rest.data() + 4, milliseconds);
    rest = part.ptr == rest.data() + 4 ? rest.substr(4) : "";
  }
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
  if (rest != "Z" || !date.ok() || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60) {
    return std::nullopt;
  }
  return std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
         std::chrono::seconds(second) + std::chrono::milliseconds(milliseconds);
}

SJob JobOf(const Json& object) {
  if (!object.is_object()) {
    Fail("a job is a JSON object");
  }
  SJob job;
  for (const auto& [name, value] : object.items()) {
    const SMember* member = MemberOf(name);
    if (member == nullptr) {
      Fail("a job has no \"" + name + "\"");
    }
    member->read(job, value);
  }
  if (job.id.empty() || job.to.empty()) {
    Fail(job.id.empty() ? "\"id\" is missing" : "\"to\" is missing");
  }
  if (job.notBefore && job.notAfter && *job.notAfter < *job.notBefore) {
    Fail("\"notAfter\" is before \"notBefore\"");
  }
  return job;
}

SJob ParseJob(const std::string& text) {
  const Json object = Json::parse(text, nullptr, false);
  if (object.is_discarded()) {
    Fail("no JSON");
  }
  return JobOf(object);
}

SJob JobOfTexts(const std::vector<std::string>& names, const std::vector<std::string>& values) {
  if (values.size() != names.size()) {
    Fail(std::to_string(values.size()) + " cells, the first line has " + std::to_string(names.size()));
  }
  Json object = Json::object();
  for (size_t i = 0; i < names.size(); ++i) {
    if (!values[i].empty()) {
      object[names[i]] = ValueOfCell(names[i], values[i]);
    }
  }
  return JobOf(object);
}

Json JsonOf(const SJob& job) {
  Json object = {{"id", job.id}, {"to", job.to}};
  if (job.from) {
    object["from"] = *job.from;
  }
  for (const STrunkName& trunk : job.trunks) {
    object["trunks"].push_back(std::to_string(trunk.card) + "/" + std::to_string(trunk.trunk));
  }
  object["giveUpAfter"] = job.giveUpAfter.count();
  for (const auto& [name, value] : {std::pair{"play", &job.play}, std::pair{"record", &job.record}}) {
    if (!value->empty()) {
      object[name] = *value;
    }
  }
  object["digits"] = job.digits;
  object["attempts"] = job.attempts;
  if (job.notBefore) {
    object["notBefore"] = phone::IsoTime(*job.notBefore);
  }
  if (job.notAfter) {
    object["notAfter"] = phone::IsoTime(*job.notAfter);
  }
  return object;
}

}  // namespace fleet

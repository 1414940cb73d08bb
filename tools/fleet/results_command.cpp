// SPDX-License-Identifier: GPL-2.0-only
#include <cstdio>

#include "fleet/commands.h"
#include "fleet/job.h"
#include "fleet/result_reader.h"

namespace fleet {

namespace {

constexpr const char* kColumns[] = {"id",   "to",      "outcome", "cause",     "causeName", "attempt",
                                    "node", "channel", "digits",  "recording", "message"};
constexpr const char* kTimes[] = {"taken", "dialled", "proceeding", "alerting", "connected", "played", "ended"};

std::string Cell(const Json& object, const char* name) {
  const auto member = object.find(name);
  if (member == object.end() || member->is_null()) {
    return "";
  }
  std::string text = member->is_string() ? member->get<std::string>() : member->dump();
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    return text;
  }
  std::string quoted = "\"";
  for (const char byte : text) {
    quoted += byte == '"' ? "\"\"" : std::string(1, byte);
  }
  return quoted + "\"";
}

void PrintHead() {
  std::string line;
  for (const char* name : kColumns) {
    line += (line.empty() ? "" : ",") + std::string(name);
  }
  for (const char* name : kTimes) {
    line += std::string(",") + name;
  }
  std::printf("%s\n", line.c_str());
}

void PrintRow(const std::string& text) {
  const Json result = Json::parse(text, nullptr, false);
  std::string line;
  bool isFirst = true;
  for (const char* name : kColumns) {
    line += (isFirst ? "" : ",") + Cell(result, name);
    isFirst = false;
  }
  const Json times = result.value("times", Json::object());
  for (const char* name : kTimes) {
    line += "," + Cell(times, name);
  }
  std::printf("%s\n", line.c_str());
}

}  // namespace

int RunResults(const SLinkOptions& link, const SNames& names, bool asTable) {
  CLink connection(link, [](SMail&& /*mail*/) {});
  if (asTable) {
    PrintHead();
  }
  CResultReader(connection, link, names).ReadNew([asTable](const std::string& text) {
    if (asTable) {
      PrintRow(text);
    } else {
      std::printf("%s\n", text.c_str());
    }
  });
  return 0;
}

}  // namespace fleet

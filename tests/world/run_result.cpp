// SPDX-License-Identifier: GPL-2.0-only
#include <sstream>

#include "world/apart.h"
#include "world/run.h"

namespace world {
namespace {

void Write(std::ostream& out, const std::string& text) {
  out << text.size() << ' ' << text << ' ';
}

std::string ReadText(std::istream& in) {
  size_t length = 0;
  in >> length;
  in.get();
  std::string text(in ? length : 0, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  return text;
}

}  // namespace

std::string SRunResult::ToText() const {
  std::ostringstream out;
  out << hash << ' ' << steps << ' ' << virtualMs << ' ' << calls << ' ' << comparedCalls << ' ' << events << ' '
      << grownBytes << ' ' << allocations << ' ';
  Write(out, log);
  Write(out, eventText);
  out << failures.size() << ' ';
  for (const std::string& failure : failures) {
    Write(out, failure);
  }
  return out.str();
}

std::optional<SRunResult> SRunResult::FromText(const std::string& text) {
  std::istringstream in(text);
  SRunResult result;
  in >> result.hash >> result.steps >> result.virtualMs >> result.calls >> result.comparedCalls >> result.events >>
      result.grownBytes >> result.allocations;
  result.log = ReadText(in);
  result.eventText = ReadText(in);
  size_t count = 0;
  in >> count;
  for (size_t i = 0; in && i < count; ++i) {
    result.failures.push_back(ReadText(in));
  }
  return in ? std::optional<SRunResult>(result) : std::nullopt;
}

SRunResult RunApart(const std::function<SRunResult()>& run) {
  const SApart apart = DoApart([&run] { return run().ToText(); });
  std::optional<SRunResult> result = apart.isDone ? SRunResult::FromText(apart.result) : std::nullopt;
  if (!result) {
    result.emplace();
    result->failures.push_back("the world's process " + (apart.isDone ? "told nonsense" : apart.result));
  }
  return *result;
}

SRunResult RunWorldApart(const SWorldPlan& plan, const SWireFile& wire) {
  return RunApart([&] { return RunWorld(plan, wire); });
}

}  // namespace world

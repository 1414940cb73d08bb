// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/scenario/scenario_file.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "cardsim/scenario/builtins.h"
#include "cardsim/scenario/step_file.h"
#include "cardsim/scenario/toml_table.h"
#include "common/wire.h"

namespace cardsim {
namespace {

constexpr const char* kBuiltIn = "builtin:";

bool ReadOrigin(CTomlTable& table) {
  const std::string from = table.Text("from").value_or("far end");
  if (from != "library" && from != "far end") {
    FailAt(*table.Find("from"), "from is neither \"library\" nor \"far end\"");
  }
  return from == "library";
}

// A number, or "any": the SETUP leaves the choice to the library.
int ReadTimeslot(CTomlTable& table) {
  const toml::value* value = table.Find("timeslot");
  if (value == nullptr) {
    return SCallRequest::kAutoTimeslot;
  }
  if (value->is_string() && value->as_string().str == "any") {
    return SCallRequest::kAnyChannel;
  }
  const int timeslot = *table.Integer("timeslot", 1, 31);
  if (timeslot == kSignallingTimeslot) {
    FailAt(*value, "timeslot 16 carries the signalling");
  }
  return timeslot;
}

void ReadPlace(CTomlTable& table, SScenarioCall& call) {
  call.isFromLibrary = ReadOrigin(table);
  call.card = table.Integer("card", 1, kMaxCards).value_or(call.isFromLibrary ? 0 : 1) - 1;
  call.trunk = table.Integer("trunk", 1, kMaxTrunks).value_or(call.isFromLibrary ? 0 : 1) - 1;
  const bool hasTimeslot = table.Find("timeslot") != nullptr;
  call.timeslot = ReadTimeslot(table);
  if (hasTimeslot && call.isFromLibrary) {
    FailAt(*table.Find("timeslot"), "the library chooses the timeslot of its calls");
  }
  call.calling = table.Text("calling").value_or(call.isFromLibrary ? "" : SCallRequest{}.calling);
  call.called = table.Text("called").value_or(call.isFromLibrary ? "" : SCallRequest{}.called);
  call.redirecting = table.Text("redirecting").value_or("");
}

SScenarioCall ReadCall(const toml::value& value, std::size_t number, const std::string& folder) {
  CTomlTable table(value);
  SScenarioCall call;
  call.name = table.Text("name").value_or("call " + std::to_string(number));
  ReadPlace(table, call);
  call.repeat = table.Integer("repeat", 1, 1000000).value_or(1);
  call.perSecond = table.Rate("rate").value_or(0);
  call.within = table.Time("within").value_or(call.within);
  const toml::value* steps = table.Find("steps");
  if (steps == nullptr || !steps->is_array() || steps->as_array().empty()) {
    FailAt(steps == nullptr ? value : *steps, "a call needs steps = [ {...}, ... ]");
  }
  for (const toml::value& step : steps->as_array()) {
    call.steps.push_back(ReadStep(step, folder, call.isFromLibrary));
  }
  table.RequireAllKnown();
  return call;
}

toml::value Parse(const std::string& text, const std::string& name) {
  try {
    std::istringstream stream(text);
    return toml::parse(stream, name);
  } catch (const toml::exception& error) {
    const toml::source_location& place = error.location();
    throw CScenarioError(name + ":" + std::to_string(place.line()) + ":" + std::to_string(place.column()) +
                         ": no TOML: " + place.line_str());
  } catch (const std::exception& error) {
    throw CScenarioError(name + ":1:1: no TOML: " + error.what());
  }
}

}  // namespace

SScenario ParseScenario(const std::string& toml, const std::string& name) {
  const toml::value file = Parse(toml, name);
  CTomlTable table(file);
  SScenario scenario;
  scenario.name = table.Text("name").value_or(std::filesystem::path(name).stem().string());
  const toml::value* calls = table.Find("call");
  if (calls == nullptr || !calls->is_array() || calls->as_array().empty()) {
    throw CScenarioError(name + ":1:1: no [[call]] in it");
  }
  for (const toml::value& call : calls->as_array()) {
    scenario.calls.push_back(
        ReadCall(call, scenario.calls.size() + 1, std::filesystem::path(name).parent_path().string()));
  }
  table.RequireAllKnown();
  return scenario;
}

SScenario ReadScenario(const std::string& path) {
  if (path.rfind(kBuiltIn, 0) == 0) {
    const std::string name = path.substr(std::string(kBuiltIn).size());
    const SBuiltIn* const builtIn = FindBuiltIn(name);
    if (builtIn == nullptr) {
      throw CScenarioError(path + ":1:1: there is no such scenario, see --list");
    }
    return ParseScenario(builtIn->toml, path);
  }
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || file.bad()) {
    throw CScenarioError(path + ":1:1: cannot be read");
  }
  return ParseScenario(text, path);
}

}  // namespace cardsim

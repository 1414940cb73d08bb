// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <map>
#include <nlohmann/json.hpp>

#include "trace/core/text.h"
#include "trace/program/commands.h"
#include "trace/program/run.h"

namespace trace {
namespace {

using nlohmann::ordered_json;

// Milliseconds between two moments, or nothing when one of them never was.
std::optional<double> Milliseconds(Time from, Time to) {
  if (from == 0 || to == 0) {
    return std::nullopt;
  }
  return static_cast<double>(to - from) / static_cast<double>(kMillisecond);
}

Time EndOf(const SCall& call) {
  return call.clearing != 0 ? call.clearing : call.end;
}

ordered_json Optional(const std::optional<double>& value) {
  return value ? ordered_json(*value) : ordered_json(nullptr);
}

ordered_json JsonOf(const SCall& call) {
  return {{"number", call.number},
          {"begin", IsoTime(call.begin)},
          {"card", call.serial == 0 ? ordered_json(nullptr) : ordered_json(call.serial)},
          {"address", AddressText(call.card)},
          {"trunk", call.trunk + 1},
          {"timeslot", call.timeslot < 0 ? ordered_json(nullptr) : ordered_json(call.timeslot)},
          {"direction", call.fromLibrary ? "from library" : "to library"},
          {"calling", call.calling},
          {"called", call.called},
          {"redirecting", call.redirecting},
          {"alertingMs", Optional(Milliseconds(call.begin, call.alerting))},
          {"setupMs", Optional(Milliseconds(call.begin, call.connected))},
          {"connected", call.connected != 0},
          {"durationMs", Optional(Milliseconds(call.connected, EndOf(call)))},
          {"cause", call.cause < 0 ? ordered_json(nullptr) : ordered_json(call.cause)},
          {"causeName", CauseName(call.cause)},
          {"clearedBy", ClearedByName(call)},
          {"end", EndName(call.how)},
          {"begunBefore", call.isBegunBefore},
          {"gap", call.isPassedGap}};
}

// A field as RFC 4180 has it.
std::string Field(const ordered_json& value) {
  std::string text;
  if (value.is_string()) {
    text = value.get<std::string>();
  } else if (value.is_number_float()) {
    text = fmt::format("{:.3f}", value.get<double>());
  } else if (!value.is_null()) {
    text = value.dump();
  }
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    return text;
  }
  std::string quoted = "\"";
  for (const char letter : text) {
    quoted += letter == '"' ? "\"\"" : std::string(1, letter);
  }
  return quoted + "\"";
}

std::string CsvOf(const ordered_json& call, bool isHead) {
  std::string line;
  for (const auto& [name, value] : call.items()) {
    line += (line.empty() ? "" : ",") + (isHead ? name : Field(value));
  }
  return line + "\r\n";
}

std::string DurationText(const SCall& call) {
  const std::optional<double> duration = Milliseconds(call.connected, EndOf(call));
  if (duration) {
    return fmt::format("{:.1f} s", *duration / 1000);
  }
  return call.connected != 0 ? "connected" : "not connected";
}

std::string CauseText(const SCall& call) {
  std::string text = call.cause < 0 ? "" : fmt::format("{} {}", call.cause, CauseName(call.cause));
  if (call.clearedBy) {
    text += fmt::format("{}by {}", text.empty() ? "" : " ", ClearedByName(call));
  }
  if (call.how != ECallEnd::kReleased) {
    text += fmt::format("{}{}", text.empty() ? "" : ", ", EndName(call.how));
  }
  return text + (call.isBegunBefore ? ", begun before the capture" : "") + (call.isPassedGap ? ", gap" : "");
}

std::string LineOf(const SCall& call) {
  const std::string slot = call.timeslot < 0 ? "?" : std::to_string(call.timeslot);
  return fmt::format("{:>5}  {}  {}-{} {:>2}  {}  {} -> {}  {:>13}  {}\n", call.number, IsoTime(call.begin),
                     CardName(call), call.trunk + 1, slot, call.fromLibrary ? "out" : "in ", Printable(call.calling),
                     Printable(call.called), DurationText(call), CauseText(call));
}

// Job: prints a line for each call, in the order of their begins. A call that has ended waits for the ones before it.
class CCallPrinter : public ITraceSink {
 public:
  explicit CCallPrinter(const SCallsOptions& callsOptions) : options(callsOptions) {}

  void OnCallBegins(const SCall& call) override { lines[call.number] = std::nullopt; }
  void OnCallEnds(const SCall& call) override {
    lines[call.number] = IsWanted(call) ? TextOf(call) : std::string();
    while (!lines.empty() && lines.begin()->second) {
      PrintCall(*lines.begin()->second);
      lines.erase(lines.begin());
    }
  }
  void Begin() const {
    if (options.form == EForm::kCsv) {
      Print(CsvOf(JsonOf({}), true));
    }
  }
  void End() const {
    if (options.form == EForm::kJson) {
      Print(count == 0 ? "[]\n" : "\n]\n");
    }
  }
  std::uint64_t Count() const { return count; }

 private:
  bool IsWanted(const SCall& call) const {
    const bool isNumber = options.number.empty() || MatchesGlob(options.number, call.calling) ||
                          MatchesGlob(options.number, call.called) || MatchesGlob(options.number, call.redirecting);
    return isNumber && (options.cause < 0 || options.cause == call.cause);
  }

  std::string TextOf(const SCall& call) const {
    if (options.form == EForm::kText) {
      return LineOf(call);
    }
    const ordered_json json = JsonOf(call);
    // Numbers come from the line: bytes that are no UTF-8 are replaced.
    return options.form == EForm::kCsv ? CsvOf(json, false)
                                       : json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
  }

  void PrintCall(const std::string& text) {
    if (text.empty()) {
      return;
    }
    if (options.form == EForm::kJson) {
      Print(count == 0 ? "[\n  " : ",\n  ");
    }
    Print(text);
    ++count;
    if (options.input.file == "-" || !options.input.adapter.empty()) {
      FlushOutput();  // it may be live
    }
  }

  const SCallsOptions& options;
  std::uint64_t count = 0;
  std::map<std::uint64_t, std::optional<std::string>> lines;
};

}  // namespace

EExit RunCalls(const SCallsOptions& options) {
  CCallPrinter printer(options);
  printer.Begin();
  const EExit result = Analyse(options.input, printer);
  printer.End();
  return result == EExit::kDone && printer.Count() == 0 ? EExit::kNothingFound : result;
}

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#include "replay/report.h"

#include <fmt/format.h>

#include "runtime/log.h"
#include "trace/core/text.h"
#include "zelk/ZelkApi.h"

namespace replay {
namespace {

CReport* openReport = nullptr;  // the log has no other way to it

std::string EventName(std::uint32_t event) {
  switch (event) {
    case ZELK_EVENT_INCOMING_CALL:
      return "INCOMING_CALL";
    case ZELK_EVENT_CONNECTED:
      return "CONNECTED";
    case ZELK_EVENT_DISCONNECTED:
      return "DISCONNECTED";
    case ZELK_EVENT_ALERTING:
      return "ALERTING";
    case ZELK_EVENT_PROCEEDING:
      return "PROCEEDING";
    case ZELK_EVENT_PROGRESS:
      return "PROGRESS";
    case ZELK_EVENT_CHANNEL_STATE:
      return "CHANNEL_STATE";
    default:
      return fmt::format("0x{:x}", event);
  }
}

// A JSON string. Bytes beyond ASCII have become dots.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char character : trace::Printable(text)) {
    quoted += character == '"' || character == '\\' ? std::string("\\") + character : std::string(1, character);
  }
  return quoted + '"';
}

std::string ChannelText(std::int32_t channel) {
  return channel == zelk::kGeneralLine ? "  G" : fmt::format("{:3}", channel);
}

}  // namespace

CReport::CReport(bool asJson, std::FILE* outputStream) : isJson(asJson), stream(outputStream) {
  openReport = this;
}

CReport::~CReport() {
  openReport = nullptr;
}

void CReport::Event(std::int32_t channel, std::uint32_t event, std::int32_t parameter) {
  const std::string name = EventName(event);
  // This one's parameter is whatever libpri has left there: not the same twice.
  const std::string value = event == ZELK_EVENT_PROCEEDING ? "" : std::to_string(parameter);
  Line("event",
       fmt::format("\"channel\":{},\"event\":\"{}\",\"parameter\":{}", channel, name, value.empty() ? "null" : value),
       fmt::format("{} {}{}{}", ChannelText(channel), name, value.empty() ? "" : " ", value));
}

void CReport::Log(std::int32_t channel, const std::string& text) {
  const std::string line = text.substr(0, text.find_last_not_of("\r\n") + 1);
  const std::string number = channel == zelk::kGeneralLine ? "null" : std::to_string(channel);
  Line("log", fmt::format("\"channel\":{},\"text\":{}", number, Quoted(line)),
       fmt::format("{} {}", ChannelText(channel), trace::Printable(line)));
}

void CReport::Act(std::int32_t channel, const std::string& what) {
  Line("act", fmt::format("\"channel\":{},\"act\":{}", channel, Quoted(what)),
       fmt::format("{} {}", ChannelText(channel), trace::Printable(what)));
}

void CReport::Different(const SDifference& difference) {
  Line("different",
       fmt::format("\"what\":{},\"packet\":{},\"call\":{},\"expected\":{},\"got\":{}", Quoted(difference.what),
                   difference.packet, Quoted(difference.call), Quoted(difference.expected), Quoted(difference.got)),
       fmt::format("{}\n  call      {}\n  packet    {}\n  expected  {}\n  got       {}", difference.what,
                   difference.call.empty() ? "none" : difference.call, difference.packet,
                   difference.expected.empty() ? "nothing" : difference.expected,
                   difference.got.empty() ? "nothing" : difference.got));
}

void CReport::Same(std::uint64_t sent, std::uint64_t received) {
  Line("same", fmt::format("\"sent\":{},\"received\":{}", sent, received),
       fmt::format("all {} frames that the library sent are as recorded; it received {}", sent, received));
}

void CReport::Line(const char* type, const std::string& json, const std::string& text) const {
  const std::string time = trace::IsoTime(Now());
  const std::string line = isJson ? fmt::format("{{\"type\":\"{}\",\"time\":\"{}\",{}}}\n", type, time, json)
                                  : fmt::format("{} {:9} {}\n", time, type, text);
  std::fwrite(line.data(), 1, line.size(), stream);
}

}  // namespace replay

// zelk::CLogWriter::Line, in whose place the linker's --wrap puts this: a line is told when it is logged.
extern "C" void __wrap__ZN4zelk10CLogWriter4LineEPKci(zelk::CLogWriter* writer, const char* text, std::int32_t channel);

void __wrap__ZN4zelk10CLogWriter4LineEPKci(zelk::CLogWriter*, const char* text, std::int32_t channel) {
  if (replay::openReport != nullptr) {
    replay::openReport->Log(channel, text == nullptr ? "" : text);
  }
}

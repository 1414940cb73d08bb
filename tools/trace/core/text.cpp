// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace trace {
namespace {

constexpr std::pair<int, const char*> kCauses[] = {
    {1, "UNALLOCATED"},
    {2, "NO_ROUTE_TRANSIT_NET"},
    {3, "NO_ROUTE_DESTINATION"},
    {4, "SEND_SIT"},
    {5, "MISDIALED_TRUNK_PREFIX"},
    {6, "CHANNEL_UNACCEPTABLE"},
    {7, "CALL_AWARDED_DELIVERED"},
    {8, "CALL_PREEMPTED"},
    {9, "CALL_PREEMPTED_RESERVED"},
    {16, "NORMAL_CLEARING"},
    {17, "USER_BUSY"},
    {18, "NO_USER_RESPONSE"},
    {19, "NO_ANSWER"},
    {20, "SUBSCRIBER_ABSENT"},
    {21, "CALL_REJECTED"},
    {22, "NUMBER_CHANGED"},
    {26, "NONSELECTED_USER_CLEARING"},
    {27, "DESTINATION_OUT_OF_ORDER"},
    {28, "INVALID_NUMBER_FORMAT"},
    {29, "FACILITY_REJECTED"},
    {30, "RESPONSE_TO_STATUS_ENQUIRY"},
    {31, "NORMAL_UNSPECIFIED"},
    {34, "NORMAL_CIRCUIT_CONGESTION"},
    {38, "NETWORK_OUT_OF_ORDER"},
    {41, "NORMAL_TEMPORARY_FAILURE"},
    {42, "SWITCH_CONGESTION"},
    {43, "ACCESS_INFO_DISCARDED"},
    {44, "REQUESTED_CHAN_UNAVAIL"},
    {45, "PREEMPTED"},
    {46, "PRECEDENCE_CALL_BLOCKED"},
    {47, "RESOURCE_UNAVAIL_UNSPECIFIED"},
    {50, "FACILITY_NOT_SUBSCRIBED"},
    {52, "OUTGOING_CALL_BARRED"},
    {53, "OUTGOING_CALL_BARRED_CUG"},
    {54, "INCOMING_CALL_BARRED"},
    {55, "INCOMING_CALL_BARRED_CUG"},
    {57, "BEARERCAPABILITY_NOTAUTH"},
    {58, "BEARERCAPABILITY_NOTAVAIL"},
    {62, "INVALID_OUTGOING_IE"},
    {63, "SERVICEOROPTION_NOTAVAIL"},
    {65, "BEARERCAPABILITY_NOTIMPL"},
    {66, "CHAN_NOT_IMPLEMENTED"},
    {69, "FACILITY_NOT_IMPLEMENTED"},
    {70, "RESTRICTED_BEARER_CAPABILITY"},
    {79, "OPTION_NOT_IMPLEMENTED"},
    {81, "INVALID_CALL_REFERENCE"},
    {82, "IDENTIFIED_CHANNEL_NOTEXIST"},
    {87, "INVALID_MEMBER_CUG"},
    {88, "INCOMPATIBLE_DESTINATION"},
    {90, "INVALID_CUG"},
    {95, "INVALID_MSG_UNSPECIFIED"},
    {96, "MANDATORY_IE_MISSING"},
    {97, "MESSAGE_TYPE_NONEXIST"},
    {98, "INVALID_MESSAGE"},
    {99, "IE_NONEXIST"},
    {100, "INVALID_IE_CONTENTS"},
    {101, "WRONG_CALL_STATE"},
    {102, "RECOVERY_ON_TIMER_EXPIRE"},
    {103, "MANDATORY_IE_LENGTH_ERROR"},
    {111, "PROTOCOL_ERROR"},
    {127, "INTERWORKING"},
};

}  // namespace

std::string IsoTime(Time time) {
  namespace chrono = std::chrono;
  if (time == 0) {
    return {};
  }
  const chrono::sys_time<chrono::milliseconds> at{chrono::floor<chrono::milliseconds>(chrono::nanoseconds(time))};
  const auto day = chrono::floor<chrono::days>(at);
  const chrono::year_month_day date(day);
  const chrono::hh_mm_ss clock(at - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                     clock.minutes().count(), clock.seconds().count(), clock.subseconds().count());
}

const char* CauseName(int cause) {
  const auto* found =
      std::find_if(std::begin(kCauses), std::end(kCauses), [cause](const auto& entry) { return entry.first == cause; });
  if (found != std::end(kCauses)) {
    return found->second;
  }
  return cause < 0 ? "" : "REASON_UNKNOWN";
}

std::string Printable(const std::string& text) {
  std::string out = text;
  std::replace_if(
      out.begin(), out.end(), [](char letter) { return letter < ' ' || letter > '~'; }, '.');
  return out;
}

bool MatchesGlob(const std::string& pattern, const std::string& text) {
  // Where to go on when what follows the last star does not fit.
  std::size_t star = std::string::npos;
  std::size_t retry = 0;
  std::size_t at = 0;
  std::size_t place = 0;
  while (place < text.size()) {
    if (at < pattern.size() && pattern[at] == '*') {
      star = at++;
      retry = place;
    } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == text[place])) {
      ++at;
      ++place;
    } else if (star != std::string::npos) {
      at = star + 1;
      place = ++retry;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', at) == std::string::npos;
}

std::string CardName(const SCall& call) {
  return call.serial != 0 ? std::to_string(call.serial) : AddressText(call.card);
}

const char* EndName(ECallEnd how) {
  switch (how) {
    case ECallEnd::kReleased:
      return "released";
    case ECallEnd::kRestarted:
      return "restarted";
    case ECallEnd::kConnectionLost:
      return "connection lost";
    case ECallEnd::kReplaced:
      return "end not seen";
    case ECallEnd::kOpen:
      break;
  }
  return "open";
}

const char* ClearedByName(const SCall& call) {
  if (!call.clearedBy) {
    return "";
  }
  return *call.clearedBy == EDirection::kFromLibrary ? "library" : "network";
}

}  // namespace trace

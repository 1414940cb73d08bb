// SPDX-License-Identifier: GPL-2.0-only
#include "call/disconnect_cause.h"

#include <array>
#include <cstddef>

namespace zelk {

namespace {

constexpr int32_t kMaxCause = 127;

struct SCauseName {
  int32_t cause;
  const char* name;
};

constexpr SCauseName kCauseNames[] = {
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

// By number, so that a look-up is one index; null where the Recommendation's number has no name here.
constexpr std::array<const char*, kMaxCause + 1> MakeNameByCause() {
  std::array<const char*, kMaxCause + 1> names = {};
  for (const SCauseName& entry : kCauseNames) {
    names[static_cast<std::size_t>(entry.cause)] = entry.name;
  }
  return names;
}

constexpr std::array<const char*, kMaxCause + 1> kNameByCause = MakeNameByCause();

}  // namespace

const char* DisconnectCauseName(int32_t cause) {
  const char* name = cause >= 0 && cause <= kMaxCause ? kNameByCause[static_cast<std::size_t>(cause)] : nullptr;
  return name != nullptr ? name : "REASON_UNKNOWN";
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "card/card_handlers.h"

namespace zelk {

// What a card told its handlers, once.
struct SReport {
  enum class EKind {
    kCardUp,
    kCardDown,
    kNotice,
    kReopening,
    kDchannelUp,
    kDchannelDown,
    kConfigError,
    kLineStatus,
    kQueueOverflow,
    kHdlcError,
    kLinkReset,
    kRegister,
    kCallEvent,
  };

  EKind kind;
  uint32_t trunk = 0;
  uint32_t number = 0;  // of a register or a B-channel
  uint32_t value = 0;   // status, queue, error, a register's content or the call event
  std::string text{};   // of a notice

  bool operator==(const SReport&) const = default;
};

using Reports = std::vector<SReport>;

inline void PrintTo(const SReport& report, std::ostream* out) {
  static constexpr const char* kNames[] = {"CardUp",       "CardDown",    "Notice",     "Reopening",     "DchannelUp",
                                           "DchannelDown", "ConfigError", "LineStatus", "QueueOverflow", "HdlcError",
                                           "LinkReset",    "Register",    "CallEvent"};
  *out << kNames[static_cast<size_t>(report.kind)] << "{trunk " << report.trunk << ", number " << report.number
       << ", value " << report.value << ", \"" << report.text << "\"}";
}

inline SReport CardUp() {
  return {SReport::EKind::kCardUp};
}
inline SReport CardDown() {
  return {SReport::EKind::kCardDown};
}
inline SReport Notice(const std::string& text) {
  return {SReport::EKind::kNotice, 0, 0, 0, text};
}
inline SReport Reopening() {
  return {SReport::EKind::kReopening};
}
inline SReport DchannelUp(uint32_t trunk) {
  return {SReport::EKind::kDchannelUp, trunk};
}
inline SReport DchannelDown(uint32_t trunk) {
  return {SReport::EKind::kDchannelDown, trunk};
}
inline SReport ConfigError(uint32_t trunk) {
  return {SReport::EKind::kConfigError, trunk};
}
inline SReport LineStatus(uint32_t trunk, uint32_t status) {
  return {SReport::EKind::kLineStatus, trunk, 0, status};
}
inline SReport QueueOverflow(uint32_t trunk, uint32_t queue) {
  return {SReport::EKind::kQueueOverflow, trunk, 0, queue};
}
inline SReport HdlcError(uint32_t trunk, uint32_t error) {
  return {SReport::EKind::kHdlcError, trunk, 0, error};
}
inline SReport LinkReset(uint32_t trunk, uint32_t error) {
  return {SReport::EKind::kLinkReset, trunk, 0, error};
}
inline SReport Register(uint32_t trunk, uint32_t registerNumber, uint32_t value) {
  return {SReport::EKind::kRegister, trunk, registerNumber, value};
}
inline SReport CallEvent(uint32_t trunk, uint32_t bchannel, ECallEvent code) {
  return {SReport::EKind::kCallEvent, trunk, bchannel, code};
}

}  // namespace zelk

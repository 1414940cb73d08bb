// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace phone {

// Objects keep the order in which their members were given.
using Json = nlohmann::ordered_json;
using UtcTime = std::chrono::system_clock::time_point;

constexpr int kSchema = 1;  // raised when readers have to change

// As in 2026-01-31T08:09:10.123Z.
std::string IsoTime(UtcTime time);

// One line, without its end: type and time first, then the fields. ASCII alone; a byte that is not UTF-8 becomes
// U+FFFD.
std::string JsonLine(const char* type, UtcTime time, const Json& fields);

// A text of the signalling, whose bytes from 128 up have no character set: each becomes the character of its number.
std::string TextOfLine(const std::string& bytes);

}  // namespace phone

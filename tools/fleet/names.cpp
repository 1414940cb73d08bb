// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/names.h"

#include <stdexcept>

namespace fleet {

namespace {

std::string Checked(const std::string& name) {
  if (!IsName(name, kLongestName)) {
    throw std::invalid_argument("\"" + name + "\" is no name of a fleet: letters, digits, - and _, 32 at most");
  }
  return name;
}

}  // namespace

bool IsName(const std::string& text, size_t longest) {
  return !text.empty() && text.size() <= longest &&
         text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_") ==
             std::string::npos;
}

SNames::SNames(const std::string& fleetName)
    : root("zelk." + Checked(fleetName) + "."),
      jobs("zelk-" + fleetName + "-jobs"),
      results("zelk-" + fleetName + "-results"),
      claims("zelk-" + fleetName + "-claims"),
      nodes("zelk-" + fleetName + "-nodes"),
      sounds("zelk-" + fleetName + "-sounds") {}

std::string SNames::Event(const std::string& node, int32_t channel) const {
  return root + "event." + node + "." + (channel < 0 ? "node" : std::to_string(channel));
}

std::string SNames::ClaimKey(const std::string& id, int attempt) const {
  return "$KV." + claims + "." + id + "." + std::to_string(attempt);
}

}  // namespace fleet

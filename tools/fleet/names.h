// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

namespace fleet {

// Letters, digits, - and _: what may stand in a subject and in the name of a stream alike.
bool IsName(const std::string& text, size_t longest);

constexpr size_t kLongestName = 32;  // of a fleet or a host
constexpr size_t kLongestId = 64;    // of a job

// The subjects, streams and buckets of one fleet. docs/fleet.md lists them.
struct SNames {
  // Throws std::invalid_argument for a name that is none.
  explicit SNames(const std::string& fleetName);

  std::string Job(const std::string& id) const { return root + "job." + id; }
  std::string Result(const std::string& id) const { return root + "result." + id; }
  std::string Event(const std::string& node, int32_t channel) const;
  std::string Do(const std::string& node) const { return root + "do." + node; }
  std::string Incoming() const { return root + "incoming"; }
  std::string ClaimKey(const std::string& id, int attempt) const;
  std::string NodeKey(const std::string& node) const { return "$KV." + nodes + "." + node; }

  const std::string root;  // "zelk.FLEET."
  const std::string jobs, results;
  const std::string claims, nodes, sounds;  // buckets
};

// The name of the consumer through which the hosts of a fleet take jobs.
constexpr const char* kConsumer = "hosts";

}  // namespace fleet

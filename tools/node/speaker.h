// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <string>

#include "fleet/link.h"
#include "fleet/names.h"
#include "phone/speaker.h"

namespace node {

// Tells the fleet what happens on the channels of this host, and the host itself. Thread: the node's.
class CSpeaker : public phone::ISpeaker {
 public:
  using Listener = std::function<void(const char* type, const phone::Json& fields, phone::UtcTime time)>;

  CSpeaker(fleet::CLink& toLink, const fleet::SNames& fleetNames, std::string nodeName, bool leavesNumbersOut)
      : link(toLink), names(fleetNames), node(std::move(nodeName)), hidesNumbers(leavesNumbersOut) {}

  void SetListener(Listener toListener) { listener = std::move(toListener); }
  // Events that could not be kept while no server was there.
  uint64_t Dropped() const { return dropped; }
  uint64_t Published() const { return published; }

 protected:
  void Tell(const char* type, const std::string& text, const phone::Json& fields, phone::UtcTime time) override;

 private:
  fleet::CLink& link;
  const fleet::SNames& names;
  const std::string node;
  const bool hidesNumbers;
  Listener listener;
  uint64_t dropped = 0;
  uint64_t published = 0;
};

}  // namespace node

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "common/q931_decode.h"

namespace trace {

// Job: takes out of D-channel frames who talked with whom. Each number becomes another of the same length, the same one
// wherever it comes again; it is counted out, so nothing leads back. Elements that may carry texts, numbers of another
// kind or what is not known here are left out, and so is all that is no Q.931 message.
// Thread: one. Owns the numbers. Nothing fails.
class CAnonymiser {
 public:
  // `frame` is without FCS; so is what comes back.
  tool::Bytes Anonymise(tool::ByteView frame);

 private:
  void Append(tool::Bytes& out, const tool::SInformationElement& element);
  std::string Replacement(const std::string& number);

  std::map<std::string, std::string> replacements;
  std::map<std::size_t, std::uint64_t> used;  // by length
};

}  // namespace trace

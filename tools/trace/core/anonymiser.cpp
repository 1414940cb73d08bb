// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/anonymiser.h"

#include <algorithm>
#include <array>

namespace trace {
namespace {

using tool::Bytes;
using tool::ByteView;
using tool::SInformationElement;

constexpr std::uint8_t kCause = 0x08;
constexpr std::uint8_t kKeypad = 0x2C;
constexpr std::size_t kLinkHeader = 4;   // of an information frame
constexpr std::size_t kShortHeader = 3;  // of an unnumbered one

// Bearer capability, call state, channel, progress, date, restart indicator, low and high layer compatibility.
constexpr std::array<std::uint8_t, 8> kHarmless{0x04, 0x14, 0x18, 0x1E, 0x29, 0x79, 0x7C, 0x7D};
// Calling, called, redirecting and connected number: digits behind octets up to one with its high bit set.
constexpr std::array<std::uint8_t, 4> kNumbers{0x6C, 0x70, 0x74, 0x4C};

template <typename List>
bool Has(const List& list, std::uint8_t id) {
  return std::find(list.begin(), list.end(), id) != list.end();
}

// Octets up to the first with its high bit set, that one too.
std::size_t GroupEnd(const Bytes& content) {
  const auto last = std::find_if(content.begin(), content.end(), [](std::uint8_t octet) { return octet >= 0x80; });
  return last == content.end() ? content.size() : static_cast<std::size_t>(last - content.begin()) + 1;
}

}  // namespace

Bytes CAnonymiser::Anonymise(ByteView frame) {
  const tool::SQ921Frame decoded = tool::DecodeFrame(frame);
  const bool isLong = decoded.receiveNumber >= 0;
  const std::size_t header = std::min(isLong ? kLinkHeader : kShortHeader, frame.size());
  Bytes out(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(header));
  if (decoded.kind != tool::EFrameKind::kInformation || decoded.message.type == 0) {
    return out;
  }
  // Protocol, call reference and message type.
  const std::size_t fixed = 3 + (frame[kLinkHeader + 1] & 0x0F);
  out.insert(out.end(), frame.begin() + kLinkHeader, frame.begin() + static_cast<std::ptrdiff_t>(kLinkHeader + fixed));
  for (const SInformationElement& element : decoded.message.elements) {
    if (element.codeset == 0) {
      Append(out, element);
    }
  }
  return out;
}

void CAnonymiser::Append(Bytes& out, const SInformationElement& element) {
  if ((element.id & 0x80) != 0) {
    if ((element.id & 0xF0) != 0x90) {  // a shift leads to what is left out
      out.push_back(element.id);
    }
    return;
  }
  Bytes content;
  if (Has(kHarmless, element.id)) {
    content = element.content;
  } else if (element.id == kCause) {
    // Behind the value stand diagnostics.
    const std::size_t size = std::min(GroupEnd(element.content) + 1, element.content.size());
    content.assign(element.content.begin(), element.content.begin() + static_cast<std::ptrdiff_t>(size));
  } else if (Has(kNumbers, element.id) || element.id == kKeypad) {
    const std::size_t begin = element.id == kKeypad ? 0 : GroupEnd(element.content);
    const auto digits = element.content.begin() + static_cast<std::ptrdiff_t>(begin);
    const std::string number = Replacement(std::string(digits, element.content.end()));
    content.assign(element.content.begin(), digits);
    content.insert(content.end(), number.begin(), number.end());
  } else {
    return;
  }
  out.push_back(element.id);
  out.push_back(static_cast<std::uint8_t>(content.size()));
  out.insert(out.end(), content.begin(), content.end());
}

std::string CAnonymiser::Replacement(const std::string& number) {
  const auto [place, isNew] = replacements.try_emplace(number);
  if (isNew && !number.empty()) {
    const std::string digits = std::to_string(++used[number.size()]);
    const std::size_t kept = std::min(digits.size(), number.size());
    place->second = std::string(number.size() - kept, '0') + digits.substr(digits.size() - kept);
  }
  return place->second;
}

}  // namespace trace

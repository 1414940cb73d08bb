// SPDX-License-Identifier: GPL-2.0-only
#include "common/q931_decode.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tool {
namespace {

constexpr std::uint8_t kQ931 = 0x08;
constexpr std::uint8_t kCauseElement = 0x08;
constexpr std::uint8_t kChannelElement = 0x18;

constexpr std::array<std::pair<std::uint8_t, const char*>, 22> kNames{{
    {0x01, "ALERTING"},
    {0x02, "CALL PROCEEDING"},
    {0x03, "PROGRESS"},
    {0x05, "SETUP"},
    {0x07, "CONNECT"},
    {0x0D, "SETUP ACKNOWLEDGE"},
    {0x0F, "CONNECT ACKNOWLEDGE"},
    {0x20, "USER INFORMATION"},
    {0x24, "HOLD"},
    {0x25, "SUSPEND"},
    {0x26, "RESUME"},
    {0x45, "DISCONNECT"},
    {0x46, "RESTART"},
    {0x4D, "RELEASE"},
    {0x4E, "RESTART ACKNOWLEDGE"},
    {0x5A, "RELEASE COMPLETE"},
    {0x62, "FACILITY"},
    {0x6E, "NOTIFY"},
    {0x75, "STATUS ENQUIRY"},
    {0x79, "CONGESTION CONTROL"},
    {0x7B, "INFORMATION"},
    {0x7D, "STATUS"},
}};

// Which codeset an element is of: a shift holds for the element after it, or to the end of the message.
class CCodesets {
 public:
  void Shift(std::uint8_t id) {
    next = id & 0x07;
    locked = (id & 0x08) == 0 ? next : locked;
  }
  std::uint8_t Take() { return std::exchange(next, locked); }

 private:
  std::uint8_t locked = 0;
  std::uint8_t next = 0;
};

// Reads the elements; false when one is longer than the message.
bool ReadElements(ByteView bytes, std::vector<SInformationElement>& out) {
  CCodesets codesets;
  while (!bytes.empty()) {
    const std::uint8_t id = bytes[0];
    if ((id & 0x80) != 0) {  // single octet
      const bool isShift = (id & 0xF0) == 0x90;
      out.push_back({id, {}, isShift ? std::uint8_t{0} : codesets.Take()});
      if (isShift) {
        codesets.Shift(id);
      }
      bytes = bytes.subspan(1);
      continue;
    }
    if (bytes.size() < 2 || bytes.size() - 2 < bytes[1]) {
      return false;
    }
    const ByteView content = bytes.subspan(2, bytes[1]);
    out.push_back({id, Bytes(content.begin(), content.end()), codesets.Take()});
    bytes = bytes.subspan(2 + content.size());
  }
  return true;
}

// Skips the octets of a group up to the one with the extension bit set; returns the index after it.
std::size_t SkipGroup(const Bytes& content, std::size_t at) {
  while (at < content.size() && (content[at] & 0x80) == 0) {
    ++at;
  }
  return at + 1;
}

EFrameKind UnnumberedKind(std::uint8_t control) {
  switch (control & 0xEF) {  // without the poll/final bit
    case 0x6F:
      return EFrameKind::kSabme;
    case 0x0F:
      return EFrameKind::kDm;
    case 0x03:
      return EFrameKind::kUi;
    case 0x43:
      return EFrameKind::kDisc;
    case 0x63:
      return EFrameKind::kUa;
    case 0x87:
      return EFrameKind::kFrmr;
    default:
      return EFrameKind::kInvalid;
  }
}

EFrameKind SupervisoryKind(std::uint8_t control) {
  switch (control) {
    case 0x01:
      return EFrameKind::kReceiveReady;
    case 0x05:
      return EFrameKind::kReceiveNotReady;
    case 0x09:
      return EFrameKind::kReject;
    default:
      return EFrameKind::kInvalid;
  }
}

}  // namespace

std::string Q931Name(std::uint8_t type) {
  const auto* found =
      std::find_if(kNames.begin(), kNames.end(), [&](const auto& entry) { return entry.first == type; });
  return found == kNames.end() ? "UNKNOWN " + std::to_string(type) : found->second;
}

const SInformationElement* SQ931Message::Find(std::uint8_t id) const {
  const auto found = std::find_if(elements.begin(), elements.end(),
                                  [&](const auto& element) { return element.id == id && element.codeset == 0; });
  return found == elements.end() ? nullptr : &*found;
}

int SQ931Message::Cause() const {
  const SInformationElement* element = Find(kCauseElement);
  if (element == nullptr) {
    return -1;
  }
  const std::size_t value = SkipGroup(element->content, 0);
  return value < element->content.size() ? element->content[value] & 0x7F : -1;
}

int SQ931Message::Timeslot() const {
  const SInformationElement* element = Find(kChannelElement);
  if (element == nullptr || element->content.empty() || (element->content[0] & 0x03) != 1) {
    return -1;
  }
  const Bytes& content = element->content;
  std::size_t at = 1;
  if ((content[0] & 0x40) != 0) {  // the interface is named first
    at = SkipGroup(content, at);
  }
  // Octet 3.2 says whether a number (not a map) follows.
  const bool number = at + 1 < content.size() && (content[at] & 0x10) == 0;
  return number ? content[at + 1] & 0x7F : -1;
}

std::string SQ931Message::Number(std::uint8_t id) const {
  const SInformationElement* element = Find(id);
  if (element == nullptr) {
    return {};
  }
  const std::size_t at = std::min(SkipGroup(element->content, 0), element->content.size());
  return std::string(element->content.begin() + static_cast<std::ptrdiff_t>(at), element->content.end());
}

SQ931Message DecodeQ931(ByteView bytes) {
  SQ931Message message;
  if (bytes.size() < 3 || bytes[0] != kQ931) {
    return message;
  }
  const std::size_t referenceBytes = bytes[1] & 0x0F;
  if (bytes.size() < 3 + referenceBytes || referenceBytes > 2) {
    return message;
  }
  for (std::size_t i = 0; i < referenceBytes; ++i) {
    const int byte = bytes[2 + i];
    message.fromDestination = i == 0 ? (byte & 0x80) != 0 : message.fromDestination;
    message.callReference = message.callReference * 256 + (i == 0 ? byte & 0x7F : byte);
  }
  message.type = bytes[2 + referenceBytes];
  message.name = Q931Name(message.type);
  message.valid = ReadElements(bytes.subspan(3 + referenceBytes), message.elements);
  return message;
}

SQ921Frame DecodeFrame(ByteView frame) {
  SQ921Frame out;
  if (frame.size() < 3) {
    return out;
  }
  out.sapi = frame[0] >> 2;
  out.commandBit = (frame[0] & 2) != 0;
  out.tei = frame[1] >> 1;
  const std::uint8_t control = frame[2];
  if ((control & 3) == 3) {
    out.kind = UnnumberedKind(control);
    out.pollFinal = (control & 0x10) != 0;
  } else if (frame.size() >= 4) {
    const bool information = (control & 1) == 0;
    out.kind = information ? EFrameKind::kInformation : SupervisoryKind(control);
    out.receiveNumber = frame[3] >> 1;
    out.pollFinal = (frame[3] & 1) != 0;
    if (information) {
      out.sendNumber = control >> 1;
      out.message = DecodeQ931(frame.subspan(4));
    }
  }
  return out;
}

}  // namespace tool

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/bytes.h"

namespace tool {

struct SInformationElement {
  std::uint8_t id = 0;
  Bytes content;             // empty for a single-octet element
  std::uint8_t codeset = 0;  // what the shifts before it say
};

// A Q.931 message taken apart. `valid` is false when the bytes end too early or are of another protocol.
struct SQ931Message {
  bool valid = false;
  int callReference = 0;
  bool fromDestination = false;  // the call reference flag: sent by the side that did not choose the reference
  std::uint8_t type = 0;
  std::string name;  // as in ITU-T Q.931: "SETUP", "CALL PROCEEDING", ...
  std::vector<SInformationElement> elements;

  // The first of codeset 0, or null.
  const SInformationElement* Find(std::uint8_t id) const;
  // Cause value of the cause element, or -1.
  int Cause() const;
  // Timeslot of the channel identification element, or -1.
  int Timeslot() const;
  // Digits of a number element (0x6C calling, 0x70 called, 0x74 redirecting); empty when absent.
  std::string Number(std::uint8_t id) const;
};

enum class EFrameKind {
  kInvalid,
  kInformation,
  kReceiveReady,
  kReceiveNotReady,
  kReject,
  kSabme,
  kDm,
  kUi,
  kDisc,
  kUa,
  kFrmr
};

// A Q.921 frame (without FCS) taken apart; `message` is valid for information frames that carry Q.931.
struct SQ921Frame {
  EFrameKind kind = EFrameKind::kInvalid;
  int sapi = -1;
  int tei = -1;
  bool commandBit = false;  // C/R as it stands: 1 in commands of the network side and in responses of the user side
  bool pollFinal = false;
  int sendNumber = -1;
  int receiveNumber = -1;
  SQ931Message message;
};

SQ931Message DecodeQ931(ByteView bytes);
SQ921Frame DecodeFrame(ByteView frame);
std::string Q931Name(std::uint8_t type);

}  // namespace tool

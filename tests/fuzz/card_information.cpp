// SPDX-License-Identifier: GPL-2.0-only

// The body of a card information message, 22 bytes of an input (zeros for what it lacks).

#include "card/card_information.h"

#include <algorithm>

#include "fuzz/target.h"
#include "runtime/e1.h"

namespace zelk::fuzz {
namespace {

bool IsDate(const std::string& text) {
  return text.size() >= 8 && text.size() <= 12 &&
         std::all_of(text.begin(), text.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
}

void CheckFacts(const uint8_t (&body)[kCardInformationBytes], const SCardInformation& expected) {
  CCardFacts facts;
  facts.Take(body);
  Require(facts.WaitForAnswer(0, nullptr), "a message counts as an answer, good or bad");
  Require(facts.trunkCount == expected.trunkCount && facts.serialNumber == expected.serialNumber &&
              facts.featureFlags == expected.featureFlags && facts.firmwareVersion == expected.firmwareVersion,
          "the facts are those of a good message, and none of a bad one");
  Require(facts.FirmwareDate() == expected.firmwareDate && facts.BurnDate() == expected.burnDate,
          "the dates are those of a good message, and none of a bad one");
}

void Run(const uint8_t* bytes, size_t length) {
  uint8_t body[kCardInformationBytes] = {};
  std::copy_n(bytes, std::min(length, sizeof body), body);
  SCardInformation information;
  const bool isGood = ParseCardInformation(body, information);
  const bool isCard = Text("ZELK ") == Bytes(body, body + 5);
  Require(isGood == (isCard && body[6] >= 1 && body[6] <= kMaxTrunks), "good is a card with one to eight trunks");
  if (isGood) {
    Require(information.trunkCount == body[6], "the trunk count is the message's");
    Require(IsDate(information.firmwareDate) && IsDate(information.burnDate), "a date is eight digits or a few more");
  } else {
    Require(information.trunkCount == 0 && information.burnDate.empty(), "bad information leaves nothing");
  }
  CheckFacts(body, information);
}

std::vector<Bytes> Seeds() {
  const auto body = [](uint8_t trunks, uint8_t last) {
    return Join({Text("ZELK "), {3, trunks, 1, 0, 0, 0x80, 0xD2, 4, 0, 0, 20, 13, 5, 9, 20, 12, last}});
  };
  return {body(1, 1), body(8, 31), body(0, 1), body(9, 255), Text("ZELK"), Text("ZELKX")};
}

const SRegistered kRegistered({"card_information", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz

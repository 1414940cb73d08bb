// SPDX-License-Identifier: GPL-2.0-only
#include "phone/phone_error.h"

namespace phone {

const char* ExitName(EExit code) {
  switch (code) {
    case EExit::kDone:
      return "done";
    case EExit::kFailed:
      return "failed";
    case EExit::kUsage:
      return "usage";
    case EExit::kNoCard:
      return "no-card";
    case EExit::kNoTrunk:
      return "no-trunk";
    case EExit::kRefused:
      return "refused";
    case EExit::kNoAnswer:
      return "no-answer";
    case EExit::kFile:
      return "file";
    case EExit::kCardsInUse:
      return "cards-in-use";
  }
  return "failed";
}

EExit ExitOfCause(int cause) {
  constexpr int kNoUserResponding = 18;
  constexpr int kNoAnswerFromUser = 19;
  return cause == kNoUserResponding || cause == kNoAnswerFromUser ? EExit::kNoAnswer : EExit::kRefused;
}

}  // namespace phone

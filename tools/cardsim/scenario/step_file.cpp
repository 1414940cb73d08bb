// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/scenario/step_file.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <stdexcept>

#include "cardsim/audio/signals.h"
#include "cardsim/audio/wav_file.h"
#include "cardsim/scenario/toml_table.h"
#include "common/q931_decode.h"
#include "common/wire.h"

namespace cardsim {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kMessageWithin{5000};
constexpr milliseconds kSoundWithin{10000};
constexpr int kMostCause = 127;

struct SStepReader {
  CTomlTable& table;
  const std::string& folder;
  SStep& step;

  [[noreturn]] void Fail(const std::string& key, const std::string& text) const { FailAt(*table.Find(key), text); }

  void Word(const std::string& key) const {
    step.word = *table.Text(key);
    step.text = key + " = \"" + step.word + "\"";
  }

  void OneOf(const std::string& key, const std::vector<std::string>& words) const {
    Word(key);
    if (std::find(words.begin(), words.end(), step.word) == words.end()) {
      std::string all;
      for (const std::string& word : words) {
        all += (all.empty() ? "\"" : ", \"") + word + "\"";
      }
      Fail(key, key + " is none of " + all);
    }
  }

  void Count(const std::string& key, int least, int most) const {
    step.number = *table.Integer(key, least, most);
    step.text = key + " = " + std::to_string(step.number);
  }

  void Flag(const std::string& key) const {
    const toml::value& value = *table.Find(key);
    if (!value.is_boolean() || !value.as_boolean()) {
      FailAt(value, key + " is always true");
    }
    step.text = key;
  }

  void Message(const std::string& key) const {
    Word(key);
    for (int type = 0; type <= 0xFF; ++type) {
      if (Q931Name(static_cast<std::uint8_t>(type)) == step.word) {
        step.number = type;
        return;
      }
    }
    Fail(key, "\"" + step.word + "\" is no message of ITU-T Q.931");
  }

  void File(const std::string& key) const {
    Word(key);
    try {
      step.bytes = ReadWav((std::filesystem::path(folder) / step.word).string());
    } catch (const std::runtime_error& error) {
      Fail(key, error.what());
    }
    if (step.bytes.empty()) {
      Fail(key, step.word + " has no sound");
    }
  }

  void HexBytes(const std::string& key) const {
    const std::vector<unsigned char> bytes = table.Hex(key).value_or(std::vector<unsigned char>());
    step.bytes.assign(bytes.begin(), bytes.end());
  }
};

void ReadExpect(const SStepReader& read) {
  read.Message("expect");
  read.step.time = read.table.Time("within").value_or(kMessageWithin);
  read.step.cause = read.table.Integer("cause", 0, kMostCause);
  read.step.timeslot = read.table.Integer("timeslot", 1, kTimeslots - 1);
  constexpr std::array<std::pair<const char*, int>, 3> kNumbers{
      {{"calling", 0x6C}, {"called", 0x70}, {"redirecting", 0x74}}};
  for (const auto& [key, element] : kNumbers) {
    if (const std::optional<std::string> number = read.table.Text(key)) {
      read.step.numbers[element] = *number;
    }
  }
}

void ReadHear(const SStepReader& read) {
  read.File("hear");
  read.step.time = read.table.Time("within").value_or(kSoundWithin);
}

void ReadDigits(const SStepReader& read) {
  read.Word("digits");
  try {
    // A little after the answer both directions are open for sure.
    constexpr int kBeforeMs = 200;
    const Bytes digits = RenderDtmf(read.step.word, SDtmfSignal{});
    read.step.bytes = RenderSilence(kBeforeMs);
    read.step.bytes.insert(read.step.bytes.end(), digits.begin(), digits.end());
  } catch (const std::invalid_argument&) {
    read.Fail("digits", "digits are 0-9 * # A-D");
  }
}

void ReadTone(const SStepReader& read) {
  const toml::value& tone = *read.table.Find("tone");
  std::vector<double> frequencies;
  for (const toml::value& each : tone.is_array() ? tone.as_array() : toml::array{tone}) {
    const double frequency = each.is_integer() ? static_cast<double>(each.as_integer()) : 0;
    if (frequency < 1 || frequency > 3999) {
      FailAt(each, "tone is a frequency from 1 to 3999 Hz, or a list of them");
    }
    frequencies.push_back(frequency);
  }
  const milliseconds length = read.table.Time("for").value_or(milliseconds(1000));
  read.step.bytes = RenderTone(frequencies, read.table.Number("level", -70, 3).value_or(-10),
                               static_cast<int>(std::min(length, milliseconds(600000)).count()));
  read.step.text = "tone";
}

void ReadProgress(const SStepReader& read) {
  read.Flag("progress");
  read.step.number = read.table.Integer("cause", 1, kMostCause).value_or(kNoCause);
}

void ReadWait(const SStepReader& read) {
  read.Word("wait");
  read.step.time = *read.table.Time("wait");
}

void ReadLoss(const SStepReader& read) {
  read.step.percent = *read.table.Number("loss", 0, 100);
  read.step.text = "loss = " + std::to_string(static_cast<int>(std::lround(read.step.percent)));
}

void ReadSend(const SStepReader& read) {
  read.Message("send");
  read.HexBytes("elements");
}

void ReadRaw(const SStepReader& read) {
  read.Word("raw");
  read.HexBytes("raw");
}

// A verb, whether only calls from the library have it, and what reads it.
struct SVerbForm {
  const char* key;
  EVerb verb;
  bool isForLibraryCalls;
  void (*read)(const SStepReader&);
};

constexpr std::array<SVerbForm, 17> kVerbs{{
    {"expect", EVerb::kExpect, false, ReadExpect},
    {"send", EVerb::kSend, false, ReadSend},
    {"raw", EVerb::kRaw, false, ReadRaw},
    {"alert", EVerb::kAlert, true, [](const SStepReader& read) { read.Flag("alert"); }},
    {"progress", EVerb::kProgress, true, ReadProgress},
    {"answer", EVerb::kAnswer, true, [](const SStepReader& read) { read.Flag("answer"); }},
    {"hangup", EVerb::kHangup, false, [](const SStepReader& read) { read.Count("hangup", 1, kMostCause); }},
    {"hear", EVerb::kHear, false, ReadHear},
    {"play", EVerb::kPlay, false, [](const SStepReader& read) { read.File("play"); }},
    {"digits", EVerb::kDigits, false, ReadDigits},
    {"tone", EVerb::kTone, false, ReadTone},
    {"wait", EVerb::kWait, false, ReadWait},
    {"line", EVerb::kLine, false,
     [](const SStepReader& read) {
       read.OneOf("line", {"cut", "restored"});
     }},
    {"alarm", EVerb::kAlarm, false, [](const SStepReader& read) { read.Count("alarm", 0, 255); }},
    {"hdlc_errors", EVerb::kHdlcErrors, false, [](const SStepReader& read) { read.Count("hdlc_errors", 1, 100000); }},
    {"loss", EVerb::kLoss, false, ReadLoss},
    {"restart", EVerb::kRestart, false,
     [](const SStepReader& read) {
       read.OneOf("restart", {"timeslot", "trunk", "card"});
     }},
}};

}  // namespace

SStep ReadStep(const toml::value& value, const std::string& folder, bool isFromLibrary) {
  CTomlTable table(value);
  const SVerbForm* form = nullptr;
  for (const SVerbForm& each : kVerbs) {
    if (value.as_table().count(each.key) != 0) {
      if (form != nullptr) {
        FailAt(value, std::string("a step has one verb, not ") + form->key + " and " + each.key);
      }
      form = &each;
    }
  }
  if (form == nullptr) {
    FailAt(value, "a step without a verb such as expect, hear, play, digits, wait, hangup");
  }
  if (form->isForLibraryCalls && !isFromLibrary) {
    FailAt(*table.Find(form->key), std::string(form->key) + " is for calls with from = \"library\"");
  }
  SStep step;
  step.verb = form->verb;
  form->read({table, folder, step});
  table.RequireAllKnown();
  return step;
}

}  // namespace cardsim

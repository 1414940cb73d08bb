// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <optional>
#include <utility>

#include "doctor/core/rules.h"

namespace doctor {
namespace {

constexpr std::size_t kFarthestTypo = 2;  // letters that may differ

enum class EKind { kNumber, kReal };

// The keys that the library reads, and the values that it has a use for.
struct SKnown {
  const char* section;  // "" for a trunk's, which [General] may have too
  const char* key;
  EKind kind = EKind::kNumber;
  std::int32_t least = INT32_MIN;
  std::int32_t most = INT32_MAX;
};
constexpr SKnown kKeys[] = {
    {"Debug", "Level"},
    {"Debug", "FlushImmediate"},
    {"Debug", "Status"},
    {"General", "AudioBuffers", EKind::kNumber, 1, 4096},
    {"General", "ClearedCallTimeout", EKind::kNumber, 0, 86400},
    {"", "Crc4"},
    {"", "ClientType", EKind::kNumber, 1, 2},
    {"", "SwitchType", EKind::kNumber, 1, 10},
    {"", "NumberType", EKind::kNumber, 0, 127},
    {"", "HangupOnAlerting"},
    {"", "EchoCanceller"},
    {"", "EchoTail", EKind::kNumber, 32, 1024},
    {"", "HdlcLog"},
    {"Dtmf", "NormalTwist", EKind::kReal},
    {"Dtmf", "ReverseTwist", EKind::kReal},
    {"Dtmf", "RowPeak", EKind::kReal},
    {"Dtmf", "ColPeak", EKind::kReal},
    {"Dtmf", "TotalEnergy", EKind::kReal},
};
constexpr const char* kSections[] = {"Debug", "General", "Dtmf"};

struct STrunkSection {
  std::uint32_t serial;
  std::uint32_t trunk;  // from 1
};

// The library writes the name itself, and looks for that: no zeros in front.
std::optional<STrunkSection> TrunkOf(const std::string& section) {
  STrunkSection trunk{};
  char end = 0;
  if (std::sscanf(section.c_str(), "%10u-%10u%c", &trunk.serial, &trunk.trunk, &end) != 2 ||
      section != fmt::format("{}-{}", trunk.serial, trunk.trunk)) {
    return std::nullopt;
  }
  return trunk;
}

std::string Lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter; });
  return text;
}

// Letters to put in, take out or change until one is the other.
std::size_t Distance(const std::string& one, const std::string& other) {
  const std::string from = Lowered(one);
  const std::string to = Lowered(other);
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

// ", did you mean X?", or ".".
std::string Suggestion(const std::string& name, const std::vector<std::string>& known) {
  const std::string* best = nullptr;
  std::size_t nearest = kFarthestTypo + 1;
  for (const std::string& each : known) {
    if (const std::size_t distance = Distance(name, each); distance < nearest) {
      nearest = distance;
      best = &each;
    }
  }
  return best == nullptr ? "." : fmt::format("; {} is meant?", *best);
}

bool IsReal(const std::string& value) {
  float number = 0;
  return std::sscanf(value.c_str(), "%f", &number) == 1;
}

// Job: goes through the file and collects what it finds. Thread: one.
class CIniCheck {
 public:
  CIniCheck(const SLibraryFacts& facts, const Serials& cards) : library(facts), serials(cards) {}

  Findings Run() {
    const SIniText& ini = *library.ini;
    if (ini.isUtf16) {
      Add("ini-utf16", fmt::format("{} is a UTF-16 file, of which only Windows reads anything.", Name()), 1);
      return findings;
    }
    for (const SIniKey& key : ini.before) {
      if (IsSetting(key)) {
        Add("ini-no-section", fmt::format("{} has {} above its first section.", Name(), key.name), key.line);
      }
    }
    for (const SIniSection& section : ini.sections) {
      CheckSection(section);
    }
    return findings;
  }

 private:
  std::string Name() const { return library.iniPath.substr(library.iniPath.find_last_of("/\\") + 1); }
  void Add(const char* rule, const std::string& sentence, int line) {
    findings.push_back(Find(rule, sentence, {fmt::format("{}, line {}", library.iniPath, line)}));
  }
  // A # begins no comment for the library, but people mean one.
  static bool IsSetting(const SIniKey& key) { return !key.name.empty() && key.name.front() != '#'; }

  void CheckSection(const SIniSection& section) {
    const auto& all = library.ini->sections;
    const auto first = std::find_if(all.begin(), all.end(),
                                    [&](const SIniSection& each) { return IsSameName(each.name, section.name); });
    if (first->line != section.line) {
      Add("ini-repeated", fmt::format("{} has [{}] once more.", Name(), section.name), section.line);
      return;
    }
    const bool isKnown = std::any_of(std::begin(kSections), std::end(kSections),
                                     [&](const char* each) { return IsSameName(each, section.name); });
    const std::optional<STrunkSection> trunk = TrunkOf(section.name);
    if (!isKnown && !trunk) {
      Add("ini-unknown-section",
          fmt::format("{} has a section [{}], which the library does not know{}", Name(), section.name,
                      Suggestion(section.name, {std::begin(kSections), std::end(kSections)})),
          section.line);
      return;
    }
    if (trunk) {
      CheckSerial(section, *trunk);
    }
    for (const SIniKey& key : section.keys) {
      if (IsSetting(key)) {
        CheckKey(section, key, trunk.has_value());
      }
    }
  }

  void CheckSerial(const SIniSection& section, const STrunkSection& trunk) {
    const auto card = serials.find(trunk.serial);
    if (!serials.empty() && card == serials.end()) {
      Add("ini-serial-unknown",
          fmt::format("{} has a section [{}], and no card that was seen has the serial number {}.", Name(),
                      section.name, trunk.serial),
          section.line);
      return;
    }
    const std::uint32_t most = card != serials.end() && card->second > 0 ? static_cast<std::uint32_t>(card->second) : 8;
    if (trunk.trunk < 1 || trunk.trunk > most) {
      Add("ini-serial-unknown",
          fmt::format("{} has a section [{}], and the card {} has trunks 1 to {}.", Name(), section.name, trunk.serial,
                      most),
          section.line);
    }
  }

  static bool IsOf(const SKnown& known, const std::string& section, bool isTrunk) {
    const bool isGeneral = IsSameName(section, "General");
    return known.section[0] == 0 ? isTrunk || isGeneral : !isTrunk && IsSameName(known.section, section);
  }

  void CheckKey(const SIniSection& section, const SIniKey& key, bool isTrunk) {
    const SKnown* elsewhere = nullptr;
    std::vector<std::string> names;
    for (const SKnown& known : kKeys) {
      if (IsOf(known, section.name, isTrunk)) {
        names.emplace_back(known.key);
        if (IsSameName(known.key, key.name)) {
          CheckFirst(section, key, known);
          return;
        }
      } else if (IsSameName(known.key, key.name)) {
        elsewhere = &known;
      }
    }
    if (elsewhere != nullptr) {
      const char* place = elsewhere->section[0] == 0 ? "General" : elsewhere->section;
      Add("ini-wrong-section",
          fmt::format("{} has {} in [{}], where it is not read; it belongs to [{}].", Name(), key.name, section.name,
                      place),
          key.line);
      return;
    }
    Add("ini-unknown-key",
        fmt::format("{} has a key {} in [{}], which the library does not know{}", Name(), key.name, section.name,
                    Suggestion(key.name, names)),
        key.line);
  }

  void CheckFirst(const SIniSection& section, const SIniKey& key, const SKnown& known) {
    const auto first = std::find_if(section.keys.begin(), section.keys.end(),
                                    [&](const SIniKey& each) { return IsSameName(each.name, key.name); });
    if (first->line != key.line) {
      Add("ini-repeated", fmt::format("{} has {} in [{}] once more.", Name(), key.name, section.name), key.line);
    } else if (key.value.empty()) {
      return;  // as good as a missing key
    } else if (known.kind == EKind::kReal) {
      if (!IsReal(key.value)) {
        Add("ini-not-real", fmt::format("{}: {}={} is no number.", Name(), key.name, key.value), key.line);
      }
    } else {
      CheckNumber(key, known);
    }
  }

  void CheckNumber(const SIniKey& key, const SKnown& known) {
    const std::int32_t number = IniNumber(key.value);
    const std::size_t sign = key.value.find_first_of("+-") == 0 ? 1 : 0;
    const std::size_t end = key.value.find_first_not_of("0123456789", sign);
    const std::string rest = end == std::string::npos ? "" : key.value.substr(key.value.find_first_not_of(" \t", end));
    if (end == sign || (number == 0 && !rest.empty() && rest.front() != ';')) {
      Add("ini-reads-zero", fmt::format("{}: {}={} reads as 0.", Name(), key.name, key.value), key.line);
    } else if (!rest.empty() && rest.front() != ';') {
      Add("ini-number-cut", fmt::format("{}: {}={} reads as {}.", Name(), key.name, key.value, number), key.line);
    }
    CheckRange(key, known, number);
  }

  void CheckRange(const SIniKey& key, const SKnown& known, std::int32_t number) {
    const std::string_view name = known.key;
    if (name == "AudioBuffers" && number == 0) {
      Add("ini-out-of-range",
          fmt::format("{}: AudioBuffers={} keeps all sound away, from the line and to it.", Name(), key.value),
          key.line);
    } else if (name == "ClientType" && (number < known.least || number > known.most)) {
      Add("ini-wrong-side",
          fmt::format("{}: ClientType={} is neither side of the D-channel, so the trunk stays down.", Name(),
                      key.value),
          key.line);
    } else if (number < known.least || number > known.most || (name == "SwitchType" && (number == 8 || number == 9))) {
      Add("ini-out-of-range",
          fmt::format("{}: {}={} is not among the values {} to {} that are of use.", Name(), known.key, key.value,
                      known.least, known.most),
          key.line);
    }
  }

  const SLibraryFacts& library;
  const Serials& serials;
  Findings findings;
};

}  // namespace

Findings IniRules(const SLibraryFacts& library, const Serials& serials) {
  if (!library.iniFault.empty()) {
    return {Find("ini-unreadable", library.iniPath + " cannot be read: " + library.iniFault + ".")};
  }
  return library.ini ? CIniCheck(library, serials).Run() : Findings();
}

}  // namespace doctor

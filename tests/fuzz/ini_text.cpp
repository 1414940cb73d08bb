// SPDX-License-Identifier: GPL-2.0-only

// The text of a settings file. An input is a look-up and the text:
//
//   length of the section's name, length of the key, the section's name, the key, the text

#include "platform/ini_text.h"

#include <algorithm>

#include "fuzz/target.h"
#include "runtime/scan_float.h"

namespace zelk::fuzz {
namespace {

std::string TextOf(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

std::string Swapped(std::string text) {
  for (char& letter : text) {
    const bool isLower = letter >= 'a' && letter <= 'z';
    const bool isUpper = letter >= 'A' && letter <= 'Z';
    letter = static_cast<char>(isLower ? letter - 32 : isUpper ? letter + 32 : letter);
  }
  return text;
}

void CheckNumbers(std::string_view value) {
  const int32_t number = ProfileNumber(value);
  Require(number == ProfileNumber(std::string(value) + " \t"), "blanks after a number say nothing");
  float real = 5.0F;
  const bool isReal = ScanFloat(value, real);
  Require(isReal || real == 5.0F, "no number leaves the value as it is");
}

void Run(const uint8_t* bytes, size_t length) {
  CInput input(bytes, length);
  const size_t sectionLength = input.Byte();
  const size_t keyLength = input.Byte();
  const std::string section = TextOf(input.Take(sectionLength));
  const std::string key = TextOf(input.Take(keyLength));
  const Bytes file = input.Rest();
  const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());

  const std::optional<std::string_view> value = FindProfileValue(text, section, key);
  Require(value == FindProfileValue(text, Swapped(section), Swapped(key)), "letter case does not matter");
  if (!value.has_value()) {
    return;
  }
  Require(value->find('\n') == std::string_view::npos && value->find('\0') == std::string_view::npos,
          "a value is on one line");
  Require(
      value->empty() || (value->data() >= text.data() && value->data() + value->size() <= text.data() + text.size()),
      "a value is a part of the text");
  CheckNumbers(*value);
}

Bytes LookUp(const std::string& section, const std::string& key, const std::string& text) {
  return Join(
      {{static_cast<uint8_t>(section.size()), static_cast<uint8_t>(key.size())}, Text(section), Text(key), Text(text)});
}

std::vector<Bytes> Seeds() {
  const std::string file =
      "; settings\r\n[ZelkApi]\r\nLevel = 2\r\nAudioBuffers=32\r\nNormalTwist=6.3\r\nLogPath=\"C:\\logs\"\r\n"
      "[1234-1]\r\nSwitchType=5\r\nClientType=-1000 user\r\n";
  return {LookUp("ZelkApi", "Level", file),        LookUp("zelkapi", "NORMALTWIST", file),
          LookUp("ZelkApi", "LogPath", file),      LookUp("1234-1", "ClientType", file),
          LookUp("1234-2", "ClientType", file),    LookUp("a", "b", "\xEF\xBB\xBF[a]\nb='0x1F'\n"),
          LookUp("a", "b", "[ a ]\n b = \" 7 \""), LookUp("", "", "[]\n=1e39")};
}

const SRegistered kRegistered({"ini_text", &Run, &Seeds});

}  // namespace
}  // namespace zelk::fuzz

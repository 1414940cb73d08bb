// SPDX-License-Identifier: GPL-2.0-only
#include "formats/wave_format.h"

#include <algorithm>

namespace zelk {
namespace {

template <class Match>
const SSampleFormat* Find(Match match) {
  const auto* const found = std::find_if(kSampleFormats.begin(), kSampleFormats.end(), match);
  return found == kSampleFormats.end() ? nullptr : found;
}

char Upper(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

bool SameName(const char* left, const char* right) {
  for (; Upper(*left) == Upper(*right); ++left, ++right) {
    if (*left == 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

const SSampleFormat* SampleFormatOf(const SWaveFormat& record) {
  return Find([&](const SSampleFormat& format) {
    return record.formatTag == format.tag && (format.tag != kTagPcm || record.bitsPerSample == format.bits);
  });
}

const SSampleFormat* SampleFormatNamed(const char* name) {
  return name ? Find([name](const SSampleFormat& format) { return SameName(name, format.name); }) : nullptr;
}

const SSampleFormat* SampleFormatNumbered(uint32_t publicNumber) {
  return publicNumber == 0
             ? nullptr
             : Find([publicNumber](const SSampleFormat& format) { return format.publicNumber == publicNumber; });
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/double_talk_detector.h"

#include <algorithm>

namespace zelk {
namespace {

// ITU-T G.168 says what a canceller must come to in double talk, not how. The values here are chosen by measurement,
// with the sounds of tests/unit/dsp/echo_signals.h, an echo 6 dB down and, where nothing else is said, 8, 16 or 30
// ms late:
//   soon     what is taken off the echo of voices of -14 dBm0 between 1 and 3 s after the start; the worst of four: 5
//   dB voices   the same after 6 s: 42 dB quiet    the same of voices of -24 dBm0: 33 dB words    the same of recorded
//   words of -16 and -20 dBm0: 31 dB near     how far below a near end as loud as the far end that lies which is done
//   to it: 32 dB soft     the same of a near end 8 dB softer: 15.6 dB above    how far the filter's output is above an
//   echo at worst, in 100 ms of voices of -8 dBm0: 1.3 dB changed  what is taken off 2 to 3 s after an echo became 12
//   ms later: 27 dB
// Beside a value stands which of these became what with another one. "Free": a quarter and four times of it change none
// of them by more than 2 dB.

// Times, in samples of 125 us. A mean goes over about two to the power of the shift.
constexpr int kSentShift = 5;               // 4 ms. 16 ms: changed 33 dB
constexpr int kPeakShift = 3;               // 1 ms. Free
constexpr float kEstimatePace = 1.0F / 64;  // 8 ms. 2 ms: quiet 26, changed 12 dB. 32 ms: soft 12.4 dB, but soon 28 dB
constexpr int32_t kLoudHangover = 600;      // 75 ms. 19 ms: above 2.2 dB. 300 ms: words 15, changed 20 dB
constexpr int32_t kHangover = 400;          // 50 ms. 12 ms: near 25, soft 12 dB. 200 ms: quiet 16, words 22 dB
constexpr int32_t kProvenSamples = 500;     // 63 ms. 240 ms: soon 28 dB and the rest as good. Not longer than the next
constexpr int32_t kMostProven = 2000;       // 250 ms. Free
constexpr int32_t kChangedLine = 8000;      // 1 s. 250 ms: near 10 dB. 4 s: quiet 8, changed -2 dB
// Powers, in squares of 16-bit samples; a sine at full scale is 3.14 dBm0 (G.711).
constexpr float kProvenRatio = 16;         // 12 dB. 6 dB: quiet 31 dB. 18 dB: soon 28 dB and the rest as good
constexpr float kLeastEstimate = 1000;     // -54 dBm0: quieter echoes prove nothing. Free
constexpr int32_t kAudibleSent = 64 * 64;  // -48 dBm0. Free, 12 dB each way
constexpr int32_t kLearnableSent =
    128 * 128;  // -42 dBm0, the tail's loudest: what returns is too faint below it. The same

}  // namespace

CDoubleTalkDetector::CDoubleTalkDetector(int32_t taps, int32_t* stretchMaxima)
    : maxima(stretchMaxima), stretches(static_cast<int32_t>(StretchesOf(taps))) {}

bool CDoubleTalkDetector::MayLearn(int16_t sent, int16_t received) {
  sentPower += (int32_t{sent} * sent - sentPower) >> kSentShift;
  sentPeakPower += (int32_t{sent} * sent - sentPeakPower) >> kPeakShift;
  receivedPower += (int32_t{received} * received - receivedPower) >> kPeakShift;
  TrackTail();
  if (receivedPower >= std::max(tailMaximum, stretchMaximum))
    loudNearEnd = kLoudHangover;
  else if (loudNearEnd > 0)
    --loudNearEnd;
  const bool heard = NearEndHeard();
  return std::max(tailMaximum, stretchMaximum) > kLearnableSent && loudNearEnd == 0 && !heard;
}

void CDoubleTalkDetector::TrackTail() {
  stretchMaximum = std::max(stretchMaximum, sentPeakPower);
  if (++samplesInStretch < kStretch)
    return;
  samplesInStretch = 0;
  maxima[stretchAt] = stretchMaximum;
  stretchAt = (stretchAt + 1) % stretches;
  stretchMaximum = 0;
  tailMaximum = *std::max_element(maxima, maxima + stretches);
}

bool CDoubleTalkDetector::NearEndHeard() {
  const bool cancelled = residualPower * kProvenRatio < estimatePower;
  if (cancelled && estimatePower > kLeastEstimate)
    proven = std::min(proven + 1, kMostProven);
  if (proven >= kProvenSamples && sentPower > kAudibleSent && residualPower > estimatePower)
    nearEnd = kHangover;
  if (nearEnd == 0) {
    if (cancelled)
      shutByNearEnd = 0;
    return false;
  }
  --nearEnd;
  if (++shutByNearEnd > kChangedLine) {
    proven = 0;
    nearEnd = 0;
    shutByNearEnd = 0;
  }
  return true;
}

void CDoubleTalkDetector::Note(int32_t echoEstimate, int32_t residual) {
  const auto square = [](int32_t value) { return static_cast<float>(value) * static_cast<float>(value); };
  estimatePower += (square(echoEstimate) - estimatePower) * kEstimatePace;
  residualPower += (square(residual) - residualPower) * kEstimatePace;
}

}  // namespace zelk

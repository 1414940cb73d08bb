#include "stream/double_talk_detector.h"

#include <algorithm>

namespace zelk {
namespace {

constexpr int kSentShift = 5;
constexpr int kPeakShift = 3;
constexpr float kEstimatePace = 1.0F / 64;
constexpr int32_t kLoudHangover = 600;  // 75 ms
constexpr int32_t kHangover = 400;
constexpr float kProvenRatio = 16;      // 12 dB
constexpr float kLeastEstimate = 1000;  // quieter echoes prove nothing
constexpr int32_t kAudibleSent = 64 * 64;
constexpr int32_t kLearnableSent = 128 * 128;  // the loudest of the tail: what comes back is too faint below it
constexpr int32_t kProvenSamples = 500;
constexpr int32_t kMostProven = 2000;
constexpr int32_t kChangedLine = 8000;  // a second

}  // namespace

CDoubleTalkDetector::CDoubleTalkDetector(int32_t taps) : stretches(std::min(taps, kMaxTaps) / kStretch + 2) {}

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
  stretchMaxima[static_cast<size_t>(stretchAt)] = stretchMaximum;
  stretchAt = (stretchAt + 1) % stretches;
  stretchMaximum = 0;
  tailMaximum = *std::max_element(stretchMaxima.begin(), stretchMaxima.begin() + stretches);
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

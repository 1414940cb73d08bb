// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "dsp/double_talk_detector.h"

// Each of these headers needs what those before it define, and <cstring>.
// clang-format off
#include <spandsp/telephony.h>
#include <spandsp/echo.h>
#include <spandsp/private/echo.h>
// clang-format on

// The release's canceller as it is, with its own loops and its own memory.
extern "C" {
echo_can_state_t* echo_can_init_plain(int taps, int mode);
int echo_can_free_plain(echo_can_state_t* state);
void echo_can_flush_plain(echo_can_state_t* state);
int16_t echo_can_update_plain(echo_can_state_t* state, int16_t sent, int16_t received);
}

namespace zelk::echo {

// A canceller one sample at a time, over the release's: what CEchoCanceller must return.
class CLiteralCanceller {
 public:
  explicit CLiteralCanceller(int taps)
      : state(echo_can_init_plain(taps, ECHO_CAN_USE_ADAPTION)),
        maxima(CDoubleTalkDetector::StretchesOf(taps)),
        doubleTalk(taps, maxima.data()),
        tailDecay(1.0F - 1.0F / static_cast<float>(taps)) {}
  ~CLiteralCanceller() { echo_can_free_plain(state); }
  CLiteralCanceller(const CLiteralCanceller&) = delete;
  CLiteralCanceller& operator=(const CLiteralCanceller&) = delete;

  int16_t Update(int16_t sent, int16_t received) {
    const int16_t tiltedSent = Clipped(sent - sentBefore / 2);
    const int16_t tiltedReceived = Clipped(received - receivedBefore / 2);
    sentBefore = sent;
    receivedBefore = received;
    echoIn256ths = Estimate(tiltedSent, tiltedReceived) * 256 + echoIn256ths / 2;
    const int residual = Clipped(received - ((echoIn256ths + 128) >> 8));
    Track(sent, residual);
    const int limit = residualNow * 16 > sentInTail ? 32768 : static_cast<int>(noise);
    return static_cast<int16_t>(std::clamp(residual, -limit, limit));
  }

 private:
  static int16_t Clipped(int value) { return static_cast<int16_t>(std::clamp(value, -32768, 32767)); }

  int16_t Estimate(int16_t sent, int16_t received) {
    state->tx_power[0] = 1 << 30;
    state->tx_power[1] = 1 << 30;
    state->nonupdate_dwell = doubleTalk.MayLearn(sent, received) ? 0 : 2;
    state->dtd_onset = 1;
    state->narrowband_score = 0;
    const int leaving = state->fir_state.history[state->fir_state.curr_pos];
    tailEnergy += int64_t{sent} * sent - int64_t{leaving} * leaving;
    const int width = static_cast<int>(std::bit_width(static_cast<uint64_t>(tailEnergy)));
    state->tx_power[3] = 3 << (std::max(width - 30, 0) + 7);
    const int16_t left = echo_can_update_plain(state, sent, received);
    const auto echo = static_cast<int16_t>(received - left);
    doubleTalk.Note(echo, Clipped(received - echo));
    return echo;
  }

  void Track(int16_t sent, int residual) {
    sentNow += (static_cast<float>(std::abs(int{sent})) - sentNow) * (1.0F / 64);
    residualNow += (static_cast<float>(std::abs(residual)) - residualNow) * (1.0F / 64);
    sentInTail = std::max(sentNow, sentInTail * tailDecay);
    if (sentInTail > 64)
      return;
    noise += residualNow < noise ? (residualNow - noise) * (1.0F / 256) : noise * (1.0F / 20000);
    noise = std::clamp(noise, 8.0F, 160.0F);
  }

  echo_can_state_t* state;
  std::vector<int32_t> maxima;
  CDoubleTalkDetector doubleTalk;
  int16_t sentBefore = 0;
  int16_t receivedBefore = 0;
  int echoIn256ths = 0;
  int64_t tailEnergy = 0;
  float tailDecay;
  float sentNow = 0;
  float sentInTail = 0;
  float residualNow = 0;
  float noise = 8;
};

}  // namespace zelk::echo

// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>

#include "echo_literal.h"
#include "echo_signals.h"

// The product's canceller against the literal form: the same samples, whatever is sent and received.
namespace zelk {
namespace {

using namespace echo;

void ExpectSameAsLiteral(const Signal& sent, const Signal& received) {
  for (const int32_t tailMs : {32, 33, 64, 128, 1024}) {
    const std::unique_ptr<CEchoCanceller> canceller = CEchoCanceller::Create(tailMs);
    CLiteralCanceller literal(tailMs * 8);
    for (size_t i = 0; i < sent.size(); ++i)
      ASSERT_EQ(canceller->Update(sent[i], received[i]), literal.Update(sent[i], received[i]))
          << tailMs << " ms, sample " << i;
  }
}

TEST(EchoEquality, TheSameAsTheLiteralFormOnSpeechAndItsEcho) {
  const Signal sent = Line(Speech(3, -12, 3));
  ExpectSameAsLiteral(sent, Line(Add(Echo(sent, 16), Noise(3, -45))));
}

TEST(EchoEquality, TheSameAsTheLiteralFormInDoubleTalk) {
  const Signal sent = Line(Speech(3, -16, 3));
  ExpectSameAsLiteral(sent, Line(Add(Echo(sent, 30), Speech(3, -16, 4))));
}

TEST(EchoEquality, TheSameAsTheLiteralFormOnNoiseThatComesAndGoes) {
  Signal sent;
  for (const double level : {-60.0, -10.0, -45.0, 0.0, -30.0}) {
    const Signal noise = Noise(0.5, level);
    sent.insert(sent.end(), noise.begin(), noise.end());
  }
  ExpectSameAsLiteral(sent, Add(Echo(sent, 8), Noise(2.5, -48, 7)));
}

TEST(EchoEquality, TheSameAsTheLiteralFormOnTones) {
  Signal sent(static_cast<size_t>(2 * kRate));
  for (size_t i = 0; i < sent.size(); ++i) {
    const double phase = 2 * std::numbers::pi * static_cast<double>(i) / kRate;
    sent[i] = static_cast<int16_t>(i / 3000 % 3 == 2 ? 0 : 9000 * std::sin(phase * 425));
  }
  ExpectSameAsLiteral(sent, Add(Echo(sent, 12), Noise(2, -55)));
}

TEST(EchoEquality, TheSameAsTheLiteralFormOnAnySampleWhatever) {
  std::mt19937 random(9);
  constexpr std::array<int16_t, 6> kExtremes{-32768, 32767, 0, -1, 1, 32635};
  Signal sent(16000);
  Signal received(sent.size());
  for (size_t i = 0; i < sent.size(); ++i) {
    const bool extreme = i / 2000 % 2 == 1;
    sent[i] = extreme ? kExtremes[random() % kExtremes.size()] : static_cast<int16_t>(random());
    received[i] = extreme ? kExtremes[random() % kExtremes.size()] : static_cast<int16_t>(random());
  }
  ExpectSameAsLiteral(sent, received);
}

}  // namespace
}  // namespace zelk

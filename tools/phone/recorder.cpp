// SPDX-License-Identifier: GPL-2.0-only
#include "phone/recorder.h"

#include <array>
#include <cmath>

#include "phone/phone_error.h"
#include "zelk/ZelkApi.h"

namespace phone {

namespace {

// ITU-T G.711 A-law expansion, for the meter.
int ExpandALaw(uint8_t code) {
  const int value = code ^ 0x55;
  const int exponent = (value >> 4) & 7;
  int magnitude = ((value & 0x0F) << 4) + 8;
  if (exponent > 0) {
    magnitude = (magnitude + 0x100) << (exponent - 1);
  }
  return (value & 0x80) != 0 ? magnitude : -magnitude;
}

}  // namespace

void CRecorder::Start(int32_t channel, const std::string& path) {
  filePath = path;
  file.open(path, std::ios::binary | std::ios::trunc);
  const std::array<char, ZELK_RAW_HEADER_BYTES> room{};
  file.write(room.data(), static_cast<std::streamsize>(room.size()));
  if (!file) {
    throw CPhoneError(EExit::kFile, "cannot write the recording " + path);
  }
  const std::lock_guard<std::mutex> guard(lock);
  watched = channel;
  pending.clear();
  bytes = 0;
  recording = true;
}

void CRecorder::Watch(int32_t channel) {
  const std::lock_guard<std::mutex> guard(lock);
  watched = channel;
  latest.clear();
}

void CRecorder::Append(uint32_t channel, const uint8_t* data, uint32_t length) {
  const std::lock_guard<std::mutex> guard(lock);
  if (watched < 0 || channel != static_cast<uint32_t>(watched)) {
    return;
  }
  latest.assign(data, data + length);
  if (recording) {
    pending.insert(pending.end(), data, data + length);
    bytes += length;
  }
}

void CRecorder::Flush() {
  std::vector<uint8_t> batch;
  {
    const std::lock_guard<std::mutex> guard(lock);
    batch.swap(pending);
  }
  if (batch.empty() || !file.is_open()) {
    return;
  }
  file.write(reinterpret_cast<const char*>(batch.data()), static_cast<std::streamsize>(batch.size()));
  if (!file) {
    file.close();
    throw CPhoneError(EExit::kFile, "cannot write the recording " + filePath);
  }
}

bool CRecorder::Finish() {
  {
    const std::lock_guard<std::mutex> guard(lock);
    watched = -1;
    recording = false;
  }
  if (!file.is_open()) {
    return false;
  }
  Flush();
  file.close();
  if (!file || ZELK_ConvertRawToWaveFile(filePath.c_str(), ZELK_FORMAT_ALAW) != ZELK_ERROR_NONE) {
    throw CPhoneError(EExit::kFile, "cannot finish the recording " + filePath);
  }
  return true;
}

uint64_t CRecorder::BytesRecorded() {
  const std::lock_guard<std::mutex> guard(lock);
  return bytes;
}

double CRecorder::LevelDbm0() {
  std::vector<uint8_t> block;
  {
    const std::lock_guard<std::mutex> guard(lock);
    block = latest;
  }
  double power = 0.0;
  for (const uint8_t code : block) {
    const double sample = ExpandALaw(code);
    power += sample * sample;
  }
  // The smallest A-law magnitude is 8, so a quiet line still has a little power: call that silence.
  constexpr double kFullScaleSinePower = 32256.0 * 32256.0 / 2.0;
  const double mean = block.empty() ? 0.0 : power / static_cast<double>(block.size());
  return mean <= 64.0 ? -99.0 : 10.0 * std::log10(mean / kFullScaleSinePower) + 3.14;
}

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only

// The 24 functions of the public interface: each checks its channel, delegates and returns. What they do stands in
// include/zelk/ZelkApi.h for the application and in the call and media folders for us.

#include "api/guard.h"
#include "api/library.h"
#include "call/application_events.h"
#include "call/call_operations.h"
#include "call/channel_info.h"
#include "call/disconnect_cause.h"
#include "formats/wave_header.h"
#include "playback/file_player.h"
#include "zelk/ZelkApi.h"

using zelk::ApplicationEvents;
using zelk::CChannelTable;
using zelk::CDevice;
using zelk::ForChannel;
using zelk::Guarded;
using zelk::Library;

static_assert(static_cast<int>(zelk::kErrorNone) == ZELK_ERROR_NONE &&
              static_cast<int>(zelk::kErrorBadChannel) == ZELK_ERROR_BAD_CHANNEL &&
              static_cast<int>(zelk::kErrorNoMemory) == ZELK_ERROR_NO_MEMORY &&
              static_cast<int>(zelk::kErrorFileOpen) == ZELK_ERROR_FILE_OPEN &&
              static_cast<int>(zelk::kErrorFileRead) == ZELK_ERROR_FILE_READ &&
              static_cast<int>(zelk::kErrorFileWrite) == ZELK_ERROR_FILE_WRITE &&
              static_cast<int>(zelk::kErrorFileClose) == ZELK_ERROR_FILE_CLOSE &&
              static_cast<int>(zelk::kErrorBadFormat) == ZELK_ERROR_BAD_FORMAT &&
              static_cast<int>(zelk::kErrorConversion) == ZELK_ERROR_CONVERSION);
static_assert(zelk::kSampleFormats[static_cast<size_t>(zelk::ESampleFormat::kALaw)].publicNumber == ZELK_FORMAT_ALAW &&
              zelk::kSampleFormats[static_cast<size_t>(zelk::ESampleFormat::kMuLaw)].publicNumber == ZELK_FORMAT_MULAW);
static_assert(zelk::kMaxChannels == ZELK_MAX_CHANNELS && zelk::kChannelsPerTrunk == ZELK_CHANNELS_PER_TRUNK &&
              zelk::kBlockBytes == ZELK_BLOCK_BYTES);

extern "C" {
// Tells a reader of the file which version it is. No code refers to it: the linker is told to keep it.
extern const char zelkVersionText[];
[[gnu::used]] const char zelkVersionText[] = "ZelkApi64 " ZELK_VERSION_STRING;
}

bool ZELK_CALL ZELK_Init(void) {
  return Guarded(false, [] { return Library().Init(); });
}

void ZELK_CALL ZELK_Shutdown(void) {
  Guarded([] { Library().Shutdown(); });
}

int32_t ZELK_CALL ZELK_GetChannelCount(void) {
  return Guarded(int32_t{0}, [] { return Library().Channels().Count(); });
}

bool ZELK_CALL ZELK_OpenChannel(int32_t channel) {
  return ForChannel(channel, false, [](CDevice& device) {
    device.Open();
    return true;
  });
}

void ZELK_CALL ZELK_CloseChannel(int32_t channel) {
  ForChannel(channel, false, [](CDevice& device) {
    device.Close();
    return true;
  });
}

uint32_t ZELK_CALL ZELK_GetLastError(int32_t channel) {
  constexpr uint32_t kBadChannel = ZELK_ERROR_BAD_CHANNEL;
  return Guarded(kBadChannel, [channel]() -> uint32_t {
    const CChannelTable::CVisit visit(Library().Channels());
    const CDevice* device = visit.Find(channel);
    return device != nullptr ? device->LastError() : kBadChannel;
  });
}

uint32_t ZELK_CALL ZELK_GetChannelInfo(int32_t channel, uint32_t key) {
  return ForChannel(channel, uint32_t{0}, [key](CDevice& device) { return zelk::InfoNumber(device, key); });
}

const char* ZELK_CALL ZELK_GetChannelInfoString(int32_t channel, uint32_t key) {
  const char* none = nullptr;
  return ForChannel(channel, none,
                    [key](CDevice& device) { return zelk::InfoString(device, key, Library().Channels().Count()); });
}

uint32_t ZELK_CALL ZELK_SetChannelInfo(int32_t channel, int32_t key, int32_t value) {
  return ForChannel(channel, uint32_t{0},
                    [key, value](CDevice& device) { return zelk::SetInfoNumber(device, key, value); });
}

uint32_t ZELK_CALL ZELK_SetChannelInfoString(int32_t, int32_t, const char*) {
  return 0;
}

bool ZELK_CALL ZELK_Reject(int32_t channel) {
  return ForChannel(channel, false, [](CDevice& device) { return zelk::Reject(device); });
}

bool ZELK_CALL ZELK_Answer(int32_t channel) {
  return ForChannel(channel, false, [](CDevice& device) { return zelk::Answer(device); });
}

bool ZELK_CALL ZELK_Hangup(int32_t channel) {
  return ForChannel(channel, false, [](CDevice& device) { return zelk::Hangup(device); });
}

bool ZELK_CALL ZELK_Dial(int32_t channel, const char* number, const char* callingNumber) {
  return ForChannel(channel, false,
                    [number, callingNumber](CDevice& device) { return zelk::Dial(device, number, callingNumber); });
}

bool ZELK_CALL ZELK_Transfer(int32_t channel) {
  return ForChannel(channel, false, [](CDevice&) { return false; });
}

const char* ZELK_CALL ZELK_DisconnectReasonToString(int32_t cause) {
  return zelk::DisconnectCauseName(cause);
}

bool ZELK_CALL ZELK_PlayBuffer(int32_t channel, const void* data, uint32_t length) {
  return ForChannel(channel, false, [data, length](CDevice& device) {
    uint32_t error = ZELK_ERROR_NONE;
    const bool played = zelk::PlayBuffer(device.Wave(), static_cast<const uint8_t*>(data), length, error);
    device.SetLastError(error);
    return played;
  });
}

bool ZELK_CALL ZELK_PlayFile(int32_t channel, const char* path) {
  return ForChannel(channel, false, [path](CDevice& device) {
    uint32_t error = ZELK_ERROR_NONE;
    const bool played = zelk::PlayFile(device.Wave(), path, error);
    device.SetLastError(error);
    return played;
  });
}

uint32_t ZELK_CALL ZELK_PlayTimeLeft(int32_t channel) {
  return ForChannel(channel, uint32_t{0}, [](CDevice& device) { return device.Wave().TimeLeftMs(); });
}

void ZELK_CALL ZELK_StopPlay(int32_t channel) {
  ForChannel(channel, false, [](CDevice& device) {
    device.Wave().Flush();
    return true;
  });
}

uint32_t ZELK_CALL ZELK_ConvertRawToWaveFile(const char* path, uint32_t type) {
  constexpr uint32_t kNoMemory = ZELK_ERROR_NO_MEMORY;
  return Guarded(kNoMemory, [path, type] { return zelk::ConvertRawToWaveFile(path, type); });
}

void ZELK_CALL ZELK_SetEventCallback(ZelkEventCallback callback) {
  ApplicationEvents().SetEventCallback(callback);
}

void ZELK_CALL ZELK_SetPlayCallback(ZelkPlayCallback callback) {
  ApplicationEvents().SetPlayCallback(callback);
}

void ZELK_CALL ZELK_SetRecordCallback(ZelkRecordCallback callback) {
  ApplicationEvents().SetRecordCallback(callback);
}

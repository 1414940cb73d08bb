/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Stands for the library: every function notes its call as a line of text, and says what the test told it to say. The
 * test brings events and sound itself. -DWITHOUT_DIAL leaves an export out.
 */
#include <pthread.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#define SHOW __attribute__((visibility("default")))

typedef void (*EventCallback)(int32_t, uint32_t, int32_t);
typedef void (*PlayCallback)(uint32_t, uint8_t*, uint32_t);
typedef void (*RecordCallback)(uint32_t, const uint8_t*, uint32_t);

enum { kChannels = 30, kRoom = 1 << 16 };
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static char calls[kRoom];
static EventCallback onEvent;
static PlayCallback onPlay;
static RecordCallback onRecord;
static bool answer = true;
static uint32_t lastError;
static char text[32];

static bool Note(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  pthread_mutex_lock(&lock);
  const size_t used = strlen(calls);
  vsnprintf(calls + used, kRoom - used, format, arguments);
  strncat(calls, "\n", kRoom - strlen(calls) - 1);
  pthread_mutex_unlock(&lock);
  va_end(arguments);
  return answer;
}

static const char* Shown(const char* value) {
  return value ? value : "null";
}

/* ---- For the test ---- */

SHOW void STUB_Take(char* room, uint32_t size) {
  pthread_mutex_lock(&lock);
  snprintf(room, size, "%s", calls);
  calls[0] = 0;
  pthread_mutex_unlock(&lock);
}
SHOW void STUB_Say(bool result, uint32_t error) {
  answer = result;
  lastError = error;
}
SHOW void STUB_Event(int32_t channel, uint32_t event, int32_t param) {
  onEvent(channel, event, param);
}
SHOW void STUB_Sound(uint32_t channel, const uint8_t* data) {
  onRecord(channel, data, 160);
}
SHOW void STUB_Play(uint32_t channel, uint8_t* data) {
  onPlay(channel, data, 160);
}
SHOW bool STUB_Hears(void) {
  return onEvent && onRecord;
}

/* ---- The library ---- */

SHOW void ZELK_SetEventCallback(EventCallback callback) {
  onEvent = callback;
}
SHOW void ZELK_SetPlayCallback(PlayCallback callback) {
  onPlay = callback;
}
SHOW void ZELK_SetRecordCallback(RecordCallback callback) {
  onRecord = callback;
}
SHOW bool ZELK_Init(void) {
  return Note("Init");
}
SHOW void ZELK_Shutdown(void) {
  Note("Shutdown");
}
SHOW int32_t ZELK_GetChannelCount(void) {
  return kChannels;
}
SHOW bool ZELK_OpenChannel(int32_t channel) {
  return Note("OpenChannel %d", channel);
}
SHOW void ZELK_CloseChannel(int32_t channel) {
  Note("CloseChannel %d", channel);
}
SHOW uint32_t ZELK_GetLastError(int32_t channel) {
  return Note("GetLastError %d", channel) ? lastError : lastError;
}
SHOW uint32_t ZELK_GetChannelInfo(int32_t channel, uint32_t key) {
  Note("GetChannelInfo %d %u", channel, key);
  return key == 6 ? 3 : key == 7 ? 0 : key * 10;
}
SHOW const char* ZELK_GetChannelInfoString(int32_t channel, uint32_t key) {
  Note("GetChannelInfoString %d %u", channel, key);
  snprintf(text, sizeof text, "text %u of %d", key, channel);
  return key < 262 ? text : NULL;
}
SHOW uint32_t ZELK_SetChannelInfo(int32_t channel, int32_t key, int32_t value) {
  return Note("SetChannelInfo %d %d %d", channel, key, value);
}
SHOW uint32_t ZELK_SetChannelInfoString(int32_t channel, int32_t key, const char* value) {
  Note("SetChannelInfoString %d %d %s", channel, key, Shown(value));
  return 0;
}
#ifndef WITHOUT_DIAL
SHOW bool ZELK_Dial(int32_t channel, const char* number, const char* calling) {
  return Note("Dial %d %s %s", channel, Shown(number), Shown(calling));
}
#endif
SHOW bool ZELK_Answer(int32_t channel) {
  return Note("Answer %d", channel);
}
SHOW bool ZELK_Reject(int32_t channel) {
  return Note("Reject %d", channel);
}
SHOW bool ZELK_Hangup(int32_t channel) {
  return Note("Hangup %d", channel);
}
SHOW bool ZELK_Transfer(int32_t channel) {
  return Note("Transfer %d", channel);
}
SHOW const char* ZELK_DisconnectReasonToString(int32_t cause) {
  static char names[160][16];
  if (cause < 0 || cause >= 160) {
    return "REASON_UNKNOWN";
  }
  snprintf(names[cause], sizeof names[cause], "CAUSE_%d", cause);
  return names[cause];
}
SHOW bool ZELK_PlayBuffer(int32_t channel, const void* data, uint32_t length) {
  uint32_t sum = 0;
  for (uint32_t at = 0; at < length; ++at) {
    sum = sum * 31 + ((const uint8_t*)data)[at];
  }
  return Note("PlayBuffer %d %u %u", channel, length, sum);
}
SHOW bool ZELK_PlayFile(int32_t channel, const char* path) {
  return Note("PlayFile %d %s", channel, Shown(path));
}
SHOW uint32_t ZELK_PlayTimeLeft(int32_t channel) {
  return Note("PlayTimeLeft %d", channel) ? 120 : 0;
}
SHOW void ZELK_StopPlay(int32_t channel) {
  Note("StopPlay %d", channel);
}
SHOW uint32_t ZELK_ConvertRawToWaveFile(const char* path, uint32_t type) {
  return Note("ConvertRawToWaveFile %s %u", Shown(path), type) ? 0 : lastError;
}

/* SPDX-License-Identifier: GPL-2.0-only */

/* The public header compiles as C11 and means there what it means in C++. Nothing here runs. */
#include "zelk/ZelkApi.h"

_Static_assert(sizeof(bool) == 1, "a bool result is one byte in both languages");
_Static_assert(ZELK_MAX_CHANNELS == 1024 && ZELK_CHANNELS_PER_TRUNK == 30, "the channel table");
_Static_assert(ZELK_BLOCK_BYTES == ZELK_BLOCK_MS * ZELK_BYTES_PER_MS, "one block of audio");
_Static_assert(ZELK_SAMPLE_RATE == 1000 * ZELK_BYTES_PER_MS, "one byte a sample");
_Static_assert(ZELK_ERROR_CONVERSION == 8 && ZELK_EVENT_CHANNEL_STATE == 0x501, "codes");
_Static_assert(ZELK_INFO_SERIALNO == 1 && ZELK_INFO_TIMESLOT == 263, "information keys");

static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param) {
  (void)channel;
  (void)event;
  (void)param;
}
static void ZELK_CALL OnPlay(uint32_t channel, uint8_t* data, uint32_t length) {
  (void)channel;
  (void)data;
  (void)length;
}
static void ZELK_CALL OnRecord(uint32_t channel, const uint8_t* data, uint32_t length) {
  (void)channel;
  (void)data;
  (void)length;
}

const ZelkEventCallback zelkHeaderEvent = &OnEvent;
const ZelkPlayCallback zelkHeaderPlay = &OnPlay;
const ZelkRecordCallback zelkHeaderRecord = &OnRecord;

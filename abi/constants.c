/* SPDX-License-Identifier: GPL-2.0-only */

/* Values and sizes that the last release promised: whoever compiles this for a header finds out whether it keeps them.
   Written by scripts/check-abi --accept. Nothing here runs. */
#include <stddef.h>
#include <zelk/ZelkApi.h>

_Static_assert(ZELK_BLOCK_BYTES == 160, "ZELK_BLOCK_BYTES");
_Static_assert(ZELK_BLOCK_MS == 20, "ZELK_BLOCK_MS");
_Static_assert(ZELK_BYTES_PER_MS == 8, "ZELK_BYTES_PER_MS");
_Static_assert(ZELK_CALL_REDIRECT_BUSY == 1, "ZELK_CALL_REDIRECT_BUSY");
_Static_assert(ZELK_CALL_REDIRECT_DEFLECTED == 4, "ZELK_CALL_REDIRECT_DEFLECTED");
_Static_assert(ZELK_CALL_REDIRECT_FORWARDED == 6, "ZELK_CALL_REDIRECT_FORWARDED");
_Static_assert(ZELK_CALL_REDIRECT_NO_REPLY == 2, "ZELK_CALL_REDIRECT_NO_REPLY");
_Static_assert(ZELK_CALL_REDIRECT_OUT_OF_ORDER == 5, "ZELK_CALL_REDIRECT_OUT_OF_ORDER");
_Static_assert(ZELK_CALL_REDIRECT_UNCONDITIONAL == 3, "ZELK_CALL_REDIRECT_UNCONDITIONAL");
_Static_assert(ZELK_CALL_REDIRECT_UNKNOWN == 7, "ZELK_CALL_REDIRECT_UNKNOWN");
_Static_assert(ZELK_CALL_VOICE == 0, "ZELK_CALL_VOICE");
_Static_assert(ZELK_CHANNELS_PER_TRUNK == 30, "ZELK_CHANNELS_PER_TRUNK");
_Static_assert(ZELK_CHANNEL_DOWN == 2, "ZELK_CHANNEL_DOWN");
_Static_assert(ZELK_CHANNEL_INUSE == 4, "ZELK_CHANNEL_INUSE");
_Static_assert(ZELK_CHANNEL_READY == 3, "ZELK_CHANNEL_READY");
_Static_assert(ZELK_CHANNEL_UNKNOWN == 1, "ZELK_CHANNEL_UNKNOWN");
_Static_assert(ZELK_ERROR_BAD_CHANNEL == 1, "ZELK_ERROR_BAD_CHANNEL");
_Static_assert(ZELK_ERROR_BAD_FORMAT == 7, "ZELK_ERROR_BAD_FORMAT");
_Static_assert(ZELK_ERROR_CONVERSION == 8, "ZELK_ERROR_CONVERSION");
_Static_assert(ZELK_ERROR_FILE_CLOSE == 6, "ZELK_ERROR_FILE_CLOSE");
_Static_assert(ZELK_ERROR_FILE_OPEN == 3, "ZELK_ERROR_FILE_OPEN");
_Static_assert(ZELK_ERROR_FILE_READ == 4, "ZELK_ERROR_FILE_READ");
_Static_assert(ZELK_ERROR_FILE_WRITE == 5, "ZELK_ERROR_FILE_WRITE");
_Static_assert(ZELK_ERROR_NONE == 0, "ZELK_ERROR_NONE");
_Static_assert(ZELK_ERROR_NO_MEMORY == 2, "ZELK_ERROR_NO_MEMORY");
_Static_assert(ZELK_EVENT_ALERTING == 1025, "ZELK_EVENT_ALERTING");
_Static_assert(ZELK_EVENT_CHANNEL_STATE == 1281, "ZELK_EVENT_CHANNEL_STATE");
_Static_assert(ZELK_EVENT_CONNECTED == 770, "ZELK_EVENT_CONNECTED");
_Static_assert(ZELK_EVENT_DISCONNECTED == 771, "ZELK_EVENT_DISCONNECTED");
_Static_assert(ZELK_EVENT_DTMF == 257, "ZELK_EVENT_DTMF");
_Static_assert(ZELK_EVENT_INCOMING_CALL == 769, "ZELK_EVENT_INCOMING_CALL");
_Static_assert(ZELK_EVENT_PLAY_DONE == 513, "ZELK_EVENT_PLAY_DONE");
_Static_assert(ZELK_EVENT_PROCEEDING == 1026, "ZELK_EVENT_PROCEEDING");
_Static_assert(ZELK_EVENT_PROGRESS == 1027, "ZELK_EVENT_PROGRESS");
_Static_assert(ZELK_FORMAT_ALAW == 2, "ZELK_FORMAT_ALAW");
_Static_assert(ZELK_FORMAT_MULAW == 1, "ZELK_FORMAT_MULAW");
_Static_assert(ZELK_INFO_BURNDATE == 261, "ZELK_INFO_BURNDATE");
_Static_assert(ZELK_INFO_CALLTYPE == 7, "ZELK_INFO_CALLTYPE");
_Static_assert(ZELK_INFO_CHANNELSTATE == 6, "ZELK_INFO_CHANNELSTATE");
_Static_assert(ZELK_INFO_CLI == 2, "ZELK_INFO_CLI");
_Static_assert(ZELK_INFO_DIRECTION == 5, "ZELK_INFO_DIRECTION");
_Static_assert(ZELK_INFO_DLI == 3, "ZELK_INFO_DLI");
_Static_assert(ZELK_INFO_FIRMWAREDATE == 260, "ZELK_INFO_FIRMWAREDATE");
_Static_assert(ZELK_INFO_FIRMWAREVER == 259, "ZELK_INFO_FIRMWAREVER");
_Static_assert(ZELK_INFO_LINETYPE == 257, "ZELK_INFO_LINETYPE");
_Static_assert(ZELK_INFO_OPENTYPE == 258, "ZELK_INFO_OPENTYPE");
_Static_assert(ZELK_INFO_RLI == 4, "ZELK_INFO_RLI");
_Static_assert(ZELK_INFO_SERIALNO == 1, "ZELK_INFO_SERIALNO");
_Static_assert(ZELK_INFO_TIMESLOT == 263, "ZELK_INFO_TIMESLOT");
_Static_assert(ZELK_INFO_TRUNK == 262, "ZELK_INFO_TRUNK");
_Static_assert(ZELK_MAX_CHANNELS == 1024, "ZELK_MAX_CHANNELS");
_Static_assert(ZELK_RAW_HEADER_BYTES == 44, "ZELK_RAW_HEADER_BYTES");
_Static_assert(ZELK_SAMPLE_RATE == 8000, "ZELK_SAMPLE_RATE");
_Static_assert(ZELK_SET_ALLOWINCOMING == 1, "ZELK_SET_ALLOWINCOMING");
_Static_assert(sizeof(bool) == 1, "bool");
_Static_assert(sizeof(int32_t) == 4, "int32_t");
_Static_assert(sizeof(uint32_t) == 4, "uint32_t");
_Static_assert(sizeof(enum ZelkError) == 4, "enum ZelkError");
_Static_assert(sizeof(enum ZelkEvent) == 4, "enum ZelkEvent");
_Static_assert(sizeof(enum ZelkInfo) == 4, "enum ZelkInfo");
_Static_assert(sizeof(enum ZelkChannelState) == 4, "enum ZelkChannelState");
_Static_assert(sizeof(enum ZelkCallType) == 4, "enum ZelkCallType");
_Static_assert(sizeof(enum ZelkSampleFormat) == 4, "enum ZelkSampleFormat");
_Static_assert(sizeof(enum ZelkSetInfo) == 4, "enum ZelkSetInfo");
_Static_assert(sizeof(ZelkEventCallback) == 8, "ZelkEventCallback");
_Static_assert(sizeof(ZelkPlayCallback) == 8, "ZelkPlayCallback");
_Static_assert(sizeof(ZelkRecordCallback) == 8, "ZelkRecordCallback");

/* SPDX-License-Identifier: GPL-2.0-only */

/* Values and sizes that the last release promised: whoever compiles this for a header finds out whether it keeps them.
   Written by scripts/check-abi --accept. Nothing here runs. */
#include <stddef.h>
#include <zelk/ZelkQueue.h>

_Static_assert(ZELKQ_ALREADY_STARTED == -3, "ZELKQ_ALREADY_STARTED");
_Static_assert(ZELKQ_BAD_ARGUMENT == -2, "ZELKQ_BAD_ARGUMENT");
_Static_assert(ZELKQ_BLOCK_BYTES == 160, "ZELKQ_BLOCK_BYTES");
_Static_assert(ZELKQ_EVENT_OVERFLOW == 65537, "ZELKQ_EVENT_OVERFLOW");
_Static_assert(ZELKQ_EVENT_ROOM == 65536, "ZELKQ_EVENT_ROOM");
_Static_assert(ZELKQ_FOREVER == -1, "ZELKQ_FOREVER");
_Static_assert(ZELKQ_FORKED == -8, "ZELKQ_FORKED");
_Static_assert(ZELKQ_INIT_FAILED == -4, "ZELKQ_INIT_FAILED");
_Static_assert(ZELKQ_MOST_BLOCKS == 65536, "ZELKQ_MOST_BLOCKS");
_Static_assert(ZELKQ_NO_CHANNEL == -1, "ZELKQ_NO_CHANNEL");
_Static_assert(ZELKQ_NO_MEMORY == -5, "ZELKQ_NO_MEMORY");
_Static_assert(ZELKQ_NO_RING == -7, "ZELKQ_NO_RING");
_Static_assert(ZELKQ_NO_TEXT == -6, "ZELKQ_NO_TEXT");
_Static_assert(ZELKQ_STOPPED == -1, "ZELKQ_STOPPED");
_Static_assert(ZELKQ_VERSION >= 1, "ZELKQ_VERSION");
_Static_assert(offsetof(ZelkQueueEvent, sequence) == 0, "sequence");
_Static_assert(offsetof(ZelkQueueEvent, timeUs) == 8, "timeUs");
_Static_assert(offsetof(ZelkQueueEvent, channel) == 16, "channel");
_Static_assert(offsetof(ZelkQueueEvent, event) == 20, "event");
_Static_assert(offsetof(ZelkQueueEvent, param) == 24, "param");
_Static_assert(offsetof(ZelkQueueEvent, reserved) == 28, "reserved");
_Static_assert(sizeof(enum ZelkQueueConstant) == 4, "enum ZelkQueueConstant");
_Static_assert(sizeof(enum ZelkQueueResult) == 4, "enum ZelkQueueResult");
_Static_assert(sizeof(ZelkQueueEvent) == 32, "ZelkQueueEvent");

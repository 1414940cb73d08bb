/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * Events and received sound in queues, for languages with an interpreter or a garbage collector.
 *
 * The library calls an application on threads that serve a whole card, and a card with all its calls stands still while
 * such a call waits for an interpreter. Here the callbacks are native code: they put what comes into queues, and the
 * language fetches it on threads of its own. Everything else is called in zelk/ZelkApi.h directly, between ZELKQ_Start
 * and ZELKQ_Stop; only the event and the record callback belong to the queues (the play callback is left alone), and
 * texts and numbers of a channel are asked for here.
 *
 * Which library: this one needs the library by its name (libZelkApi-64.so, ZelkApi64.dll). One of that name that the
 * process has loaded already, from whatever path, is the one that is used: load yours first, then this.
 *
 * Results: 0 or more is success, below 0 a ZelkQueueResult. Nothing is thrown or printed.
 *
 * Threads: every function may be called from any thread and at any time, also before ZELKQ_Start and after ZELKQ_Stop,
 * when it says ZELKQ_STOPPED; but not inside a callback of the library and, since locks are taken, not in a signal
 * handler. A callback never waits for a reader to read: what finds no room is counted, and the reader is told.
 *
 * End of the process: nothing has to be stopped before, and no thread has to have left a wait. This library stays
 * loaded until then. In a child made by fork the parent's queues are gone: every function says ZELKQ_STOPPED there,
 * ZELKQ_Start ZELKQ_FORKED.
 */
#ifndef ZELK_ZELKQUEUE_H
#define ZELK_ZELKQUEUE_H

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): C programs include this header too */

#if defined(_WIN32)
#define ZELKQ_CALL __cdecl
#if defined(ZELKQ_BUILDING)
#define ZELKQ_API __declspec(dllexport)
#elif defined(ZELKQ_STATIC)
#define ZELKQ_API
#else
#define ZELKQ_API __declspec(dllimport)
#endif
#else
/** How functions are called: stated on Windows, the only way there is elsewhere. */
#define ZELKQ_CALL
/** What makes a function one of the library's. */
#define ZELKQ_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Sizes and marks. */
enum ZelkQueueConstant {
  ZELKQ_VERSION = 1,             /**< of this interface, see ZELKQ_GetVersion */
  ZELKQ_EVENT_ROOM = 65536,      /**< events that wait to be read, at most */
  ZELKQ_MOST_BLOCKS = 65536,     /**< the longest ring of a channel, some 21 minutes */
  ZELKQ_BLOCK_BYTES = 160,       /**< A-law bytes of a block, 20 ms */
  ZELKQ_FOREVER = -1,            /**< a time-out that never comes */
  ZELKQ_NO_CHANNEL = -1,         /**< the channel of an overflow; ZELKQ_GetLost: the events */
  ZELKQ_EVENT_OVERFLOW = 0x10001 /**< an event of the queue's own: param events were lost at this place */
};

/** What a function says instead of a number. */
enum ZelkQueueResult {
  ZELKQ_STOPPED = -1,         /**< before ZELKQ_Start, after ZELKQ_Stop, in a child made by fork */
  ZELKQ_BAD_ARGUMENT = -2,    /**< a null pointer, a size out of range, a channel that does not exist */
  ZELKQ_ALREADY_STARTED = -3, /**< ZELKQ_Start: in use; stop it first */
  ZELKQ_INIT_FAILED = -4,     /**< ZELKQ_Start: ZELK_Init said false */
  ZELKQ_NO_MEMORY = -5,       /**< ZELKQ_Start, ZELKQ_SetRing: the system had none for it */
  ZELKQ_NO_TEXT = -6,         /**< ZELKQ_GetText: the key has no text */
  ZELKQ_NO_RING = -7,         /**< the channel's sound is not kept, see ZELKQ_SetRing */
  ZELKQ_FORKED = -8           /**< ZELKQ_Start: in a child of a process that had started it */
};

/** An event as it waits to be read: 32 bytes, no gaps. */
typedef struct ZelkQueueEvent {
  uint64_t sequence; /**< counts all events from 1, those that were lost too; an overflow has that of the first lost */
  int64_t timeUs;    /**< when it came, in microseconds since 1970-01-01 00:00 UTC; an overflow: the first lost one */
  int32_t channel;   /**< ZELKQ_NO_CHANNEL with an overflow */
  uint32_t event;    /**< a ZelkEvent, or ZELKQ_EVENT_OVERFLOW */
  int32_t param;     /**< see ZelkEvent; with an overflow the number of lost events */
  uint32_t reserved; /**< 0 */
} ZelkQueueEvent;

/**
 * Empties the queues, sets the event and the record callback and calls ZELK_Init, which may take seconds. Events that
 * come before it returns are kept.
 * @return 0, ZELKQ_ALREADY_STARTED, ZELKQ_INIT_FAILED, ZELKQ_NO_MEMORY or ZELKQ_FORKED; nothing is left behind if not 0
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_Start(void);

/**
 * Wakes everyone who waits here, with ZELKQ_STOPPED, waits until they have left, takes the two callbacks out and calls
 * ZELK_Shutdown, which waits for the library's threads. What was not read is dropped, the rings are off.
 * ZELKQ_Start may follow.
 * @return 0 or ZELKQ_STOPPED
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_Stop(void);

/**
 * Waits until there are events and takes up to room of them, the oldest first. Events that came on one thread of the
 * library are in their order. Several threads may wait: each event goes to one of them.
 * @param events     gets the events
 * @param room       how many fit there, 1 or more
 * @param timeoutMs  the longest wait; 0 only looks, ZELKQ_FOREVER or any number below 0 waits on
 * @return how many; 0 when the time is over or ZELKQ_Wake was called; ZELKQ_STOPPED, ZELKQ_BAD_ARGUMENT
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_WaitEvents(ZelkQueueEvent* events, int32_t room, int32_t timeoutMs);

/**
 * Ends every wait that is under way here, with 0; when there is none, the next one ends at once. For Ctrl-C and for
 * handing work to the thread that waits.
 * @return 0 or ZELKQ_STOPPED
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_Wake(void);

/**
 * Copies the text of a ZelkInfo key. ZELK_GetChannelInfoString gives a text that any other thread's request on the
 * channel overwrites; this asks and copies under one lock, which ZELKQ_GetNumber takes too. So ask for texts and
 * numbers here alone.
 * @param channel  0 to ZELK_GetChannelCount() - 1
 * @param key      a ZelkInfo
 * @param buffer   gets the text and a zero byte, cut to fit; may be null when size is 0
 * @param size     bytes of the buffer
 * @return length of the whole text without the zero byte (size or more: it was cut); ZELKQ_NO_TEXT, ZELKQ_BAD_ARGUMENT,
 *         ZELKQ_STOPPED
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_GetText(int32_t channel, uint32_t key, char* buffer, int32_t size);

/**
 * The number of a ZelkInfo key, as ZELK_GetChannelInfo, under the lock of ZELKQ_GetText.
 * @param channel  as there
 * @param key      a ZelkInfo
 * @param value    gets the number; 0 for a key that has none
 * @return 0, ZELKQ_BAD_ARGUMENT or ZELKQ_STOPPED
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_GetNumber(int32_t channel, uint32_t key, uint32_t* value);

/**
 * Keeps the received sound of a channel from now on, at most so many blocks; what was kept before is dropped and its
 * count of lost blocks begins anew. A block that comes when the ring is full is lost and counted. Blocks come every
 * 20 ms, with and without a call.
 * @param channel  0 to ZELK_GetChannelCount() - 1
 * @param blocks   length of the ring, 1 to ZELKQ_MOST_BLOCKS; 0 keeps none any more and frees the memory
 * @return 0, ZELKQ_BAD_ARGUMENT, ZELKQ_NO_MEMORY (then the sound is not kept) or ZELKQ_STOPPED
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_SetRing(int32_t channel, int32_t blocks);

/**
 * Takes whole blocks from a channel's ring, the oldest first, without waiting. The blocks of one call follow on each
 * other: where some were lost a call ends, and the next one says how many.
 * @param channel  0 to ZELK_GetChannelCount() - 1
 * @param data     gets ZELKQ_BLOCK_BYTES bytes of A-law for each block
 * @param blocks   how many fit there, 1 or more
 * @param lost     gets the number of blocks that were lost directly in front of the first; may be null
 * @return how many, 0 when there is none; ZELKQ_NO_RING, ZELKQ_BAD_ARGUMENT, ZELKQ_STOPPED
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_ReadBlocks(int32_t channel, uint8_t* data, int32_t blocks, uint64_t* lost);

/**
 * Waits until some channels have so many blocks, or a full ring where that is shorter. Takes nothing: those that are
 * not read are found again.
 * @param blocks     how many, 1 or more
 * @param channels   gets the numbers of the channels; where not all fit, later calls go on behind the last
 * @param room       how many fit there, 1 or more
 * @param timeoutMs  as in ZELKQ_WaitEvents
 * @return how many channels; 0 when the time is over or ZELKQ_Wake was called; ZELKQ_STOPPED, ZELKQ_BAD_ARGUMENT
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_WaitBlocks(int32_t blocks, int32_t* channels, int32_t room, int32_t timeoutMs);

/**
 * What found no room.
 * @param channel  blocks of this channel since its ring was set; ZELKQ_NO_CHANNEL: events since ZELKQ_Start
 * @return how many; ZELKQ_NO_RING, ZELKQ_BAD_ARGUMENT, ZELKQ_STOPPED
 */
ZELKQ_API int64_t ZELKQ_CALL ZELKQ_GetLost(int32_t channel);

/**
 * The ZELKQ_VERSION that this library was built with. It grows with every addition; what is there stays.
 */
ZELKQ_API int32_t ZELKQ_CALL ZELKQ_GetVersion(void);

#ifdef __cplusplus
}
#endif

#endif

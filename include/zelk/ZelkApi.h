/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * ZelkApi64: places and receives voice calls on the ISDN primary-rate (E1) trunks of ZelkBoard Digital E1 cards.
 * The only header that an application needs; C11 and C++, Windows and Linux.
 *
 * Channels: one flat table of at most 1024 voice channels, numbered from 0. Cards stand in the order in which they were
 * found, a card's trunks in their order, and each trunk has 30 channels for the timeslots 1-15 and 17-31.
 *
 * Audio: 8000 Hz mono A-law (ITU-T G.711), in blocks of 160 bytes, 20 ms each.
 *
 * Errors: a failure shows in the result and in the channel's last-error code; nothing is thrown, printed or ended.
 * Every function that takes a channel fails at once and changes nothing for a number that is negative or not below
 * ZELK_GetChannelCount(); for a good one it first sets the channel's last error to ZELK_ERROR_NONE.
 *
 * Threads: every function may be called from any thread. ZELK_Init and ZELK_Shutdown must not run while another thread
 * is inside a function that takes a channel.
 *
 * Callbacks run on the library's own threads, each of which serves a whole card. The best of them note what happened
 * and leave the work to a thread of the application. Inside one, every function may be called for the callback's own
 * channel, but never ZELK_Init or ZELK_Shutdown, and nothing that takes long: ZELK_PlayFile reads a disk.
 * Call events, and channel-state events of a trunk, come with that trunk locked: ZELK_Dial, ZELK_Answer, ZELK_Reject
 * and ZELK_Hangup of other threads for its channels wait until the callback returns. So take no lock in an event
 * callback that another thread holds around one of these four, wait there for no such thread, and leave calls on other
 * trunks to a thread of your own.
 *
 * Texts are 8-bit and zero-terminated. A text that the library returns belongs to the library.
 */
#ifndef ZELK_ZELKAPI_H
#define ZELK_ZELKAPI_H

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): C programs include this header too */
#ifndef __cplusplus
#include <stdbool.h>
#endif

/* The version: this is the only place where it is written. */
#define ZELK_VERSION_MAJOR 1        /**< raised when applications have to change */
#define ZELK_VERSION_MINOR 0        /**< raised when something is added */
#define ZELK_VERSION_PATCH 0        /**< raised when something is put right */
#define ZELK_VERSION_STRING "1.0.0" /**< the three as a text */

#if defined(_WIN32)
#define ZELK_CALL __cdecl
#if defined(ZELK_BUILDING)
#define ZELK_API __declspec(dllexport)
#else
#define ZELK_API __declspec(dllimport)
#endif
#else
/** How functions and callbacks are called: stated on Windows, the only way there is elsewhere. */
#define ZELK_CALL
/** What makes a function one of the library's. */
#define ZELK_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Constants -------------------------------------------------------------------------------------------------- */

/** Sizes that are part of the interface. */
enum ZelkSize {
  ZELK_MAX_CHANNELS = 1024,     /**< size of the channel table */
  ZELK_CHANNELS_PER_TRUNK = 30, /**< voice channels of one E1 trunk */
  ZELK_SAMPLE_RATE = 8000,      /**< samples a second; one A-law byte each */
  ZELK_BLOCK_BYTES = 160,       /**< what the play and record callbacks get */
  ZELK_BLOCK_MS = 20,           /**< the time that such a block lasts */
  ZELK_BYTES_PER_MS = 8,        /**< A-law bytes in a millisecond */
  ZELK_RAW_HEADER_BYTES = 44    /**< room that a raw recording leaves for ZELK_ConvertRawToWaveFile */
};

/** Last-error codes of a channel and results of ZELK_ConvertRawToWaveFile: one numbering. */
enum ZelkError {
  ZELK_ERROR_NONE = 0,        /**< no failure */
  ZELK_ERROR_BAD_CHANNEL = 1, /**< only as the result of ZELK_GetLastError */
  ZELK_ERROR_NO_MEMORY = 2,   /**< the system had no memory for it */
  ZELK_ERROR_FILE_OPEN = 3,   /**< the file could not be opened, or is no WAV file */
  ZELK_ERROR_FILE_READ = 4,   /**< the file's sound could not be read */
  ZELK_ERROR_FILE_WRITE = 5,  /**< the file could not be written */
  ZELK_ERROR_FILE_CLOSE = 6,  /**< the file could not be closed */
  ZELK_ERROR_BAD_FORMAT = 7,  /**< the format is none that can be played, or the type is unknown */
  ZELK_ERROR_CONVERSION = 8   /**< the samples could not be turned into A-law */
};

/** Event codes, with what their parameter means and the thread that brings them. */
enum ZelkEvent {
  ZELK_EVENT_DTMF = 0x101, /**< the digit's character code ('0'-'9', 'A'-'D', '*', '#'); the card's pacer thread */
  /** 0; what was queued is played, see ZELK_PlayBuffer; the card's audio receive thread */
  ZELK_EVENT_PLAY_DONE = 0x201,
  ZELK_EVENT_INCOMING_CALL = 0x301, /**< 0; answer or reject it; control thread */
  ZELK_EVENT_CONNECTED = 0x302,     /**< 0; control thread, or inside ZELK_Answer on a network-side trunk */
  /** ITU-T Q.850 cause, -1 when the network gave none; channel free; control thread */
  ZELK_EVENT_DISCONNECTED = 0x303,
  ZELK_EVENT_ALERTING = 0x401,     /**< 0; the far end rings; control thread */
  ZELK_EVENT_PROCEEDING = 0x402,   /**< without a meaning, any value; control thread */
  ZELK_EVENT_PROGRESS = 0x403,     /**< cause of the progress message, -1 without one; control thread */
  ZELK_EVENT_CHANNEL_STATE = 0x501 /**< 1 usable (trunk up), 0 down; a call on it is lost without DISCONNECTED */
};

/** Keys of ZELK_GetChannelInfo (N: has a number) and ZELK_GetChannelInfoString (S: has a text). */
enum ZelkInfo {
  ZELK_INFO_SERIALNO = 1,       /**< N S  the card's serial number */
  ZELK_INFO_CLI = 2,            /**<   S  calling number of the current call */
  ZELK_INFO_DLI = 3,            /**<   S  called number */
  ZELK_INFO_RLI = 4,            /**<   S  redirecting number */
  ZELK_INFO_DIRECTION = 5,      /**< N S  'O' (79) "OUTGOING", whatever the call */
  ZELK_INFO_CHANNELSTATE = 6,   /**< N S  ZelkChannelState; "UNKNOWN", "DOWN", "READY", "INUSE" */
  ZELK_INFO_CALLTYPE = 7,       /**< N S  ZelkCallType; "Voice", "Voice Redirect..." or "" with no call */
  ZELK_INFO_LINETYPE = 257,     /**< N S  1, "PRI" */
  ZELK_INFO_OPENTYPE = 258,     /**< N S  ZelkSampleFormat; "ALAW", "MULAW", "PCM8", "PCM16" or "" */
  ZELK_INFO_FIRMWAREVER = 259,  /**<   S  the card's firmware version */
  ZELK_INFO_FIRMWAREDATE = 260, /**<   S  its date, eight digits */
  ZELK_INFO_BURNDATE = 261,     /**<   S  the day it was written to the card, eight digits */
  ZELK_INFO_TRUNK = 262,        /**< N    trunk of the card, counted from 0 */
  ZELK_INFO_TIMESLOT = 263      /**< N    E1 timeslot, 1-15 or 17-31 */
};

/** States of a channel: the number of ZELK_INFO_CHANNELSTATE. */
enum ZelkChannelState {
  ZELK_CHANNEL_UNKNOWN = 1, /**< the trunk has not said yet whether it is up */
  ZELK_CHANNEL_DOWN = 2,    /**< the trunk is down, or the channel was closed since the trunk came up */
  ZELK_CHANNEL_READY = 3,   /**< idle on a trunk that is up */
  ZELK_CHANNEL_INUSE = 4    /**< holds a call */
};

/** Whether a call was redirected, and why: the number of ZELK_INFO_CALLTYPE. */
enum ZelkCallType {
  ZELK_CALL_VOICE = 0,                  /**< also: no call */
  ZELK_CALL_REDIRECT_BUSY = 1,          /**< the called number was busy */
  ZELK_CALL_REDIRECT_NO_REPLY = 2,      /**< it did not answer */
  ZELK_CALL_REDIRECT_UNCONDITIONAL = 3, /**< all of its calls are redirected */
  ZELK_CALL_REDIRECT_DEFLECTED = 4,     /**< it passed this call on */
  ZELK_CALL_REDIRECT_OUT_OF_ORDER = 5,  /**< it is out of order */
  ZELK_CALL_REDIRECT_FORWARDED = 6,     /**< it forwards its calls */
  ZELK_CALL_REDIRECT_UNKNOWN = 7        /**< redirected, the network does not say why */
};

/** Sample formats of ZELK_INFO_OPENTYPE, and the types that ZELK_ConvertRawToWaveFile takes. */
enum ZelkSampleFormat {
  ZELK_FORMAT_MULAW = 1, /**< mu-law, ITU-T G.711 */
  ZELK_FORMAT_ALAW = 2   /**< A-law, ITU-T G.711 */
};

/** Keys of ZELK_SetChannelInfo. */
enum ZelkSetInfo { ZELK_SET_ALLOWINCOMING = 1 /**< 0: calls to the channel are refused; anything else: offered */ };

/* ---- Callbacks -------------------------------------------------------------------------------------------------- */

/**
 * Something happened on a channel. event: a ZelkEvent; param: see there.
 * Thread: call and state events the card's control thread, digits its pacer thread, play-done its audio receive thread.
 * ZELK_EVENT_CONNECTED also comes inside ZELK_Answer, ZELK_EVENT_CHANNEL_STATE also on the thread that opens a
 * restarted card again. Events may come before ZELK_Init has returned, but never on its thread. They are not queued and
 * may come on several threads at once; those of one thread come in order. The channel's record is up to date when the
 * callback runs.
 */
typedef void(ZELK_CALL* ZelkEventCallback)(int32_t channel, uint32_t event, int32_t param);

/**
 * A block is about to be queued for the line: length (160) A-law bytes, which may be changed in place until the
 * callback returns. Called for every channel of an open card each 20 ms, about "AudioBuffers" blocks before the block
 * is heard, whether or not the channel is open, plays or has a call; silence where nothing is queued. What it writes
 * after a ZELK_StopPlay goes out. Thread: the card's pacer thread. Must not block.
 */
typedef void(ZELK_CALL* ZelkPlayCallback)(uint32_t channel, uint8_t* data, uint32_t length);

/**
 * A block of received audio: length (160) A-law bytes, valid until the callback returns. Called for every channel of an
 * open card each 20 ms, whether or not the channel is open or has a call; blocks of one channel come in order.
 * Thread: the card's pacer thread. Must not block.
 */
typedef void(ZELK_CALL* ZelkRecordCallback)(uint32_t channel, const uint8_t* data, uint32_t length);

/** @{ */
/**
 * Store a callback, replacing the earlier one; null for none. Allowed at any time, before ZELK_Init too, from where it
 * should be done so that no event is missed. A change takes effect with the next event; a call that is under way on
 * another thread is not waited for. ZELK_Shutdown keeps all three.
 */
ZELK_API void ZELK_CALL ZELK_SetEventCallback(ZelkEventCallback callback);
ZELK_API void ZELK_CALL ZELK_SetPlayCallback(ZelkPlayCallback callback);
ZELK_API void ZELK_CALL ZELK_SetRecordCallback(ZelkRecordCallback callback);
/** @} */

/* ---- Library ---------------------------------------------------------------------------------------------------- */

/**
 * Starts the log, reads the ini file beside the library, finds and opens the cards and builds the channel table. The
 * library's folder is that from which it was loaded, whatever becomes of the current directory. A card serves one
 * process: a second one that starts the library takes the cards from the first, whose calls end.
 * Blocks: about 150 ms a network adapter and some seconds for a card that does not answer. Called again without a
 * shut-down between, it only restarts the log and rereads the ini file. True also when there is no card (then there are
 * no channels); false when the library's own file or a thread for the announcements of restarted cards could not be
 * had.
 */
ZELK_API bool ZELK_CALL ZELK_Init(void);

/**
 * Closes every card and channel and empties the table; calls in progress are dropped without an event. Nothing when the
 * library is not initialised. Waits for the library's threads, so never call it inside a callback; a callback that does
 * not return is waited for some seconds (3 s for each thread, and 3 s for the trunks of each card) and then left
 * behind: its thread does nothing more once it returns. ZELK_Init may follow.
 */
ZELK_API void ZELK_CALL ZELK_Shutdown(void);

/** The number of channels, 0 to 1024; 0 before ZELK_Init. */
ZELK_API int32_t ZELK_CALL ZELK_GetChannelCount(void);

/* ---- Channels --------------------------------------------------------------------------------------------------- */

/**
 * Opens a channel for playing and for calls that the network offers without naming a channel. True for every valid
 * channel, also when it is open already.
 */
ZELK_API bool ZELK_CALL ZELK_OpenChannel(int32_t channel);

/**
 * Closes a channel: drops its queued audio without a play-done event. Does not hang up. The channel then reads "DOWN"
 * until its trunk next comes up.
 */
ZELK_API void ZELK_CALL ZELK_CloseChannel(int32_t channel);

/** The channel's ZelkError, which stays as it is; ZELK_ERROR_BAD_CHANNEL for a channel that does not exist. */
ZELK_API uint32_t ZELK_CALL ZELK_GetLastError(int32_t channel);

/** The number of a ZelkInfo key; 0 for a key that has none and for a bad channel. */
ZELK_API uint32_t ZELK_CALL ZELK_GetChannelInfo(int32_t channel, uint32_t key);

/**
 * The text of a ZelkInfo key; null for a key that has none and for a bad channel. Valid until the next information
 * request (ZELK_GetChannelInfo or ZELK_GetChannelInfoString) on this channel from any thread: copy it.
 */
ZELK_API const char* ZELK_CALL ZELK_GetChannelInfoString(int32_t channel, uint32_t key);

/** Sets the value of a ZelkSetInfo key: 1 when the key is known, else 0 (also for a bad channel). */
ZELK_API uint32_t ZELK_CALL ZELK_SetChannelInfo(int32_t channel, int32_t key, int32_t value);

/** Reserved: does nothing and returns 0, whatever the arguments. */
ZELK_API uint32_t ZELK_CALL ZELK_SetChannelInfoString(int32_t channel, int32_t key, const char* value);

/* ---- Calls ------------------------------------------------------------------------------------------------------ */

/**
 * Places a call. number: the called number; callingNumber: the own number shown to it, or null for the one given last
 * on this channel. At most 31 characters of each are sent; both are copied. Returns at once: true when the call request
 * was handed to the signalling stack; ZELK_EVENT_PROCEEDING, _ALERTING, _CONNECTED or _DISCONNECTED follow. False when
 * the channel has a call, number is null, or the trunk cannot place calls. After a refused request the channel may read
 * "INUSE" until ZELK_Reject or the loss of its trunk frees it. Dial channels that read "READY": on a trunk that is down
 * the request waits for the trunk or the protocol's timers, and on a card that is lost nothing follows before the card
 * is opened again.
 */
ZELK_API bool ZELK_CALL ZELK_Dial(int32_t channel, const char* number, const char* callingNumber);

/**
 * Accepts the offered call. True for every valid channel. ZELK_EVENT_CONNECTED follows when the network confirms; on a
 * trunk where the library is the network side ("ClientType" 1) it comes inside this call, even when there was no call
 * to answer. If the answer fails, the channel is freed without an event.
 */
ZELK_API bool ZELK_CALL ZELK_Answer(int32_t channel);

/**
 * Refuses the offered call (cause 21) and frees the channel without a disconnected event of its own. False then; true,
 * with nothing done, when the call is connected already (use ZELK_Hangup). Of a call that is being cleared already it
 * frees the channel, and says nothing more to the network.
 */
ZELK_API bool ZELK_CALL ZELK_Reject(int32_t channel);

/**
 * Ends the call (cause 16). True for every valid channel. The channel is free when ZELK_EVENT_DISCONNECTED arrives:
 * with the network's release, or "ClearedCallTimeout" seconds (5) after the network ended the call in another way. Does
 * nothing to a call that is being cleared already. Queued audio stays: ZELK_StopPlay drops it.
 */
ZELK_API bool ZELK_CALL ZELK_Hangup(int32_t channel);

/** Not available: false. */
ZELK_API bool ZELK_CALL ZELK_Transfer(int32_t channel);

/**
 * The name of an ITU-T Q.850 cause, "REASON_UNKNOWN" for any other number; a constant text, valid while the library is
 * loaded. Allowed at any time.
 */
ZELK_API const char* ZELK_CALL ZELK_DisconnectReasonToString(int32_t cause);

/* ---- Audio ------------------------------------------------------------------------------------------------------ */

/**
 * Queues a copy of length bytes of A-law after what is queued already. Open the channel before: what is queued on a
 * closed one is heard when it is opened, without an event and without counting in ZELK_PlayTimeLeft.
 * ZELK_EVENT_PLAY_DONE comes once for all that was queued back to back, when the silence after it is taken for the
 * next packet: that packet, with up to 44 of the last samples, leaves when the callback returns. A play queued when the
 * end of the one before was on its way to the line already may share its event. No event comes for what is stopped,
 * closed, or lost over the re-opening of a card. False with ZELK_ERROR_NO_MEMORY when there is no memory; false with no
 * error for null data and a length above 0.
 */
ZELK_API bool ZELK_CALL ZELK_PlayBuffer(int32_t channel, const void* data, uint32_t length);

/**
 * Queues the sound of a WAV file (8000 Hz, mono; 16-bit or 8-bit linear, A-law or mu-law) as ZELK_PlayBuffer does.
 * Reads the whole file before it returns, so leave it out of callbacks. False with ZELK_ERROR_FILE_OPEN (also for a
 * pipe, a device or a null path), _FILE_READ, _NO_MEMORY, _BAD_FORMAT or _CONVERSION.
 */
ZELK_API bool ZELK_CALL ZELK_PlayFile(int32_t channel, const char* path);

/**
 * Milliseconds of audio still queued, without what already waits for transmission ("AudioBuffers" blocks at most). At
 * least 1 until ZELK_EVENT_PLAY_DONE; where a card's re-opening has lost that event, until ZELK_StopPlay or the end of
 * the next play. 0 for a bad channel.
 */
ZELK_API uint32_t ZELK_CALL ZELK_PlayTimeLeft(int32_t channel);

/**
 * Drops queued audio and silences what already waits for transmission; what is queued or written by the play callback
 * afterwards goes out whole. No play-done event follows. Nothing on a channel that is not open.
 */
ZELK_API void ZELK_CALL ZELK_StopPlay(int32_t channel);

/**
 * Turns a raw recording into a WAV file in place: writes the header over the file's first 44 bytes, which the recording
 * left free. type: a ZelkSampleFormat. Returns a ZelkError: 0, _FILE_OPEN, _BAD_FORMAT (unknown type), _FILE_WRITE or
 * _FILE_CLOSE. Needs no channel and no ZELK_Init.
 */
ZELK_API uint32_t ZELK_CALL ZELK_ConvertRawToWaveFile(const char* path, uint32_t type);

#ifdef __cplusplus
}
#endif

#endif

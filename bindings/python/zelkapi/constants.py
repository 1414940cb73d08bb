# SPDX-License-Identifier: GPL-2.0-only
"""The constants of zelk/ZelkApi.h, under the names that they have there without their prefix."""
from enum import IntEnum

MAX_CHANNELS = 1024
CHANNELS_PER_TRUNK = 30
SAMPLE_RATE = 8000  # samples a second; one A-law byte each
BLOCK_BYTES = 160  # what the play and record callbacks get
BLOCK_MS = 20
BYTES_PER_MS = 8
RAW_HEADER_BYTES = 44  # room that a raw recording leaves for its WAV header
NUMBER_LENGTH = 31  # digits of a number that reach the line


class Error(IntEnum):
    """Last-error codes of a channel and results of ZELK_ConvertRawToWaveFile."""

    NONE = 0
    BAD_CHANNEL = 1
    NO_MEMORY = 2
    FILE_OPEN = 3
    FILE_READ = 4
    FILE_WRITE = 5
    FILE_CLOSE = 6
    BAD_FORMAT = 7
    CONVERSION = 8


class EventCode(IntEnum):
    """What an event callback is told."""

    DTMF = 0x101
    PLAY_DONE = 0x201
    INCOMING_CALL = 0x301
    CONNECTED = 0x302
    DISCONNECTED = 0x303
    ALERTING = 0x401
    PROCEEDING = 0x402
    PROGRESS = 0x403
    CHANNEL_STATE = 0x501


class Info(IntEnum):
    """Keys of ZELK_GetChannelInfo and ZELK_GetChannelInfoString."""

    SERIALNO = 1
    CLI = 2
    DLI = 3
    RLI = 4
    DIRECTION = 5
    CHANNELSTATE = 6
    CALLTYPE = 7
    LINETYPE = 257
    OPENTYPE = 258
    FIRMWAREVER = 259
    FIRMWAREDATE = 260
    BURNDATE = 261
    TRUNK = 262
    TIMESLOT = 263


class State(IntEnum):
    """What a channel is doing (Info.CHANNELSTATE)."""

    UNKNOWN = 1
    DOWN = 2
    READY = 3
    INUSE = 4


class CallType(IntEnum):
    """Why a call came here (Info.CALLTYPE)."""

    VOICE = 0
    REDIRECT_BUSY = 1
    REDIRECT_NO_REPLY = 2
    REDIRECT_UNCONDITIONAL = 3
    REDIRECT_DEFLECTED = 4
    REDIRECT_OUT_OF_ORDER = 5
    REDIRECT_FORWARDED = 6
    REDIRECT_UNKNOWN = 7


class SampleFormat(IntEnum):
    """Info.OPENTYPE, and what ZELK_ConvertRawToWaveFile takes."""

    MULAW = 1
    ALAW = 2


class SetInfo(IntEnum):
    """Keys of ZELK_SetChannelInfo."""

    ALLOWINCOMING = 1

#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Places a call from Python through ctypes, on Windows and Linux alike.

Usage: dial.py LIBRARY NUMBER      LIBRARY: ZelkApi64.dll or libZelkApi-64.so
"""
import ctypes
import sys
import threading

EVENT_PLAY_DONE, EVENT_CONNECTED, EVENT_DISCONNECTED, EVENT_CHANNEL_STATE = 0x201, 0x302, 0x303, 0x501
INFO_CHANNELSTATE = 6
BLOCK = bytes([0xD5]) * 8000  # one second of A-law silence

EventCallback = ctypes.CFUNCTYPE(None, ctypes.c_int32, ctypes.c_uint32, ctypes.c_int32)


def load(path):
    zelk = ctypes.CDLL(path)
    # bool is one byte; without these lines ctypes would take every result for an int.
    zelk.ZELK_Init.restype = ctypes.c_bool
    zelk.ZELK_OpenChannel.argtypes = [ctypes.c_int32]
    zelk.ZELK_OpenChannel.restype = ctypes.c_bool
    zelk.ZELK_Dial.argtypes = [ctypes.c_int32, ctypes.c_char_p, ctypes.c_char_p]
    zelk.ZELK_Dial.restype = ctypes.c_bool
    zelk.ZELK_Hangup.argtypes = [ctypes.c_int32]
    zelk.ZELK_Hangup.restype = ctypes.c_bool
    zelk.ZELK_PlayBuffer.argtypes = [ctypes.c_int32, ctypes.c_void_p, ctypes.c_uint32]
    zelk.ZELK_PlayBuffer.restype = ctypes.c_bool
    zelk.ZELK_GetChannelInfoString.argtypes = [ctypes.c_int32, ctypes.c_uint32]
    zelk.ZELK_GetChannelInfoString.restype = ctypes.c_char_p
    zelk.ZELK_DisconnectReasonToString.argtypes = [ctypes.c_int32]
    zelk.ZELK_DisconnectReasonToString.restype = ctypes.c_char_p
    return zelk


def main():
    zelk = load(sys.argv[1])
    usable, connected, played, ended = (threading.Event() for _ in range(4))
    cause = [0]

    # Runs on the library's threads, so it only notes what happened; the work is done below. The object must live as
    # long as the library may call it.
    @EventCallback
    def on_event(channel, event, param):
        if channel != 0:
            return
        if event == EVENT_CHANNEL_STATE and param == 1:
            usable.set()
        elif event == EVENT_CONNECTED:
            connected.set()
        elif event == EVENT_PLAY_DONE:
            played.set()
        elif event == EVENT_DISCONNECTED:
            cause[0] = param
            ended.set()

    zelk.ZELK_SetEventCallback(on_event)
    if not zelk.ZELK_Init() or zelk.ZELK_GetChannelCount() == 0:
        sys.exit("no card found")
    try:
        if not usable.wait(15):
            sys.exit("the trunk did not come up")
        print("channel 0 of", zelk.ZELK_GetChannelCount(), "is", zelk.ZELK_GetChannelInfoString(0, INFO_CHANNELSTATE).decode())
        zelk.ZELK_OpenChannel(0)
        if not zelk.ZELK_Dial(0, sys.argv[2].encode(), None):
            sys.exit("the call could not be placed")
        if connected.wait(30):
            print("connected")
            zelk.ZELK_PlayBuffer(0, BLOCK, len(BLOCK))
            played.wait(10)
        zelk.ZELK_Hangup(0)
        if not ended.wait(30):
            sys.exit("the call was not cleared")
        print("disconnected:", zelk.ZELK_DisconnectReasonToString(cause[0]).decode())
    finally:
        zelk.ZELK_Shutdown()


main()

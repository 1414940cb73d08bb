# SPDX-License-Identifier: GPL-2.0-only
"""The 24 functions and three callbacks of zelk/ZelkApi.h, declared for ctypes and otherwise as they are.

Nothing is checked here but the types. Callbacks run on the library's own threads, each of which serves a whole card, and
in Python they wait for the interpreter first: for events and sound use zelkapi.Library.
"""
import ctypes
import os
from ctypes import CFUNCTYPE, POINTER, c_bool, c_char_p, c_int32, c_uint8, c_uint32, c_void_p
from typing import Any, Callable, Dict, List, Optional, Tuple

from .errors import LibraryError
from .native import load

EventCallback = CFUNCTYPE(None, c_int32, c_uint32, c_int32)  # channel, event, parameter
PlayCallback = CFUNCTYPE(None, c_uint32, POINTER(c_uint8), c_uint32)  # channel, A-law bytes to change, length (160)
RecordCallback = CFUNCTYPE(None, c_uint32, POINTER(c_uint8), c_uint32)  # channel, A-law bytes, length (160)

# Each function with its result and arguments. bool is one byte.
DECLARATIONS: Dict[str, Tuple[Any, Tuple[Any, ...]]] = {
    "ZELK_SetEventCallback": (None, (EventCallback,)),
    "ZELK_SetPlayCallback": (None, (PlayCallback,)),
    "ZELK_SetRecordCallback": (None, (RecordCallback,)),
    "ZELK_Init": (c_bool, ()),
    "ZELK_Shutdown": (None, ()),
    "ZELK_GetChannelCount": (c_int32, ()),
    "ZELK_OpenChannel": (c_bool, (c_int32,)),
    "ZELK_CloseChannel": (None, (c_int32,)),
    "ZELK_GetLastError": (c_uint32, (c_int32,)),
    "ZELK_GetChannelInfo": (c_uint32, (c_int32, c_uint32)),
    "ZELK_GetChannelInfoString": (c_char_p, (c_int32, c_uint32)),
    "ZELK_SetChannelInfo": (c_uint32, (c_int32, c_int32, c_int32)),
    "ZELK_SetChannelInfoString": (c_uint32, (c_int32, c_int32, c_char_p)),
    "ZELK_Dial": (c_bool, (c_int32, c_char_p, c_char_p)),
    "ZELK_Answer": (c_bool, (c_int32,)),
    "ZELK_Reject": (c_bool, (c_int32,)),
    "ZELK_Hangup": (c_bool, (c_int32,)),
    "ZELK_Transfer": (c_bool, (c_int32,)),
    "ZELK_DisconnectReasonToString": (c_char_p, (c_int32,)),
    "ZELK_PlayBuffer": (c_bool, (c_int32, c_void_p, c_uint32)),
    "ZELK_PlayFile": (c_bool, (c_int32, c_char_p)),
    "ZELK_PlayTimeLeft": (c_uint32, (c_int32,)),
    "ZELK_StopPlay": (None, (c_int32,)),
    "ZELK_ConvertRawToWaveFile": (c_uint32, (c_char_p, c_uint32)),
}

BlockFunction = Callable[[int, Any, int], None]


# The first that this process loaded: the queue library takes it, whatever is loaded later.
_first: List[str] = []


class ZelkApi:
    """A loaded library. Each function is a method of its name; the interpreter is free while one runs.

    Callbacks are kept alive here: the object has to live as long as the library may call them. None registers none.
    """

    def __init__(self, path: "os.PathLike[str] | str") -> None:
        self.dll: ctypes.CDLL = load(path, DECLARATIONS)
        for name, (result, arguments) in DECLARATIONS.items():
            function = getattr(self.dll, name)
            function.restype = result
            function.argtypes = arguments
        self.path = os.path.realpath(path)
        _first[:] = _first or [self.path]
        self._callbacks: List[Any] = []

    def check_first(self) -> None:
        """LibraryError when this process had loaded the library from another path before."""
        if self.path != _first[0]:
            raise LibraryError(self.path, f"this process has loaded {_first[0]} already, and can use one only")

    def _register(self, name: str, callback: Any) -> None:
        """Those before may be running on another thread, for which nothing waits: all are kept."""
        self._callbacks.append(callback)
        getattr(self.dll, name)(callback)

    def ZELK_SetEventCallback(self, callback: Optional[Callable[[int, int, int], None]]) -> None:
        self._register("ZELK_SetEventCallback", EventCallback(callback) if callback else EventCallback(0))

    def ZELK_SetPlayCallback(self, callback: Optional[BlockFunction]) -> None:
        self._register("ZELK_SetPlayCallback", PlayCallback(callback) if callback else PlayCallback(0))

    def ZELK_SetRecordCallback(self, callback: Optional[BlockFunction]) -> None:
        self._register("ZELK_SetRecordCallback", RecordCallback(callback) if callback else RecordCallback(0))

    def ZELK_Init(self) -> bool:
        return bool(self.dll.ZELK_Init())

    def ZELK_Shutdown(self) -> None:
        self.dll.ZELK_Shutdown()

    def ZELK_GetChannelCount(self) -> int:
        return int(self.dll.ZELK_GetChannelCount())

    def ZELK_OpenChannel(self, channel: int) -> bool:
        return bool(self.dll.ZELK_OpenChannel(channel))

    def ZELK_CloseChannel(self, channel: int) -> None:
        self.dll.ZELK_CloseChannel(channel)

    def ZELK_GetLastError(self, channel: int) -> int:
        return int(self.dll.ZELK_GetLastError(channel))

    def ZELK_GetChannelInfo(self, channel: int, key: int) -> int:
        return int(self.dll.ZELK_GetChannelInfo(channel, key))

    def ZELK_GetChannelInfoString(self, channel: int, key: int) -> Optional[bytes]:
        """The text is copied after the call: no other thread may ask for information of this channel meanwhile."""
        text: Optional[bytes] = self.dll.ZELK_GetChannelInfoString(channel, key)
        return text

    def ZELK_SetChannelInfo(self, channel: int, key: int, value: int) -> int:
        return int(self.dll.ZELK_SetChannelInfo(channel, key, value))

    def ZELK_SetChannelInfoString(self, channel: int, key: int, value: Optional[bytes]) -> int:
        return int(self.dll.ZELK_SetChannelInfoString(channel, key, value))

    def ZELK_Dial(self, channel: int, number: Optional[bytes], calling_number: Optional[bytes]) -> bool:
        return bool(self.dll.ZELK_Dial(channel, number, calling_number))

    def ZELK_Answer(self, channel: int) -> bool:
        return bool(self.dll.ZELK_Answer(channel))

    def ZELK_Reject(self, channel: int) -> bool:
        return bool(self.dll.ZELK_Reject(channel))

    def ZELK_Hangup(self, channel: int) -> bool:
        return bool(self.dll.ZELK_Hangup(channel))

    def ZELK_Transfer(self, channel: int) -> bool:
        return bool(self.dll.ZELK_Transfer(channel))

    def ZELK_DisconnectReasonToString(self, cause: int) -> bytes:
        text: bytes = self.dll.ZELK_DisconnectReasonToString(cause)
        return text

    def ZELK_PlayBuffer(self, channel: int, data: Optional[bytes], length: int) -> bool:
        return bool(self.dll.ZELK_PlayBuffer(channel, data, length))

    def ZELK_PlayFile(self, channel: int, path: Optional[bytes]) -> bool:
        return bool(self.dll.ZELK_PlayFile(channel, path))

    def ZELK_PlayTimeLeft(self, channel: int) -> int:
        return int(self.dll.ZELK_PlayTimeLeft(channel))

    def ZELK_StopPlay(self, channel: int) -> None:
        self.dll.ZELK_StopPlay(channel)

    def ZELK_ConvertRawToWaveFile(self, path: Optional[bytes], sample_format: int) -> int:
        return int(self.dll.ZELK_ConvertRawToWaveFile(path, sample_format))

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

// Every function of the library, by its name after ZELK_: X(Name) for each.
#define ZELK_LIBRARY_FUNCTIONS(X) \
  X(Init)                         \
  X(Shutdown)                     \
  X(GetChannelCount)              \
  X(OpenChannel)                  \
  X(CloseChannel)                 \
  X(GetLastError)                 \
  X(GetChannelInfo)               \
  X(GetChannelInfoString)         \
  X(SetChannelInfo)               \
  X(SetChannelInfoString)         \
  X(Reject)                       \
  X(Answer)                       \
  X(Hangup)                       \
  X(Dial)                         \
  X(Transfer)                     \
  X(DisconnectReasonToString)     \
  X(PlayBuffer)                   \
  X(PlayFile)                     \
  X(PlayTimeLeft)                 \
  X(StopPlay)                     \
  X(ConvertRawToWaveFile)         \
  X(SetEventCallback)             \
  X(SetPlayCallback)              \
  X(SetRecordCallback)

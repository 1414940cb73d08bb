/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * ZelkApi64 for C++17 and later: classes over zelk/ZelkApi.h, in headers alone.
 *
 * zelkapi::Library starts and shuts down, zelkapi::Channel makes calls, zelkapi::Events and zelkapi::Sound are the
 * queues of what comes, zelkapi::WavFile and zelkapi::Digits make sound. No code of the application runs on a thread of
 * the library, unless it is handed over in zelkapi::Handlers.
 */
#ifndef ZELK_ZELK_HPP
#define ZELK_ZELK_HPP

#include "zelk/cpp/Alaw.hpp"
#include "zelk/cpp/Channel.hpp"
#include "zelk/cpp/Digits.hpp"
#include "zelk/cpp/Error.hpp"
#include "zelk/cpp/Events.hpp"
#include "zelk/cpp/Library.hpp"
#include "zelk/cpp/Sound.hpp"
#include "zelk/cpp/WavFile.hpp"

#endif

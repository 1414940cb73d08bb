// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <winsock2.h>

// What tests may ask about the system they run on, to say why they skip.
constexpr bool kOnWindows = true;

// The library starts the system's sockets in ZELK_Init; tests of single classes come without it.
inline const int kSystemSocketsStarted = [] {
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 2), &data);
}();

inline bool RunsUnderWine() {
  const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

// Where a test plays the card while 127.0.0.1 plays the library: the same, because Wine binds datagram sockets of every
// other loopback address to the wildcard address, and what they send then comes from 127.0.0.1.
constexpr const char* kCardAddress = "127.0.0.1";

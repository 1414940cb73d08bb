// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

// What Wireshark is told of the interfaces, in the sentences of its extcap programs.
namespace trace {

inline constexpr char kExtcapVersion[] = ZELK_VERSION_TEXT;
inline constexpr char kNoFilter[] =
    "D-channels have no capture filters; use a display filter, as q931.cause_value == 17";
// The interface of a D-channel file; every other one is this and an adapter's name.
inline constexpr char kInterfacePrefix[] = "zelk-";
inline constexpr char kHdlcInterface[] = "zelk-hdlc";

void PrintInterfaces();
void PrintDlts();
void PrintConfig(const std::string& interface);
// Throws CTraceError when it is none of these.
void RequireInterface(const std::string& interface);

}  // namespace trace

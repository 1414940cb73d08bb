// SPDX-License-Identifier: GPL-2.0-only
#include "trace/extcap/sentences.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "common/child_process.h"
#include "trace/core/trace_error.h"

namespace trace {
namespace {

// A card is behind none of these, though a capture can be made of them.
bool IsNetwork(const std::string& name) {
  for (const char* other : {"bluetooth", "dbus-", "nflog", "nfqueue", "usbmon"}) {
    if (name.starts_with(other)) {
      return false;
    }
  }
  return !name.empty() && name.find_first_of("{}\\") == std::string::npos;
}

std::string ReadAll(std::FILE* stream) {
  std::string text;
  for (int letter = 0; (letter = std::fgetc(stream)) != EOF;) {
    text += static_cast<char>(letter);
  }
  std::fclose(stream);
  return text;
}

// Of dumpcap's list, a line each: "3. lo<TAB>...". Empty where there is no dumpcap.
std::vector<std::string> Adapters() {
  std::vector<std::string> names;
  try {
    tool::CChildProcess child({"dumpcap", "-D", "-M"});
    std::istringstream lines(ReadAll(child.TakeOutput()));
    for (std::string line; std::getline(lines, line);) {
      const std::size_t begin = line.find(". ");
      const std::string name = begin == std::string::npos ? "" : line.substr(begin + 2, line.find('\t') - begin - 2);
      if (IsNetwork(name)) {
        names.push_back(name);
      }
    }
  } catch (const std::runtime_error& error) {
    std::fprintf(stderr, "zelk-extcap: %s; adapters are not shown\n", error.what());
  }
  return names;
}

}  // namespace

void PrintInterfaces() {
  std::printf("extcap {version=%s}{display=D-channels of ZelkBoard cards}\n", kExtcapVersion);
  for (const std::string& name : Adapters()) {
    std::printf("interface {value=%s%s}{display=D-channels of the cards at %s}\n", kInterfacePrefix, name.c_str(),
                name.c_str());
  }
  std::printf("interface {value=%s}{display=D-channel file of the library, while it grows}\n", kHdlcInterface);
}

void PrintDlts() {
  std::printf("dlt {number=177}{name=LINUX_LAPD}{display=LAPD}\n");
}

void PrintConfig(const std::string& interface) {
  if (interface == kHdlcInterface) {
    std::printf(
        "arg {number=0}{call=--file}{display=D-channel file}{type=fileselect}{mustexist=true}{required=true}"
        "{tooltip=zelk-SERIAL-TRUNK.hdlc in the library's capture folder}\n");
  } else {
    std::printf(
        "arg {number=0}{call=--trunk}{display=Trunks}{type=string}"
        "{tooltip=100001-2 is a trunk, 100001 all of a card; commas between; empty for all}\n");
    std::printf(
        "arg {number=1}{call=--assume-trunks}{display=Trunks of a card whose begin is not seen}{type=integer}"
        "{range=0,8}{default=0}{tooltip=0: learnt from what the card says}\n");
  }
  std::printf(
      "arg {number=2}{call=--anonymise}{display=Other digits for numbers, no texts}{type=boolflag}"
      "{default=false}\n");
}

void RequireInterface(const std::string& interface) {
  const std::string prefix = kInterfacePrefix;
  if (!interface.starts_with(prefix) || interface.size() == prefix.size()) {
    throw CTraceError(EExit::kUsage, "\"" + interface + "\" is none of these interfaces; see --extcap-interfaces");
  }
}

}  // namespace trace

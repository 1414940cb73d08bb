// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/finding.h"

namespace doctor {
namespace {

constexpr ESeverity kMeasured = ESeverity::kMeasured;
constexpr ESeverity kWarning = ESeverity::kWarning;
constexpr ESeverity kFault = ESeverity::kFault;
constexpr ESeverity kNotSeen = ESeverity::kNotSeen;

constexpr char kIniTypo[] = "Correct the name; the library takes the default without a word.";
constexpr char kIniNumber[] = "Write a decimal number.";
constexpr char kNetwork[] =
    "Look at switch, cable and adapter between card and machine, and at the load of this machine.";
constexpr char kExchange[] = "Ask the operator of the exchange what it expects on this trunk.";

constexpr SRule kRules[] = {
    // Files
    {"ini-unknown-section", kWarning, kIniTypo},
    {"ini-unknown-key", kWarning, kIniTypo},
    {"ini-wrong-section", kWarning, "Move the line to the section that it belongs to; where it is, nobody reads it."},
    {"ini-no-section", kWarning, "Move the line below the heading of a section; where it is, nobody reads it."},
    {"ini-repeated", kWarning, "Keep one of them: the first counts, the others are not read."},
    {"ini-reads-zero", kWarning, kIniNumber},
    {"ini-number-cut", kWarning, kIniNumber},
    {"ini-not-real", kWarning, "Write a number with a point, as in 7.0; as it is, the value before stays."},
    {"ini-out-of-range", kWarning, "Choose a value that docs/configuration.md names."},
    {"ini-wrong-side", kFault, "Set ClientType=2 for the user side or ClientType=1 for the network side."},
    {"ini-serial-unknown", kWarning, "Name the section SERIAL-TRUNK after a card that is there; trunks count from 1."},
    {"ini-utf16", kFault, "Save the file as plain text (ASCII or UTF-8): outside of Windows none of it is read."},
    {"ini-unreadable", kNotSeen, "Run zelk-doctor as a user who may read the file."},
    {"library-missing", kNotSeen, "Give the path of the library itself, as the application loads it."},
    {"folder-not-writable", kWarning,
     "Let the application's user write there: log, D-channel files and status page stand beside the library."},
    {"file-not-writable", kWarning, "Let the application's user write the file, or move it away."},
    {"disk-full", kFault, "Make room: log and D-channel files are lost when the disk is full."},
    {"disk-low", kWarning, "Make room, or switch HdlcLog off: log and D-channel files grow."},
    // Status page
    {"page-unreadable", kNotSeen, "See docs/status-page.md: which library wrote it, and who may read it."},
    {"page-not-live", kMeasured, "Start the application, if it should run."},
    {"callback-slow", kWarning,
     "Have the callback hand its work to another thread: what it takes, all channels of the card wait."},
    {"blocks-lost", kWarning,
     "Look for slow callbacks and for load on the machine; a larger AudioBuffers survives longer stalls."},
    {"thread-late", kWarning, "Look for load on the machine, and for callbacks that do not return."},
    {"queue-overflow", kWarning, "Look at the card's line and at the load on the card's network."},
    {"link-resets", kWarning, "Look at the line: Crc4, clock, cable."},
    // Log
    {"log-unreadable", kNotSeen, "Give the log that the library writes beside itself, to a user who may read it."},
    {"log-card-lost", kWarning, kNetwork},
    {"log-reopen-failed", kFault,
     "Look at the card and the network to it; its next announcement, at its next restart, tries again."},
    {"log-cards-ignored", kWarning, "Take the cards that are too many to another machine: 20 are served."},
    {"log-channels-short", kWarning, "Take trunks to another machine: 1024 channels are served."},
    {"log-receive-late", kWarning, "Look at the load of this machine, at long EchoTails and at slow callbacks."},
    {"log-call-refused", kWarning,
     "Have the application open all channels and allow incoming calls on them, or add trunks if all were busy."},
    {"log-operation-failed", kWarning,
     "Look at the events of these channels before: a trunk that is down, or a call that had ended."},
    {"log-no-memory", kWarning, "Look at the memory of the application and at the disk of the log."},
    // The machine
    {"adapters-unknown", kNotSeen, "Run zelk-doctor as a user who may ask for the network adapters."},
    {"adapter-none", kFault, "Give an adapter an IPv4 address in the network of the cards."},
    {"adapter-several-addresses", kMeasured,
     "The library looks for cards in the network of the first address alone; see that the cards are in it."},
    {"card-outside-first-subnet", kFault,
     "Give card or adapter another address: cards are found by a broadcast in the network of an adapter's first "
     "address."},
    {"port-held", kMeasured, "That is the sign of a running library; start no second one beside it."},
    {"port-held-twice", kFault, "Stop one of them: a card serves one process, and each start takes the other's calls."},
    {"receive-buffer-small", kMeasured,
     "Set net.core.rmem_max and net.core.wmem_max to 4194304 before the library starts."},
    // A capture
    {"capture-unreadable", kNotSeen, "See docs/trace.md for what a capture has to be."},
    {"capture-cut", kNotSeen, "Only what stands before that place was looked at; capture once more."},
    {"capture-empty", kNotSeen,
     "Capture at the adapter that the cards are connected to, with the filter of docs/trace.md."},
    {"capture-note", kMeasured, "Findings about what is missing may have the capture as their cause."},
    // Discovery and connection
    {"discovery-no-reply", kFault,
     "Look whether cards have power and are in this network, and whether a firewall drops UDP port 5854."},
    {"discovery-not-heard", kFault,
     "Let the firewall of this machine pass UDP from port 5854 of the cards to port 5854 of the program."},
    {"connection-no-answer", kFault, "Let firewalls pass TCP to port 5854 of the card; see that the card is there."},
    {"connection-refused", kFault, "Restart the card; see that no other machine uses it."},
    {"connections-many", kWarning, "See that one program alone uses the card, and that it is not restarted in turn."},
    {"connection-ended-by-card", kWarning, "Look at the card: power, restarts, another program that takes it."},
    {"card-says-nothing", kFault, "Restart the card; it takes the connection and does not answer."},
    {"card-bad-information", kFault, "See that this is a card that the library knows, and its firmware."},
    {"card-silent", kFault,
     "Look at the network between: after a second of silence the library takes the card as lost and its calls end."},
    // Layer 1
    {"layer1-out", kFault, "Look at cable, framing (Crc4) and the other end of the line."},
    {"layer1-flapping", kWarning, "Look at cable and plugs; ask the exchange for its alarms."},
    {"hdlc-line-bad", kFault, "Look at Crc4, clock and cable: frames get lost on the line."},
    {"hdlc-errors", kWarning, "Watch the line; look at clock and cable when they become more."},
    {"hdlc-few", kMeasured, "Single errors are harmless: layer 2 repeats the frame."},
    {"hdlc-slips", kWarning,
     "Look at the clock: one side has to follow the other's, and cards on several exchanges need one source."},
    {"hdlc-card", kWarning, "The card could not take frames in time; look at its load and its firmware."},
    // Layer 2
    {"layer2-no-answer", kFault, "Look at the line and whether the exchange has the trunk in service; see ClientType."},
    {"layer2-same-side", kFault,
     "Set ClientType=1 where the exchange is the user side, ClientType=2 where it is the network side."},
    {"layer2-down", kFault, "Look at the line and at the exchange's view of the D-channel."},
    {"layer2-flapping", kWarning, "Look at HDLC errors of the trunk and at the network to the card."},
    // Layer 3
    {"wrong-dialect", kWarning, "Look at SwitchType: the sides do not understand each other's messages."},
    {"number-type", kWarning, "Look at NumberType and at the form of the numbers that are dialled."},
    {"no-channel", kWarning, "See that both sides have the same channels in service, and enough of them."},
    {"glare", kWarning, "Have the two sides choose channels from opposite ends."},
    {"timer-expired", kWarning, "Look which message had no answer (zelk-trace ladder); ask the exchange."},
    {"restart-storm", kWarning, kExchange},
    {"channel-held", kWarning, "Look at the call with zelk-trace ladder; hang it up in the application."},
    // Sound
    {"audio-none", kFault,
     "Let firewalls pass UDP from the card; see that the application runs on the machine that opened it."},
    {"audio-no-replies", kFault,
     "Let firewalls pass UDP from the card to the program and back to port 5854; look whether the application "
     "hangs."},
    {"audio-lost", kWarning, kNetwork},
    {"audio-double", kWarning, kNetwork},
    {"audio-late", kWarning, kNetwork},
    {"replies-late", kWarning, "Look for slow callbacks, long EchoTails and load on the application's machine."},
    {"replies-missing", kWarning, "Look for load on the application's machine and losses towards the card."},
    {"lines-starved", kWarning, "Look for slow play callbacks and load; a larger AudioBuffers survives longer stalls."},
    {"sound-none-from-line", kWarning,
     "Ask the exchange whether it switches the channel through; compare the channel's number on both sides."},
    {"reply-delay", kMeasured, ""},
    // Clocks
    {"clock-rate", kMeasured, ""},
    {"clock-wrong", kWarning,
     "Look where the card takes its clock from, and whether this machine's clock is disciplined."},
    {"clocks-differ", kWarning, "Have all cards follow one clock where calls are bridged between them."},
    // A probe
    {"probe-refused", kNotSeen, "Stop the application, or leave --probe out: what it sends is for the library alone."},
    {"probe-failed", kNotSeen, "Look what else has UDP port 5854 of the adapter's address."},
    {"probe-card", kMeasured, ""},
    {"probe-no-card", kFault,
     "Look whether cards have power and are in the adapter's network, and whether a firewall drops UDP port 5854."},
};

}  // namespace

std::span<const SRule> Rules() {
  return kRules;
}

}  // namespace doctor

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/options.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

namespace cardsim {
namespace {

void AddCardOptions(CLI::App& app, SOptions& options) {
  app.add_option("--cards", options.cards, "number of cards; as many as --trunks names when not given")
      ->check(CLI::Range(1, kMaxCards))
      ->group("Cards");
  app.add_option("--trunks", options.trunks, "trunks of each card; the last number goes for the cards left")
      ->delimiter(',')
      ->check(CLI::Range(1, kMaxTrunks))
      ->group("Cards");
  app.add_option("--address", options.addresses, "IPv4 address of each card, in place of --base-address")
      ->delimiter(',')
      ->check(CLI::ValidIPV4)
      ->group("Cards");
  app.add_option("--base-address", options.baseAddress, "address of the first card, the others count up")
      ->capture_default_str()
      ->check(CLI::ValidIPV4)
      ->group("Cards");
  app.add_option("--broadcast", options.broadcast, "where probes are heard and announcements are sent")
      ->capture_default_str()
      ->check(CLI::ValidIPV4)
      ->group("Cards");
  app.add_option("--serial", options.serial, "serial number of the first card, the others count up")
      ->capture_default_str()
      ->group("Cards");
  app.add_flag("--announce", options.announce,
               "announce the cards at the start, so that a running library opens them anew")
      ->group("Cards");
}

void AddOfferOptions(CLI::App& app, SOptions& options) {
  const std::string group = "Calls offered to the library";
  app.add_option("--calls-per-second", options.callsPerSecond, "rate; 0 offers none")
      ->check(CLI::Range(0.0, 10000.0))
      ->group(group);
  app.add_option("--calls", options.calls, "offer so many calls, then end")->group(group);
  app.add_flag("--stay", options.stay, "do not end then, go on taking calls")->group(group);
  app.add_option("--concurrent", options.concurrent, "never more calls than this at a time")
      ->check(CLI::NonNegativeNumber)
      ->group(group);
  app.add_option("--calling", options.calling, "calling number")->capture_default_str()->group(group);
  app.add_option("--called", options.called, "called number")->capture_default_str()->group(group);
  app.add_option("--redirecting", options.redirecting, "redirecting number")->group(group);
  app.add_option("--redirecting-reason", options.redirectingReason, "0 unknown, 1 busy, 2 no reply, 15 unconditional")
      ->capture_default_str()
      ->check(CLI::Range(0, 15))
      ->group(group);
  app.add_option("--give-up-after", options.giveUpAfter, "ms after which an unanswered call is given up")
      ->check(CLI::NonNegativeNumber)
      ->group(group);
}

void AddAnswerOptions(CLI::App& app, SOptions& options) {
  const std::string group = "Calls from the library";
  app.add_option("--alert-after", options.alertAfter, "ms until ALERTING")->check(CLI::NonNegativeNumber)->group(group);
  app.add_option("--answer-after", options.answerAfter, "ms until CONNECT")
      ->check(CLI::NonNegativeNumber)
      ->group(group);
  app.add_flag("--no-answer", options.noAnswer, "let them ring")->group(group);
  app.add_option("--refuse", options.refuse, "clear them with this cause")->check(CLI::Range(1, 127))->group(group);
}

void AddDigitOptions(CLI::App& app, SOptions& options, const std::string& group) {
  app.add_option("--digits", options.digits, "DTMF digits it sends once connected")->group(group);
  app.add_option("--digit-on", options.digitSignal.onMs, "ms of each digit's tone")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000))
      ->group(group);
  app.add_option("--digit-off", options.digitSignal.offMs, "ms of the pause behind it")
      ->capture_default_str()
      ->check(CLI::Range(0, 10000))
      ->group(group);
  app.add_option("--digit-level", options.digitSignal.level, "dBm0 of the low tone")
      ->capture_default_str()
      ->check(CLI::Range(-70.0, 3.0))
      ->group(group);
  app.add_option("--digit-twist", options.digitSignal.twist, "dB by which the high tone is stronger")
      ->check(CLI::Range(-40.0, 40.0))
      ->group(group);
  app.add_option("--digit-offset", options.digitSignal.offsetPercent, "percent by which both frequencies are off")
      ->check(CLI::Range(-20.0, 20.0))
      ->group(group);
  app.add_option("--digit-noise", options.digitSignal.noise, "dBm0 of white noise under the digits")
      ->check(CLI::Range(-70.0, 0.0))
      ->group(group);
}

void AddFarEndOptions(CLI::App& app, SOptions& options) {
  const std::string group = "The far end of every call";
  app.add_option("--hold", options.hold, "ms after which the far end hangs up; without it the library has to")
      ->check(CLI::NonNegativeNumber)
      ->group(group);
  app.add_option("--cause", options.cause, "cause with which the far end hangs up")
      ->capture_default_str()
      ->check(CLI::Range(1, 127))
      ->group(group);
  AddDigitOptions(app, options, group);
  app.add_option("--tone", options.tone, "frequencies in Hz of a tone that it sends, for ever, after digits and file")
      ->delimiter(',')
      ->check(CLI::Range(1.0, 3999.0))
      ->group(group);
  app.add_option("--tone-level", options.toneLevel, "dBm0 of each of them")
      ->capture_default_str()
      ->check(CLI::Range(-70.0, 3.0))
      ->group(group);
  app.add_option("--echo-delay", options.echoDelay, "ms after which what it hears comes back in what it sends")
      ->check(CLI::Range(0.0, 500.0))
      ->group(group);
  app.add_option("--echo-loss", options.echoLoss, "dB by which that is weaker")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 100.0))
      ->group(group);
  app.add_option("--play", options.play, "WAV file (mono, 8 kHz) it plays, after the digits")
      ->check(CLI::ExistingFile)
      ->group(group);
  app.add_flag("--loop", options.loop, "over and over")->group(group);
  app.add_option("--record", options.record, "directory for one A-law WAV file of each call: what it hears")
      ->group(group);
}

void AddNetworkOptions(CLI::App& app, SOptions& options) {
  const std::string group = "Audio packets to the library";
  const auto share = [&](const char* name, double& value, const char* text) {
    app.add_option(name, value, text)->check(CLI::Range(0.0, 100.0))->group(group);
  };
  const auto time = [&](const char* name, int& value, const char* text) {
    app.add_option(name, value, text)->check(CLI::Range(0, 60000))->group(group);
  };
  share("--audio-loss", options.faults.loss, "percent that are lost");
  share("--audio-duplicates", options.faults.duplicates, "percent that come twice");
  share("--audio-reordered", options.faults.reordered, "percent that come behind their successor");
  time("--audio-delay", options.faultDelay, "ms that all of them are late");
  time("--audio-jitter", options.faultJitter, "up to so many ms more, packet by packet");
  time("--audio-pause-every", options.pauseEvery, "ms between pauses in which none goes; then they go at once");
  time("--audio-pause", options.pauseLength, "ms that a pause lasts");
  app.add_option("--audio-seed", options.faults.seed, "the same seed picks the same packets")->group(group);
  app.add_option("--record-lines", options.recordLines,
                 "directory for one A-law WAV file of each timeslot: all that the library sent in it")
      ->group(group);
}

void AddScenarioOptions(CLI::App& app, SOptions& options) {
  const std::string group = "Scenarios";
  app.add_option("--scenario", options.scenario,
                 "play the far ends of this file, or of builtin:NAME, then end; the options of calls do not count")
      ->group(group);
  app.add_option("--junit", options.junit, "write what became of its calls to this file, as JUnit does")->group(group);
  app.add_flag(
         "--strict", options.strict,
         "fail for calls of the library that the scenario does not expect, and for audio without a reply; without "
         "a scenario for each call that was not connected")
      ->group(group);
  app.add_flag("--list", options.list, "list the built-in scenarios")->group(group);
  app.add_option("--print", options.print, "print a built-in scenario")->group(group);
}

void AddRunOptions(CLI::App& app, SOptions& options) {
  app.add_option("--seconds", options.seconds, "end after this time")->check(CLI::NonNegativeNumber)->group("Run");
  app.add_option("--report", options.report, "write a report in JSON to this file")->group("Run");
  app.add_flag("--verbose", options.verbose, "a line for every call, and the signalling stack's own messages")
      ->group("Run");
}

}  // namespace

SParsed ParseOptions(int argc, const char* const* argv) {
  SOptions options;
  CLI::App app(
      "Simulated E1 cards with a telephone network behind them. Cards answer discovery on UDP port 5854 and take the\n"
      "library's control connection on TCP port 5854 of their addresses. Ends by itself, or by SIGINT or SIGTERM, with "
      "a\n"
      "summary.",
      "zelk-cardsim");
  AddCardOptions(app, options);
  AddOfferOptions(app, options);
  AddAnswerOptions(app, options);
  AddFarEndOptions(app, options);
  AddNetworkOptions(app, options);
  AddScenarioOptions(app, options);
  AddRunOptions(app, options);
  try {
    app.parse(argc, argv);
    options.faults.delay = std::chrono::milliseconds(options.faultDelay);
    options.faults.jitter = std::chrono::milliseconds(options.faultJitter);
  } catch (const CLI::ParseError& error) {
    return {std::nullopt, app.exit(error)};
  }
  return {options, 0};
}

SSimulatorConfig ConfigOf(const SOptions& options) {
  const std::size_t count = options.cards > 0 ? static_cast<std::size_t>(options.cards) : options.trunks.size();
  if (options.trunks.empty() || options.trunks.size() > count) {
    throw std::invalid_argument("--trunks names " + std::to_string(options.trunks.size()) + " cards, --cards " +
                                std::to_string(count));
  }
  if (!options.addresses.empty() && options.addresses.size() != count) {
    throw std::invalid_argument("--address names " + std::to_string(options.addresses.size()) + " cards, --cards " +
                                std::to_string(count));
  }
  std::vector<int> trunks = options.trunks;
  trunks.resize(count, options.trunks.back());
  SSimulatorConfig config = SSimulatorConfig::WithTrunks(trunks, options.baseAddress);
  for (std::size_t i = 0; i < count; ++i) {
    config.cards[i].identity.serial = options.serial + static_cast<std::uint32_t>(i);
    if (!options.addresses.empty()) {
      config.cards[i].address = options.addresses[i];
    }
  }
  config.broadcast = options.broadcast;
  config.keepHistory = false;
  return config;
}

}  // namespace cardsim

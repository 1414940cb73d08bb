// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "fleet/link.h"
#include "fleet/names.h"

namespace fleet {

// The commands of zelk-fleet. Each gives the exit code; failures throw. Thread: main.

struct SInitOptions {
  int replicas = 1;
  int ackWaitSeconds = 30;
  int lifeSeconds = 15;    // of a host's entry
  int keepDays = 30;       // results and claims
  int duplicateHours = 2;  // ids of jobs
};
int RunInit(const SLinkOptions& link, const SNames& names, const SInitOptions& options);

// Path "-": standard input.
int RunSubmit(const SLinkOptions& link, const SNames& names, const std::string& path);

int RunResults(const SLinkOptions& link, const SNames& names, bool asTable);

// A line each host that lives.
int RunNodes(const SLinkOptions& link, const SNames& names, bool asJson);

// The host takes no more jobs.
int RunDrain(const SLinkOptions& link, const SNames& names, const std::string& node);

// Puts the files into the bucket of sounds, each under its own name.
int RunSound(const SLinkOptions& link, const SNames& names, const std::vector<std::string>& files);

// How the jobs stand, each second, or once.
int RunWatch(const SLinkOptions& link, const SNames& names, bool asJson, bool isOnce);

// Incoming calls as lines on standard output, what is to be done with them on standard input.
int RunWork(const SLinkOptions& link, const SNames& names);

}  // namespace fleet

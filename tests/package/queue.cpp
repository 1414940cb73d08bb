/* SPDX-License-Identifier: GPL-2.0-only */

/* The queue library beside the classes that it is made of: each has queues of its own. */
#include <zelk/ZelkQueue.h>

#include <zelk/Zelk.hpp>

int main() {
  const bool isStopped = ZELKQ_Wake() == ZELKQ_STOPPED;
  return isStopped && zelkapi::Digits::render("12", 40, 40).size() == 1280 ? 0 : 1;
}

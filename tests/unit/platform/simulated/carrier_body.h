// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/simulated/tasks/carrier.h"

namespace zelk::sim {

// What every carrier does. Each strand notes that it runs and hands over.
inline void StrandsRunInTurn(CCarrier& carrier) {
  std::string order;
  std::unique_ptr<CStrand> left;
  std::unique_ptr<CStrand> right;
  left = carrier.Make([&] {
    order += 'a';
    carrier.Switch(*left, *right);
    order += 'c';
    carrier.SwitchForGood(*left, *right);
  });
  right = carrier.Make([&] {
    order += 'b';
    carrier.Switch(*right, *left);
    order += 'd';
    carrier.SwitchForGood(*right, carrier.Home());
  });
  ASSERT_NE(left, nullptr);
  ASSERT_NE(right, nullptr);
  EXPECT_EQ(order, "");
  carrier.Switch(carrier.Home(), *left);
  EXPECT_EQ(order, "abcd");
}

// The exception that a strand handles stays its own while others throw.
inline void ExceptionsStayWithTheirStrand(CCarrier& carrier) {
  std::vector<std::string> caught;
  std::unique_ptr<CStrand> strand = carrier.Make([&] {
    try {
      throw std::runtime_error("strand's");
    } catch (const std::exception&) {
      carrier.Switch(*strand, carrier.Home());
      try {
        throw;
      } catch (const std::exception& again) {
        caught.emplace_back(again.what());
      }
    }
    carrier.SwitchForGood(*strand, carrier.Home());
  });
  carrier.Switch(carrier.Home(), *strand);
  EXPECT_EQ(std::current_exception(), nullptr);
  try {
    throw std::runtime_error("home's");
  } catch (const std::exception&) {
    carrier.Switch(carrier.Home(), *strand);
    try {
      throw;
    } catch (const std::exception& again) {
      caught.emplace_back(again.what());
    }
  }
  EXPECT_EQ(caught, (std::vector<std::string>{"strand's", "home's"}));
}

// Deep calls and large locals, on every one of many.
inline void StrandsHaveStacksOfTheirOwn(CCarrier& carrier) {
  int sum = 0;
  std::vector<std::unique_ptr<CStrand>> strands(20);
  for (size_t i = 0; i < strands.size(); ++i) {
    strands[i] = carrier.Make([&, i] {
      volatile char large[100'000];
      large[0] = static_cast<char>(i);
      large[sizeof large - 1] = 1;
      carrier.Switch(*strands[i], carrier.Home());
      sum += large[0] + large[sizeof large - 1];
      carrier.SwitchForGood(*strands[i], carrier.Home());
    });
  }
  for (int round = 0; round < 2; ++round) {
    for (const std::unique_ptr<CStrand>& strand : strands) {
      carrier.Switch(carrier.Home(), *strand);
    }
  }
  EXPECT_EQ(sum, 20 * 19 / 2 + 20);
}

}  // namespace zelk::sim

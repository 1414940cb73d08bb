#pragma once

#include <cstdint>
#include <vector>

namespace zelk {

// A card that answered the probe: its address and the address of the adapter that heard it, in network order.
struct SDiscoveredCard {
  uint32_t cardAddress;
  uint32_t localAddress;
};

// Probes every adapter. Returns the number of cards found (at most kMaxCards), or -1 / -2 when the adapters could not
// be sized / read. Blocks about 150 ms an adapter. Thread: the initialising thread.
int32_t DiscoverCards(std::vector<SDiscoveredCard>& cards);

}  // namespace zelk

// The path of one arrival through the product.
#pragma once

namespace bench {

// The arrivals on a machine with this many ports, with 1 and with 100 sections. Called in rising order: the machine
// grows.
void RegisterArrivals(int ports);

} // namespace bench

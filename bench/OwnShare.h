// How much of a stretch of time is spent in the product itself, and how much in the simulated machine below it: the
// host is interrupted many times and each time asked where it is. The product's own is its shared object, and what it
// calls of the C library. On the one thread of the benchmarks.
#pragma once

#include <csignal>
#include <ctime>

namespace bench {

class OwnShare {
public:
    OwnShare();
    ~OwnShare();
    OwnShare(const OwnShare&) = delete;
    OwnShare& operator=(const OwnShare&) = delete;

    // Interrupts count between the two only.
    static void Begin();
    static void End();
    static unsigned Samples();
    static double Share(); // 0 to 1; 0 without a sample

private:
    timer_t m_timer = {};
    struct sigaction m_before = {};
};

} // namespace bench

// How much of a stretch of time is spent in the product itself, and how much in the simulated machine below it: the
// process is interrupted many times, and each sample records where it was. The product's own share is its code and the
// C library functions that it calls. On the one thread of the benchmarks.
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

    // Samples are taken between the two only.
    static void Begin();
    static void End();
    static unsigned Samples();
    static double Share(); // 0 to 1; 0 without a sample

private:
    timer_t m_timer = {};
    struct sigaction m_before = {};
};

} // namespace bench

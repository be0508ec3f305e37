#pragma once

// Lets at most one progress update of a run through every tenth of a second.
// Made anew for each remux, so two runs never share one. Thread-safe: the lock
// guards only the time of the last update let through.

#include <mutex>

class ProgressThrottle {
public:
    static constexpr double minInterval = 0.1;

    // Whether an update arriving at `now` (seconds, any monotonic origin) goes
    // through; if it does, it becomes the last one.
    bool admit(double now);
    // The same, at the present time of the monotonic clock.
    bool admit();

private:
    std::mutex lock;
    // Far behind any clock reading, so a run's first update always passes.
    double last = -1e300;
};

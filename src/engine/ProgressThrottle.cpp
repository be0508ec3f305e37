#include "ProgressThrottle.h"

#include <chrono>

bool ProgressThrottle::admit(double now) {
    const std::lock_guard guard(lock);
    if (now - last < minInterval) {
        return false;
    }
    last = now;
    return true;
}

bool ProgressThrottle::admit() {
    using namespace std::chrono;
    return admit(duration<double>(steady_clock::now().time_since_epoch()).count());
}

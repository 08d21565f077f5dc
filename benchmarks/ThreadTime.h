#pragma once

#include <time.h>

namespace veltrane::sceneutils::benchmarks {

/** Milliseconds of this thread's processor time. */
inline double threadMilliseconds() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

}  // namespace veltrane::sceneutils::benchmarks

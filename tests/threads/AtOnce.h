#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace testing_support {

/** How many threads the tests of threads use; more than a small machine has cores. */
constexpr unsigned int threadCount = 8;

/** Does `work` for 0, 1, ... threadCount - 1, each on a thread of its own. None begins before all are there. */
inline void atOnce(const std::function<void(unsigned int thread)>& work) {
    std::atomic<unsigned int> present{0};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] {
            ++present;
            while (present < threadCount) std::this_thread::yield();
            work(i);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace testing_support

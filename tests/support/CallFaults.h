#pragma once

#include "DiskFaults.h"
#include "TemporaryDirectory.h"
#include "ToolRun.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace testing_support {

/** Has calls to the system fail in the tool, see faults/CallFaults.cpp. For one run at a time. */
class CallFaults {
public:
    CallFaults() { reset(); }

    /** @param calls for example "read once 17" */
    ToolSettings settings(const std::string& calls) {
        reset();
        ToolSettings settings = withDiskFaults({{"CALLS", calls}, {"COUNT", _folder / "count"}});
        settings.environment.emplace_back("LD_PRELOAD", CALL_FAULTS);  // the last one counts
        return settings;
    }

    /** How many such calls the last run has made. */
    std::uint64_t count() const {
        std::uint64_t count = 0;
        std::ifstream(_folder / "count", std::ios::binary).read(reinterpret_cast<char*>(&count), sizeof count);
        return count;
    }

private:
    void reset() const {
        const std::uint64_t none = 0;
        std::ofstream(_folder / "count", std::ios::binary).write(reinterpret_cast<const char*>(&none), sizeof none);
    }

    TemporaryDirectory _folder;
};

/** How many runs are tried for each way to fail: few, or as many as SCENEUTILS_FAULT_RUNS says. */
inline std::uint64_t faultRuns() {
    constexpr std::uint64_t few = 4;
    const char* runs = std::getenv("SCENEUTILS_FAULT_RUNS");
    return runs ? std::stoull(runs) : few;
}

/** Some numbers from 1 to `last`, spread over all of them; all if there are no more than the runs. The same each time.
 */
inline std::vector<std::uint64_t> someUpTo(std::uint64_t last) {
    std::mt19937_64 random(last);
    std::vector<std::uint64_t> numbers;
    const std::uint64_t runs = faultRuns();
    for (std::uint64_t i = 0; i < runs; ++i) {
        const std::uint64_t begin = i * last / runs;
        const std::uint64_t end = (i + 1) * last / runs;
        if (end > begin) numbers.push_back(begin + 1 + random() % (end - begin));
    }
    return numbers;
}

}  // namespace testing_support

#pragma once

#include <functional>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

/**
 * Measures in a child of this process, which ends then: nothing that was measured before can be felt, and memory and
 * drivers begin anew. This process must have one thread only.
 * @returns the numbers that `measure` returned there
 * @throws std::runtime_error if the child fails
 */
std::vector<double> measureInChild(const std::function<std::vector<double>()>& measure);

/** How much memory something takes, in MiB. Watch in a process of its own. */
class MemoryWatch {
public:
    /** Begins anew: what was free is given back, and the peak is what is held now. */
    MemoryWatch();

    /** What has been allocated and not freed since. */
    double kept() const;

    /** By how much resident memory was larger than at the beginning, at most. */
    double peak() const;

    /** By how much resident memory is larger than at the beginning, what was freed but not given back included. */
    double resident() const;

private:
    double _allocated;
    double _resident;
};

}  // namespace veltrane::sceneutils::benchmarks

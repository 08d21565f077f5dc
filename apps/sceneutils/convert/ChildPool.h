#pragma once

#include "ChildProcess.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/**
 * Child processes that each answer one request after the other, because to start one takes as long as a small request.
 * One that dies on a request, or takes too long for it, costs that request only: the next goes to a new one.
 *
 * A child begins as a copy of this process at the time of the first request that it is needed for.
 */
class ChildPool {
public:
    /** Works in a child; what it remembers between requests is lost when the child is replaced. */
    using Work = std::function<std::string(const std::string& request)>;

    struct Answer {
        std::size_t id = 0;           ///< of the request
        std::string text;             ///< empty if the child has died on it
        std::optional<ChildEnd> end;  ///< how the child has ended; none: it lives
    };

    /**
     * @param children at least 1
     * @param limits for each request; memoryBytes is not heeded
     */
    ChildPool(std::size_t children, const ChildLimits& limits, Work work);
    ~ChildPool();
    ChildPool(const ChildPool&) = delete;
    ChildPool& operator=(const ChildPool&) = delete;

    bool hasIdleChild() const;
    bool isBusy() const;

    /** Has an idle child work on a request. @throws std::system_error if no process can be had */
    void ask(std::size_t id, const std::string& request);

    /** Waits for the next answer, in whatever order they come. The pool has to be busy. */
    Answer nextAnswer();

private:
    class Child;

    Answer endOf(std::unique_ptr<Child>& child, bool tookTooLong);

    ChildLimits _limits;
    Work _work;
    std::vector<std::unique_ptr<Child>> _children;  ///< null: not started
};

}  // namespace veltrane::sceneutils::tool

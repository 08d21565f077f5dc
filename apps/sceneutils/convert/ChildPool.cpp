#include "ChildPool.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace veltrane::sceneutils::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int longestWait = 60'000;  // milliseconds

// From what this process has used by now. The system counts in whole seconds.
void allowProcessorTime(unsigned int seconds) {
    rusage used = {};
    getrusage(RUSAGE_SELF, &used);
    rlimit limit = {};
    getrlimit(RLIMIT_CPU, &limit);
    limit.rlim_cur = static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec + 1) + seconds;
    setrlimit(RLIMIT_CPU, &limit);
}

void answerRequests(int socket, const ChildLimits& limits, const ChildPool::Work& work) {
    const MessageSender parent(socket);
    for (std::string request; receiveMessage(socket, request);) {
        allowProcessorTime(limits.processorSeconds);
        parent.send(work(request));
    }
}

bool hasSomethingToRead(int fileDescriptor) {
    pollfd polled = {fileDescriptor, POLLIN, 0};
    return poll(&polled, 1, 0) > 0;
}

}  // namespace

class ChildPool::Child {
public:
    Child(const ChildLimits& limits, const Work& work) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
            throw std::system_error(errno, std::generic_category(), "cannot make a socket");
        try {
            _pid = startChild([&] {
                close(ends[0]);
                answerRequests(ends[1], limits, work);
            });
        } catch (...) {
            close(ends[0]);
            close(ends[1]);
            throw;
        }
        close(ends[1]);
        _socket = ends[0];
    }
    // A child has copies of the sockets of those before it, so that closing one's socket does not tell it to end.
    ~Child() {
        close(_socket);
        if (!_hasEnded) end();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    int socket() const { return _socket; }
    bool isIdle() const { return !_isAtWork; }
    std::size_t request() const { return _request; }
    Clock::time_point start() const { return _start; }

    void ask(std::size_t id, const std::string& request) {
        _request = id;
        _isAtWork = true;
        _start = Clock::now();
        MessageSender(_socket).send(request);
    }

    bool receive(std::string& answer) {
        if (!receiveMessage(_socket, answer)) return false;
        _isAtWork = false;
        return true;
    }

    ChildEnd end() {
        _hasEnded = true;
        kill(_pid, SIGKILL);
        return waitForChild(_pid);
    }

    ChildEnd waitForEnd() {
        _hasEnded = true;
        return waitForChild(_pid);
    }

private:
    int _pid = 0;
    int _socket = -1;
    bool _isAtWork = false;
    bool _hasEnded = false;
    std::size_t _request = 0;
    Clock::time_point _start;
};

ChildPool::ChildPool(std::size_t children, const ChildLimits& limits, Work work)
    : _limits(limits), _work(std::move(work)), _children(children) {}

ChildPool::~ChildPool() = default;

bool ChildPool::hasIdleChild() const {
    return std::any_of(_children.begin(), _children.end(), [](const auto& child) { return !child || child->isIdle(); });
}

bool ChildPool::isBusy() const {
    return std::any_of(_children.begin(), _children.end(), [](const auto& child) { return child && !child->isIdle(); });
}

void ChildPool::ask(std::size_t id, const std::string& request) {
    // Those that run first: a small database needs fewer than it may have.
    auto idle =
        std::find_if(_children.begin(), _children.end(), [](const auto& child) { return child && child->isIdle(); });
    if (idle == _children.end()) idle = std::find(_children.begin(), _children.end(), nullptr);
    // An idle one has nothing to say but that something else has ended it.
    if (*idle && hasSomethingToRead((*idle)->socket())) idle->reset();
    if (!*idle) *idle = std::make_unique<Child>(_limits, _work);
    (*idle)->ask(id, request);
}

ChildPool::Answer ChildPool::nextAnswer() {
    for (;;) {
        std::vector<pollfd> polled;
        for (const auto& child : _children)
            polled.push_back({child && !child->isIdle() ? child->socket() : -1, POLLIN, 0});
        int wait = longestWait;
        const Clock::time_point now = Clock::now();
        for (auto& child : _children) {
            if (_limits.seconds == 0 || !child || child->isIdle()) continue;
            const auto left = child->start() + std::chrono::seconds(_limits.seconds) - now;
            const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(left).count();
            if (milliseconds < 0) return endOf(child, true);
            wait = static_cast<int>(std::min<long long>(wait, milliseconds + 1));
        }
        if (poll(polled.data(), polled.size(), wait) <= 0) continue;
        for (std::size_t i = 0; i < polled.size(); ++i) {
            if (polled[i].revents == 0) continue;
            Answer answer;
            answer.id = _children[i]->request();
            if (_children[i]->receive(answer.text)) return answer;
            return endOf(_children[i], false);
        }
    }
}

ChildPool::Answer ChildPool::endOf(std::unique_ptr<Child>& child, bool tookTooLong) {
    Answer answer;
    answer.id = child->request();
    answer.end = tookTooLong ? child->end() : child->waitForEnd();
    answer.end->tookTooLong = tookTooLong;
    child.reset();
    return answer;
}

}  // namespace veltrane::sceneutils::tool

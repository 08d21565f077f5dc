#include "ProgramTrial.h"

#include "../convert/ChildPool.h"
#include "../convert/FileConversion.h"
#include "TilePrograms.h"

#include <offscreen/ProgramCheck.h>

namespace veltrane::sceneutils::tool {

namespace {

using offscreen::OffscreenContext;

// What a request begins with, and an answer. The rest is the program's content; the driver, the reason or the log.
constexpr char open = 'o';
constexpr char opened = 'd';
constexpr char notOpened = 'n';
constexpr char compile = 'c';

/** Answers in a child process, which opens its context when it is first asked. */
class Compiler {
public:
    std::string answer(const std::string& request) {
        try {
            if (!_context) _context = new OffscreenContext(1, 1);
        } catch (const offscreen::OffscreenError& error) {
            return notOpened + std::string(error.what());
        }
        if (request.front() == open) return opened + _context->driver();
        const auto failures = offscreen::checkPrograms(*_context, {programFrom(request.substr(1))});
        return compile + (failures.empty() ? std::string() : failures.front().log);
    }

private:
    osg::ref_ptr<OffscreenContext> _context;
};

std::string answerTo(ChildPool& pool, const std::string& request, const ChildLimits& limits) {
    pool.ask(0, request);
    const ChildPool::Answer answer = pool.nextAnswer();
    if (!answer.end) return answer.text;
    return notOpened + ("the driver " + whyItEnded(*answer.end, "asked", limits));
}

}  // namespace

ProgramTrial tryPrograms(const std::vector<std::string>& contents, const ChildLimits& limits) {
    ProgramTrial trial;
    Compiler compiler;
    ChildPool pool(1, limits, [&](const std::string& request) { return compiler.answer(request); });
    const std::string context = answerTo(pool, std::string(1, open), limits);
    (context.front() == opened ? trial.driver : trial.whyNot) = context.substr(1);
    if (trial.driver.empty()) return trial;
    for (const std::string& content : contents) {
        const std::string answer = answerTo(pool, compile + content, limits);
        trial.logs.push_back(answer.substr(1));
    }
    return trial;
}

}  // namespace veltrane::sceneutils::tool

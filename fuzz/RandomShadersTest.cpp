#include "RandomInputs.h"
#include "ShaderRun.h"

using namespace fuzzing;
using veltrane::sceneutils::offscreen::OffscreenContext;

namespace {

constexpr unsigned int graphs = 3000;
constexpr std::size_t longest = 300;  // bytes

}  // namespace

TEST(RandomShaders, AreThoseThatTheStateAsksForAndWork) {
    const osg::ref_ptr<OffscreenContext> context = new OffscreenContext(1, 1);
    const auto runInContext = [&](const std::uint8_t* data, std::size_t size) { runShaders(data, size, *context); };
    for (unsigned int seed = 0; seed < graphs && !testing::Test::HasFailure(); ++seed)
        expectPromisesKept(randomBytes(seed, longest), "shaders-" + std::to_string(seed), runInContext);
}

TEST(RandomShaders, MayBeOfNoBytesAtAll) {
    const osg::ref_ptr<OffscreenContext> context = new OffscreenContext(1, 1);
    EXPECT_NO_THROW(runShaders(nullptr, 0, *context));
}

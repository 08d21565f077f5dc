#include "RandomInputs.h"
#include "ToolRun.h"

using namespace fuzzing;

namespace {

constexpr unsigned int graphs = 3000;
constexpr std::size_t longest = 700;  // bytes

}  // namespace

TEST(RandomGraphs, GoThroughTheToolsAndFindEachPromiseKept) {
    for (unsigned int seed = 0; seed < graphs && !testing::Test::HasFailure(); ++seed)
        expectPromisesKept(randomBytes(seed, longest), "graph-" + std::to_string(seed), runTools);
}

TEST(RandomGraphs, ThatOnceBrokeAPromiseDoNoMore) {
    expectPromisesKeptWith(FUZZ_KEPT "/graphs", runTools);
}

TEST(RandomGraphs, MayBeOfNoBytesAtAll) {
    EXPECT_NO_THROW(runTools(nullptr, 0));
}

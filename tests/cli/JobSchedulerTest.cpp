#include "convert/JobScheduler.h"
#include "support/FlightRecords.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace testing_support;
using namespace veltrane::sceneutils::tool;
using testing::ElementsAre;

namespace {

using Sizes = std::vector<std::size_t>;

constexpr std::size_t quarter = 256 << 10;  // of a mebibyte
constexpr std::size_t few = 400;

/** A file of so many bytes, a multiple of 4, that refers to nothing. */
void writeSized(const fs::path& path, std::size_t bytes) {
    constexpr unsigned comment = 31;
    constexpr std::size_t longest = 60000;
    FlightRecords records;
    while (records.bytes().size() < bytes)
        records.record(comment, std::string(std::min(bytes - records.bytes().size(), longest) - 4, 'x'));
    records.write(path);
}

/** master.flt refers to tiles of these sizes. */
void writeTiles(const fs::path& folder, const Sizes& sizes) {
    std::vector<std::string> names;
    for (const std::size_t size : sizes) {
        names.push_back(std::to_string(names.size()) + ".flt");
        writeSized(folder / names.back(), size);
    }
    FlightRecords().push().references(names).pop().write(folder / "master.flt");
}

/** How many jobs the batches of a first run have. */
Sizes batchSizes(const TemporaryDirectory& folder, unsigned int processes) {
    ConversionOptions options;
    options.input = folder / "master.flt";
    options.output = folder / "out/m.ive";
    options.recurse = true;
    const StateFolder state(folder / "out/.sceneutils/m.ive");
    ScheduleSettings settings;
    settings.jobs = processes;
    const JobPlan plan(planFiles(options), state);
    const JobScheduler scheduler(plan, state, settings);
    Sizes sizes;
    for (const JobScheduler::Batch& batch : scheduler.batches()) sizes.push_back(batch.size());
    return sizes;
}

Sizes batchSizesOf(const Sizes& files, unsigned int processes) {
    const TemporaryDirectory folder;
    writeTiles(folder.path(), files);
    return batchSizes(folder, processes);
}

}  // namespace

TEST(JobScheduler, PutsUpTo32FilesIntoABatchAndTheMasterIntoOneOfItsOwn) {
    EXPECT_EQ(batchSizesOf(Sizes(200, few), 1), Sizes({32, 32, 32, 32, 32, 32, 8, 1}));
}

TEST(JobScheduler, HasFourBatchesForEveryProcessSoThatAllAreAtWorkToTheEnd) {
    EXPECT_EQ(batchSizesOf(Sizes(16, few), 1), Sizes({4, 4, 4, 4, 1}));
    EXPECT_EQ(batchSizesOf(Sizes(16, few), 2), Sizes({2, 2, 2, 2, 2, 2, 2, 2, 1}));
    EXPECT_EQ(batchSizesOf(Sizes(16, few), 100), Sizes(17, 1));
}

TEST(JobScheduler, PutsNoMoreThanAMebibyteIntoABatch) {
    Sizes files(20, quarter);
    EXPECT_EQ(batchSizesOf(files, 1), Sizes({4, 4, 4, 4, 4, 1}));
    files.front() += 4;
    EXPECT_EQ(batchSizesOf(files, 1), Sizes({3, 4, 4, 4, 4, 1, 1}));
}

TEST(JobScheduler, LeavesALargeFileToItself) {
    Sizes files(16, few);
    files[1] = 5 * quarter;
    EXPECT_EQ(batchSizesOf(files, 1), Sizes({1, 1, 4, 4, 4, 2, 1}));
}

TEST(JobScheduler, PutsNoFileTogetherWithOneThatItRefersTo) {
    const TemporaryDirectory folder;
    std::vector<std::string> names;
    for (int i = 0; i < 8; ++i) {
        const std::string part = "part" + std::to_string(i) + ".flt";
        writeSized(folder / part, few);
        names.push_back(std::to_string(i) + ".flt");
        FlightRecords().push().reference(part).pop().write(folder / names.back());
    }
    FlightRecords().push().references(names).pop().write(folder / "master.flt");

    EXPECT_THAT(batchSizes(folder, 1), ElementsAre(2, 2, 2, 2, 2, 2, 2, 2, 1));
}

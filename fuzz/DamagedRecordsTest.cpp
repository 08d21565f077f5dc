#include "Damage.h"
#include "support/FlightRecords.h"

#include "Command.h"
#include "files/FlightFile.h"
#include "plan/FindingReport.h"
#include "plan/ReferenceGraph.h"
#include "sample/SampleDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include <malloc.h>

namespace fs = std::filesystem;
using namespace testing_support;
using veltrane::sceneutils::tool::buildReferenceGraph;
using veltrane::sceneutils::tool::ByteSource;
using veltrane::sceneutils::tool::Finding;
using veltrane::sceneutils::tool::FindingReport;
using veltrane::sceneutils::tool::FlightDefect;
using veltrane::sceneutils::tool::FlightFile;
using veltrane::sceneutils::tool::FlightFileError;
using veltrane::sceneutils::tool::ReferenceGraph;
using veltrane::sceneutils::tool::SampleOptions;
using veltrane::sceneutils::tool::scanFlightFile;
using veltrane::sceneutils::tool::writeSampleDatabase;

namespace {

// Of everything that is allocated with `new` in this process.
std::size_t bytesInUse = 0;
std::size_t mostBytesInUse = 0;

}  // namespace

// The compiler does not know that these are pairs: all that `new` gives comes back to the `delete` below.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory) bytesInUse += malloc_usable_size(memory);
    mostBytesInUse = std::max(mostBytesInUse, bytesInUse);
    return memory;
}
void* operator new(std::size_t size) {
    void* memory = operator new(size, std::nothrow);
    if (!memory) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    if (memory) bytesInUse -= malloc_usable_size(memory);
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    operator delete(memory);
}

namespace {

constexpr std::uint64_t damagedFiles = 10000;
constexpr std::uint64_t damagedDatabases = 500;

/** What a scan may take: the window on the file, and what is kept of records, the smallest of which have 4 bytes. */
constexpr std::size_t memoryForAnyFile = 128 << 10;
constexpr std::size_t memoryPerByte = 48;

/** Bytes of which only those that there are may be read, and each only a few times. */
class StrictBytes : public ByteSource {
public:
    explicit StrictBytes(const std::string& content) : _content(content.begin(), content.end()) {}

    std::uint64_t size() const override { return _content.size(); }
    std::size_t read(std::uint64_t offset, char* to, std::size_t count) override {
        readsTooMuch = readsTooMuch || offset > _content.size() || count > _content.size() - offset;
        if (readsTooMuch) return 0;
        bytesRead += count;
        std::copy_n(_content.begin() + static_cast<std::ptrdiff_t>(offset), count, to);
        return count;
    }

    bool readsTooMuch = false;
    std::size_t bytesRead = 0;

private:
    std::vector<char> _content;
};

/** A sample database with files of all levels. */
const TemporaryDirectory& sampleDatabase() {
    static const TemporaryDirectory folder;
    static const bool isWritten = [] {
        SampleOptions options;
        options.tiles = 2;
        options.levels = 4;
        options.textures = 1;
        options.lodHints = true;
        writeSampleDatabase(folder / "db", options);
        return true;
    }();
    EXPECT_TRUE(isWritten);
    return folder;
}

std::vector<fs::path> sampleFiles() {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(sampleDatabase() / "db")) {
        if (entry.path().extension() == ".flt") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

/** Scans bytes and expects what has to be true of any; says whether they were taken for a file. */
bool scan(const std::string& content, std::uint64_t seed) {
    StrictBytes bytes(content);
    bool isWhole = false;
    const std::size_t before = bytesInUse;
    mostBytesInUse = bytesInUse;
    try {
        const FlightFile file = scanFlightFile(bytes);
        for (const FlightDefect& defect : file.defects) EXPECT_LE(defect.offset, content.size()) << "seed " << seed;
        isWhole = true;
    } catch (const FlightFileError& error) {
        EXPECT_LE(error.offset().value_or(content.size() + 1), content.size()) << "seed " << seed;
    }
    EXPECT_FALSE(bytes.readsTooMuch) << "seed " << seed;
    EXPECT_LE(bytes.bytesRead, 5 * content.size()) << "seed " << seed;
    EXPECT_LE(mostBytesInUse - before, memoryForAnyFile + memoryPerByte * content.size()) << "seed " << seed;
    return isWhole;
}

/** Puts a file's content back at the end of the scope. */
class DamagedFile {
public:
    DamagedFile(const fs::path& path, std::uint64_t seed) : _path(path), _sound(readBytes(path)) {
        writeBytes(path, Damage(seed, _sound).result());
    }
    ~DamagedFile() { writeBytes(_path, _sound); }
    DamagedFile(const DamagedFile&) = delete;
    DamagedFile& operator=(const DamagedFile&) = delete;

private:
    fs::path _path;
    std::string _sound;
};

}  // namespace

TEST(DamagedRecords, AreReadWithinTheFileAndABoundOfMemory) {
    std::vector<std::string> sound;
    for (const fs::path& path : sampleFiles()) sound.push_back(readBytes(path));
    std::size_t whole = 0;
    for (std::uint64_t seed = 0; seed < damagedFiles && !testing::Test::HasFailure(); ++seed)
        whole += scan(Damage(seed, sound[seed % sound.size()]).result(), seed) ? 1 : 0;

    RecordProperty("whole", static_cast<int>(whole));
    EXPECT_GT(whole, damagedFiles / 20);
    EXPECT_LT(whole, damagedFiles * 19 / 20);
}

TEST(DamagedRecords, TakeABoundOfMemoryHoweverSmallAndManyTheyAre) {
    for (const unsigned opcode : {63u, 64u, 999u, 23u, 22u, 1u, 10u, 67u}) {
        FlightRecords records;
        for (int i = 0; i < 50000; ++i) records.record(opcode);
        scan(records.bytes(), opcode);
    }
}

TEST(DamagedRecords, MakeFindingsOfADatabase) {
    const std::vector<fs::path> files = sampleFiles();
    std::size_t findings = 0;
    for (std::uint64_t seed = 0; seed < damagedDatabases && !testing::Test::HasFailure(); ++seed) {
        const DamagedFile damaged(files[seed % files.size()], seed);
        const fs::path master = sampleDatabase() / "db/master.flt";
        const ReferenceGraph graph = buildReferenceGraph(master, {});
        const FindingReport report(graph, master);
        EXPECT_LE(graph.files.size(), files.size()) << "seed " << seed;
        for (const Finding& finding : graph.findings) {
            EXPECT_EQ(report.lineOf(finding).find('\n'), std::string::npos) << "seed " << seed;
        }
        findings += graph.findings.size();
    }
    EXPECT_GT(findings, damagedDatabases / 2);
}

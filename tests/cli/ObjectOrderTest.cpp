#include "convert/ChildProcess.h"
#include "convert/ObjectOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

using namespace veltrane::sceneutils::tool;

namespace {

/** What `work` says in a process whose objects are ordered. */
std::string inOrderedProcess(const std::function<std::string()>& work) {
    std::string answer;
    runInChild(
        60,
        [&](const MessageSender& parent) {
            orderObjectsByAge();
            parent.send(work());
        },
        [&](const std::string& message) { answer = message; });
    return answer;
}

struct Large {
    char bytes[1000];
};

std::string memoryInUse() {
    std::FILE* file = std::fopen("/proc/self/statm", "r");
    long pages = 0;
    long resident = 0;
    const int read = std::fscanf(file, "%ld %ld", &pages, &resident);
    std::fclose(file);
    return read == 2 && resident < 50'000 ? "little" : std::to_string(resident) + " pages";
}

}  // namespace

TEST(ObjectOrder, GivesYoungerObjectsHigherAddresses) {
    if (!canOrderObjectsByAge()) return;
    const std::string answer = inOrderedProcess([] {
        std::vector<std::unique_ptr<Large>> holes;
        for (int i = 0; i < 1000; ++i) holes.push_back(std::make_unique<Large>());
        for (std::size_t i = 0; i < holes.size(); i += 2) holes[i].reset();
        std::vector<Large*> objects;
        objects.reserve(5000);
        for (int i = 0; i < 5000; ++i) objects.push_back(new Large);
        const bool areOrdered = std::is_sorted(objects.begin(), objects.end());
        for (Large* object : objects) delete object;
        return std::string(areOrdered ? "ordered" : "not ordered");
    });

    EXPECT_EQ(answer, "ordered");
}

TEST(ObjectOrder, GivesMemoryBack) {
    if (!canOrderObjectsByAge()) return;
    const std::string answer = inOrderedProcess([] {
        for (int i = 0; i < 2'000'000; ++i) delete new Large;
        return memoryInUse();
    });

    EXPECT_EQ(answer, "little");
}

TEST(ObjectOrder, KeepsWhatWasThereBefore) {
    const auto before = std::make_unique<std::string>(100, 'x');
    const std::string answer = inOrderedProcess([&] {
        auto copy = std::make_unique<std::string>(*before);
        const std::string large(10'000'000, 'y');
        return *copy + large.substr(0, 1);
    });

    EXPECT_EQ(answer, std::string(100, 'x') + "y");
}

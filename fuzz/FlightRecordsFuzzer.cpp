// For libFuzzer; scripts/fuzz.sh builds and runs it. Any bytes are a file of which all is told, or why it is refused.

#include "files/FlightFile.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

using namespace veltrane::sceneutils::tool;

namespace {

void check(bool isTrue) {
    if (!isTrue) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A copy of just that size, so that the sanitizer sees each byte that is read too much.
    const std::vector<char> content(data, data + size);
    MemoryBytes bytes({content.data(), content.size()});
    try {
        const FlightFile file = scanFlightFile(bytes);
        for (const FlightReference& reference : file.references) check(reference.offset < size);
        for (const FlightDefect& defect : file.defects) check(defect.offset <= size && !defect.message.empty());
    } catch (const FlightFileError& error) {
        check(error.offset() && *error.offset() <= size);
    }
    return 0;
}

// For libFuzzer; scripts/fuzz.sh builds and runs it. Any bytes are a graph and the tools that it goes through.

#include "Promise.h"
#include "ToolRun.h"

#include <cstdlib>
#include <iostream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        fuzzing::runTools(data, size);
    } catch (const fuzzing::BrokenPromise& broken) {
        std::cerr << broken.what() << std::endl;
        std::abort();
    }
    return 0;
}

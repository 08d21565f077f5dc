// For libFuzzer; scripts/fuzz.sh builds and runs it. Any bytes are state sets, and how programs are made for them.

#include "Promise.h"
#include "ShaderRun.h"

#include <cstdlib>
#include <iostream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const osg::ref_ptr<veltrane::sceneutils::offscreen::OffscreenContext> context =
        new veltrane::sceneutils::offscreen::OffscreenContext(1, 1);
    try {
        fuzzing::runShaders(data, size, *context);
    } catch (const fuzzing::BrokenPromise& broken) {
        std::cerr << broken.what() << std::endl;
        std::abort();
    }
    return 0;
}

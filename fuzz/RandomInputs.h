#pragma once

#include "Promise.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace fuzzing {

using Bytes = std::vector<std::uint8_t>;

inline Bytes randomBytes(unsigned int seed, std::size_t size) {
    std::mt19937 random(seed);
    Bytes bytes(1 + random() % size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
}

inline Bytes bytesOf(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

/** Expects that all promises are kept. Leaves an input with which one is not where the fuzzers can take it up. */
template <typename Run>
void expectPromisesKept(const Bytes& bytes, const std::string& name, Run run) {
    try {
        run(bytes.data(), bytes.size());
    } catch (const BrokenPromise& broken) {
        const std::filesystem::path file = std::filesystem::temp_directory_path() / ("broken-" + name);
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        ADD_FAILURE() << name << " (" << file.string() << "): " << broken.what();
    }
}

/** Runs each input that once broke something. */
template <typename Run>
void expectPromisesKeptWith(const std::filesystem::path& folder, Run run) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        expectPromisesKept(bytesOf(entry.path()), entry.path().filename().string(), run);
        ++count;
    }
    EXPECT_GT(count, 0u) << folder;
}

}  // namespace fuzzing

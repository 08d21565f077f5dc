#pragma once

#include <array>
#include <cstddef>
#include <filesystem>

namespace veltrane::sceneutils::benchmarks {

/** The ways of converting a database that are compared. */
enum class Way : std::size_t { Library, Tool, Floor };

constexpr std::array<const char*, 3> wayNames = {"library", "tool", "floor"};

/** Converts the library's way: CreatePagedLODVisitor, all files in this process, outputs beside the inputs. */
void convertWithLibrary(const std::filesystem::path& master);

/** Converts the tool's way: as `sceneutils convert --recurse`, each file in a process of its own. */
void convertWithTool(const std::filesystem::path& master);

/** What all outputs of a conversion of this master lie below. */
std::filesystem::path outputFolder(Way way, const std::filesystem::path& master);

}  // namespace veltrane::sceneutils::benchmarks

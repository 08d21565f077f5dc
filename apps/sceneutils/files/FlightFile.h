#pragma once

#include "ByteSource.h"
#include "FlightDefect.h"
#include "FlightFileError.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** The palettes that an OpenFlight file can take over from the file that refers to it. */
enum class Palette { Color, Material, Texture, LightSource, LightPointAppearance, Shader };
constexpr std::size_t paletteKinds = 6;

/** One value for each kind of palette. */
template <typename T>
using PerPalette = std::array<T, paletteKinds>;

/** An external-reference record. */
struct FlightReference {
    std::string name;                 ///< the file name as it is stored
    std::uint64_t offset = 0;         ///< of the record in the file
    PerPalette<bool> takesParents{};  ///< which of the referring file's palettes the referenced file takes
};

/**
 * What a conversion must know of an OpenFlight file before it is read by OpenSceneGraph: whether its records are whole,
 * which files it refers to, and which palettes it brings.
 *
 * OpenSceneGraph reads a file that was cut short as if that were all of it, and does not tell which palettes a
 * reference takes from its parent.
 */
struct FlightFile {
    std::vector<FlightReference> references;    ///< in file order
    std::vector<std::string> textures;          ///< as the texture palette names them
    PerPalette<std::uint64_t> paletteHashes{};  ///< of the palette records' bytes; 0: the file has no such palette
    std::uintmax_t bytes = 0;
    std::vector<FlightDefect> defects;  ///< what does not keep it from being read, in file order
};

/**
 * A small OpenFlight file that hands on to its only reference what `path` hands on to that one: header, those palettes
 * and the reference's record under another name, in their order.
 * @param reference which external-reference record, counted from 0
 * @param kinds the palettes that are wanted
 * @throws FlightFileError as scanFlightFile() does
 */
std::string palettesHandedOn(const std::filesystem::path& path, std::size_t reference, const PerPalette<bool>& kinds);

/**
 * Walks the file's records. Nothing in a file can make it read out of bounds, and what it keeps is bounded by a
 * multiple of the file's size.
 * @throws FlightFileError if the file cannot be read or is no whole OpenFlight file
 */
FlightFile scanFlightFile(const std::filesystem::path& path);

/** The same for bytes from elsewhere. */
FlightFile scanFlightFile(ByteSource& bytes);

}  // namespace veltrane::sceneutils::tool

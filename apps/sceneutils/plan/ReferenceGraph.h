#pragma once

#include "../files/FlightDefect.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::tool {

/** Where a walk over references may go. */
struct ReferenceGraphOptions {
    std::filesystem::path root;                         ///< the folder of the database; empty: the master's
    std::vector<std::filesystem::path> allowedFolders;  ///< files below these count as the database's, too
};

/** What a reference leads to. */
enum class ReferenceStatus {
    Followed,  ///< an OpenFlight file of the database
    Other,     ///< a file of another format; it is not opened
    Outside,   ///< a file that lies where the walk may not go; it is not opened
    Missing    ///< no file
};

/** An external-reference record. */
struct GraphReference {
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

    std::string name;          ///< as it is stored
    std::uint64_t offset = 0;  ///< of the record in its file
    ReferenceStatus status = ReferenceStatus::Missing;
    std::string path;           ///< the real path that it leads to; empty if it is missing
    std::size_t target = none;  ///< the file that it leads to, if it is followed
};

/** An OpenFlight file of a database, known by its real path whatever names lead to it. */
struct GraphFile {
    std::string path;                        ///< real and absolute
    std::string name;                        ///< seen from the root, with '/' between folders
    std::uint64_t bytes = 0;                 ///< 0 if it cannot be read
    std::size_t level = 0;                   ///< references on the shortest way from the master
    std::optional<std::size_t> namedBy;      ///< the first file that refers to it; none for the master
    bool isSound = true;                     ///< false: unreadable, damaged or too deep, and not to be converted
    bool isInCycle = false;                  ///< refers to itself, maybe by way of others
    std::optional<std::size_t> order;        ///< its place among the files to be converted, from 0 on
    std::vector<GraphReference> references;  ///< in file order
};

/** What a finding is about. Those of records inside a file are told apart by their text. */
enum class FindingKind { Unreadable, Damaged, Record, Name, Missing, Node, Outside, Other, TooDeep, Cycle, Duplicate };

/** Something that is wrong with a database. */
struct Finding {
    FindingKind kind = FindingKind::Damaged;
    Severity severity = Severity::Error;
    std::size_t file = 0;                  ///< the file concerned, or that holds the reference concerned
    std::optional<std::uint64_t> offset;   ///< of the byte concerned in that file
    std::optional<std::string> reference;  ///< the stored name of the reference concerned
    std::string message;                   ///< in one line, but for control characters in names
    std::vector<std::size_t> files;        ///< of a cycle or of duplicates: all files concerned
};

/** The files of a database and how they refer to each other. */
struct ReferenceGraph {
    std::string root;                         ///< real and absolute
    std::vector<std::string> allowedFolders;  ///< real and absolute
    std::vector<GraphFile> files;   ///< in the order of first encounter, level by level; the master is the first
    std::vector<Finding> findings;  ///< by file and byte

    /** The files that can be converted, each after those that it refers to; in a cycle that cannot be kept. */
    std::vector<std::size_t> conversionOrder() const;
    std::size_t count(Severity severity) const;
    std::size_t count(FindingKind kind) const;
};

/** The most references that may lead from the master to a file, one after the other. */
constexpr std::size_t deepestReferenceLevel = 100;

/**
 * Walks over the references of a database without loading any geometry. Names are looked for from the folder in which
 * the file that holds them really lies, in any letter case and with '/' or '\' between folders. Nothing that a file
 * holds makes it throw; it becomes a finding.
 * @throws CommandError Usage: the root or an allowed folder is none, or the master lies elsewhere;
 *         InputUnreadable: there is no master file
 */
ReferenceGraph buildReferenceGraph(const std::filesystem::path& master, const ReferenceGraphOptions& options);

}  // namespace veltrane::sceneutils::tool

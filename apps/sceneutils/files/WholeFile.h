#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

namespace veltrane::sceneutils::tool {

/** Says why an output could not be written. The message names the file. */
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * An output file that comes into being whole or not at all: it is written under a temporary name beside its place, and
 * renamed by commit(). Without commit() it is removed. Missing folders are made.
 *
 * One may be open at a time in a process: what removeUnfinishedFile() refers to.
 */
class WholeFile {
public:
    /** @throws OutputError if `path` exists and may not be overwritten, is a folder, or cannot be made */
    WholeFile(const std::filesystem::path& path, bool mayOverwrite);
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    std::ostream& stream() { return _stream; }

    /** Gives the file the time of the last change that another has. */
    void keepTimeOf(const std::filesystem::path& other) { _timeFrom = other; }

    /**
     * Lets commit() do without waiting for the disk: after a power failure the file may have its name but not its
     * content. For what is looked at with suspicion, and easily made again.
     */
    void needNotOutlastPowerFailures() { _outlastsPowerFailures = false; }

    /** Called by commit() with the temporary file when that is whole and on the disk. */
    std::function<void(const std::filesystem::path&)> beforeRenaming;

    /** Puts the file in its place and returns its size in bytes. @throws OutputError if not all of it was written */
    std::uintmax_t commit();

    /** The name under which the process `pid` writes a file before it is whole. */
    static std::filesystem::path temporaryPath(const std::filesystem::path& path, int pid);

private:
    /** Keeps the reason of the first write that failed: who fills the stream may go on, and other calls set errno. */
    class Buffer : public std::filebuf {
    public:
        int firstError() const { return _firstError; }

    protected:
        int_type overflow(int_type byte) override;
        std::streamsize xsputn(const char* bytes, std::streamsize count) override;

    private:
        void noteError();

        int _firstError = 0;
    };

    std::filesystem::path _path;
    std::filesystem::path _temporaryPath;
    bool _mayOverwrite;
    bool _outlastsPowerFailures = true;
    std::optional<std::filesystem::path> _timeFrom;
    Buffer _buffer;
    std::ostream _stream{&_buffer};
};

/** @throws OutputError if an output cannot come to lie at `path`; what WholeFile would say. */
void checkOutputPath(const std::filesystem::path& path, bool mayOverwrite);

/** Whether `path`, all links followed, is `folder` or lies below it. `folder` must be resolved. */
bool staysBelow(const std::filesystem::path& folder, const std::filesystem::path& path);

/** @throws OutputError if it does not */
void checkStaysBelow(const std::filesystem::path& folder, const std::filesystem::path& path);

/** Removes the file that is being written, if there is one. May be called from a signal handler. */
void removeUnfinishedFile();

}  // namespace veltrane::sceneutils::tool

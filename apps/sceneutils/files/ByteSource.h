#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace veltrane::sceneutils::tool {

/** Bytes that are read from any place, not one after the other. */
class ByteSource {
public:
    virtual ~ByteSource() = default;

    virtual std::uint64_t size() const = 0;

    /** Reads up to `count` bytes from `offset` on and says how many there are: fewer at the end of the bytes. */
    virtual std::size_t read(std::uint64_t offset, char* to, std::size_t count) = 0;
};

/** A file. It may be cut or grow while it is read; what counts is the size that it was opened with. */
class FileBytes : public ByteSource {
public:
    /** @throws FlightFileError if the file cannot be read or is no regular file; pipes and devices are not waited for
     */
    explicit FileBytes(const std::filesystem::path& path);
    ~FileBytes() override;
    FileBytes(const FileBytes&) = delete;
    FileBytes& operator=(const FileBytes&) = delete;

    std::uint64_t size() const override { return _size; }
    std::size_t read(std::uint64_t offset, char* to, std::size_t count) override;

private:
    int _descriptor = -1;
    std::uint64_t _size = 0;
};

/** Bytes in memory, which somebody else keeps. */
class MemoryBytes : public ByteSource {
public:
    explicit MemoryBytes(std::string_view bytes) : _bytes(bytes) {}

    std::uint64_t size() const override { return _bytes.size(); }
    std::size_t read(std::uint64_t offset, char* to, std::size_t count) override;

private:
    std::string_view _bytes;
};

}  // namespace veltrane::sceneutils::tool

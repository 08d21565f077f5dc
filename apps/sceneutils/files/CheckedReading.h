#pragma once

#include <osgDB/Options>
#include <osgDB/ReaderWriter>

#include <filesystem>
#include <fstream>
#include <istream>
#include <string>

namespace veltrane::sceneutils::tool {

/**
 * A file to be read by a plug-in of OpenSceneGraph. Those take a disk that fails for the end of the file, and make do
 * with what they have got; here it can be asked for afterwards.
 */
class CheckedInput {
public:
    explicit CheckedInput(const std::filesystem::path& path);
    CheckedInput(const CheckedInput&) = delete;
    CheckedInput& operator=(const CheckedInput&) = delete;

    std::istream& stream() { return _stream; }

    /**
     * The system's number for why the file could not be opened, or not all of it be read; 0: nothing failed so far.
     * Devices and pipes, which may have no end, are not opened: ENXIO.
     */
    int error() const { return _buffer.error; }

private:
    class Buffer : public std::filebuf {
    public:
        int error = 0;

    protected:
        int_type underflow() override;
        std::streamsize xsgetn(char* to, std::streamsize count) override;

    private:
        void noteError(const std::ios_base::failure& failure);
    };

    Buffer _buffer;
    std::istream _stream{&_buffer};
};

/** Whether this is the system's trouble, not the file's: a file that is missing, or that may not be read, is none. */
bool isSystemError(int error);

/**
 * Reads a file through and keeps nothing. For those that a plug-in can only read by itself: what has just been read
 * lies in the system's memory.
 * @return as CheckedInput::error()
 */
int readThrough(const std::filesystem::path& path);

/**
 * Reads an OpenFlight file as OpenSceneGraph does, what it refers to included unless the options say
 * "keepExternalReferences".
 * @param error gets what CheckedInput::error() says; unless that is 0, there is no graph
 */
osgDB::ReaderWriter::ReadResult readFlight(const std::filesystem::path& path, const osgDB::Options* options,
                                           int& error);

/**
 * Reads an image as OpenSceneGraph does.
 * @param name what the image is called afterwards
 * @param path where it lies
 * @param error gets what CheckedInput::error() says, if it is a system error; unless it is 0, there is no image
 */
osgDB::ReaderWriter::ReadResult readImage(const std::string& name, const std::filesystem::path& path,
                                          const osgDB::Options* options, int& error);

}  // namespace veltrane::sceneutils::tool

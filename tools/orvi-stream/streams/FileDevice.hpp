#pragma once

#include <cstdint>
#include <ios>
#include <memory>
#include <string>

namespace agent::orvi::tool {

/// The operations of a device over an open file.
///
/// A file that can seek has two positions, one to read from and one to write to, both at the start
/// at first; what is written has reached the system when `write` returns. Others are read in
/// sequence and cannot be written.
///
/// Errors are told to the user of the publishing program once, because the device's users only see
/// less data than they asked for. Thread safety: single-thread, except for `interrupt`.
class FileDevice {
public:
    enum class Access { read, readAndWrite };

    /// When a file that is read in sequence answers.
    enum class Answer {
        whole,      ///< With all that was asked for, unless the data end before that.
        asItArrives ///< With what there is, once there is something.
    };

    /// Open a file; one that is to be written is made if need be.
    ///
    /// @throws std::system_error when it cannot be opened so, with its name in the text.
    static std::shared_ptr<FileDevice> open(const std::string& path, Access access, Answer answer);

    /// Take the standard input, which is read in sequence whatever it is.
    ///
    /// @throws CommandFailure when it is closed.
    static std::shared_ptr<FileDevice> standardInput(Answer answer);

    FileDevice(int descriptor, bool owned, bool seekable, std::string name, Answer answer);
    ~FileDevice();

    FileDevice(const FileDevice&) = delete;
    FileDevice& operator=(const FileDevice&) = delete;

    bool canSeek() const noexcept { return seekable; }

    /// Fetch `count` bytes, fewer at the end of the file. A pipe or terminal may block.
    ///
    /// @throws std::system_error when nothing can be read any more.
    std::string read(std::int64_t count);

    /// Write all of `data`; return how many bytes were written.
    std::int64_t write(const std::string& data);

    /// Move the positions that `mode` names. Where those differ, the current one is the one to read
    /// from.
    std::streampos seekoff(std::int64_t offset, int direction, int mode);
    std::streampos seekpos(std::streampos position, int mode);

    /// Have waiting reads, present and future, end with nothing. Thread-safe.
    void interrupt() noexcept;

private:
    std::size_t readSome(char* space, std::size_t size);
    std::size_t readWhole(char* space, std::size_t size);
    bool awaitData() const;
    void tellError(int error);

    const int descriptor;
    const bool owned;
    const bool seekable;
    const std::string name;
    const Answer answer;
    const int interruption; // readable once there is one
    bool errorTold = false;
    std::int64_t inputPosition = 0;
    std::int64_t outputPosition = 0;
};

} // namespace agent::orvi::tool

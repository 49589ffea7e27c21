/// Output of the program that a signal can interrupt. Used by one thread.
#pragma once

#include <array>
#include <cstddef>
#include <ostream>
#include <streambuf>
#include <string_view>

namespace kel::host {

/// Writes all bytes to a descriptor, also to one that does not block. While a SignalReader exists,
/// a signal ends the wait for a reader.
/// @return 0, or the number of the error; EINTR when it was interrupted
int WriteUnlessInterrupted(int descriptor, std::string_view bytes);

/// Writes to a descriptor: to a terminal each line, to anything else when it is flushed or enough
/// has come together.
///
/// A write may wait for a reader. While a SignalReader exists, a signal ends that wait: the stream
/// goes bad, and the signal is left for SignalReader::Check. Once a signal was reported, the stream
/// waits no more. The stream also goes bad when the reader of a pipe has gone.
class OutputStream final : public std::ostream {
public:
    /// Effect of the reader's end on the program.
    enum class LostReader {
        Ignored,
        EndsProgram, ///< SignalReader::Check reports SIGPIPE from then on
    };

    /// @param descriptor open during the lifetime of the stream
    explicit OutputStream(int descriptor, LostReader lostReader = LostReader::Ignored);
    ~OutputStream() override;
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

private:
    class Buffer final : public std::streambuf {
    public:
        Buffer(int descriptor, LostReader lostReader);

    protected:
        int_type overflow(int_type byte) override;
        std::streamsize xsputn(const char* bytes, std::streamsize count) override;
        int sync() override;

    private:
        int m_descriptor;
        LostReader m_lostReader;
        bool m_isTerminal;
        std::array<char, std::size_t{16} * 1024> m_bytes{};
    };

    Buffer m_buffer;
};

} // namespace kel::host

/// Shared parts of the fuzz targets: reading an input, and reporting a violated condition.
/// One thread.
#pragma once

#include <kelCore.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

/// Aborts the process when a condition is false; the fuzzer reports the input.
#define KEL_FUZZ_REQUIRE(condition)                                                                \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);    \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)

namespace kel::fuzz {

/// An input, read from its beginning. Bytes beyond its end are 0.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}

    std::uint8_t Byte() {
        std::uint8_t byte = 0;
        if (m_left > 0) {
            byte = *m_data++;
            --m_left;
        }
        return byte;
    }

    std::uint32_t Word() {
        std::uint32_t word = 0;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            word |= std::uint32_t{Byte()} << shift;
        }
        return word;
    }

    /// Returns the next bytes, at most so many.
    std::string Text(std::size_t maxBytes) {
        const std::size_t count = maxBytes < m_left ? maxBytes : m_left;
        std::string text(reinterpret_cast<const char*>(m_data), count);
        m_data += count;
        m_left -= count;
        return text;
    }

    std::string Rest() { return Text(m_left); }

    bool IsAtEnd() const { return m_left == 0; }

private:
    const std::uint8_t* m_data;
    std::size_t m_left;
};

/// Discards all records.
class DiscardingWriter final : public ILoggerWriter {
public:
    void Write(LogLevel /*level*/, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override {
        // All fields are null-terminated texts for any input.
        for (const char* piece : {message, context, file, line, reserved, threadId, time}) {
            KEL_FUZZ_REQUIRE(std::strlen(piece) < (std::size_t{1} << 20U));
        }
    }
};

/// Discards all log records. Called before each input; acts once in a process.
inline void DiscardRecords() {
    static const bool done = [] {
        SetCurrentLoggerWriter(std::make_shared<DiscardingWriter>());
        return true;
    }();
    static_cast<void>(done);
}

/// Returns true if the operation fails with the exception of the framework.
template <typename Operation>
bool Refuses(Operation operation) {
    try {
        operation();
        return false;
    } catch (const KELRuntimeError&) {
        return true;
    }
}

} // namespace kel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

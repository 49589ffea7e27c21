/// The results of a run of calls, as text.
#pragma once

#include <kelCore.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <typeinfo>

namespace kel::test {

/// One line for each call: its name and its result or failure. The first failure ends
/// a run. Records at level Error precede the line of their call. Takes no memory
/// while it is written, so that each refused allocation belongs to the calls.
class Transcript {
public:
    Transcript() { m_text.reserve(std::size_t{1} << 16); }

    Transcript& operator<<(std::string_view text) {
        for (const char character : text) {
            m_text += character == '\n' ? ' ' : character;
        }
        return *this;
    }

    Transcript& operator<<(std::int64_t number) {
        std::array<char, 24> digits{};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        return *this << std::string_view(digits.data(),
                                         static_cast<std::size_t>(end - digits.data()));
    }

    /// Makes a call, which writes its result itself.
    /// @return false when it failed
    template <typename Call>
    bool Do(std::string_view name, Call call) {
        try {
            *this << name;
            call();
            return EndCall(true);
        } catch (const KELRuntimeError& error) {
            *this << " fails: " << error.what();
        } catch (const std::bad_alloc&) {
            *this << " has no memory";
        } catch (const std::exception& error) {
            *this << " throws another exception: " << typeid(error).name();
        }
        return EndCall(false);
    }

    const std::string& Text() const { return m_text; }
    void Clear() { m_text.clear(); }

private:
    bool EndCall(bool succeeded) {
        m_text += '\n';
        return succeeded;
    }

    std::string m_text;
};

/// Writes records at level Error into a transcript.
class ErrorsInto final : public ILoggerWriter {
public:
    explicit ErrorsInto(Transcript& transcript) : m_transcript(transcript) {}

    void Write(LogLevel level, const char* message, const char* /*context*/, const char* /*file*/,
               const char* /*line*/, const char* /*reserved*/, const char* /*threadId*/,
               const char* /*time*/) override {
        if (level == LogLevel::Error) {
            m_transcript << " (" << message << ")";
        }
    }

private:
    Transcript& m_transcript;
};

/// A hash of bytes.
inline std::int64_t Fingerprint(const void* bytes, std::size_t count) {
    // FNV-1a
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (std::size_t i = 0; i < count; ++i) {
        hash = (hash ^ static_cast<const unsigned char*>(bytes)[i]) * 0x100000001B3U;
    }
    return static_cast<std::int64_t>(hash >> 1U);
}

} // namespace kel::test

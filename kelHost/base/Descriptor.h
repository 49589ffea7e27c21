/// Ownership of file descriptors.
#pragma once

#include <utility>

namespace kel::host {

/// A file descriptor that closes itself. One thread at a time.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    /// The number; negative for none.
    int Number() const { return m_number; }

private:
    int m_number = -1;
};

} // namespace kel::host

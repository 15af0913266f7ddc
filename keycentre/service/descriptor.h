// A file descriptor that is closed on every path.
#pragma once

#include <unistd.h>

#include <utility>

namespace keycentre {

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
    ~Descriptor() {
        if (m_number >= 0) ::close(m_number);
    }

    int Get() const { return m_number; }
    bool IsOpen() const { return m_number >= 0; }

private:
    int m_number = -1;
};

}  // namespace keycentre

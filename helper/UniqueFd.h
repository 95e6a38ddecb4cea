#pragma once

#include <unistd.h>

#include <utility>

namespace helper {

// Owns one file descriptor and closes it when it goes away.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd)
        : m_fd(fd) {}
    UniqueFd(UniqueFd &&other) noexcept
        : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return m_fd; }
    void reset() {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

} // namespace helper

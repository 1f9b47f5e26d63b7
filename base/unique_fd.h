// Move-only owner of a file descriptor that closes it when it goes out of
// scope, so every early return of an operation releases what it opened.
#pragma once

#include <unistd.h>

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    int release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    // Closes the held descriptor (its close error is of no use here: every
    // write that matters has been fsync'ed before) and holds `fd` instead.
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Owners for what C libraries hand us: each releases its thing once, on every way out.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <glib.h>
#include <memory>
#include <unistd.h>
#include <utility>

struct file_closer {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};
using owned_file = std::unique_ptr<std::FILE, file_closer>;

struct glib_freer {
    void operator()(void *memory) const { g_free(memory); }
};
using owned_gchar = std::unique_ptr<gchar, glib_freer>;

struct c_freer {
    void operator()(void *memory) const { std::free(memory); }
};
using owned_cstring = std::unique_ptr<char, c_freer>;

struct directory_closer {
    void operator()(DIR *directory) const { closedir(directory); }
};
using owned_directory = std::unique_ptr<DIR, directory_closer>;

// A file descriptor, closed at the end of its scope. -1 means none.
class owned_fd {
public:
    explicit owned_fd(int fd = -1) : fd_(fd) {}
    owned_fd(owned_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    owned_fd &operator=(owned_fd &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~owned_fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset()
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
};

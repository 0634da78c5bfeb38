#pragma once

#include "tests/fuzz/detail_require.h"

#include <string>
#include <sys/mman.h>
#include <unistd.h>

/// A file in memory, for readers that take a path.
class MemoryFile {
public:
    MemoryFile() : file_(memfd_create("fuzz", 0)) { Require(file_ >= 0); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(file_); }

    /// Replaces the content.
    void Hold(const unsigned char* data, std::size_t size) const
    {
        Require(ftruncate(file_, 0) == 0 && pwrite(file_, data, size, 0) == static_cast<ssize_t>(size));
    }
    [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(file_); }

private:
    int file_;
};

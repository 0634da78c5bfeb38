#include "terminal/standard_streams.h"

#include "exchange/files/output_error.h"

#include <cerrno>
#include <cstdio>
#include <iostream>

#if !defined(_WIN32)
#include <csignal>

#include <fcntl.h>
#include <unistd.h>
#endif

namespace voalgo {

void PrepareStandardStreams()
{
#if !defined(_WIN32)
    std::signal(SIGXFSZ, SIG_IGN);
    // Open takes the lowest number. Standard output may be read only, so that what is printed still fails.
    for (const int stream : {0, 1, 2})
        if (fcntl(stream, F_GETFD) == -1) (void)!open("/dev/null", stream == 2 ? O_WRONLY : O_RDONLY);
#endif
}

void FlushStandardOutput()
{
    std::cout.flush();
    const bool isWhole = std::cout && std::ferror(stdout) == 0;
    if (isWhole && std::fflush(stdout) == 0) return;
    if (!isWhole) { // ask once more for the reason, which may be forgotten
        std::clearerr(stdout);
        errno = EIO;
        (void)(std::fputc('\n', stdout) == EOF || std::fflush(stdout) == EOF);
    }
    throw OutputError("to standard output", {errno, std::generic_category()});
}

} // namespace voalgo

#include "platform/terminal.h"

#include <unistd.h>

namespace VoAlgo {

bool IsTerminal(std::FILE* stream)
{
    return isatty(fileno(stream)) != 0;
}

} // namespace VoAlgo

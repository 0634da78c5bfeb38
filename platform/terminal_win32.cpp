#include "platform/terminal.h"

#include <io.h>

namespace VoAlgo {

bool IsTerminal(std::FILE* stream)
{
    return _isatty(_fileno(stream)) != 0;
}

} // namespace VoAlgo

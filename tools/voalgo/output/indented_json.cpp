#include "output/indented_json.h"

#include <cstddef>

namespace voalgo {

std::string Indented(const std::string& json, unsigned depth)
{
    std::string text;
    std::size_t level = 0;
    const auto breakLine = [&] {
        if (level <= depth) text += '\n' + std::string(2 * level, ' ');
    };
    bool inString = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        const bool closes = !inString && (c == '}' || c == ']');
        const bool isEmpty = closes && (json[i - 1] == '{' || json[i - 1] == '[');
        if (closes && !isEmpty && level <= depth) {
            --level;
            breakLine();
        } else if (closes) {
            --level;
        }
        text += c;
        if (inString) {
            if (c == '\\') text += json[++i];
            inString = c != '"';
        } else if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            ++level;
            if (json[i + 1] != '}' && json[i + 1] != ']') breakLine();
        } else if (c == ',') {
            breakLine();
        } else if (c == ':') {
            text += ' ';
        }
    }
    return text;
}

} // namespace voalgo

#pragma once

#include <string>

namespace voalgo {

/// Messages for the user, on standard error.
class Console {
public:
    /// quiet: warnings only.
    explicit Console(bool quiet = false) : quiet_(quiet) {}

    /// Something was done that the user may want to know.
    void Note(const std::string& text) const;
    /// Something is probably wrong.
    void Warn(const std::string& text) const;
    [[nodiscard]] bool Quiet() const { return quiet_; }

private:
    bool quiet_;
};

/// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);

} // namespace voalgo

#pragma once

#include <iostream>
#include <sstream>
#include <string>

/// What the program writes to std::cerr while this lives.
class CerrCapture {
public:
    CerrCapture() : previous_(std::cerr.rdbuf(text_.rdbuf())) {}
    ~CerrCapture() { std::cerr.rdbuf(previous_); }
    CerrCapture(const CerrCapture&) = delete;
    CerrCapture& operator=(const CerrCapture&) = delete;

    [[nodiscard]] std::string Text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* previous_;
};

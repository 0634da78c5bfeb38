#pragma once

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <locale>
#include <string>

/// Makes the process write 1.234,5 for 1234.5, in C++ and in C, while this lives. Debian's package `locales` has the
/// sources from which the locale is compiled if need be.
class ForeignLocale {
public:
    ForeignLocale() : cpp_(std::locale::global(std::locale(std::locale::classic(), new Numbers)))
    {
        if (std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr) return;
        const auto folder = std::filesystem::temp_directory_path() / "voalgo_locales";
        std::filesystem::create_directories(folder);
        const std::string make = "localedef -i de_DE -f UTF-8 " + (folder / "de_DE.UTF-8").string() + " 2>/dev/null";
        [[maybe_unused]] const int status = std::system(make.c_str());
        setenv("LOCPATH", folder.c_str(), 1);
        std::setlocale(LC_ALL, "de_DE.UTF-8");
        unsetenv("LOCPATH"); // while it is set, newlocale of the C library loses memory
    }
    ~ForeignLocale()
    {
        std::setlocale(LC_ALL, "C");
        std::locale::global(cpp_);
    }
    ForeignLocale(const ForeignLocale&) = delete;
    ForeignLocale& operator=(const ForeignLocale&) = delete;

    /// False where the system has no such locale for C.
    static bool IsInForceForC()
    {
        char text[16];
        std::snprintf(text, sizeof text, "%g", 1.5);
        return std::string(text) == "1,5";
    }

private:
    struct Numbers : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

    std::locale cpp_;
};

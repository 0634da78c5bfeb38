#pragma once

#include "VoAlgorithms/bson/element.h"

#include <algorithm>
#include <istream>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

namespace bson_test {

using VoAlgo::bson::element;
using Bytes = std::vector<unsigned char>;

inline Bytes::const_iterator At(const Bytes& bytes, std::size_t n)
{
    return bytes.begin() + static_cast<std::ptrdiff_t>(n);
}

inline Bytes BytesOf(const element& e)
{
    const auto [data, size] = e.freeze();
    return {data, data + size};
}
inline Bytes BytesOf(const element::object& o)
{
    const auto [data, size] = o.freeze();
    return {data.get(), data.get() + size};
}

/// The result of the call, or nothing when it throws "parse error"; other exceptions propagate.
template <class Call>
auto Parsed(Call call) -> std::optional<decltype(call())>
{
    try {
        return call();
    } catch (const std::invalid_argument& e) {
        if (std::string(e.what()) != "parse error") throw;
        return std::nullopt;
    }
}

/// Whether the call throws std::invalid_argument "parse error".
bool IsParseError(auto call)
{
    return !Parsed(call);
}

/// A stream without positions that delivers its bytes in small pieces and never reports how many are left.
class DripStream : private std::streambuf, public std::istream {
public:
    explicit DripStream(Bytes bytes) : std::istream(static_cast<std::streambuf*>(this)), bytes_(std::move(bytes)) {}

private:
    int underflow() override
    {
        constexpr std::size_t Piece = 7;
        const std::size_t n = std::min(Piece, bytes_.size() - next_);
        if (n == 0) return std::char_traits<char>::eof();
        char* const piece = reinterpret_cast<char*>(&bytes_[next_]);
        setg(piece, piece, piece + n);
        next_ += n;
        return static_cast<unsigned char>(*piece);
    }

    Bytes bytes_;
    std::size_t next_ = 0;
};

} // namespace bson_test

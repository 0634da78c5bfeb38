#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace VoAlgo {

/// The lower envelope of parabolas scale·(x − column)² + cost over the integers [0, n), added by ascending columns.
/// Exact for integers while n² + cost fits twice. On ties the smaller column wins. Source: A. Meijster, J. B. T. M.
/// Roerdink, W. H. Hesselink, Math. Morphology (2000) 331–340.
template <class Number>
class Envelope {
public:
    Envelope(std::size_t n, Number scale = 1) : n_(static_cast<std::int32_t>(n)), scale_(scale), parabolas_(n) {}

    void Clear() { size_ = 0; }
    [[nodiscard]] bool IsEmpty() const { return size_ == 0; }
    void Add(std::int32_t column, Number cost)
    {
        const Parabola added{column, 0, cost};
        while (size_ > 0) {
            const Parabola& top = parabolas_[size_ - 1];
            if (at(top, top.begin) <= at(added, top.begin)) break;
            --size_; // nowhere less than its neighbours
        }
        std::int32_t begin = 0;
        if (size_ > 0) {
            const auto last = lastBefore(parabolas_[size_ - 1], added);
            if (last >= static_cast<Number>(n_ - 1)) return;
            begin = static_cast<std::int32_t>(last) + 1;
        }
        parabolas_[size_++] = {column, begin, cost};
    }

    /// Calls f(begin, end, column, cost) for each part of [0, n).
    template <class F>
    void ForEachPart(F&& f) const
    {
        for (std::size_t k = 0; k < size_; ++k)
            f(parabolas_[k].begin, k + 1 < size_ ? parabolas_[k + 1].begin : n_, parabolas_[k].column,
              parabolas_[k].cost);
    }

private:
    struct Parabola {
        std::int32_t column, begin; // least from `begin` on
        Number cost;
    };

    [[nodiscard]] Number at(const Parabola& p, std::int32_t x) const
    {
        const auto distance = static_cast<Number>(x) - static_cast<Number>(p.column);
        return scale_ * distance * distance + p.cost;
    }
    /// The last integer where the left parabola is not above the right one; the two begin to cross at 0 or later.
    [[nodiscard]] Number lastBefore(const Parabola& left, const Parabola& right) const
    {
        const auto i = static_cast<Number>(left.column), u = static_cast<Number>(right.column);
        if constexpr (std::is_integral_v<Number>) {
            const Number difference = (u - i) * (u + i) + (right.cost - left.cost); // not negative
            return u - i == 1 ? difference / 2 : difference / (2 * (u - i));
        } else {
            return std::floor(((u + i) + (right.cost - left.cost) / (scale_ * (u - i))) / 2);
        }
    }

    std::int32_t n_;
    Number scale_;
    std::vector<Parabola> parabolas_;
    std::size_t size_ = 0;
};

} // namespace VoAlgo

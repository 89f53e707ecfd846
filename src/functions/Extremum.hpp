#pragma once

#include "functions/Quad.hpp"

#include <utility>

namespace Torvo {

/// A place and the value there.
template <class Real>
using Peak = std::pair<Real, Real>;

/// Climbs from `centre`, where `f` is at least as large as at `left` < `centre` and at `right` > `centre`, to
/// the largest value between them: to the top of the parabola through three points, again and again, until
/// it no longer moves. Never returns less than `centre`.
template <class Real, class F>
Peak<Real> climb(const F& f, Peak<Real> left, Peak<Real> centre, Peak<Real> right) {
    const Real close = (right.first - left.first) * static_cast<Real>(1e-9);
    for (int step = 0; step < 24; ++step) {
        const Real a = centre.first - left.first, b = centre.first - right.first;
        const Real p = a * (centre.second - right.second), q = b * (centre.second - left.second);
        Real top = p != q ? centre.first - (a * p - b * q) / (2 * (p - q)) : centre.first;
        if (!(left.first < top && top < right.first)) break;
        if (magnitude(top - centre.first) <= close) {
            if (step > 0) break;
            top = centre.first + (right.first - centre.first) / 8;
        }
        if (top == centre.first) break;
        Peak<Real> found{top, f(top)};
        if (found.second > centre.second) std::swap(found, centre);
        (found.first < centre.first ? left : right) = found;
    }
    return centre;
}

} // namespace Torvo

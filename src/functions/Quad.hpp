#pragma once

namespace Torvo {

/// Numbers of 113 bits, of which nothing but arithmetic and comparison is used: the functions on them are in
/// a library of its own.
#ifdef __SIZEOF_FLOAT128__
__extension__ using Quad = __float128;
#else
using Quad = long double;
#endif

template <class Real>
Real magnitude(Real x) {
    return x < 0 ? -x : x;
}

/// pi in 113 bits, which std::numbers does not have: the sum of three pieces that each fit a double.
template <class Real>
Real pi() {
    return Real(0x3.243F6A8885A3p0) + Real(0x08D313198A2Ep-96) + Real(0x03707344A409p-144);
}

} // namespace Torvo

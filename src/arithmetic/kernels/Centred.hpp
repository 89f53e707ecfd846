#pragma once

namespace Torvo {

/// The integer nearest to zero in the class of x modulo q; x < q. Its magnitude is rounded once.
template <class Integer>
double centred(Integer x, Integer q) {
    return x > q >> 1 ? -static_cast<double>(q - x) : static_cast<double>(x);
}

} // namespace Torvo

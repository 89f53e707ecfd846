#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/Automorphism.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// The pairs of a switching key that belong to the live digits, all mod-up and in NTT form.
struct KeyRows {
    const Polynomial* ax;
    const Polynomial* bx;
    u64 digits;
};

/// A key whose products are with the digits under an automorphism, or with the digits themselves where it is null.
struct MappedKey {
    const Automorphism* automorphism;
    KeyRows key;
};

} // namespace Torvo

#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/Automorphism.hpp"
#include "core/Integers.hpp"

#include <array>

namespace Torvo {

/// The pairs of a switching key that belong to the live digits, all mod-up and in NTT form.
struct KeyRows {
    const Polynomial* ax;
    const Polynomial* bx;
    u64 digits;
};

/// What is added to the two elements of a switched ciphertext, in NTT form and at its level: nothing where null;
/// under an automorphism unless that is null.
struct Addends {
    std::array<const Polynomial*, 2> elements{};
    const Automorphism* automorphism = nullptr;
};

/// A key whose products are with the digits under an automorphism, or with the digits themselves where it is null.
struct MappedKey {
    const Automorphism* automorphism;
    KeyRows key;
    Addends addends{};
};

} // namespace Torvo

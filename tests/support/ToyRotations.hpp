#pragma once

#include "support/BootScheme.hpp"

#include <Torvo/KeyGenerator.hpp>

namespace Torvo::test {

/// The toy scheme for bootstraps, which gets the rotation keys of the powers of two and their complements too.
inline const Scheme& toyWithRotations() {
    static const Scheme& made = []() -> const Scheme& {
        KeyGenerator(toy().context, toy().secretKey, toy().keys).genRotKeyBundle();
        return toy();
    }();
    return made;
}

/// The same with those of all indices.
inline const Scheme& toyWithAllRotations() {
    static const Scheme& made = []() -> const Scheme& {
        const KeyGenerator generator(toy().context, toy().secretKey, toy().keys);
        for (long index = 1; index < 32; ++index) generator.genRotKeyIfNotExist(index);
        return toy();
    }();
    return made;
}

} // namespace Torvo::test

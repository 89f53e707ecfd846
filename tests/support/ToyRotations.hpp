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

} // namespace Torvo::test

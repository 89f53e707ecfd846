#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/SecureWipe.hpp"

#include <Torvo/Context.hpp>

#include <utility>

namespace Torvo {

/// A polynomial for an error, an ephemeral secret, a product with the key before the error is added, or
/// anything else that reveals the key. Its words are wiped on destruction. It starts at its highest level;
/// operations may lower the level but must not raise it, since a reallocation would leave the old words in
/// freed memory.
class SecretPolynomial : public Polynomial {
public:
    /// With the rows of `level`, flagged as NTT form, on the CPU; live rows are unset.
    SecretPolynomial(const Context& context, bool modUp, u64 level)
        : Polynomial(context, modUp, true, level) {
        clearHoles();
    }
    SecretPolynomial(const SecretPolynomial&) = delete;
    SecretPolynomial& operator=(const SecretPolynomial&) = delete;
    ~SecretPolynomial() { utils::wipe(getData()); }

    /// Moves out the polynomial with its words, when it no longer is secret. This object is then empty.
    Polynomial release() { return std::move(static_cast<Polynomial&>(*this)); }
};

} // namespace Torvo

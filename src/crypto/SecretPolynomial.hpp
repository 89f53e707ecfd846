#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/SecureWipe.hpp"

#include <Torvo/Context.hpp>

#include <utility>

namespace Torvo {

/// A polynomial for an error, an ephemeral secret, a product with the key before its error joins it, or
/// anything else from which the key could be told: its words are wiped when it goes. It starts at its highest
/// level; operations may lower it, and must not raise it, since a reallocation would leave the old words
/// behind.
class SecretPolynomial : public Polynomial {
public:
    /// With the rows of `level`, flagged as NTT form, on the CPU; the live ones unset.
    SecretPolynomial(const Context& context, bool modUp, u64 level)
        : Polynomial(context, modUp, true, level) {
        clearHoles();
    }
    SecretPolynomial(const SecretPolynomial&) = delete;
    SecretPolynomial& operator=(const SecretPolynomial&) = delete;
    ~SecretPolynomial() { utils::wipe(getData()); }

    /// The polynomial itself, words and all, once it has become fit for others to see. What stays is empty.
    Polynomial release() { return std::move(static_cast<Polynomial&>(*this)); }
};

} // namespace Torvo

#pragma once

#include "arithmetic/Polynomial.hpp"
#include "core/SecureWipe.hpp"

#include <Torvo/Context.hpp>

#include <cstddef>

namespace Torvo {

/// A polynomial for an error, an ephemeral secret, or anything else from which the key could be told: its
/// words are wiped when it goes. It starts at its highest level; operations may lower it, and must not raise
/// it, since a reallocation would leave the old words behind.
class SecretPolynomial : public Polynomial {
public:
    /// With the live rows of `level`, flagged as NTT form, on the CPU, data unset.
    SecretPolynomial(const Context& context, bool modUp, u64 level) : Polynomial(context, modUp, true) {
        setLevel(level);
        byteCount_ = getData().sizeInBytes();
    }
    SecretPolynomial(const SecretPolynomial&) = delete;
    SecretPolynomial& operator=(const SecretPolynomial&) = delete;
    ~SecretPolynomial() { utils::wipe(getData().getData(), byteCount_); }

private:
    std::size_t byteCount_ = 0;
};

} // namespace Torvo

#pragma once

#include "arithmetic/PolynomialVector.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/MultipleDevice.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>

namespace Torvo {

/// Moves polynomials between RNS bases for key switching, in the hybrid manner: the live primes are cut into
/// groups, each group's digit is extended to all other primes (`modUp`), and after the product with a key the
/// result comes back to the ciphertext primes, divided by the product P of the temporary primes (`modDown`).
/// The conversion is the approximate one. Immutable, thread-safe.
class FastBaseConv {
public:
    explicit FastBaseConv(const Context& context);

    /// One mod-up polynomial in NTT form per live group.
    PolynomialVector modUp(const Polynomial& a) const;
    /// A ciphertext of the same level, not mod-up. `in` has two mod-up polynomials in NTT form.
    Ciphertext modDown(const Ciphertext& in, bool isNTT) const;

private:
    PolynomialVector modUpCPUImpl(const Polynomial& a) const;
    Ciphertext modDownCPUImpl(const Ciphertext& in, bool isNTT) const;

    Context context_;
    MultipleDevice<DeviceSpecificArray<u64>> hatInvQ_;
    MultipleDevice<DeviceSpecificArray2D<u64>> hatQ_;
    MultipleDevice<DeviceSpecificArray<u64>> hatInvP_;
    MultipleDevice<DeviceSpecificArray2D<u64>> hatP_;
    MultipleDevice<DeviceSpecificArray<u64>> invP_;
};

} // namespace Torvo

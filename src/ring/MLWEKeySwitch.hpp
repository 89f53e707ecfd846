#pragma once

#include "arithmetic/elements/Polynomial.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/ModPackKeyBundle.hpp>

#include <vector>

namespace Torvo {

/// The key switch from a large rank to a smaller one. With n keys and r the rank of `out`, `polys` holds b
/// and the n r components that multiply the old secrets, in coefficient form, at one level and on one device.
/// `out` becomes the ciphertext of the same phase, in coefficient form, at that level, under the secret of
/// the keys. The caller sets log slots, rescale counter and encoding of `out`. The caller must also have
/// checked that the contexts of `out` and of the keys share their primes up to the level and support the
/// device.
///
/// The ring of the keys has r times the degree of `out`; component i of a rank-r secret is s_i(X^r) X^i in
/// it.
template <EncryptionType E>
void mlweKeySwitch(const std::vector<Polynomial>& polys, const ModPackKeyBundle& keys,
                   CiphertextBase<E>& out);

} // namespace Torvo

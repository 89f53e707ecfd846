#pragma once

#include "arithmetic/elements/Polynomial.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/ModPackKeyBundle.hpp>

#include <vector>

namespace Torvo {

/// The key switch from a large rank to a smaller one. With n keys and r the rank of `out`, `polys` holds b
/// and the n r components that multiply the old secrets, out of NTT form, at one level and on one device;
/// `out` becomes the ciphertext of the same phase, out of NTT form, at that level, under the secret of the
/// keys. Log slots, rescale counter and encoding of `out` are left to the caller, and it has seen to it that
/// the contexts of `out` and of the keys share their primes up to the level and serve the device.
///
/// The ring of the keys has r times the degree of `out`; component i of a rank-r secret lies in it at
/// s_i(X^r) X^i.
template <EncryptionType E>
void mlweKeySwitch(const std::vector<Polynomial>& polys, const ModPackKeyBundle& keys,
                   CiphertextBase<E>& out);

} // namespace Torvo

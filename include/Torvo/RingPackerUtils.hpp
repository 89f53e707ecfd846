#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/LWESecretKey.hpp>
#include <Torvo/SecretKey.hpp>

namespace Torvo {

/// How many ciphertexts of `to` a ciphertext of `from` decomposes into: degree(from) / degree(to).
TORVO_API unsigned long getNumCiphertextsAfterFullDecompose(const Context& from, const Context& to);
/// How many ciphertexts of `from` fill one of `to`: degree(to) / degree(from).
TORVO_API unsigned long getNumCiphertextsToFullCompose(const Context& from, const Context& to);
TORVO_API unsigned long getNumCiphertextsToModPack(const Context& from, const Context& to);
/// How many plain LWE ciphertexts fill one of `to`: degree(to).
TORVO_API unsigned long getNumCiphertextsToModPack(const LWE::Context& from, const Context& to);
/// How many plain LWE ciphertexts `RingPacker::unPack` makes: degree(context).
TORVO_API unsigned long getNumCiphertextsAfterUnPack(const Context& context);

/// The plain LWE secret of the ciphertexts of `RingPacker::unPack`: the coefficients of `secretKey`.
/// @throws RuntimeException "Operands have different dimensions." when its degree is not the dimension of
///         `lwe_context`
TORVO_API LWE::SecretKey genLWESecretKeyAfterUnPack(const LWE::Context& lwe_context,
                                                    const SecretKey& secretKey);

} // namespace Torvo

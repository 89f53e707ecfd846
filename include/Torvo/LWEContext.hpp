#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/LWEParameterPreset.hpp>

#include <iosfwd>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Torvo {

namespace LWE {

class ContextContent;

/// A parameter set of plain LWE with its prime chain and scales: vectors of integers modulo a product of
/// primes, without ring structure. Immutable; any number of threads and objects share it.
///
/// Everything that takes a context refuses a null one with RuntimeException "The context is null. Make one
/// with makeContext."
using Context = std::shared_ptr<ContextContent>;

/// Makes the context of a preset.
/// @param cuda_device_ids  GPUs to serve; this build has none, so pass an empty set
/// @throws RuntimeException in this order: "Invalid CUDA device ID: " and the number; "Need to specify some
///         parameters in order to use CUSTOM parameters."; "The input parameter preset is not yet supported."
TORVO_API Context makeContext(const ParameterPreset& preset, const std::set<int>& cuda_device_ids = {});

/// Makes a context from numbers of your own; the primes are searched for. Such a chain shares primes with a
/// ring context only by chance: use a preset to exchange ciphertexts with a ring.
/// @param dimension     length of the secret and of the `a` vectors, at least 1
/// @param chain_length  number of primes, 1 to 50
/// @param log_bpsize    bits of the base prime: at least `log_qpsize`, at most 61. With equal sizes
///                      the base prime and the first of the others are the same prime, and numbers above
///                      level 0 are lost: make it larger
/// @param log_qpsize    bits of the other primes: 36 to 61
/// @throws RuntimeException in this order: "Invalid CUDA device ID: " and the number; "[Parameter] Invalid
///         chain_length"; "[Parameter] Invalid dimension: it should be at least 1"; "[PrimeModuli] Prime size
///         is too big. It should be < 62"; "[PrimeModuli] Base prime should be greater than quantize primes";
///         "[PrimeModuli] Quantize primes should be greater than or equal to 36 bit"
TORVO_API Context makeContext(unsigned long dimension, unsigned long chain_length, unsigned long log_bpsize,
                              unsigned long log_qpsize, const std::set<int>& cuda_device_ids = {});

/// Rebuilds a context from a file of `saveContextToFile`.
/// @throws as `Torvo::makeContextFromFile`
TORVO_API Context makeContextFromFile(const std::string& path, const std::set<int>& cuda_device_ids = {});
/// Writes the recipe of a context, 37 bytes, and replaces an existing file.
/// @throws as `Torvo::saveContextToFile`
TORVO_API void saveContextToFile(const Context& context, const std::string& path);
/// Rebuilds a context from a stream. Exactly the 37 bytes of the recipe are read.
/// @throws as `Torvo::makeContext` of a stream
TORVO_API Context makeContext(std::istream& stream, const std::set<int>& cuda_device_ids = {});
/// Writes the 37 bytes that `saveContextToFile` puts into a file.
/// @throws as `Torvo::saveContext`
TORVO_API void saveContext(const Context& context, std::ostream& stream);

/// log2 of the scale of data at each level, from level 0 to the top.
TORVO_API std::vector<double> getDefaultScaleFactorList(const Context& context);
/// The prime chain: base prime, then the others from the lowest level up.
TORVO_API std::vector<unsigned long> getPrimeList(const Context& context);
/// Level of a fresh encryption, the top.
TORVO_API unsigned long getEncryptionLevel(const Context& context);
/// Length of the secret.
TORVO_API unsigned long getDimension(const Context& context);
/// Claimed security in bits: 128, 192, 256, or 0 for none.
TORVO_API unsigned long getSecurityLevel(const Context& context);

} // namespace LWE

/// The highest level up to which two chains have the same primes, and so at which a ciphertext may pass from
/// one context to the other.
/// @throws RuntimeException "The given two contexts are not compatible at any level" when the base primes
///         differ
TORVO_API unsigned long getMaxCompatibleLevel(const Context& a, const Context& b);
TORVO_API unsigned long getMaxCompatibleLevel(const LWE::Context& a, const Context& b);

} // namespace Torvo

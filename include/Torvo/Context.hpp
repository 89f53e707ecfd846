#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/ParameterPreset.hpp>

#include <iosfwd>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Torvo {

class ContextContent;

/// A parameter set with all its tables: ring, prime chain, transforms, scales. Immutable once made; any
/// number of threads and objects share it, and the last holder frees the tables.
///
/// Everything that takes a context refuses a null one with RuntimeException "The context is null. Make one
/// with makeContext."
using Context = std::shared_ptr<ContextContent>;

/// Makes the context of a preset.
/// @param preset           any preset but `CUSTOM`
/// @param cuda_device_ids  GPUs to serve; this build has none, so pass an empty set. A negative
///                         number passes, and selects nothing
/// @throws RuntimeException in this order: "Invalid CUDA device ID: " and the number, for a GPU that is not
///         there; "The input parameter preset is not yet supported."; "Need to specify some parameters in
///         order to use CUSTOM parameters."
TORVO_API Context makeContext(const ParameterPreset& preset, const std::set<int>& cuda_device_ids = {});

/// Makes a context from numbers of your own (preset `CUSTOM`); the primes are searched for.
/// @param log_degree    log2 of the ring degree, 6 to 20
/// @param chain_length  number of ciphertext primes, 1 to 50: one base prime, and one more for each of the
///                      `chain_length - 1` multiplicative levels
/// @param log_bpsize    bits of the base prime: at least `log_qpsize`, at most 61
/// @param log_qpsize    bits of the other ciphertext primes, and so of the scale: 36 to 61
/// @param log_tpsize    bits of the temporary primes of key switching, at most 61. There are `chain_length /
///                      gadget_rank` of them, as many as a digit has primes. Together they must reach the
///                      size of the digit that holds the base prime
/// @param gadget_rank   number of digits in key switching; divides `chain_length`. Fewer digits mean faster
///                      key switching and smaller keys, but a larger total modulus, and so less security
/// @param rank          1
/// @param cuda_device_ids  as above
/// @throws RuntimeException in this order: "Invalid CUDA device ID: " and the number; "[Parameter] Invalid
///         log_degree", "[Parameter] Invalid chain_length", "[Parameter] gadget_rank should divide
///         chain_length", "[Parameter] custom parameter with rank > 1 is not supported.", "[PrimeModuli]
///         Prime size is too big. It should be < 62",
///         "[PrimeModuli] Base prime should be greater than quantize primes", "[PrimeModuli] Quantize primes
///         should be greater than or equal to 36 bit", "[PrimeModuli] log_tpsize should be greater than
///         log_qpsize + (log_bpsize - log_qpsize)/numTP"
TORVO_API Context makeContext(unsigned long log_degree, unsigned long chain_length, unsigned long log_bpsize,
                              unsigned long log_qpsize, unsigned long log_tpsize, unsigned long gadget_rank,
                              unsigned long rank, const std::set<int>& cuda_device_ids);

/// The same with rank 1.
TORVO_API Context makeContext(unsigned long log_degree, unsigned long chain_length, unsigned long log_bpsize,
                              unsigned long log_qpsize, unsigned long log_tpsize, unsigned long gadget_rank,
                              const std::set<int>& cuda_device_ids = {});

/// Rebuilds a context from a file of `saveContextToFile`. The file is a recipe and holds no primes: a custom
/// chain is searched for again, with the same result.
/// @throws RuntimeException "Cannot open file " and the path; "The file is longer than what is to be
///         loaded: " with the path and both lengths, for a file of another kind; then as `makeContext`, for
///         the parameters in the file
/// @throws cereal::Exception, a std::runtime_error, on a short file: "Failed to read <wanted> bytes from
///         input stream! Read <got>"
TORVO_API Context makeContextFromFile(const std::string& path, const std::set<int>& cuda_device_ids = {});

/// Writes the recipe of a context, 69 bytes, and replaces an existing file. GPU numbers are not stored.
/// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and the
///         reason; an existing file is then unchanged
/// @throws cereal::Exception, a std::runtime_error, on a full disk: "Failed to write <wanted> bytes to output
///         stream! Wrote <got>"
TORVO_API void saveContextToFile(const Context& context, const std::string& path);

/// Rebuilds a context from a stream, which may hold anything behind it: exactly the 69 bytes of the recipe
/// are read, and the next object may be read from where they end.
/// @throws RuntimeException "The stream has no buffer. Give one that is connected to a file or to memory.";
///         then as `makeContext`, for what the recipe says
/// @throws cereal::Exception, a std::runtime_error, on a short stream: "Failed to read <wanted> bytes from
///         input stream! Read <got>"
TORVO_API Context makeContext(std::istream& stream, const std::set<int>& cuda_device_ids = {});

/// Writes the 69 bytes that `saveContextToFile` puts into a file.
/// @throws RuntimeException "The stream has no buffer. Give one that is connected to a file or to memory."
/// @throws cereal::Exception, a std::runtime_error, where the stream takes no more: "Failed to write <wanted>
///         bytes to output stream! Wrote <got>"
TORVO_API void saveContext(const Context& context, std::ostream& stream);

/// Whether both contexts are of one parameter set: of the same preset, or both custom with the same numbers.
/// A context that was loaded from the file of another is the same as that one. `==` on `Context` compares
/// pointers. Contexts of different sets can still have one ring, see `isSameRing`.
/// @throws RuntimeException "The context is null. Make one with makeContext."
TORVO_API bool isSameContext(const Context& a, const Context& b);
/// Whether both contexts have one ring: the same degree, the same primes in the same order, the same split
/// into ciphertext and temporary primes, the same number of digits in key switching. Keys and ciphertexts of
/// rank 1 of the one then serve the other. Neither the preset nor the encryption level nor the rank is
/// compared.
/// @throws RuntimeException "The context is null. Make one with makeContext."
TORVO_API bool isSameRing(const Context& a, const Context& b);

/// log2 of the number of complex slots of a full message: log2 of the degree, less one.
TORVO_API unsigned long getLogFullSlots(const Context& context);
/// The ring degree N: polynomials live modulo X^N + 1.
TORVO_API unsigned long getDegree(const Context& context);
/// Number of ring elements of a secret key: 1 for RLWE.
TORVO_API unsigned long getRank(const Context& context);
/// Level of a fresh encryption: the number of successive multiplications that it allows.
TORVO_API unsigned long getEncryptionLevel(const Context& context);
/// Claimed security in bits: 128, 192, 256, or 0 for none.
TORVO_API unsigned long getSecurityLevel(const Context& context);
/// log2 of the scale of data at each level, from level 0 to the top.
TORVO_API std::vector<double> getDefaultScaleFactorList(const Context& context);
/// The whole prime chain: base prime, the other ciphertext primes from the lowest level up, temporary primes.
TORVO_API std::vector<unsigned long> getPrimeList(const Context& context);
/// Whether ciphertexts of this context can be bootstrapped.
TORVO_API bool isBootstrappableParameter(const Context& context);
/// Whether the high-precision form of bootstrapping is available.
TORVO_API bool isExtendedBootstrapSupported(const Context& context);
/// Whether bootstrapping can run under an encapsulated sparse secret.
TORVO_API bool isSparseSecretEncapsulationSupported(const Context& context);

} // namespace Torvo

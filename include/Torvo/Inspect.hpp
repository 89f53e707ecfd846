#pragma once

#include <Torvo/Export.hpp>

#include <optional>
#include <string>
#include <vector>

namespace Torvo {

// GCC before 13 takes these for declarations that shadow the classes of the same names.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
/// The kinds of objects that have files of their own.
enum class ObjectKind {
    Context,
    Message,
    Plaintext,
    Ciphertext,       ///< of `RLWE`
    ModuleCiphertext, ///< of `MLWE`; the files of both look alike
    CompactCiphertext,
    SecretKey,       ///< of `RLWE`
    ModuleSecretKey, ///< of `MLWE`
    EncryptionKey,
    EvaluationKey, ///< of any letter
    SparseSecretEncapsulationKey,
    RingSwitchKey,
    ModPackKeyBundle,
    KeyPack, ///< in one stream
    LWEContext,
    LWECiphertext,
    LWESecretKey,
    BootConstants, ///< of a `Bootstrapper`
    ChebyshevSeries,
    EncodedTransform,
    LinearTransform,
};
#pragma GCC diagnostic pop

/// The kind in lower-case words, such as "module ciphertext".
/// @throws RuntimeException "No such kind of object: " and the number
TORVO_API std::string toString(ObjectKind kind);

/// What a file holds if it is of this kind. What the format does not tell is not set.
struct FileContent {
    ObjectKind kind{};
    /// The stamp of the ring or of the plain LWE context, as `EvaluationKey::getContextHash` gives it. For an
    /// encapsulation key that of the main context.
    std::optional<unsigned long> contextHash = std::nullopt;
    /// The level as the file states it; of a context the encryption level.
    std::optional<unsigned long> level = std::nullopt;
    /// The degree of the ring, or the dimension of plain LWE.
    std::optional<unsigned long> degree = std::nullopt;
    std::optional<unsigned long> logSlots = std::nullopt;
    /// How many there are: slots of a message, ring elements of a ciphertext or of a secret key in full,
    /// digits of an evaluation, ring-switching or encapsulation key, keys of a bundle or a pack, ciphertext
    /// primes of a context, plaintexts of bootstrapping constants, coefficients of a series,
    /// rotations of an encoded transform, diagonals of a linear one.
    std::optional<unsigned long> count = std::nullopt;
    /// The letter of an evaluation key (docs/files.md) and its rotation index.
    std::optional<char> keyType = std::nullopt;
    std::optional<unsigned long> rotationIndex = std::nullopt;
    /// Of a secret key: whether the file holds the seed alone.
    std::optional<bool> isSeedOnly = std::nullopt;
};

/// What `inspect` finds.
struct FileReport {
    std::string path;
    /// Bytes of the file; 0 when it could not be looked at.
    unsigned long size = 0;
    /// Each kind that all numbers and the length of the file allow, in the order of `ObjectKind`: often one.
    /// Files of `Ciphertext` and `ModuleCiphertext` look alike, as do those of a ring switching key and an
    /// evaluation key of its letter, and of a packing key and a bundle of one. A file of one byte is a bundle
    /// of no keys.
    std::vector<FileContent> kinds;
    /// Why no kind is told; empty when one is.
    std::string refusal;
};

/// Tells what a file can be loaded as, without a context and without loading it. Only the numbers between the
/// data are read, one by one: no coefficient of a secret key, no slot, no seed. A file of any length costs
/// less than 64 KiB of memory, and some ten system calls for each ring element in it.
///
/// A load compares more: the hash, the primes and the degree with those of its context. The data are looked
/// at by nobody. For a custom context the primes are not searched for, so sizes that allow none are told all
/// the same.
///
/// Never waits: what is no regular file (a directory, a pipe, a device) is not opened. The report's `refusal`
/// is, in this order:
/// - "Cannot open file ", the path, ": " and the reason that the system gives;
/// - "[inspect] ", the path and " is no regular file; give the path of a file that was saved";
/// - "[inspect] ", the path and " is empty; give the path of a file that was saved";
/// - "[inspect] ", the path, " begins with byte ", its number and ", and what is saved with 0 or 1; give the
///   path of a file that was saved";
/// - "[inspect] ", the path and " changed while it was read; try again when nobody writes to it";
/// - "[inspect] ", the path, " is whole as no kind of object; as ", the kind that fits longest, " it fails at
///   byte ", an offset, ": " and one of "the file ends ", a number and " bytes too early for what begins
///   here", "the file goes on here, where it should end", "such a file has another length", "this number
///   cannot be", "the numbers up to here do not fit together", "too many ring elements to look at, more than
///   262144", or, of a context, what `makeContext` says of it.
/// @throws std::bad_alloc alone
TORVO_API FileReport inspect(const std::string& path);

} // namespace Torvo

#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Pointer.hpp>

#include <iosfwd>
#include <string>

namespace Torvo {

class CompactCiphertextImpl;

/// A fresh encryption under a secret key in little more than half the bytes: one ring element in full and,
/// for the other, which is uniform, the 1024 bytes that it grows from. To be kept or sent; `expand` gives
/// the ciphertext to compute with. `Encryptor::encryptCompact` makes it. It is as safe to show as the
/// ciphertext: the bytes that the element grows from are public, as the element is.
///
/// Copies copy the data and share the context. One thread may write, or many read and expand.
class TORVO_API CompactCiphertext {
public:
    /// Empty, to assign to or to load into.
    /// @throws RuntimeException "The context is null. Make one with makeContext."; "[Ciphertext] The
    ///         parameter does not support the encryption type of the creating ciphertext" for a rank above 1
    explicit CompactCiphertext(const Context& context);

    CompactCiphertext(const CompactCiphertext& other);
    CompactCiphertext(CompactCiphertext&& other) noexcept;
    CompactCiphertext& operator=(const CompactCiphertext& other);
    CompactCiphertext& operator=(CompactCiphertext&& other) noexcept;
    ~CompactCiphertext();

    const Context& getContext() const;
    /// Whether nothing was assigned or loaded yet.
    bool isEmpty() const;

    /// log2 of the number of slots in use; all slots when empty.
    unsigned long getLogSlots() const;
    /// Number of rescales that the data can still take; 0 when empty.
    unsigned long getLevel() const;
    /// Number of rescales still owed.
    int getRescaleCounter() const;

    /// The ciphertext: on slots, in NTT form, with this level, log slots and rescale counter. It is the same
    /// at every call, word for word, with any number of threads.
    /// @throws RuntimeException "[CompactCiphertext] It is empty, so there is nothing to expand or save;
    ///         assign what Encryptor::encryptCompact returns, or load a file first"
    Ciphertext expand() const;

    /// Format: docs/files.md.
    /// @throws RuntimeException as `expand`, when empty; "Cannot open file " and the path; "Cannot finish
    ///         writing file ", the path and the reason. The file that stood there still stands then
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    /// @throws RuntimeException as `save` for an empty object
    unsigned long savedSize() const;
    /// Takes what a context of the same ring has saved: degree, primes and number of ciphertext primes. A
    /// failed load leaves the object as it was.
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects." when the file is of another ring or another kind; the archive's
    ///         exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

private:
    friend class Encryptor;
    /// Takes ownership.
    explicit CompactCiphertext(CompactCiphertextImpl* impl);

    Pointer<CompactCiphertextImpl> impl_;
};

} // namespace Torvo

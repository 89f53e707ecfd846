#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EncryptionType.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Pointer.hpp>

#include <iosfwd>
#include <string>

namespace Torvo {

template <EncryptionType E>
class SecretKeyImpl;
class Polynomial;

/// A secret key: `rank` ternary ring elements, with a fixed total number of non-zero coefficients. Copies
/// copy the key; the memory of every copy is wiped when it is destroyed. Files of a key are not encrypted:
/// keep them where no one else reads. A key may be read by many threads.
template <EncryptionType E>
class SecretKeyBase {
public:
    /// A new random key, from the calling thread's generator, which takes a fresh seed from the operating
    /// system immediately before and after. The files of the key hold the generator's state, and because of
    /// the fresh seeds reveal nothing about other keys and encryptions of the thread. After `setSeed` this
    /// does not hold.
    /// @throws RuntimeException "[Secret Key] The number of RLWE secret key must be equal to one."; "Cannot
    ///         seed the random generator: " and the source that failed
    explicit SecretKeyBase(const Context& context);
    /// A key from `rank * degree` coefficients, each -1, 0 or 1 (unchecked).
    /// @throws RuntimeException as above
    SecretKeyBase(const Context& context, const int* const& coefficients);
    /// A key from a file of `save` or of `saveSeedOnly`.
    /// @throws RuntimeException "Cannot open file " and the path;
    ///         "[load SecretKey] Invalid serialize option";
    ///         "[load SecretKey] The serialized secret key is not for RLWE encryption." (or MLWE);
    ///         "[Verifier::load] Validation failed during deserializing objects."; the archive's exception on
    ///         a short read
    SecretKeyBase(const Context& context, const std::string& path);
    SecretKeyBase(const Context& context, std::istream& stream);

    SecretKeyBase(const SecretKeyBase& other);
    SecretKeyBase(SecretKeyBase&& other) noexcept;
    SecretKeyBase& operator=(const SecretKeyBase& other);
    SecretKeyBase& operator=(SecretKeyBase&& other) noexcept;
    ~SecretKeyBase();

    const Context& getContext() const;

    /// Element `index` of the key, mod-up, in NTT form, over the whole prime chain.
    /// @throws std::out_of_range past the end
    Polynomial& getSx(unsigned long index = 0);
    const Polynomial& getSx(unsigned long index = 0) const;
    /// The `rank * degree` coefficients.
    const int* getCoefficients() const;

    Device getDevice() const;
    /// Moves the ring elements; the coefficients stay on the CPU.
    /// @throws RuntimeException as allocation on a device without backend does
    void to(const Device& device);

    /// Writes the whole key, with the generator state from which it was sampled. The file has mode 0600 from
    /// its creation, whatever file it replaces.
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// Writes only the generator state from which the key was sampled, 71 bytes in all. The file carries no
    /// mark of the context: a context of another degree or weight regenerates a different key from it. After
    /// `setSeed` the state also gives what the thread drew later: other keys, and the masks of encryptions.
    /// The file's mode is 0600 too.
    /// @throws RuntimeException "The secret key is not randomly generated" for a key given by coefficients;
    ///         then as `save`
    void saveSeedOnly(const std::string& path) const;
    void saveSeedOnly(std::ostream& stream) const;

private:
    Pointer<SecretKeyImpl<E>> impl_;
};

extern template class TORVO_API SecretKeyBase<EncryptionType::RLWE>;
extern template class TORVO_API SecretKeyBase<EncryptionType::MLWE>;

/// A secret key of rank 1.
using SecretKey = SecretKeyBase<EncryptionType::RLWE>;

} // namespace Torvo

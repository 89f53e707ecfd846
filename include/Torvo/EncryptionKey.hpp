#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/SecretKey.hpp>

#include <iosfwd>
#include <memory>
#include <string>

namespace Torvo {

class EncryptionKeyImpl;
class Polynomial;

/// A public encryption key: a pair (ax, bx) with bx + ax * s = e, a small error. Serves encryption up to the
/// encryption level. Made by `KeyGenerator`, kept by `KeyPack`.
class TORVO_API EncryptionKey {
public:
    /// A key of the shape of `context`, all zeros, to load into.
    explicit EncryptionKey(const Context& context);
    /// A new key for `secretKey`, drawn from the calling thread's generator.
    /// @throws RuntimeException "the secret key is of another ring: ", the key's, ", but the context of the
    ///         encryption key is ", the context's, "; make the encryption key with the context of the secret
    ///         key"
    EncryptionKey(const Context& context, const SecretKey& secretKey);
    /// For the library itself.
    explicit EncryptionKey(std::unique_ptr<EncryptionKeyImpl> impl);

    EncryptionKey(EncryptionKey&& other) noexcept;
    EncryptionKey& operator=(EncryptionKey&& other) noexcept;
    ~EncryptionKey();

    /// The uniform part.
    Polynomial& getAx();
    const Polynomial& getAx() const;
    /// The part that hides the secret: e - ax * s.
    Polynomial& getBx();
    const Polynomial& getBx() const;
    /// The stamp of the ring that the key belongs to.
    unsigned long getContextHash() const;

    /// @throws RuntimeException "Polynomials in a ciphertext are in different devices"
    Device getDevice() const;
    /// Moves both parts to `device`.
    /// @throws RuntimeException as allocation on a device without backend does
    void to(const Device& device);
    /// Gives both parts storage on `device`, all zeros. Does nothing when they are already there.
    void allocate(const Device& device);

    /// Format: docs/files.md; the uniform part is stored as its seed.
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects."; the archive's exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

    EncryptionKeyImpl& impl() { return *impl_; }
    const EncryptionKeyImpl& impl() const { return *impl_; }

private:
    std::unique_ptr<EncryptionKeyImpl> impl_;
};

TORVO_API void save(const EncryptionKey& key, std::ostream& stream);
TORVO_API void load(EncryptionKey& key, std::istream& stream);

} // namespace Torvo

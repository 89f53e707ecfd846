#pragma once

#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/Pointer.hpp>

#include <iosfwd>
#include <string>

namespace Torvo {
class LevelledVector;
}

namespace Torvo::LWE {

class SecretKeyImpl;

/// A secret vector of `dimension` entries in {-1, 0, 1}. Copies copy the key; the memory of every copy is
/// wiped when it is destroyed. Files of a key are not encrypted. A key may be read by many threads.
class TORVO_API SecretKey {
public:
    /// A new random key, from the calling thread's generator: `lround(2 * dimension / 3)` entries are not 0.
    /// The generator takes a fresh seed from the operating system immediately before and after. The files of
    /// the key hold the generator's state, and because of the fresh seeds reveal nothing about other keys and
    /// encryptions of the thread. After `setSeed` this does not hold.
    /// @throws RuntimeException "Cannot seed the random generator: " and the source that failed
    explicit SecretKey(const Context& context);
    /// A key from `dimension` coefficients, each -1, 0 or 1 (unchecked).
    SecretKey(const Context& context, const int* const& coefficients);
    /// A key from a file of `save` or of `saveSeedOnly`.
    /// @throws RuntimeException "Cannot open file " and the path; "[load SecretKey] Invalid serialize
    ///         option"; "[Verifier::load] Validation failed during deserializing objects."; the archive's
    ///         exception on a short read
    SecretKey(const Context& context, const std::string& path);
    SecretKey(const Context& context, std::istream& stream);

    SecretKey(const SecretKey& other);
    SecretKey(SecretKey&& other) noexcept;
    SecretKey& operator=(const SecretKey& other);
    SecretKey& operator=(SecretKey&& other) noexcept;
    ~SecretKey();

    const Context& getContext() const;
    /// The `dimension` coefficients.
    const int* getCoefficients() const;
    /// The coefficients modulo each prime of the chain.
    LevelledVector& getSx();
    const LevelledVector& getSx() const;

    /// Where the residues are.
    Device getDevice() const;
    /// Moves the residues; the coefficients stay on the CPU.
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
    /// Writes only the generator state from which the key was sampled. The file carries no mark of the
    /// context: a context of another dimension regenerates a different key from it. After `setSeed` the state
    /// also gives what the thread drew later: other keys, and the masks of encryptions. The file's mode is
    /// 0600 too.
    /// @throws RuntimeException "The secret key is not randomly generated" for a key given by coefficients;
    ///         then as `save`
    void saveSeedOnly(const std::string& path) const;
    void saveSeedOnly(std::ostream& stream) const;

private:
    Pointer<SecretKeyImpl> impl_;
};

} // namespace Torvo::LWE

#pragma once

#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/Pointer.hpp>

#include <iosfwd>
#include <string>

namespace Torvo {
class LevelledElement;
class LevelledVector;
} // namespace Torvo

namespace Torvo::LWE {

class CiphertextImpl;

/// One encrypted real number: a vector `a` and an integer `b`, both modulo the primes of the level, with
/// b + <a, s> = m up to noise. Copies copy the data and share the context. One thread may write, or many
/// read.
class TORVO_API Ciphertext {
public:
    /// At the top level, rescale counter 0, all zeros.
    explicit Ciphertext(const Context& context);

    Ciphertext(const Ciphertext& other);
    Ciphertext(Ciphertext&& other) noexcept;
    Ciphertext& operator=(const Ciphertext& other);
    Ciphertext& operator=(Ciphertext&& other) noexcept;
    ~Ciphertext();

    const Context& getContext() const;
    /// `level + 1` rows of `dimension` words.
    LevelledVector& getAx();
    const LevelledVector& getAx() const;
    /// `level + 1` words.
    LevelledElement& getBx();
    const LevelledElement& getBx() const;

    /// Index of the highest live prime.
    unsigned long getLevel() const;
    /// Changes the level of both parts and keeps the leading rows; new rows are zeros. Checks neither the
    /// rescale counter nor the chain.
    /// @throws std::bad_alloc for more rows than there is memory for
    void setLevel(unsigned long level);
    /// Number of rescales still owed.
    int getRescaleCounter() const;
    /// @throws RuntimeException "Rescale counter should be less than or equal to the level", then
    ///         "Rescale counter should be greater than or equal to zero"; the old value stays
    void setRescaleCounter(int rescale_counter);

    /// Where both parts are.
    Device getDevice() const;
    /// Moves both parts.
    /// @throws RuntimeException as allocation on a device without backend does
    void to(const Device& device);

    /// Format: docs/files.md.
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects." when the file is of another context or another kind; the archive's
    ///         exception on a short read. A failed load leaves the object fit for destruction only.
    void load(const std::string& path);
    void load(std::istream& stream);

private:
    Pointer<CiphertextImpl> impl_;
};

} // namespace Torvo::LWE

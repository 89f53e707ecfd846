#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Pointer.hpp>

#include <iosfwd>
#include <string>

namespace Torvo {

class PlaintextImpl;
class Polynomial;

/// A vector of complex slots, encoded: one ring element at a level, with the rescales it still owes.
/// Copies copy the data and share the context. One thread may write, or many read.
class TORVO_API Plaintext {
public:
    /// All slots, rescale counter 0, at the top level: zero.
    explicit Plaintext(const Context& context);
    /// All slots, rescale counter 0, with this polynomial. For the library itself.
    Plaintext(const Context& context, Polynomial&& polynomial);

    Plaintext(const Plaintext& other);
    Plaintext(Plaintext&& other) noexcept;
    Plaintext& operator=(const Plaintext& other);
    Plaintext& operator=(Plaintext&& other) noexcept;
    ~Plaintext();

    const Context& getContext() const;

    /// log2 of the number of slots in use.
    unsigned long getLogSlots() const;
    /// Stores `log_slots` unchecked.
    void setLogSlots(unsigned long log_slots);
    /// @throws RuntimeException "The number of slots of log slots <log_slots> does not fit a word; set log
    ///         slots below 64"
    unsigned long getNumberOfSlots() const;

    /// Index of the highest live prime: the number of rescales the data can still take.
    unsigned long getLevel() const;
    /// Changes the level and keeps the leading rows; new rows are zeros. The level is not checked against the
    /// chain: operations refuse a level that the chain does not have.
    /// @throws std::bad_alloc for more rows than there is memory for; the plaintext is unchanged
    void setLevel(unsigned long level);

    /// Number of rescales still owed.
    int getRescaleCounter() const;
    /// @throws RuntimeException "Rescale counter should be less than or equal to the level", then
    ///         "Rescale counter should be greater than or equal to zero"
    void setRescaleCounter(int rescale_counter);

    /// The polynomial itself.
    Polynomial& getMx();
    const Polynomial& getMx() const;
    /// Row `i` of the polynomial, unchecked: degree words below prime `i`.
    unsigned long* getMxData(unsigned long i);
    const unsigned long* getMxData(unsigned long i) const;

    Device getDevice() const;
    /// Moves the polynomial to `device`.
    /// @throws RuntimeException as allocation on a device without backend does
    void to(const Device& device);
    /// Gives the polynomial storage on `device`, all zeros. Does nothing when it is already there.
    void allocate(const Device& device);

    /// Whether all words of all live rows are zero.
    bool isZero() const;

    /// Format: docs/files.md.
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// Accepts what any context of the same primes and degree has saved. Level and log slots are accepted as
    /// they are, even values outside the context; operations refuse those.
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects." when the file is of another ring or another kind; the archive's
    ///         exception on a short read. A failed load leaves the object fit for destruction only.
    void load(const std::string& path);
    void load(std::istream& stream);

private:
    Pointer<PlaintextImpl> impl_;
};

} // namespace Torvo

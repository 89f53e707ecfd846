#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EncodingType.hpp>
#include <Torvo/EncryptionType.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Pointer.hpp>

#include <iosfwd>
#include <string>

namespace Torvo {

template <EncryptionType E>
class CiphertextImpl;
class Polynomial;
class PolynomialVector;

/// An encrypted vector of numbers: two or more ring elements, together with level, owed rescales, slots and
/// encoding. Element 0 is the "b" part; element i multiplies the i-th power of the secret (RLWE) or its i-th
/// component (MLWE).
///
/// All elements share level, mod-up state, NTT state and device. If they differ, a getter of the property
/// throws RuntimeException "Polynomials have different levels", "Polynomials have different modUp states",
/// "Polynomials have different NTT states" or "Polynomials are in different devices".
/// Copies copy the data and share the context. One thread may write, or many read.
template <EncryptionType E>
class CiphertextBase {
public:
    /// `rank + 1` ring elements at the top level, in NTT form, all zero; all slots, rescale counter 0.
    /// @param isModUp  whether the elements carry rows of the temporary primes too (key switching only)
    /// @throws RuntimeException "[Ciphertext] The parameter does not support the encryption type of the
    ///         creating ciphertext" when E is RLWE and the rank is not 1, or the other way round
    explicit CiphertextBase(const Context& context, bool isModUp = false);
    /// All slots, rescale counter 0, with these ring elements and their context. For the library itself.
    explicit CiphertextBase(PolynomialVector&& polys);

    /// The residues of `other`, word for word, under another context. The primes of both must be the same up
    /// to the level of `other`; the caller must ensure that, since nothing compares them.
    /// @throws RuntimeException "The level of input ciphertext does not fit in current context", also for a
    ///         ring of another degree
    CiphertextBase(const Context& context, const CiphertextBase& other);

    CiphertextBase(const CiphertextBase& other);
    CiphertextBase(CiphertextBase&& other) noexcept;
    CiphertextBase& operator=(const CiphertextBase& other);
    CiphertextBase& operator=(CiphertextBase&& other) noexcept;
    ~CiphertextBase();

    const Context& getContext() const;
    ParameterPreset getParameterPreset() const;

    /// Number of ring elements; `getSize` is the same.
    unsigned long getNumPoly() const;
    unsigned long getSize() const;
    /// Growth appends copies of element 0 with its data; shrinking drops the last elements.
    /// @throws RuntimeException "The size of a ciphertext should be greater than 1" for `n` below 2
    /// @throws std::length_error, std::bad_alloc for more elements than there is memory for
    void setNumPoly(unsigned long n);
    void setSize(unsigned long n);

    /// log2 of the number of slots in use.
    unsigned long getLogSlots() const;
    /// Stores `log_slots` unchecked.
    void setLogSlots(unsigned long log_slots);
    /// @throws RuntimeException "The number of slots of log slots <log_slots> does not fit a word; set log
    ///         slots below 64"
    unsigned long getNumberOfSlots() const;

    /// Index of the highest live prime: the number of rescales the data can still take.
    unsigned long getLevel() const;
    /// Changes the level of every element and keeps the leading rows; new rows are zeros. Checks neither the
    /// rescale counter nor the chain: operations refuse a level that the chain does not have.
    /// @throws std::bad_alloc for more rows than there is memory for; assign to the ciphertext before further
    ///         use
    void setLevel(unsigned long level);

    /// Number of rescales still owed.
    int getRescaleCounter() const;
    /// @throws RuntimeException "Rescale counter should be less than or equal to the level", then
    ///         "Rescale counter should be greater than or equal to zero"; the old value stays
    void setRescaleCounter(int rescale_counter);

    EncodingType getEncodingType() const;
    void setEncodingType(EncodingType encoding_type);

    /// The prime that the next rescale divides by.
    /// @throws std::out_of_range at a level that the chain does not have
    unsigned long getCurrentPrime() const;
    /// log2 of the scale of data at this level with nothing owed.
    /// @throws std::out_of_range at a level that the chain does not have
    double getCurrentScaleFactor() const;

    bool isModUp() const;
    bool isNTT() const;

    /// Ring element `index`.
    /// @throws std::out_of_range past the end
    Polynomial& getPoly(unsigned long index);
    const Polynomial& getPoly(unsigned long index) const;
    /// All ring elements.
    PolynomialVector& getPolys();
    const PolynomialVector& getPolys() const;
    /// Row `primeIndex` of element `polyIndex`: degree words below that prime. The row is not checked.
    /// @throws std::out_of_range for an element past the end
    unsigned long* getPolyData(unsigned long polyIndex, unsigned long primeIndex);
    const unsigned long* getPolyData(unsigned long polyIndex, unsigned long primeIndex) const;

    Device getDevice() const;
    /// Moves all ring elements to `device`.
    /// @throws RuntimeException as allocation on a device without backend does
    void to(const Device& device);
    /// Gives the ring elements storage on `device`, all zeros. Does nothing when they are already there.
    void allocate(const Device& device);

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
    Pointer<CiphertextImpl<E>> impl_;
};

extern template class TORVO_API CiphertextBase<EncryptionType::RLWE>;
extern template class TORVO_API CiphertextBase<EncryptionType::MLWE>;

/// A ciphertext of rank 1, the form on which all evaluation is defined.
using Ciphertext = CiphertextBase<EncryptionType::RLWE>;

} // namespace Torvo

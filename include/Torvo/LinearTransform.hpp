#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Pointer.hpp>

#include <complex>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace Torvo {

class LinearTransformImpl;

/// What a linear transform may cost.
struct TransformOptions {
    /// Rotation keys that it may need at most. Fewer keys mean more work: the fewest are about twice the square root
    /// of the number of rotations.
    unsigned long maxKeys = ~0UL;
};

/// A linear map of slots: out[i] is the sum over j of M[i][j] in[j], for a square matrix M of complex numbers whose
/// size n is a power of two. It knows no context, so it serves every ring, number of slots and level. To apply it to
/// ciphertexts, give it to a function (`applyTransform`), or encode it for one level (`EncodedTransform`).
///
/// On more than n slots the map is that of each block of n: slot b n + i of the output is made of the slots
/// b n, ..., b n + n - 1 of the input. So a batch of vectors, one after the other, is mapped at once.
///
/// The cost is decided by the diagonals that are not zero: diagonal d holds the entries M[i][(i + d) mod n]. Each
/// takes a rotation; on more than n slots it takes two, to the left by d and to the right by n - d, unless its
/// entries lie on one side alone.
///
/// Copies copy the data. One thread may write, or many read.
class TORVO_API LinearTransform {
public:
    /// The zero map of one slot: for a later load.
    LinearTransform();
    /// The map of a matrix, given row by row. A matrix that is not square, or whose size is no power of two, is
    /// padded with zeros.
    /// @throws RuntimeException with a text that begins with "[LinearTransform] ", in this order: for a matrix
    ///         without rows or entries; rows of different lengths; more than 524288 rows or columns; an entry that is
    ///         infinite or NaN, with its row and column
    static LinearTransform fromMatrix(const std::vector<std::vector<std::complex<double>>>& rows);
    /// The map of a matrix of `size` rows and columns whose diagonals are zero but for those given: number i of
    /// diagonal d is M[i][(i + d) mod size].
    /// @throws RuntimeException with a text that begins with "[LinearTransform] ", in this order: for a size that is
    ///         no power of two or above 524288; an index that is not below the size; a diagonal that has not `size`
    ///         numbers; a number that is infinite or NaN
    static LinearTransform
    fromDiagonals(unsigned long size,
                  const std::map<unsigned long, std::vector<std::complex<double>>>& diagonals);
    /// The map with out[i] = in[sources[i]].
    /// @throws RuntimeException with a text that begins with "[LinearTransform] ", in this order: for a count that is
    ///         no power of two or above 524288; a source that is not below the count; one that is there twice
    static LinearTransform fromPermutation(const std::vector<unsigned long>& sources);

    LinearTransform(const LinearTransform& other);
    LinearTransform(LinearTransform&& other) noexcept;
    LinearTransform& operator=(const LinearTransform& other);
    LinearTransform& operator=(LinearTransform&& other) noexcept;
    ~LinearTransform();

    /// Rows and columns of the matrix.
    unsigned long getSize() const;
    /// The diagonals that are not zero, in ascending order; diagonal 0 where all are.
    std::vector<unsigned long> getDiagonalIndices() const;

    /// The indices of the left rotation keys that `EncodedTransform` of the same arguments will need, in ascending
    /// order (`KeyGenerator::genLeftRotKey`). They do not depend on the numbers of the diagonals.
    /// @throws RuntimeException as the constructor of `EncodedTransform`, except for numbers out of range
    std::vector<unsigned long> getRotationIndices(const Context& context, unsigned long log_slots,
                                                  unsigned long level,
                                                  const TransformOptions& options = {}) const;

    /// The same map of a message, in double precision. `out` may be `in`.
    /// @throws RuntimeException "[LinearTransform] a message of 6 slots is given, but the transform maps blocks of 4;
    ///         give a multiple of 4 slots", with the numbers at hand
    void apply(const Message& in, Message& out) const;

    /// Writes the diagonals (format: docs/files.md), as secret as the matrix is.
    /// @throws RuntimeException as `Message::save`
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes.
    unsigned long savedSize() const;
    /// Replaces the transform by the saved one. Where the load fails, nothing has changed.
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects." for a file of another kind, and for diagonals that no transform has; the
    ///         archive's exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

private:
    friend class CachedTransform;
    friend class EncodedTransform;
    /// Takes ownership.
    explicit LinearTransform(LinearTransformImpl* impl);

    Pointer<LinearTransformImpl> impl_;
};

} // namespace Torvo

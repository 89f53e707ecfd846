#pragma once

#include "arithmetic/elements/PolyGerm.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>

#include <functional>
#include <optional>
#include <vector>

namespace Torvo {

struct Ring;

/// One ring element in RNS form. Row i always belongs to prime i of the chain; rows have `degree` words and
/// are stored one after the other in one array. At level l rows 0 to l are live.
///
/// In the mod-up state the array has numRows = numBase + numTemp rows. Rows 0 to level and those from numBase
/// on are live; the rows between are holes, which nothing reads. Otherwise numRows = numBase, and the array
/// has exactly (level + 1) * degree words. At rest words are in range 1.
///
/// The container stores the flags and checks nothing. Not synchronised.
class Polynomial {
public:
    using HeaderCheck = std::function<bool(const Polynomial&)>;

    /// Without shape, to load into or to assign to.
    Polynomial() = default;
    /// At the top level on the CPU, data unset.
    Polynomial(const Context& context, bool modUp, bool isNTT);
    /// The same at `level`, with storage only for the rows that the level needs.
    Polynomial(const Context& context, bool modUp, bool isNTT, u64 level);

    u64 getDegree() const { return degree_; }
    u64 getNumBase() const { return numBase_; }
    u64 getNumRows() const { return numRows_; }
    u64 getLevel() const { return level_; }
    bool isModUp() const { return modUp_; }
    bool isNTT() const { return isNTT_; }
    void setNTT(bool isNTT) { isNTT_ = isNTT; }
    const std::vector<u64>& getPrimes() const { return primes_; }

    /// Stores the level and, unless mod-up, resizes the data to (level + 1) * degree words. Rows that become
    /// live are zeros. The level is not checked against the chain: operations do that. If memory is
    /// exhausted, nothing has changed.
    void setLevel(u64 level);
    /// Sets all rows to zero.
    void clear() { data_.clear(); }
    /// Sets the holes of a mod-up polynomial to zero.
    void clearHoles() { clearHolesUpTo(numBase_ - 1); }

    /// Whether row i holds data: i <= level, or a temporary row of a mod-up polynomial.
    bool isLiveRow(u64 i) const { return i <= level_ || (modUp_ && i >= numBase_); }
    /// One past the last row that operations read: numRows if mod-up, else level + 1.
    u64 rowEnd() const { return modUp_ ? numRows_ : level_ + 1; }

    u64* getRow(u64 i) { return data_.getData() + i * degree_; }
    const u64* getRow(u64 i) const { return data_.getData() + i * degree_; }

    DeviceSpecificArray<u64>& getData() { return data_; }
    const DeviceSpecificArray<u64>& getData() const { return data_; }
    /// Swaps the argument with the data, unless they are the same object.
    void setData(DeviceSpecificArray<u64>&& data);

    const std::optional<PolyGerm>& getGerm() const { return germ_; }
    void setGerm(const PolyGerm& germ) { germ_ = germ; }
    /// To be called when the polynomial is no longer the one that its germ describes.
    void disableGerm() { germ_.reset(); }

    const Device& getDevice() const { return data_.getDevice(); }
    void to(const Device& device);
    /// Gives the data storage of the same size on `device`, all zeros. Does nothing when it is already there.
    void allocate(const Device& device);

    /// A polynomial of the same shape as this one (level, flags, size, device), data unset, without germ.
    Polynomial sameShape() const;

    /// Whether any ring can have these primes.
    bool hasPossiblePrimes() const;
    /// Whether the degree is that of `ring` and row i belongs to its prime i, in the mod-up state with all
    /// primes.
    bool hasPrimesOf(const Ring& ring) const;
    /// The same, and the number of ciphertext primes must be equal too.
    bool hasShapeOf(const Ring& ring) const;
    /// Whether both have the same shape, primes, level and flags.
    bool isLike(const Polynomial& other) const;
    /// Makes the polynomial one of `ring`. Its rows must belong to the primes of `ring` and none may be a
    /// hole, but its own ring may split the primes otherwise into ciphertext and temporary ones. The germ is
    /// dropped, since it describes the old number of rows.
    void adopt(const Ring& ring);

    /// Header, primes and data (docs/files.md).
    void save(OutputArchive& archive) const;
    /// The same with the germ, if there is one, instead of the data: for the uniform part of a key.
    void saveByGerm(OutputArchive& archive) const;

    /// Accepts any shape that a context could have. A germ is refused, here and in the next two.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."
    void load(InputArchive& archive);
    /// Accepts a polynomial of the degree and the primes of `ring`; its level is that of its rows. One that
    /// is not mod-up is adopted by `ring`. A mod-up polynomial stays with the ring that it came from, since
    /// its rows are multiples of the product of that ring's temporary primes.
    void load(InputArchive& archive, const Ring& ring);
    /// Accepts only a header for which `isExpected` returns true; it is called before the data are read.
    void load(InputArchive& archive, const HeaderCheck& isExpected);
    /// The same, but a germ may replace the data. They are unset until `regrow`, so that a germ costs no
    /// memory before the caller has checked the rest.
    void loadByGerm(InputArchive& archive, const HeaderCheck& isExpected);
    /// Regenerates the data from the germ, if there is one.
    void regrow();

private:
    template <class Archive, class Self>
    static void headerFields(Archive& archive, Self& self);
    void saveHeader(OutputArchive& archive, bool withoutGerm) const;
    /// Whether a germ follows.
    bool loadHeader(InputArchive& archive, const HeaderCheck& isExpected);
    void loadData(InputArchive& archive);
    void clearHolesUpTo(u64 level);

    u64 degree_ = 0;
    u64 numBase_ = 0;
    u64 numRows_ = 0;
    u64 level_ = 0;
    bool modUp_ = false;
    bool isNTT_ = false;
    std::vector<u64> primes_;
    std::optional<PolyGerm> germ_;
    DeviceSpecificArray<u64> data_;
};

/// An unchecked view of a polynomial's rows; owns nothing.
class PolynomialView {
public:
    explicit PolynomialView(const Polynomial& polynomial)
        : data_(polynomial.getData().getData()), degree_(polynomial.getDegree()) {}
    const u64* getRow(u64 i) const { return data_ + i * degree_; }

private:
    const u64* data_;
    u64 degree_;
};

/// Iterates over a sequence of objects that contain a polynomial (`Polynomial`, `Plaintext`, `Ciphertext`);
/// `Getter` maps an element to its `const Polynomial&`.
template <class Iterator, class Getter>
class PolyIter {
public:
    PolyIter(Iterator it, Getter getter) : it_(it), getter_(getter) {}

    const Polynomial& operator*() const { return getter_(*it_); }
    /// Row `i` of the current element.
    const u64* getRow(u64 i) const { return getter_(*it_).getRow(i); }
    PolyIter& operator++() {
        ++it_;
        return *this;
    }
    friend bool operator==(const PolyIter& a, const PolyIter& b) { return a.it_ == b.it_; }

private:
    Iterator it_;
    Getter getter_;
};

} // namespace Torvo

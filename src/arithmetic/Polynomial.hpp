#pragma once

#include "arithmetic/PolyGerm.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>

#include <optional>
#include <vector>

namespace Torvo {

struct Ring;

/// One ring element in RNS form. Row i belongs to prime i of the chain, always; rows have `degree` words and
/// lie one after the other in one array. At level l rows 0 to l are live.
///
/// In the mod-up state the array has numRows = numBase + numTemp rows, live are 0 to level and those from
/// numBase on; the rows between are holes, which nothing reads. Otherwise numRows = numBase, and the array
/// has exactly (level + 1) * degree words. At rest words are in range 1.
///
/// The flags are book-keeping: the container checks nothing. Not synchronised.
class Polynomial {
public:
    /// Shapeless, to load into or to assign to.
    Polynomial() = default;
    /// At the top level on the CPU, data unset.
    Polynomial(const Context& context, bool modUp, bool isNTT);
    /// The same at `level`, with storage for no more rows than that asks for.
    Polynomial(const Context& context, bool modUp, bool isNTT, u64 level);

    u64 getDegree() const { return degree_; }
    u64 getNumBase() const { return numBase_; }
    u64 getNumRows() const { return numRows_; }
    u64 getLevel() const { return level_; }
    bool isModUp() const { return modUp_; }
    bool isNTT() const { return isNTT_; }
    void setNTT(bool isNTT) { isNTT_ = isNTT; }
    const std::vector<u64>& getPrimes() const { return primes_; }

    /// Stores the level and, unless mod-up, resizes the data to (level + 1) * degree words. The level is not
    /// held against the chain: operations do that. Where there is no memory, nothing has changed.
    void setLevel(u64 level);

    /// Whether row i holds data: i <= level, or a temporary row of a mod-up polynomial.
    bool isLiveRow(u64 i) const { return i <= level_ || (modUp_ && i >= numBase_); }
    /// One past the last row that operations look at: numRows if mod-up, else level + 1.
    u64 rowEnd() const { return modUp_ ? numRows_ : level_ + 1; }

    u64* getRow(u64 i) { return data_.getData() + i * degree_; }
    const u64* getRow(u64 i) const { return data_.getData() + i * degree_; }

    DeviceSpecificArray<u64>& getData() { return data_; }
    const DeviceSpecificArray<u64>& getData() const { return data_; }
    /// Whether degree, split into base and temporary primes and the prime of each row are those of `ring`.
    bool hasShapeOf(const Ring& ring) const;
    /// Swaps the argument with the data, unless they are the same object.
    void setData(DeviceSpecificArray<u64>&& data);

    const std::optional<PolyGerm>& getGerm() const { return germ_; }
    void setGerm(const PolyGerm& germ) { germ_ = germ; }
    /// To be called once the polynomial no longer is what its germ describes.
    void disableGerm() { germ_.reset(); }

    const Device& getDevice() const { return data_.getDevice(); }
    void to(const Device& device);
    /// Storage of the same size on `device`, contents lost; nothing when the data is there already.
    void allocate(const Device& device);

    /// A polynomial of the same shape as this one (level, flags, size, device), data unset, without germ.
    Polynomial sameShape() const;

    /// Header, primes, then the germ if there is one, else the data (docs/files.md).
    void save(OutputArchive& archive) const;
    /// Regrows the data from the germ if there is one. Takes any shape that a context could have.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."
    void load(InputArchive& archive);
    /// The same, taking no shape but that of `ring`: what has a context is loaded so.
    void load(InputArchive& archive, const Ring& ring);

private:
    template <class Archive, class Self>
    static void headerFields(Archive& archive, Self& self);
    void loadHeader(InputArchive& archive);
    void loadContent(InputArchive& archive);

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

/// Whether all live rows are zero.
bool isZero(const Context& context, const Polynomial& polynomial);

/// A raw look at a polynomial's rows; owns nothing.
class PolynomialView {
public:
    explicit PolynomialView(const Polynomial& polynomial)
        : data_(polynomial.getData().getData()), degree_(polynomial.getDegree()) {}
    const u64* getRow(u64 i) const { return data_ + i * degree_; }

private:
    const u64* data_;
    u64 degree_;
};

/// Walks a sequence of objects that bear a polynomial (`Polynomial`, `Plaintext`, `Ciphertext`): `Getter`
/// maps an element to its `const Polynomial&`.
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

#pragma once

#include "arithmetic/elements/Polynomial.hpp"

#include <vector>

namespace Torvo {

/// Several polynomials of one context and one shape. The shape queries compare all of them and throw
/// RuntimeException when they differ. Not synchronised.
class PolynomialVector {
public:
    /// At the top level, data unset.
    PolynomialVector(const Context& context, unsigned long size, bool modUp, bool isNTT);

    const Context& getContext() const { return context_; }

    /// @throws RuntimeException "Polynomials have different levels"
    u64 getLevel() const;
    /// @throws RuntimeException "Polynomials have different modUp states"
    bool isModUp() const;
    /// @throws RuntimeException "Polynomials have different NTT states"
    bool isNTT() const;
    /// @throws RuntimeException "Polynomials are in different devices"
    Device getDevice() const;

    void setLevel(unsigned long level);
    /// The first polynomial's degree, without check.
    u64 getDegree() const { return polys_.front().getDegree(); }
    u64 getSize() const { return polys_.size(); }
    /// Growing appends zero polynomials of the first one's shape, without germ; shrinking drops the last
    /// ones.
    void setSize(unsigned long size);

    /// @throws std::out_of_range
    Polynomial& getPoly(unsigned long i) { return polys_.at(i); }
    const Polynomial& getPoly(unsigned long i) const { return polys_.at(i); }
    std::vector<Polynomial>& getPolys() { return polys_; }
    const std::vector<Polynomial>& getPolys() const { return polys_; }

    /// Sets all rows to zero.
    void clear();

    void to(const Device& device);
    void allocate(const Device& device);

    /// u64 count, then the polynomials.
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);

private:
    Context context_;
    std::vector<Polynomial> polys_;
};

} // namespace Torvo

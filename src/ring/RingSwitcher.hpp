#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "arithmetic/elements/Polynomial.hpp"

#include <vector>

namespace Torvo {

/// Moves coefficients between rings of different degree, without cryptography. A ring of degree n is embedded
/// in a ring of degree k n by Y = X^k; k polynomials of degree n interleave to one of degree k n.
///
/// Rows are those of the operands' level; the output takes level and device of the first operand. Operands
/// and outputs are polynomials in coefficient form. Stateless, const, thread-safe.
class RingSwitcher {
public:
    /// With k operands: out[r][c k + j] = in[j][r][c].
    void combine(const std::vector<const Polynomial*>& in, Polynomial& out) const;
    /// out[r][j] = in[j][r].
    void combine(const std::vector<const LevelledElement*>& in, Polynomial& out) const;
    /// A transposition: out[j][r][i] = in[i][r][j].
    void combineBatch(const std::vector<const LevelledVector*>& in, std::vector<Polynomial*>& out) const;

    /// The inverse of `combine`: out[j][r][c] = in[r][c k + j].
    void split(const Polynomial& in, std::vector<Polynomial*>& out) const;
    void split(const Polynomial& in, std::vector<LevelledElement*>& out) const;
    /// Copies the coefficients unchanged.
    void split(const Polynomial& in, LevelledVector& out) const;

    /// out[r][c k] = in[r][c], zeros between.
    void embed(const Polynomial& in, Polynomial& out) const;
    void embed(const LevelledElement& in, Polynomial& out) const;
    /// out[r][c] = in[r][c k].
    void extract(const Polynomial& in, Polynomial& out) const;
    void extract(const Polynomial& in, LevelledElement& out) const;
};

} // namespace Torvo

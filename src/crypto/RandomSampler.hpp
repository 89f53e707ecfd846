#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "core/DeviceSpecificArray.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/LWEContext.hpp>

namespace Torvo {

/// The distributions of the scheme, drawn from the calling thread's generator. Stateless, thread-safe. If a
/// generator cannot be seeded (RuntimeException) or has no memory for its words (std::bad_alloc), nothing is
/// drawn.
class RandomSampler {
public:
    /// Uniform residues in every row, exactly uniform by rejection. Each OpenMP thread draws its rows from
    /// its own generator, so the result depends on the number of threads.
    void sampleUniform(Polynomial& poly, const Context& context) const;
    void sampleUniform(LevelledVector& vector, const LWE::Context& context) const;
    /// One small polynomial with coefficients lround(sigma * N(0, 1)), the same in all rows, by Box-Muller on
    /// the calling thread. The result is in coefficient form.
    void sampleGaussian(Polynomial& poly, const Context& context) const;
    /// One value of the same distribution, the first of a pair; all rows of the context.
    void sampleGaussian(LevelledElement& element, const LWE::Context& context) const;
    /// Coefficients 0 with chance 1/2, +1 and -1 with 1/4 each. The result is in coefficient form.
    void sampleZO(Polynomial& poly, const Context& context) const;
    /// `size` ints of which exactly `weight` are +1 or -1, at uniform positions. weight <= size (unchecked).
    void sampleHWT(DeviceSpecificArray<int>& out, unsigned long size, unsigned long weight) const;
};

} // namespace Torvo

#pragma once

#include "arithmetic/elements/LevelledElement.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/LWEContext.hpp>

#include <variant>

namespace Torvo {

/// Turns one real number into residues, one per prime, for adding or multiplying a constant. Thread-safe.
class ConstantEnDecoder {
public:
    explicit ConstantEnDecoder(const Context& context);
    explicit ConstantEnDecoder(const LWE::Context& context);

    /// trunc(|value| * 2^log_scale[level - rescale_counter]) with the sign of `value`, times the
    /// `rescale_counter` top primes, modulo each prime up to `level`. Level and counter are not checked: the
    /// caller must have done that.
    /// @throws RuntimeException of `EncodingBound::refuse`
    LevelledElement encodeConst(const double& value, unsigned long level, int rescale_counter) const;

private:
    std::variant<Context, LWE::Context> context_;
};

} // namespace Torvo

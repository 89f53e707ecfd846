#pragma once

#include "arithmetic/chain/RoundedNumbers.hpp"
#include "core/Integers.hpp"
#include "encoding/EncodingBound.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>

#include <optional>
#include <span>
#include <vector>

namespace Torvo {

/// A plaintext under construction. Numbers that it cannot hold are refused last, after all other rules of an
/// operation. So an operation that has rules for the plaintext tests them on `shape()` and takes the
/// plaintext only afterwards.
class Encoding {
public:
    /// A message by its slots.
    /// @throws RuntimeException of `EnDecoder::encode`, except for numbers out of range
    Encoding(const Context& context, const Message& message, u64 level, int rescale_counter);
    /// Real numbers as coefficients.
    /// @throws RuntimeException of `EnDecoder::encodeWithoutNTT`, except for numbers out of range
    Encoding(const Context& context, const std::vector<double>& coefficients, u64 level, int rescale_counter);

    /// Level, counter, slots and device. The coefficients are not valid yet.
    const Plaintext& shape() const { return plaintext_; }
    /// On coefficients.
    /// @throws RuntimeException of `EncodingBound::refuse`
    Plaintext take() &&;
    /// In NTT form.
    /// @throws RuntimeException of `EncodingBound::refuse`
    Plaintext takeInNTTForm() &&;
    /// In NTT form modulo each of `primes`, by their index in the chain, which need not be those of the level: row
    /// after row from `rows` on. It owes nothing.
    /// @throws RuntimeException of `EncodingBound::refuse`
    void takeRows(std::span<const u64> primes, u64* rows) &&;

private:
    struct Number {
        const char* what;
        double value;
    };

    EncodingBound bound() const;
    void requireInRange() const;
    void embed(const Message& message);
    void embed(const std::vector<double>& coefficients);

    Plaintext take(bool inNTT) &&;

    Context context_;
    Plaintext plaintext_;
    RoundedNumbers numbers_;
    std::optional<Number> outOfRange_;
};

} // namespace Torvo

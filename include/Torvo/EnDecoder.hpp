#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>

#include <vector>

namespace Torvo {

/// Turns messages into plaintexts and back.
///
/// A plaintext at level l that owes r rescales carries its message at scale 2^log_scale[l - r], multiplied by
/// the r primes that those rescales will remove (scales: `getDefaultScaleFactorList`). Coefficients are
/// rounded to the nearest integer, half away from zero, so the error of a slot is about sqrt(degree / 12) /
/// scale. A negative counter is refused with "Rescale counter should be greater than or equal to zero".
/// Thread-safe.
///
/// A coefficient of the plaintext times that scale must stay below half the product of the primes 0 to l - r,
/// and below 2^127. A larger one would wrap around and decode as noise. Such numbers, NaN and infinities are
/// therefore refused, as the last check of all:
///   "[encode] Cannot encode the coefficient " and the coefficient " at level " l " with rescale counter " r
///   ": the magnitude should be at most " and the largest that is allowed ". Give a smaller number or a
///   higher level."
/// The text says "the number" instead of "the coefficient" if it names a number that the caller gave, either
/// a coefficient or a part of a slot that is not finite. The coefficients of a message are no larger than its
/// largest slot.
class TORVO_API EnDecoder {
public:
    explicit EnDecoder(const Context& context);

    /// Encodes at the encryption level, with no rescale owed, in NTT form.
    /// @throws RuntimeException in this order: "[encode] Cannot encode a message of size 0"; "[encode] The
    ///         message size should be a power of two"; "[encode] The target level is greater than the maximum
    ///         possible level"; "[encode] Message size is too large."; "[encode] The target rescale counter
    ///         should be less than or equal to the target level."; "The generated context does not support
    ///         the operation with current operands; check the device."; "[encode] Cannot encode the ..."
    Plaintext encode(const Message& message) const;
    /// Encodes at `level`, with `rescale_counter` rescales owed, in NTT form; throws as above.
    Plaintext encode(const Message& message, unsigned long level, int rescale_counter = 0) const;
    /// The same, left in coefficient form.
    Plaintext encodeWithoutNTT(const Message& message, unsigned long level, int rescale_counter = 0) const;
    /// Puts real numbers directly on the coefficients, at regular strides, without the embedding; the
    /// plaintext stays in coefficient form. It counts as `coefficients.size() / 2` slots.
    /// @param coefficients  a power-of-two count from 2 to the degree
    /// @throws RuntimeException in this order: "[encode] The target level is greater than the maximum
    ///         possible level"; "[encode] Cannot encode a message with a size less than 2"; "[encode] The
    ///         message size should be a power of two" (above the degree); "[encode] The target rescale
    ///         counter should be less than or equal to the target level."; "[embeddingToN] The degree of
    ///         polynomial should be divided by the size of message."; "[encode] Cannot encode the ..."
    Plaintext encodeWithoutNTT(const std::vector<double>& coefficients, unsigned long level,
                               int rescale_counter = 0) const;

    /// The message of a plaintext, after the rescales it owes. Reads at most two primes, so the scaled values
    /// must stay below half the product of primes 0 and 1 (below half of prime 0 if those rescales lead to
    /// level 0). The message is on the device of the plaintext.
    /// @throws RuntimeException "[encode] Message size is too large." for more slots than the ring has, then
    ///         "Rescale counter should be less than or equal to the level", then "Operands are not of the
    ///         ring of the generated context." for another degree, other primes, or a level that the chain
    ///         does not have
    Message decode(const Plaintext& plaintext) const;
    /// The coefficients under the message: `2 << log_slots` reals, the values before the embedding.
    /// Throws as `decode`.
    std::vector<double> decodeWithoutFFT(const Plaintext& plaintext) const;

private:
    Context context_;
};

} // namespace Torvo

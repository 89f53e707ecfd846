#pragma once

#include "core/Integers.hpp"

#include <Torvo/EncodingType.hpp>

namespace Torvo {

/// Data that owes rescales: plaintexts and ciphertexts.
template <class T>
concept Owing = requires(const T& t) {
    t.getRescaleCounter();
};
template <class T>
concept Slotted = requires(const T& t) {
    t.getLogSlots();
};
/// Data that says whether it is on slots or on coefficients: ciphertexts.
template <class T>
concept WithEncodingType = requires(const T& t) {
    t.getEncodingType();
};

/// What an object says of itself besides its words. Operations pass it from an operand to their output, and
/// each decides which of the fields.
///
/// Aliases: an output may be an operand, so `of` is called before an output is touched. A stamp is a value:
/// nothing that happens to the operand afterwards reaches it.
///
/// Order: the counter is held against the level that the output has when the stamp is put on, so this comes
/// last, when the output has its level. Fields are put on in the order in which they are declared, and those
/// that an object does not have are left out: a plaintext has no encoding type and counts as on slots, plain
/// LWE has the counter alone.
struct Stamp {
    u64 log_slots = 0;
    int rescale_counter = 0;
    EncodingType encoding = EncodingType::Slot;

    template <Owing Operand>
    static Stamp of(const Operand& operand) {
        Stamp stamp;
        if constexpr (Slotted<Operand>) stamp.log_slots = operand.getLogSlots();
        stamp.rescale_counter = operand.getRescaleCounter();
        if constexpr (WithEncodingType<Operand>) stamp.encoding = operand.getEncodingType();
        return stamp;
    }

    /// The same with another number of owed rescales.
    Stamp owing(int rescales) const { return {log_slots, rescales, encoding}; }

    /// All fields that `out` has.
    /// @throws RuntimeException "Rescale counter should be less than or equal to the level"
    template <Owing Output>
    void putOn(Output& out) const {
        putKeepingEncoding(out);
        putEncodingOn(out);
    }
    /// All but the encoding type: that of `out` stays.
    /// @throws RuntimeException "Rescale counter should be less than or equal to the level"
    template <Owing Output>
    void putKeepingEncoding(Output& out) const {
        if constexpr (Slotted<Output>) out.setLogSlots(log_slots);
        out.setRescaleCounter(rescale_counter);
    }
    /// The encoding type alone.
    template <Owing Output>
    void putEncodingOn(Output& out) const {
        if constexpr (WithEncodingType<Output>) out.setEncodingType(encoding);
    }
};

} // namespace Torvo

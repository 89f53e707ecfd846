#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/LWEContext.hpp>

#include <span>

namespace Torvo {

class Modulus;

/// An integer in RNS form: one word per prime. Level and mod-up state as for a polynomial.
class LevelledElement {
public:
    /// Zero, at the top row.
    LevelledElement(const Context& context, bool modUp);
    /// `value` modulo each prime up to `level` (all rows if `modUp`): r = |value| mod p, and p - r for a
    /// negative value. A negative multiple of p gives the word p, which is not reduced to 0.
    /// @throws RuntimeException "Operands are not of the ring of the generated context." for a level that the
    ///         chain does not have
    LevelledElement(long value, const Context& context, bool modUp, unsigned long level);

    /// The same over the chain of a plain LWE context; never mod-up.
    explicit LevelledElement(const LWE::Context& context);
    /// All rows are kept, whatever the level.
    LevelledElement(long value, const LWE::Context& context, unsigned long level);

    u64 getNumPrimes() const { return numPrimes_; }
    u64 getLevel() const { return level_; }
    /// Stores the level and, unless mod-up, resizes the data to level + 1 words; those above the old level
    /// are zeros.
    void setLevel(u64 level);
    bool isModUp() const { return modUp_; }
    DeviceSpecificArray<u64>& getData() { return data_; }
    const DeviceSpecificArray<u64>& getData() const { return data_; }
    u64& operator[](u64 i) { return data_[i]; }
    const u64& operator[](u64 i) const { return data_[i]; }

    const Device& getDevice() const { return data_.getDevice(); }
    void to(const Device& device);
    void allocate(const Device& device);

    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);

private:
    /// Zero, at the top row.
    LevelledElement(u64 numPrimes, bool modUp);
    void setValue(long value, std::span<const Modulus> moduli);

    u64 numPrimes_ = 0;
    u64 level_ = 0;
    bool modUp_ = false;
    DeviceSpecificArray<u64> data_;
};

} // namespace Torvo

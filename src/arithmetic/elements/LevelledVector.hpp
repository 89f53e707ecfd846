#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/LWEContext.hpp>

namespace Torvo {

/// A vector of integers in RNS form, without ring structure: (level + 1) rows of `dimension` words.
class LevelledVector {
public:
    /// Data unset.
    LevelledVector(u64 dimension, u64 level);

    /// Of the dimension of the context, at its top level; data unset.
    explicit LevelledVector(const LWE::Context& context);

    u64 getDimension() const { return dimension_; }
    u64 getLevel() const { return level_; }
    /// Stores the level and resizes the data; rows above the old level are zeros.
    void setLevel(u64 level);
    u64* getRow(u64 i) { return data_.getData() + i * dimension_; }
    const u64* getRow(u64 i) const { return data_.getData() + i * dimension_; }
    DeviceSpecificArray<u64>& getData() { return data_; }
    const DeviceSpecificArray<u64>& getData() const { return data_; }

    const Device& getDevice() const { return data_.getDevice(); }
    void to(const Device& device);
    /// Gives the data storage of the same size on `device`, all zeros. Does nothing when it is already there.
    void allocate(const Device& device);

    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);
    /// The same, but refuses another dimension before any word is read.
    void loadSized(InputArchive& archive, u64 dimension);

private:
    void loadWords(InputArchive& archive);

    u64 dimension_ = 0;
    u64 level_ = 0;
    DeviceSpecificArray<u64> data_;
};

} // namespace Torvo

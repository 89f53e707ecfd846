#pragma once

namespace Torvo {

/// The number of rescales still owed: never negative.
/// @throws RuntimeException "Rescale counter should be greater than or equal to zero", from every operation
///         that would make it negative
class RescaleCounter {
public:
    explicit RescaleCounter(int value = 0);
    int getValue() const { return value_; }
    void setValue(int value);

private:
    int value_;
};

/// Accepts any value of 0 or more.
/// @throws RuntimeException "Rescale counter should be greater than or equal to zero"
void requireValidRescaleCounter(int value);

} // namespace Torvo

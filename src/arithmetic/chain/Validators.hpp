#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// A filter on rows: which of them an operation acts on. The loops take validators by value, as a class
/// parameter, so the call is direct.
class ValidatorBase {
public:
    virtual ~ValidatorBase() = default;
    virtual bool validate(unsigned long row) const = 0;

protected:
    ValidatorBase() = default;
    ValidatorBase(const ValidatorBase&) = default;
    ValidatorBase& operator=(const ValidatorBase&) = default;
};

/// Every row.
class AlwaysValidator final : public ValidatorBase {
public:
    bool validate(unsigned long) const override { return true; }
};

/// Rows in [lower, upper).
class OutputModulusBoundValidator final : public ValidatorBase {
public:
    OutputModulusBoundValidator(u64 lower, u64 upper) : lower_(lower), upper_(upper) {}
    bool validate(unsigned long row) const override { return lower_ <= row && row < upper_; }

private:
    u64 lower_, upper_;
};

/// The live rows of a mod-up polynomial: up to `level`, and from `numBase` on.
class ModUpOutputModulusBoundEvalValidator final : public ValidatorBase {
public:
    ModUpOutputModulusBoundEvalValidator(u64 level, u64 numBase) : level_(level), numBase_(numBase) {}
    bool validate(unsigned long row) const override { return row <= level_ || row >= numBase_; }

private:
    u64 level_, numBase_;
};

/// All rows but [skipFrom, skipTo) and (holeFrom, holeTo].
class ModUpOutputModulusBoundValidator final : public ValidatorBase {
public:
    ModUpOutputModulusBoundValidator(u64 skipFrom, u64 skipTo, u64 holeFrom, u64 holeTo)
        : skipFrom_(skipFrom), skipTo_(skipTo), holeFrom_(holeFrom), holeTo_(holeTo) {}
    bool validate(unsigned long row) const override {
        return !(skipFrom_ <= row && row < skipTo_) && !(holeFrom_ < row && row <= holeTo_);
    }

private:
    u64 skipFrom_, skipTo_, holeFrom_, holeTo_;
};

} // namespace Torvo

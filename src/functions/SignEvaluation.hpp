#pragma once

#include "core/Integers.hpp"
#include "functions/Operations.hpp"
#include "functions/SeriesEvaluation.hpp"

#include <Torvo/ChebyshevSeries.hpp>
#include <Torvo/Comparisons.hpp>

#include <string>
#include <vector>

namespace Torvo {

/// What an error that is promised may exceed 2^-error by, because of the noise of ciphertexts.
inline constexpr double noiseShare = 1.0 / 8;

/// The largest distance from 1 of a composite on [least, 1], where an error of up to noise[k] is added to the input of
/// stage k, and one of noise.back() to the output; 1 if the sign itself may be lost.
double errorWithNoise(const std::vector<ChebyshevSeries>& stages, double least,
                      const std::vector<double>& noise);
/// What to expect of it for the stages of a composite, in that order, where the noise of stage k is noise[k].
std::vector<double> noiseOfStages(const std::vector<ChebyshevSeries>& stages,
                                  const std::vector<SlotNoise>& noise);

/// @throws RuntimeException what, " is asked for with a margin of ...", unless there are tables for `accuracy`, and
///         bits up to these
void requireAccuracy(const std::string& what, const Accuracy& accuracy, u64 mostMargin, u64 mostError);
/// @throws RuntimeException what, " is given the bound ...", unless numbers in [-bound, bound] can be compared
void requireBoundOfNumbers(const std::string& what, double bound);

/// The signs of real numbers in [-bound, bound] by `signComposite`, stage by stage.
template <class Value>
class SignEvaluation {
public:
    /// @param what  whose levels and noise these are; keeps a reference to `operations`
    /// @param x  like the numbers: their level and slots
    /// @param bound  which the first stage divides by
    /// @throws RuntimeException of `requireAccuracy`; what, " needs signs from ...", where noise lets the error of the
    ///         accuracy not be promised
    SignEvaluation(const Operations<Value>& operations, std::string what, const Value& x,
                   const Accuracy& accuracy, double bound);

    /// Of all stages.
    u64 levels() const;
    /// Makes sure of the levels of the first stage. Numbers that are needed again behind the last stage are given too:
    /// two real ciphertexts take one bootstrap.
    void prepare(std::vector<Value*> values) const;
    /// factor * sign(x) of each x, which were prepared.
    std::vector<Value> evaluate(const std::vector<const Value*>& xs, double factor) const;
    /// The same of one.
    Value evaluate(const Value& x, double factor) const;

    /// Refuses an x with fewer levels than those of all stages and `more`, where none are given back.
    void requireLevels(u64 more, const Value& x) const;
    /// Where levels are given back, the last stage leaves at least so many to spend.
    void keepBehind(u64 levels);
    /// What numbers need to be prepared for the first stage.
    u64 levelsOfFirst() const { return stages_.front().levels; }

private:
    struct Stage {
        SeriesEvaluation<Value> evaluation;
        double bound;
        u64 levels;
    };

    bool isPromised(const Value& x, u64 margin, u64 error) const;
    void requireAboveNoise(const Value& x, const Accuracy& accuracy) const;

    const Operations<Value>& operations_;
    std::string what_;
    std::vector<Stage> stages_;
};

} // namespace Torvo

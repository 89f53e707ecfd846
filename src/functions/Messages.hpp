#pragma once

#include "context/SameRing.hpp"
#include "core/Integers.hpp"

#include <string>

/// The texts of the exceptions of this layer, each once.
namespace Torvo::message {

inline constexpr const char* emptyMessage = "The message has no slots. Give one with at least one slot.";

inline std::string slotsNotPowerOfTwo(u64 slots) {
    return "The message has " + std::to_string(slots) +
           " slots, but functions take a power of two. Resize it to one.";
}

inline std::string tooManySlots(u64 log_slots, u64 most) {
    return "The ciphertext says that it has log slots " + std::to_string(log_slots) + ", but its ring has " +
           std::to_string(most) + "; set its log slots to those that it was encrypted with";
}

inline std::string tooFewLevels(const std::string& what, unsigned long needed, unsigned long there) {
    return what + " needs " + std::to_string(needed) + " levels, but the ciphertext has " +
           std::to_string(there) +
           ". Bootstrap it first, or give a BootstrappingEvaluator in place of the evaluator.";
}

inline std::string tooFewLevelsAfterBootstrap(const std::string& what, unsigned long needed,
                                              unsigned long there) {
    return what + " needs " + std::to_string(needed) + " levels at once, but a bootstrap leaves " +
           std::to_string(there) + " to spend. Take a parameter with more levels.";
}
inline std::string tooLowToBootstrap(const std::string& what, unsigned long needed, unsigned long there) {
    return what + " has to bootstrap first, which needs a ciphertext at level " + std::to_string(needed) +
           " or above, but this one is at level " + std::to_string(there) +
           ". Stop using its levels earlier.";
}

inline constexpr const char* noCircuit = "[advisePresets] No circuit is given; give one that can be called";
inline std::string adviceError(const std::string& error) {
    return "[advisePresets] The error is " + error + "; give a positive one";
}

inline constexpr const char* evaluateOfDegree = "evaluate of degree ";
inline constexpr const char* noSeries = "[evaluate] The list of series is empty; give at least one";
/// Intervals as "-1 to 1".
inline std::string differentIntervals(u64 k, const std::string& interval, const std::string& first) {
    return "[evaluate] Series " + std::to_string(k) + " is on the interval from " + interval +
           ", but the first one on that from " + first + "; give series on one interval";
}
inline std::string unequalBlocks(u64 blocks, u64 slots) {
    return "[evaluate] The number of series is " + std::to_string(blocks) + ", which does not divide the " +
           std::to_string(slots) + " slots; give one for each block of equally many slots";
}

/// In the texts of analysis and statistics the name of the function comes first; numbers come in decimal.
inline std::string intervalGiven(std::string function, const std::string& lower, const std::string& upper,
                                 const char* allowed) {
    return function.append(" is given the interval from ")
        .append(lower)
        .append(" to ")
        .append(upper)
        .append(allowed);
}
inline constexpr const char* finiteBounds = "; give the lower bound first, and both finite";
inline constexpr const char* boundsOfOneSign =
    "; give bounds of one sign, the lower one first, and both finite and not 0";
inline constexpr const char* positiveBounds = "; give positive, finite bounds, the lower one first";
inline constexpr const char* boundsFromZero = "; give finite bounds of 0 or more, the lower one first";
inline constexpr const char* boundsTooWide =
    "; give bounds with a ratio of 2^32 at most, or allow a larger error for a square root near 0";
inline std::string errorGiven(std::string function, const std::string& error) {
    return function.append(" is given the error ").append(error).append("; give a positive, finite one");
}
inline std::string boundGiven(std::string function, const std::string& bound) {
    return function.append(" is given the bound ").append(bound).append("; give a positive, finite one");
}
inline std::string blocksGiven(std::string function, u64 length, u64 slots) {
    return function.append(" is given blocks of ")
        .append(std::to_string(length))
        .append(" slots; give a power of two up to the ")
        .append(std::to_string(slots))
        .append(" slots of the ciphertext, or 0 for one block of all");
}
inline std::string nothingGiven(std::string function) {
    return function.append(" is given no ciphertext; give at least one");
}
inline std::string unequalCounts(std::string function, u64 first, u64 second) {
    return function.append(" is given ")
        .append(std::to_string(first))
        .append(" ciphertexts, and ")
        .append(std::to_string(second))
        .append(" to go with them; give as many of both");
}
inline std::string sampleOfOne(std::string function) {
    return function.append(" of a sample takes two numbers or more, but this sample has one; give more slots "
                           "or ciphertexts, or take it for the population");
}
inline std::string weightsGiven(std::string function, u64 block, const std::string& sum) {
    return function.append(" is given weights whose sum in block ")
        .append(std::to_string(block))
        .append(" is ")
        .append(sum)
        .append("; give finite ones with a sum that is not 0");
}

inline std::string edgesGiven(u64 count) {
    std::string text = "histogram takes two edges or more, but is given ";
    return text.append(std::to_string(count)).append("; give both ends of each bin");
}
inline std::string edgeGiven(u64 k, const std::string& edge, const std::string& before) {
    std::string text = "histogram is given edge ";
    return text.append(std::to_string(k))
        .append(" at ")
        .append(edge)
        .append(", but the one in front of it at ")
        .append(before)
        .append("; give edges in ascending order");
}

/// In the texts of comparisons and sorting `what` is the name of the function.
inline std::string boundOutside(std::string what, const std::string& bound) {
    return what.append(" is given the bound ")
        .append(bound)
        .append(" of its numbers; give one from 2^-32 to 2^32");
}
inline std::string clampInterval(std::string what, const std::string& lower, const std::string& upper) {
    return what.append(" is given the interval from ")
        .append(lower)
        .append(" to ")
        .append(upper)
        .append("; give the lower bound first, and both within the bound of the numbers");
}
inline std::string accuracyOutside(std::string what, unsigned margin, unsigned error, u64 mostMargin,
                                   u64 mostError) {
    return what.append(" is asked for with a margin of 2^-")
        .append(std::to_string(margin))
        .append(" and an error of 2^-")
        .append(std::to_string(error))
        .append("; give 4 to ")
        .append(std::to_string(mostMargin))
        .append(" bits of margin and 4 to ")
        .append(std::to_string(mostError))
        .append(" bits of error");
}
/// `best` is what the noise allows; 0 if that is nothing.
inline std::string accuracyBelowNoise(std::string what, u64 margin, u64 error, u64 best) {
    what.append(" needs signs from 2^-")
        .append(std::to_string(margin))
        .append(" on, within 2^-")
        .append(std::to_string(error));
    if (best == 0)
        return what.append(", but the noise of this parameter lets no error be promised there. Take a larger "
                           "margin or a parameter with a larger scale.");
    return what.append(", but the noise of this parameter lets 2^-")
        .append(std::to_string(best))
        .append(" be promised at best. Allow a larger error or take a parameter with a larger scale.");
}
inline std::string countOfNumbers(std::string what, u64 slots) {
    return what.append(" takes 2 to 128 numbers, one in each slot, but is given ")
        .append(std::to_string(slots))
        .append(" slots; encrypt a message of as many slots as there are numbers");
}
inline std::string pairsOutside(std::string what, u64 numbers, u64 pairs, u64 slots) {
    return what.append(" of ")
        .append(std::to_string(numbers))
        .append(" numbers compares them in ")
        .append(std::to_string(pairs))
        .append(" slots, but the ring has ")
        .append(std::to_string(slots))
        .append("; take fewer numbers or a larger ring");
}
inline std::string topOutside(u64 count, u64 numbers) {
    std::string text = "topK is asked for the largest ";
    return text.append(std::to_string(count))
        .append(" of ")
        .append(std::to_string(numbers))
        .append(" numbers; give 1 to as many as there are");
}

inline constexpr const char* noFunctionGiven =
    "[ChebyshevSeries] No function is given; give one that can be called";

/// In the texts below numbers come in decimal.
inline std::string seriesOfCount(u64 count) {
    return "[ChebyshevSeries] The number of coefficients is " + std::to_string(count) +
           "; give 1 to 1024 of them, that of T_0 first";
}

inline std::string seriesCoefficient(u64 k, const std::string& value) {
    return "[ChebyshevSeries] The coefficient of T_" + std::to_string(k) + " is " + value +
           "; give finite numbers";
}

inline std::string seriesInterval(const std::string& lower, const std::string& upper, const char* allowed) {
    return "[ChebyshevSeries] The interval is from " + lower + " to " + upper + allowed;
}
inline constexpr const char* boundsInOrder =
    "; give the lower bound first, and both of magnitude 2^1000 at most";
inline constexpr const char* boundsOfSymmetry = "; give a lower bound of 0 or more for an even or odd series";

inline std::string seriesDegree(u64 degree) {
    return "[ChebyshevSeries] The degree is " + std::to_string(degree) + "; give 1023 at most";
}

inline std::string functionNotFinite(const std::string& value, const std::string& x) {
    return "[ChebyshevSeries] The function is " + value + " at " + x +
           "; give an interval on which it is finite";
}

inline std::string errorWanted(const std::string& error, const std::string& allowed) {
    return "[ChebyshevSeries] The error wanted is " + error + allowed;
}
inline constexpr const char* errorNotPositive = "; give a positive one";
inline std::string errorNotReached(const std::string& best) {
    return ", and degrees up to 1023 come down to " + best +
           " only; allow a larger error, or give a shorter interval or a smoother function";
}

inline std::string exchangeDiverges(u64 degree, int steps, const std::string& error,
                                    const std::string& possible) {
    return "[ChebyshevSeries] The exchange algorithm does not converge for degree " + std::to_string(degree) +
           ": after " + std::to_string(steps) + " steps the largest error is " + error + " where " +
           possible + " should be possible; give a smoother function or a lower degree, or interpolate";
}

inline std::string noSignTable(u64 a, u64 b) {
    return "[signComposite] Sign is asked for from 2^-" + std::to_string(a) + " on, within 2^-" +
           std::to_string(b) + "; give exponents from 4 to 16";
}

inline std::string monomialTooLarge(u64 exponent) {
    return "[ChebyshevSeries] The coefficient of x^" + std::to_string(exponent) +
           " is larger than any double; evaluate the series as it is";
}

// ---- descriptions of linear transforms; the numbers are those given, and those allowed

inline constexpr const char* matrixEmpty =
    "[LinearTransform] the matrix has no entries; give at least one row with one entry";

inline std::string matrixRagged(u64 row, u64 entries, u64 columns) {
    return "[LinearTransform] row " + std::to_string(row) + " of the matrix has " + std::to_string(entries) +
           " entries, but row 0 has " + std::to_string(columns) + "; give rows of one length";
}

inline std::string matrixTooLarge(u64 rows, u64 columns, u64 most) {
    return "[LinearTransform] a matrix of " + std::to_string(rows) + " rows and " + std::to_string(columns) +
           " columns is given, but no ring has more than " + std::to_string(most) +
           " slots; split it into blocks";
}

inline std::string inRowAndColumn(u64 row, u64 column) {
    return "in row " + std::to_string(row) + ", column " + std::to_string(column);
}

inline std::string onDiagonal(u64 diagonal, u64 row) {
    return "in row " + std::to_string(row) + " of diagonal " + std::to_string(diagonal);
}

inline std::string entryNotFinite(const std::string& place, const std::string& re, const std::string& im) {
    return "[LinearTransform] the entry " + place + " is " + re + " + " + im + " i; give finite numbers";
}

inline std::string transformSize(u64 size, u64 most) {
    return "[LinearTransform] a transform of " + std::to_string(size) +
           " slots is given; the number should be a power of two, and at most " + std::to_string(most);
}

inline std::string noSuchDiagonal(u64 index, u64 size) {
    return "[LinearTransform] diagonal " + std::to_string(index) + " is given, but a transform of " +
           std::to_string(size) + " slots has diagonals 0 to " + std::to_string(size - 1) +
           "; take the index modulo " + std::to_string(size);
}

inline std::string diagonalLength(u64 index, u64 count, u64 size) {
    return "[LinearTransform] diagonal " + std::to_string(index) + " has " + std::to_string(count) +
           " numbers; give " + std::to_string(size) + ", one for each row";
}

inline std::string noSuchSource(u64 slot, u64 source, u64 size) {
    return "[LinearTransform] slot " + std::to_string(slot) + " of the permutation comes from slot " +
           std::to_string(source) + ", but there are slots 0 to " + std::to_string(size - 1) +
           "; give each of them once";
}

inline std::string sourceTwice(u64 source, u64 first, u64 second) {
    return "[LinearTransform] slots " + std::to_string(first) + " and " + std::to_string(second) +
           " of the permutation both come from slot " + std::to_string(source) + "; give each slot once";
}

inline std::string messageNotInBlocks(u64 slots, u64 size) {
    return "[LinearTransform] a message of " + std::to_string(slots) +
           " slots is given, but the transform maps blocks of " + std::to_string(size) +
           "; give a multiple of " + std::to_string(size) + " slots";
}

// ---- encoding them

inline std::string transformSlots(u64 log_slots, u64 most) {
    return "[LinearTransform] log slots " + std::to_string(log_slots) +
           " is given, but the ring allows at most " + std::to_string(most) +
           "; give that or less, or use a larger ring";
}

inline std::string blocksAboveSlots(u64 size, u64 log_slots) {
    return "[LinearTransform] the transform maps blocks of " + std::to_string(size) +
           " slots, which log slots " + std::to_string(log_slots) +
           " do not hold; give more log slots, or a smaller transform";
}

inline std::string transformLevel(u64 level, const std::string& name, u64 top) {
    return "[LinearTransform] level " + std::to_string(level) +
           " is given, but a transform spends a level and the chain of " + name + " ends at " +
           std::to_string(top) + "; give a level from 1 to " + std::to_string(top);
}

inline std::string tooFewKeys(u64 keys, u64 rotations, u64 fewest) {
    return "[LinearTransform] " + std::to_string(keys) + " keys are allowed, but the " +
           std::to_string(rotations) + " rotations of this transform need " + std::to_string(fewest) +
           " at least; allow that many, or split the transform";
}

// ---- applying them

inline constexpr const char* transformEmpty = "[EncodedTransform] It is empty, so there is nothing to apply "
                                              "or save; assign one that was encoded, or load a "
                                              "file first";

inline constexpr RefusedMeeting foreignTransform{
    "the transform is of another ring", "the evaluator's context", "encode it with the evaluator's context"};

inline std::string transformsDiffer(u64 level, u64 log_slots, u64 otherLevel, u64 otherLogSlots) {
    return "[EncodedTransform] the transforms of one call differ in level or log slots: " +
           std::to_string(level) + " and " + std::to_string(log_slots) + ", but " +
           std::to_string(otherLevel) + " and " + std::to_string(otherLogSlots) + "; encode them alike";
}

inline std::string belowTransform(u64 level, u64 encoded) {
    return "[EncodedTransform] the ciphertext is at level " + std::to_string(level) +
           ", but the transform is encoded for level " + std::to_string(encoded) + "; encode it for level " +
           std::to_string(level) + ", or give a ciphertext of level " + std::to_string(encoded) + " or above";
}

inline std::string otherSlotsThanTransform(u64 log_slots, u64 encoded) {
    return "[EncodedTransform] the ciphertext has log slots " + std::to_string(log_slots) +
           ", but the transform is encoded for " + std::to_string(encoded) + "; encode it for " +
           std::to_string(log_slots) + ", or set the log slots of the ciphertext to " +
           std::to_string(encoded);
}

// ---- products of matrices

inline std::string matrixDimension(u64 dimension, u64 most) {
    return "[MatrixProduct] matrices of " + std::to_string(dimension) +
           " rows are given; the number should be a power of two, and at most " + std::to_string(most);
}

inline std::string matrixProductLevel(u64 level, const std::string& name, u64 spent, u64 top) {
    return "[MatrixProduct] level " + std::to_string(level) + " is given, but a product spends " +
           std::to_string(spent) + " levels and the chain of " + name + " ends at " + std::to_string(top) +
           "; give a level from " + std::to_string(spent) + " to " + std::to_string(top);
}

} // namespace Torvo::message

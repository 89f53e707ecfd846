#pragma once

/// The refusals of ring switching and packing, word for word.
namespace Torvo::message {

inline constexpr const char* totalDimensionsDiffer = "The total dimension of the operands are different";
inline constexpr const char* ringSwitchingInNTTForm =
    "Polynomials should be of non-NTT form in ring switching.";
inline constexpr const char* totalDimensionDoesNotDivide =
    "The total dimension of op1 does not divide that of op2";
inline constexpr const char* vectorsMissDegree =
    "The number of LevelledVectors does not match to the degree of Polynomial";
inline constexpr const char* polynomialsMissDimension =
    "The number of Polynomials does not match to the dimension of LevelledVector";

} // namespace Torvo::message

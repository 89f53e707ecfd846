#pragma once

/// The exact texts of the exceptions of ring elements.
namespace Torvo::message {

inline constexpr const char* polynomialsDifferInLevel = "Polynomials have different levels";
inline constexpr const char* polynomialsDifferInModUp = "Polynomials have different modUp states";
inline constexpr const char* polynomialsDifferInNTT = "Polynomials have different NTT states";
inline constexpr const char* polynomialsDifferInDevice = "Polynomials are in different devices";

inline constexpr const char* operandsOfOtherRing = "Operands are not of the ring of the generated context.";

} // namespace Torvo::message

#pragma once

/// The exact texts of the exceptions of operations on a chain of primes.
namespace Torvo::message {

inline constexpr const char* primeSizeTooBig = "[PrimeModuli] Prime size is too big. It should be < 62";
inline constexpr const char* basePrimeTooSmall =
    "[PrimeModuli] Base prime should be greater than quantize primes";
inline constexpr const char* quantizePrimeTooSmall =
    "[PrimeModuli] Quantize primes should be greater than or equal to 36 bit";
inline constexpr const char* temporaryPrimesTooSmall =
    "[PrimeModuli] log_tpsize should be greater than log_qpsize + (log_bpsize - log_qpsize)/numTP";
inline constexpr const char* customPresetHasNoPrimes =
    "Custom parameter preset cannot be constructed in this way";

inline constexpr const char* operandsOnDifferentDevices = "Operands are in different devices.";
inline constexpr const char* deviceNotServed =
    "The generated context does not support the operation with current operands; check the device.";
inline constexpr const char* operandsDifferInLevel = "Operands have different levels.";
inline constexpr const char* operandsDifferInDimension = "Operands have different dimensions.";
inline constexpr const char* operandsDifferInModUp = "Operands have different mod-up states.";
inline constexpr const char* noOperand = "Operand is empty so device is not defined";

inline constexpr const char* embeddingNotOnGPU = "[embeddingToN] not yet implemented on GPU";
inline constexpr const char* embeddingDoesNotDivide =
    "[embeddingToN] The degree of polynomial should be divided by the size of message.";
inline constexpr const char* coefficientsMissPolyVector =
    "[coefficientsToPolyVector] Input slot size should be equal to the dimension of the polynomial vector.";
inline constexpr const char* coefficientsMissLevelledVector =
    "[coefficientsToLevelledVector] Input slot size should be equal to the dimension of levelled vector.";

} // namespace Torvo::message

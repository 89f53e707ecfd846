#pragma once

/// The exact texts of the exceptions of bootstrapping.
namespace Torvo::message {

inline constexpr const char* noBootstrap = "The Parameter does not support bootstrap";
inline constexpr const char* noEncapsulation =
    "[Bootstrapper] context does not support sparse secret encapsulation";
inline constexpr const char* encapsulationMismatch =
    "[Bootstrapper] parameter of context and context_sparse does not match";
inline constexpr const char* arcsineDegreeNotSupported = "This arcsine_degree is not supported";

inline constexpr const char* levelNotZero = "[levelRecover] Level should be zero";
inline constexpr const char* rescaleCounterNotZero = "[levelRecover] RescaleCounter should be zero";
inline constexpr const char* noEncapsulationKey = "Failed to load sparse secret encapsulation key";

inline constexpr const char* bootstrapLevelTooLow = "[bootstrap] Level of ciphertext should be >= 3.";
inline constexpr const char* bootstrapSizeNotTwo = "[bootstrap] Size should be 2";
inline constexpr const char* noExtendedBootstrap = "This parameter does not support extended bootstrap";
inline constexpr const char* extendedLevelTooLow = "[bootstrap extended] Level of ciphertext should be >= 4.";
inline constexpr const char* extendedSizeNotTwo = "[bootstrap extended] Size should be 2";
inline constexpr const char* slotToCoeffLevelTooLow = "[slotToCoeff] Level of ciphertext should be >= ";

inline constexpr const char* columnIsFull = "[SparseComplexMatrix] Inserting non-zero value over the given "
                                            "number of non-zero elements in a single column";
inline constexpr const char* matrixSizesDiffer = "[SparseComplexMatrix] the size of matrix does not match";

} // namespace Torvo::message

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

/// Around log slots.
inline constexpr const char* constantsForSlots = "Bootstrapping constants for log slots ";
inline constexpr const char* constantsMissing = " do not exist.";
inline constexpr const char* noConstantsForOneSlot =
    "A message of one slot needs no constants. Give log_slots from 1 on.";
/// Followed by the path or the next, ": " and one of those below.
inline constexpr const char* cannotTakeConstants = "Cannot take bootstrapping constants from ";
inline constexpr const char* aStream = "the stream";
inline constexpr const char* noConstants = "it holds none; give what saveBootConstants wrote";
inline constexpr const char* damagedHead = "its head is damaged; save them again";
inline constexpr const char* constantsOfOtherRing =
    "they are of another ring; make the bootstrapper with the context that they were saved with";
/// Followed by log slots, the next, log slots and the one after it.
inline constexpr const char* constantsOfOtherSlots = "they are for log slots ";
inline constexpr const char* notTheseSlots = ", not ";
inline constexpr const char* giveTheirs = "; give theirs or save others";
inline constexpr const char* constantsOfOtherParameters =
    "they were made with other parameters of bootstrapping, or where numbers round otherwise; save them "
    "again";
/// Followed by bytes, the next, bytes and the one after it.
inline constexpr const char* constantsHold = "it holds ";
inline constexpr const char* bytesNot = " bytes, not ";
inline constexpr const char* saveThemAgain = "; save them again";
inline constexpr const char* damagedConstants = "the constants in it are damaged; save them again";

inline constexpr const char* columnIsFull = "[SparseComplexMatrix] Inserting non-zero value over the given "
                                            "number of non-zero elements in a single column";
inline constexpr const char* matrixSizesDiffer = "[SparseComplexMatrix] the size of matrix does not match";

} // namespace Torvo::message

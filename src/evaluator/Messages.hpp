#pragma once

#include "context/SameRing.hpp"

#include <string>

/// The exact texts of the exceptions of the evaluator.
namespace Torvo::message {

inline constexpr const char* operandsNotOnSlots = "The operands have to encode the message on its slots";

inline constexpr const char* differentLogSlots = "Two operands have different logSlots";
inline constexpr const char* differentRescaleCounters = "Two operands have different RescaleCounter";
inline constexpr const char* twoOperandsOnDifferentDevices = "Two operands are in different devices";
inline constexpr const char* differentEncodings = "Two operands are encoding messages in different way";

inline constexpr const char* levelZero = "The level of the operand is zero";
inline constexpr const char* operandOwesRescale = "The Operand should have rescale counter zero";
inline constexpr const char* operandsOweRescale = "The Operands should have rescale counter zero";

/// For the number given and the largest allowed, in decimal.
inline std::string integerOutOfRange(const std::string& value, const std::string& largest) {
    return "[mult] Cannot multiply by the integer " + value + ": the magnitude should be at most " + largest +
           ". Give a smaller number.";
}

inline constexpr const char* messageOnGPU = "Message that is GPU-allocated is not supported.";

inline constexpr const char* plaintextOwesNoRescale =
    "[rescale] Rescale Counter of the Plaintext is zero or less";
inline constexpr const char* ciphertextOwesNoRescale =
    "[rescale] Rescale Counter of the Ciphertext is zero or less";
inline constexpr const char* inverseRescaleAtTop =
    "[inverseRescale] Cannot inverseRescale when the level is greater than or equal to the maximum level";
inline constexpr const char* relevelTooHigh = "[relevel] target_level too big";
inline constexpr const char* levelDownUpwards =
    "[level down] target level is greater than level of Ciphertext.";
inline constexpr const char* addOfModUpLevels = "Cannot add different level modUp-ed ciphertexts";
inline constexpr const char* subOfModUpLevels = "Cannot sub different level modUp-ed ciphertexts";

inline constexpr const char* sizeNotTwo = "Size should be 2";
inline constexpr const char* sizeAboveTwo = "Size > 2 is not supported yet";
inline constexpr const char* nothingToRelinearize =
    "[relinearize] the length of the input ciphertext should be >= 3.";
inline constexpr const char* sizesOfRotSumDiffer = "ctxt and rot_idx have different size.";

inline constexpr const char* elementsOnDifferentDevices = "Elements of operand are in different devices.";

inline constexpr RefusedMeeting evaluatorForeignKeys{
    "keys are of another ring", "the evaluator's context",
    "make the evaluator with the context the keys were made with"};
inline constexpr RefusedMeeting switchByForeignKey{"the switching key is of another ring",
                                                   "the context of the operation",
                                                   "use a key made with this context"};
inline constexpr const char* noMultiplicationKey = "Failed to load the multiplication key";
inline constexpr const char* noConjugationKey = "Failed to load the conjugation key";
/// The index follows, in decimal.
inline constexpr const char* noLeftRotationKey = "Failed to load the left rotation key for index ";
inline constexpr const char* noLeftRotationKeys = "Failed to load the left rotation keys for indices ";
inline constexpr const char* noKeyToComposeFrom = "[Load Rotation Key] no left rotation key for index ";

} // namespace Torvo::message

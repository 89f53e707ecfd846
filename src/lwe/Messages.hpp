#pragma once

/// The refusals of plain LWE that the ring layers do not know, word for word.
namespace Torvo::message {

inline constexpr const char* decryptOtherDimension = "[decrypt] ctxt and sk have different dimension";

} // namespace Torvo::message

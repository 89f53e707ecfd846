#pragma once

#include <Torvo/Export.hpp>

#include <stdexcept>

namespace Torvo {

/// The library's only exception type of its own. Its `what()` is a fixed text, which callers may compare.
///
/// All exceptions that leave a public call derive from std::exception. They are:
///   - RuntimeException: a rule is broken. The documentation of each function lists its rules, in order, with
///     their texts;
///   - cereal::Exception, a std::runtime_error: from `save`, `load` and the constructors that load. A stream
///     or a file ends too early, "Failed to read <wanted> bytes from input stream! Read <got>", or accepts no
///     more bytes, "Failed to write <wanted> bytes to output stream! Wrote <got>";
///   - std::bad_alloc: from any call for which there is not enough memory. It is a std::bad_array_new_length
///     for sizes beyond all memory, such as `Message::resize(1ul << 63)` or `setLevel(1ul << 60)`;
///   - std::length_error: `setNumPoly` and `setSize` of a ciphertext, for more elements than a vector
///     can have;
///   - std::out_of_range: a getter with an index past the end, or with a device on which the object is not,
///     where its documentation says so; "map::at" from the rotation of a ciphertext on a device that the
///     context has no table for;
///   - std::filesystem::filesystem_error: `setKeyDirPath`, and `save` of a key directory, whose "PK"
///     cannot be made;
///   - nlohmann::json::exception: from `GlobalConfiguration` only;
///   - std::runtime_error: from the first random number of a thread, where std::random_device has no
///     entropy to give.
///
/// What a stream buffer of the caller throws passes through too. Everything that takes a context or a stream
/// refuses null contexts and streams without a buffer: "The context is null. Make one with makeContext.";
/// "The stream has no buffer. Give one that is connected to a file or to memory."
class TORVO_API RuntimeException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Torvo

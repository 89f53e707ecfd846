#pragma once

#include "core/Failure.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Messages.hpp"
#include "persistence/SavedFile.hpp"

#include <Torvo/RuntimeException.hpp>

#include <fstream>
#include <istream>
#include <ostream>
#include <string>
#include <utility>

/// All objects are saved and loaded by these functions: one byte (the endianness of the writer), then the
/// arguments in order, as cereal's portable binary archive writes them.
namespace Torvo::Serialize {

/// @throws RuntimeException "The stream has no buffer. Give one that is connected to a file or to memory."
template <class... Args>
void save(std::ostream& stream, Args&&... args) {
    require(stream.rdbuf() != nullptr, message::noStreamBuffer);
    cereal::PortableBinaryOutputArchive archive(stream);
    (archive(std::forward<Args>(args)), ...);
}

/// @throws RuntimeException as `save`
/// @throws cereal::Exception "Failed to read <wanted> bytes from input stream! Read <got>" on a short read
template <class... Args>
void load(std::istream& stream, Args&&... args) {
    require(stream.rdbuf() != nullptr, message::noStreamBuffer);
    Torvo::detail::CountedInputArchive archive(stream);
    (static_cast<cereal::PortableBinaryInputArchive&>(archive)(std::forward<Args>(args)), ...);
}

namespace detail {

template <class... Args>
void saveFile(const std::string& path, Torvo::detail::Secrecy secrecy, Args&... args) {
    Torvo::detail::writeFile(path, secrecy, [&](std::ostream& stream) { save(stream, args...); });
}

} // namespace detail

/// The old file stays until the new one is complete.
/// @throws as `writeFile`
template <class... Args>
void save(const std::string& path, Args&&... args) {
    detail::saveFile(path, Torvo::detail::Secrecy::Public, args...);
}

/// The same for a file that only its owner may read.
template <class... Args>
void saveSecret(const std::string& path, Args&&... args) {
    detail::saveFile(path, Torvo::detail::Secrecy::Secret, args...);
}

namespace detail {

/// Without a buffer: no copy of a key stays behind in memory.
inline std::ifstream openToRead(const std::string& path) {
    std::ifstream stream;
    stream.rdbuf()->pubsetbuf(nullptr, 0);
    stream.open(path, std::ios::in | std::ios::binary);
    if (!stream.is_open()) throw RuntimeException(message::cannotOpenFile + path);
    return stream;
}

} // namespace detail

/// @throws RuntimeException "Cannot open file " and the path
template <class... Args>
void load(const std::string& path, Args&&... args) {
    std::ifstream stream = detail::openToRead(path);
    load(static_cast<std::istream&>(stream), std::forward<Args>(args)...);
}

/// The same for a file that must hold nothing else. Of a pipe only the bytes that have arrived by then count.
/// @throws RuntimeException "Cannot open file " and the path; "The file is longer than what is to be loaded:
///         " and so on
template <class... Args>
void loadWhole(const std::string& path, Args&&... args) {
    std::ifstream stream = detail::openToRead(path);
    Torvo::detail::CountedInputArchive archive(stream);
    (static_cast<cereal::PortableBinaryInputArchive&>(archive)(std::forward<Args>(args)), ...);
    Torvo::detail::requireEnd(path, archive.bytesRead(), stream.rdbuf()->in_avail());
}

} // namespace Torvo::Serialize

#pragma once

#include "persistence/Archive.hpp"
#include "persistence/Messages.hpp"

#include <Torvo/RuntimeException.hpp>

#include <fstream>
#include <istream>
#include <ostream>
#include <string>
#include <utility>

/// All persistence goes through these: an archive frame of one byte (the endianness of the writer), then the
/// arguments in order, as cereal's portable binary archive writes them.
namespace Torvo::Serialize {

template <class... Args>
void save(std::ostream& stream, Args&&... args) {
    cereal::PortableBinaryOutputArchive archive(stream);
    (archive(std::forward<Args>(args)), ...);
}

/// @throws cereal::Exception "Failed to read <wanted> bytes from input stream! Read <got>" on a short read
template <class... Args>
void load(std::istream& stream, Args&&... args) {
    Torvo::detail::CountedInputArchive archive(stream);
    (static_cast<cereal::PortableBinaryInputArchive&>(archive)(std::forward<Args>(args)), ...);
}

namespace detail {

/// Opens a file without a buffer: a write that the disk has no room for is noticed where it happens, and no
/// copy of a key stays behind in memory.
template <class FileStream>
FileStream openFile(const std::string& path, std::ios::openmode mode) {
    FileStream stream;
    stream.rdbuf()->pubsetbuf(nullptr, 0);
    stream.open(path, mode | std::ios::binary);
    if (!stream.is_open()) throw RuntimeException(message::cannotOpenFile + path);
    return stream;
}

} // namespace detail

/// @throws RuntimeException "Cannot open file " and the path
template <class... Args>
void save(const std::string& path, Args&&... args) {
    auto stream = detail::openFile<std::ofstream>(path, std::ios::out);
    save(static_cast<std::ostream&>(stream), std::forward<Args>(args)...);
}

/// @throws RuntimeException "Cannot open file " and the path
template <class... Args>
void load(const std::string& path, Args&&... args) {
    auto stream = detail::openFile<std::ifstream>(path, std::ios::in);
    load(static_cast<std::istream&>(stream), std::forward<Args>(args)...);
}

} // namespace Torvo::Serialize

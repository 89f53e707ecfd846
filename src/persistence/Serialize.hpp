#pragma once

#include "persistence/Archive.hpp"

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
    archive(std::forward<Args>(args)...);
}

/// @throws cereal::Exception "Failed to read <wanted> bytes from input stream! Read <got>" on a short read
template <class... Args>
void load(std::istream& stream, Args&&... args) {
    detail::CountedInputArchive archive(stream);
    static_cast<cereal::PortableBinaryInputArchive&>(archive)(std::forward<Args>(args)...);
}

/// @throws RuntimeException "Cannot open file " and the path
template <class... Args>
void save(const std::string& path, Args&&... args) {
    std::ofstream stream(path, std::ios::out | std::ios::binary);
    if (!stream.is_open()) throw RuntimeException("Cannot open file " + path);
    save(static_cast<std::ostream&>(stream), std::forward<Args>(args)...);
}

/// @throws RuntimeException "Cannot open file " and the path
template <class... Args>
void load(const std::string& path, Args&&... args) {
    std::ifstream stream(path, std::ios::in | std::ios::binary);
    if (!stream.is_open()) throw RuntimeException("Cannot open file " + path);
    load(static_cast<std::istream&>(stream), std::forward<Args>(args)...);
}

} // namespace Torvo::Serialize

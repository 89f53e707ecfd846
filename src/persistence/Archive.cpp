#include "persistence/Archive.hpp"

#include "persistence/Messages.hpp"

#include <Torvo/RuntimeException.hpp>

#include <string>

namespace Torvo::detail {

namespace {

std::string decimal(u128 value) {
    std::string digits;
    do digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(value % 10)));
    while ((value /= 10) != 0);
    return digits;
}

} // namespace

void throwShortRead(u128 wanted, u64 got) {
    throw cereal::Exception("Failed to read " + decimal(wanted) + " bytes from input stream! Read " +
                            std::to_string(got));
}

void requireEnd(const std::string& path, u64 read, std::streamsize left) {
    if (left <= 0) return; // -1: none will come
    throw RuntimeException(message::fileTooLong + path + " holds " +
                           std::to_string(read + static_cast<u64>(left)) + " bytes, not " +
                           std::to_string(read) + "; give the path of a file of the right kind");
}

} // namespace Torvo::detail

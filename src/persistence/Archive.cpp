#include "persistence/Archive.hpp"

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

} // namespace Torvo::detail

#include <Torvo/SecurityLevel.hpp>

#include <forward_list>
#include <map>
#include <utility>

namespace Torvo {

SecurityLevel computeLWESecurityLevel(unsigned long logDimension, unsigned long logModulus) {
    using enum SecurityLevel;
    using Bounds = std::forward_list<std::pair<unsigned long, SecurityLevel>>;
    // By log2 of the dimension, the largest modulus sizes in bits for 128, 192 and 256 bits of security.
    // Beside each bound is the level that a larger modulus has.
    static const std::map<unsigned long, Bounds> SL_TABLE{
        {10, {{27, None}, {19, Bits128}, {14, Bits192}, {0, Bits256}}},
        {11, {{54, None}, {37, Bits128}, {29, Bits192}, {0, Bits256}}},
        {12, {{109, None}, {75, Bits128}, {58, Bits192}, {0, Bits256}}},
        {13, {{218, None}, {152, Bits128}, {118, Bits192}, {0, Bits256}}},
        {14, {{438, None}, {305, Bits128}, {237, Bits192}, {0, Bits256}}},
        {15, {{881, None}, {611, Bits128}, {476, Bits192}, {0, Bits256}}},
        {16, {{1750, None}, {1199, Bits128}, {929, Bits192}, {0, Bits256}}},
        {17, {{3523, None}, {2411, Bits128}, {1867, Bits192}, {0, Bits256}}},
    };

    const auto row = SL_TABLE.find(logDimension);
    if (row == SL_TABLE.end()) return None;
    for (const auto& [bound, level] : row->second)
        if (logModulus > bound) return level;
    return None; // a modulus of no bits: there is nothing to protect
}

} // namespace Torvo

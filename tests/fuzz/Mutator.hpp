#pragma once

#include "support/FileMap.hpp"

#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace Torvo::test::fuzz {

/// Damages files as one does who knows their format: a byte changed at random hardly ever leaves a file whose
/// shape, counts and lengths agree, and so does not get past the first guard of a load.
class Mutator {
public:
    /// @param blindly  changes a text of bytes without a thought, to at most so many bytes
    using Blindly = std::function<std::string(std::string, std::size_t)>;
    Mutator(std::string kind, Blindly blindly) : kind_(std::move(kind)), blindly_(std::move(blindly)) {}

    /// Another file, of at most `maxSize` bytes; the same for the same seed.
    std::string mutate(const std::string& file, std::size_t maxSize, unsigned seed);

private:
    /// What a polynomial's header says.
    struct Shape {
        u64 degree, numBase, numRows, level;
        bool isModUp, isNTT;
    };

    bool mutateOnce(std::string& file);
    bool setNumber(std::string& file, const FileMap& map);
    bool setWord(std::string& file, const FileMap& map);
    bool swapGermAndData(std::string& file, const FileMap& map);
    bool reshapeOne(std::string& file, const FileMap& map);
    bool reshapeAll(std::string& file, const FileMap& map);
    bool changeList(std::string& file, const FileMap& map);
    bool copyPolynomial(std::string& file, const FileMap& map);
    bool cut(std::string& file, const FileMap& map);

    u64 below(u64 bound);
    bool oneIn(u64 n) { return below(n) == 0; }
    template <class T>
    const T& anyOf(const std::vector<T>& values) {
        return values[below(values.size())];
    }
    u64 forgedNumber(u64 old);
    Shape forgedShape(const std::string& file, const FileMap::Polynomial& poly);
    /// The bytes of a polynomial of that shape, as a germ or in full.
    std::string forgedPolynomial(const std::string& file, const FileMap::Polynomial& like, const Shape& shape,
                                 bool isGerm);

    std::string kind_;
    Blindly blindly_;
    std::minstd_rand random_;
    std::size_t maxSize_ = 0;
};

} // namespace Torvo::test::fuzz

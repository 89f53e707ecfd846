#include "Mutator.hpp"

#include <algorithm>

namespace Torvo::test::fuzz {

namespace {

constexpr std::size_t germBytes = 1024;

void appendNumber(std::string& bytes, std::size_t width, u64 value) {
    bytes.append(width, '\0');
    FileMap::write(bytes, bytes.size() - width, width, value);
}

void replace(std::string& file, const FileMap::Polynomial& poly, const std::string& by) {
    file.replace(poly.begin, poly.end - poly.begin, by);
}

bool isGerm(const std::string& file, const FileMap::Polynomial& poly) {
    return file[poly.flag] == 0;
}

} // namespace

std::string Mutator::mutate(const std::string& file, std::size_t maxSize, unsigned seed) {
    random_.seed(seed);
    maxSize_ = maxSize;
    if (oneIn(8)) return blindly_(file, maxSize);
    std::string mutated = file;
    for (u64 count = 1 + below(3); count > 0; --count) {
        std::string next = mutated;
        if (mutateOnce(next) && next.size() <= maxSize) mutated = next;
    }
    return mutated == file ? blindly_(file, maxSize) : mutated;
}

bool Mutator::mutateOnce(std::string& file) {
    const FileMap map(kind_, file);
    switch (below(12)) {
    case 0:
    case 1:
    case 2:
        return setNumber(file, map);
    case 3:
        return setWord(file, map);
    case 4:
    case 5:
        return swapGermAndData(file, map);
    case 6:
        return reshapeOne(file, map);
    case 7:
        return reshapeAll(file, map);
    case 8:
    case 9:
        return changeList(file, map);
    case 10:
        return copyPolynomial(file, map);
    default:
        return cut(file, map);
    }
}

u64 Mutator::below(u64 bound) {
    return std::uniform_int_distribution<u64>(0, bound - 1)(random_);
}

u64 Mutator::forgedNumber(u64 old) {
    static const std::vector<u64> numbers{0,
                                          1,
                                          2,
                                          3,
                                          5,
                                          6,
                                          16,
                                          63,
                                          64,
                                          65,
                                          99,
                                          100,
                                          101,
                                          128,
                                          u64{1} << 16,
                                          u64{1} << 20,
                                          u64{1} << 21,
                                          (u64{1} << 31) - 1,
                                          u64{1} << 31,
                                          ~u64{0} >> 32,
                                          u64{1} << 32,
                                          u64{1} << 60,
                                          u64{1} << 61,
                                          (u64{1} << 62) - 1,
                                          u64{1} << 63,
                                          ~u64{0} - 1,
                                          ~u64{0}};
    switch (below(6)) {
    case 0:
        return old + 1;
    case 1:
        return old - 1;
    case 2:
        return oneIn(2) ? old * 2 : old / 2;
    case 3:
        return old ^ u64 { 1 } << below(64);
    default:
        return anyOf(numbers);
    }
}

bool Mutator::setNumber(std::string& file, const FileMap& map) {
    if (map.fields().empty()) return false;
    const FileMap::Field& field = anyOf(map.fields());
    if (field.isIdentity && !oneIn(20)) return false;
    const u64 old = FileMap::read(file, field.offset, field.width);
    FileMap::write(file, field.offset, field.width, forgedNumber(old));
    return true;
}

/// A word of a polynomial, which may be no residue at all.
bool Mutator::setWord(std::string& file, const FileMap& map) {
    if (map.polynomials().empty()) return false;
    const FileMap::Polynomial& poly = anyOf(map.polynomials());
    const u64 count = (poly.end - poly.primes) / 8;
    if (count == 0) return false;
    // From the primes on, at their alignment or that of the data.
    const std::size_t offset = (oneIn(8) ? poly.primes : poly.end - count * 8) + 8 * below(count);
    FileMap::write(file, offset, 8, forgedNumber(FileMap::read(file, offset, 8)));
    return true;
}

Mutator::Shape Mutator::forgedShape(const std::string& file, const FileMap::Polynomial& poly) {
    const auto field = [&](std::size_t i) { return FileMap::read(file, poly.begin + 8 * i, 8); };
    Shape shape{
        field(0), field(1), field(2), field(3), file[poly.begin + 32] != 0, file[poly.begin + 33] != 0};
    if (oneIn(2)) shape.degree = u64{1} << below(22);
    if (oneIn(2)) {
        shape.numRows = oneIn(2) ? 1 + below(5) : anyOf<u64>({0, 50, 99, 100, 101});
        shape.numBase = shape.isModUp ? below(shape.numRows + 1) : shape.numRows;
    }
    if (oneIn(4)) {
        shape.isModUp = !shape.isModUp;
        if (!shape.isModUp) shape.numBase = shape.numRows;
    }
    if (oneIn(4)) shape.isNTT = !shape.isNTT;
    if (oneIn(2))
        shape.level = shape.numBase == 0 || oneIn(8) ? forgedNumber(shape.level) : below(shape.numBase);
    return shape;
}

std::string Mutator::forgedPolynomial(const std::string& file, const FileMap::Polynomial& like,
                                      const Shape& shape, bool isGerm) {
    std::string bytes;
    for (const u64 number : {shape.degree, shape.numBase, shape.numRows, shape.level})
        appendNumber(bytes, 8, number);
    appendNumber(bytes, 1, shape.isModUp ? 1 : 0);
    appendNumber(bytes, 1, shape.isNTT ? 1 : 0);
    appendNumber(bytes, 8, shape.numRows);
    const u64 known = (like.flag - like.primes) / 8;
    for (u64 i = 0; i < std::min<u64>(shape.numRows, 128); ++i)
        appendNumber(bytes, 8, known == 0 ? 3 : FileMap::read(file, like.primes + 8 * (i % known), 8));
    appendNumber(bytes, 1, isGerm ? 0 : 1);
    if (isGerm) return bytes + std::string(germBytes, static_cast<char>(below(256)));
    const u64 rows = shape.isModUp || oneIn(2) ? shape.numRows : shape.level + 1;
    const u64 words = shape.degree * rows;
    appendNumber(bytes, 8, words);
    if (words <= maxSize_ / 8) bytes.append(words * 8, '\1');
    return bytes;
}

bool Mutator::swapGermAndData(std::string& file, const FileMap& map) {
    if (map.polynomials().empty()) return false;
    const FileMap::Polynomial poly = anyOf(map.polynomials());
    const auto field = [&](std::size_t i) { return FileMap::read(file, poly.begin + 8 * i, 8); };
    const Shape shape{
        field(0), field(1), field(2), field(3), file[poly.begin + 32] != 0, file[poly.begin + 33] != 0};
    replace(file, poly, forgedPolynomial(file, poly, shape, !isGerm(file, poly)));
    return true;
}

bool Mutator::reshapeOne(std::string& file, const FileMap& map) {
    if (map.polynomials().empty()) return false;
    const FileMap::Polynomial poly = anyOf(map.polynomials());
    const bool asGerm = oneIn(3) ? !isGerm(file, poly) : isGerm(file, poly);
    replace(file, poly, forgedPolynomial(file, poly, forgedShape(file, poly), asGerm));
    return true;
}

/// One shape for all: what a load compares among them agrees.
bool Mutator::reshapeAll(std::string& file, const FileMap& map) {
    if (map.polynomials().empty()) return false;
    const FileMap::Polynomial model = anyOf(map.polynomials());
    const Shape shape = forgedShape(file, model);
    const bool areAllGerms = oneIn(4);
    const std::string before = file;
    // From the last one on, so that the places of those in front stay.
    for (auto poly = map.polynomials().rbegin(); poly != map.polynomials().rend(); ++poly)
        replace(file, *poly, forgedPolynomial(before, model, shape, areAllGerms || isGerm(before, *poly)));
    return true;
}

/// Another item, one less, or two in other places; the count follows, as a rule.
bool Mutator::changeList(std::string& file, const FileMap& map) {
    if (map.lists().empty()) return false;
    const FileMap::List list = anyOf(map.lists());
    const FileMap::Field item = anyOf(list.items), place = anyOf(list.items);
    const std::string bytes = file.substr(item.offset, item.width);
    u64 count = FileMap::read(file, list.count, 8);
    if (oneIn(2)) {
        const u64 copies = oneIn(2) ? 1 : 1 + below(20);
        for (u64 i = 0; i < copies && file.size() <= maxSize_; ++i, ++count) file.insert(place.offset, bytes);
    } else {
        file.erase(item.offset, item.width);
        --count;
    }
    if (!oneIn(8)) FileMap::write(file, list.count, 8, count);
    return true;
}

bool Mutator::copyPolynomial(std::string& file, const FileMap& map) {
    if (map.polynomials().size() < 2) return false;
    const FileMap::Polynomial from = anyOf(map.polynomials()), to = anyOf(map.polynomials());
    replace(file, to, file.substr(from.begin, from.end - from.begin));
    return true;
}

bool Mutator::cut(std::string& file, const FileMap& map) {
    if (map.fields().empty() || !oneIn(4)) return false;
    file.resize(anyOf(map.fields()).offset + below(2));
    return true;
}

} // namespace Torvo::test::fuzz

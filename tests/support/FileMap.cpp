#include "support/FileMap.hpp"

#include <map>
#include <stdexcept>

namespace Torvo::test {

FileMap::FileMap(const std::string& kind, const std::string& file) : file_(file) {
    const Layout walk = layoutOf(kind);
    number(1, true);
    (this->*walk)();
}

FileMap::Layout FileMap::layoutOf(const std::string& kind) {
    static const std::map<std::string, Layout> layouts{
        {"message", &FileMap::messageFile},
        {"plaintext", &FileMap::plaintextFile},
        {"ciphertext", &FileMap::ciphertextFile},
        {"module_ciphertext", &FileMap::ciphertextFile},
        {"compact_ciphertext", &FileMap::compactCiphertextFile},
        {"secret_key", &FileMap::secretKeyFile},
        {"module_secret_key", &FileMap::secretKeyFile},
        {"encryption_key", &FileMap::encryptionKeyFields},
        {"evaluation_key", &FileMap::evaluationKeyFields},
        {"key_without_context", &FileMap::evaluationKeyFields},
        {"encapsulation_key", &FileMap::twoEvaluationKeys},
        {"key_pack", &FileMap::keyPackFile},
        {"ring_switch_key", &FileMap::evaluationKeyFields},
        {"packing_keys", &FileMap::twoEvaluationKeys},
        {"lwe_ciphertext", &FileMap::plainCiphertextFile},
        {"lwe_secret_key", &FileMap::plainSecretKeyFile},
        {"context", &FileMap::contextFile},
        {"lwe_context", &FileMap::plainContextFile},
        {"boot_constants", &FileMap::bootConstantsFile},
        {"encoded_transform", &FileMap::encodedTransformFile},
        {"generator_state", &FileMap::generatorFile},
        {"chebyshev_series", &FileMap::chebyshevSeriesFile},
        {"linear_transform", &FileMap::linearTransformFile},
    };
    const auto found = layouts.find(kind);
    if (found == layouts.end()) throw std::out_of_range("the layout of " + kind + " is not known");
    return found->second;
}

u64 FileMap::read(const std::string& file, std::size_t offset, std::size_t width) {
    u64 value = 0;
    for (std::size_t i = width; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(file.at(offset + i));
    return value;
}

void FileMap::write(std::string& file, std::size_t offset, std::size_t width, u64 value) {
    for (std::size_t i = 0; i < width; ++i) file.at(offset + i) = static_cast<char>(value >> (8 * i));
}

// ---- building blocks

u64 FileMap::number(std::size_t width, bool isIdentity) {
    const std::size_t offset = at_;
    if (!skip(width)) return 0;
    fields_.push_back({offset, width, isIdentity});
    return read(file_, offset, width);
}

void FileMap::identities(std::initializer_list<std::size_t> widths) {
    for (const std::size_t width : widths) number(width, true);
}

bool FileMap::skip(u64 byteCount) {
    isWhole_ = isWhole_ && byteCount <= file_.size() - at_;
    if (isWhole_) at_ += byteCount;
    return isWhole_;
}

void FileMap::array(std::size_t width) {
    const u64 count = number(8);
    isWhole_ = isWhole_ && count <= file_.size();
    skip(count * width);
}

void FileMap::polynomial() {
    Polynomial found{};
    found.begin = at_;
    for (int i = 0; i < 4; ++i) number(8);
    for (int i = 0; i < 2; ++i) number(1);
    const u64 primeCount = number(8);
    found.primes = at_;
    isWhole_ = isWhole_ && primeCount <= file_.size();
    skip(primeCount * 8);
    found.flag = at_;
    const bool isData = number(1) != 0;
    found.content = at_;
    if (isData)
        array(8);
    else
        skip(1024);
    found.end = at_;
    if (isWhole_) polynomials_.push_back(found);
}

template <class WalkOne>
void FileMap::list(WalkOne&& walkOne) {
    List found{at_, {}};
    const u64 count = number(8);
    for (u64 i = 0; i < count && isWhole_; ++i) {
        const std::size_t begin = at_;
        walkOne();
        if (isWhole_) found.items.push_back({begin, at_ - begin, false});
    }
    if (!found.items.empty()) lists_.push_back(found);
}

void FileMap::polynomialVector() {
    list([this] { polynomial(); });
}

void FileMap::evaluationKeyFields() {
    identities({4, 8});
    number(1);
    number(8);
    polynomialVector();
    polynomialVector();
}

void FileMap::ifPresent(Layout key) {
    if (number(1) == 1) (this->*key)();
}

// ---- files, after their frames

void FileMap::messageFile() {
    array(16);
}

void FileMap::plaintextFile() {
    identities({8, 4});
    number(8);
    number(4);
    polynomial();
}

void FileMap::ciphertextFile() {
    identities({8, 4});
    number(8);
    number(4);
    number(4);
    polynomialVector();
}

void FileMap::compactCiphertextFile() {
    identities({8, 4});
    number(8);
    number(4);
    if (skip(1024)) polynomial();
}

/// Both forms of a secret key, from the option on.
void FileMap::secretKeyContent(Layout residues) {
    const bool isSeed = option_ == 1;
    if (!isSeed) number(8, true);
    number(4, true);
    if (!isSeed) number(1);
    skip(number(8));
    if (isSeed) return;
    array(4);
    (this->*residues)();
}

void FileMap::secretKeyFile() {
    number(1);
    option_ = number(4);
    number(4, true);
    secretKeyContent(&FileMap::polynomialVector);
}

void FileMap::plainSecretKeyFile() {
    number(1);
    option_ = number(4);
    secretKeyContent(&FileMap::elementVector);
}

void FileMap::encryptionKeyFields() {
    identities({4, 8});
    polynomial();
    polynomial();
}

void FileMap::twoEvaluationKeys() {
    evaluationKeyFields();
    evaluationKeyFields();
}

void FileMap::keyPackFile() {
    ifPresent(&FileMap::encryptionKeyFields);
    ifPresent(&FileMap::evaluationKeyFields);
    ifPresent(&FileMap::evaluationKeyFields);
    list([this] { evaluationKeyFields(); });
    ifPresent(&FileMap::twoEvaluationKeys);
}

void FileMap::elementVector() {
    number(8);
    number(8);
    array(8);
}

void FileMap::plainCiphertextFile() {
    identities({8, 4});
    number(4);
    elementVector();
    number(8);
    number(8);
    number(1);
    array(8);
}

void FileMap::contextFile() {
    number(4);
    for (int i = 0; i < 8; ++i) number(8);
}

void FileMap::plainContextFile() {
    number(4);
    for (int i = 0; i < 4; ++i) number(8);
}

/// Behind the numbers of the head everything is a digest, zero, or compared with a digest.
void FileMap::bootConstantsFile() {
    identities({8, 4});
    for (int i = 0; i < 3; ++i) number(8);
    skip(file_.size() - at_);
}

void FileMap::chebyshevSeriesFile() {
    number(4, true);
    number(8);
    number(8);
    array(16);
}

void FileMap::encodedTransformFile() {
    identities({8, 4});
    for (int i = 0; i < 5; ++i) number(8);
    list([this] {
        number(8);
        array(8);
    });
}

void FileMap::linearTransformFile() {
    number(4, true);
    number(8);
    list([this] {
        number(8);
        array(8);
        array(16);
    });
}

void FileMap::generatorFile() {
    for (int i = 0; i < 6; ++i) number(8);
}

} // namespace Torvo::test

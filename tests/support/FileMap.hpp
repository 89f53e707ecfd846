#pragma once

#include "core/Integers.hpp"

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace Torvo::test {

/// The positions of the fields of a file, by docs/files.md, found by walking through the file as a load does.
/// The walk ends where the file ends; all fields before that are known.
class FileMap {
public:
    /// A number of 1, 4 or 8 bytes. An identity (frame, hash, tag) is one that a load compares with what it
    /// expects: another value there ends it early.
    struct Field {
        std::size_t offset, width;
        bool isIdentity;
    };
    struct Polynomial {
        std::size_t begin;   ///< of the degree
        std::size_t primes;  ///< of the first of them
        std::size_t flag;    ///< 0 in front of a germ, 1 in front of data
        std::size_t content; ///< of the germ, or of the count of words
        std::size_t end;
    };
    /// Elements in a row, of which there could be more.
    struct List {
        std::size_t count;        ///< where their number stands
        std::vector<Field> items; ///< offset and width of each
    };

    FileMap(const std::string& kind, const std::string& file);

    const std::vector<Field>& fields() const { return fields_; }
    const std::vector<Polynomial>& polynomials() const { return polynomials_; }
    const std::vector<List>& lists() const { return lists_; }

    /// Where the walk ended: after the last complete field.
    std::size_t end() const { return at_; }

    /// The number of `width` bytes at `offset`, which lies within the file.
    static u64 read(const std::string& file, std::size_t offset, std::size_t width);
    static void write(std::string& file, std::size_t offset, std::size_t width, u64 value);

private:
    using Layout = void (FileMap::*)();
    static Layout layoutOf(const std::string& kind);

    u64 number(std::size_t width, bool isIdentity = false);
    void identities(std::initializer_list<std::size_t> widths);
    /// Whether there are `byteCount` bytes more, which then are passed over.
    bool skip(u64 byteCount);
    void array(std::size_t width);
    void polynomial();
    template <class WalkOne>
    void list(WalkOne&& walkOne);
    void polynomialVector();
    void evaluationKeyFields();
    void ifPresent(Layout key);

    void messageFile();
    void plaintextFile();
    void ciphertextFile();
    void compactCiphertextFile();
    void secretKeyFile();
    void plainSecretKeyFile();
    void secretKeyContent(Layout residues);
    void encryptionKeyFields();
    void twoEvaluationKeys();
    void keyPackFile();
    void elementVector();
    void plainCiphertextFile();
    void contextFile();
    void plainContextFile();
    void bootConstantsFile();
    void encodedTransformFile();
    void linearTransformFile();
    void generatorFile();
    void chebyshevSeriesFile();

    const std::string& file_;
    std::size_t at_ = 0;
    bool isWhole_ = true; ///< false once a field was cut off by the end
    u64 option_ = 0;      ///< which form of a secret key it is
    std::vector<Field> fields_;
    std::vector<Polynomial> polynomials_;
    std::vector<List> lists_;
};

} // namespace Torvo::test

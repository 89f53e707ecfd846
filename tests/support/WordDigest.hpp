#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "core/Blake3.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWESecretKey.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/ModPackKeyBundle.hpp>
#include <Torvo/Plaintext.hpp>
#include <Torvo/RingSwitchKey.hpp>
#include <Torvo/SecretKey.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace Torvo::test {

/// A digest of the whole content of an object: its flags and counters, and every word that operations read.
/// Objects that differ in any of these have different digests. How the words are stored (holes, germs,
/// capacity) does not count.
class WordDigest {
public:
    /// 16 bytes in hexadecimal digits.
    std::string hex() const {
        std::array<std::uint8_t, 16> hash{};
        utils::doBLAKE3Hash(hash.data(), hash.size(), gathered_.data(), gathered_.size());
        std::string digits;
        for (const unsigned byte : hash)
            for (const unsigned nibble : {byte >> 4, byte & 15}) digits += "0123456789abcdef"[nibble];
        return digits;
    }

    WordDigest& add(u64 number) { return gather(&number, sizeof number); }
    WordDigest& add(double number) { return gather(&number, sizeof number); }
    WordDigest& add(const std::string& bytes) { return block(bytes.data(), bytes.size()); }
    WordDigest& add(const Message& message) {
        return block(message.begin(), message.getSize() * sizeof *message.begin());
    }

    WordDigest& add(const Polynomial& poly) {
        add(poly.getLevel()).add(u64{poly.isModUp()}).add(u64{poly.isNTT()});
        for (u64 i = 0; i < poly.rowEnd(); ++i)
            if (poly.isLiveRow(i)) block(poly.getRow(i), poly.getDegree() * sizeof(u64));
        return *this;
    }
    WordDigest& add(const Plaintext& plaintext) {
        add(plaintext.getLogSlots()).add(static_cast<u64>(plaintext.getRescaleCounter()));
        return add(plaintext.getMx());
    }
    template <EncryptionType E>
    WordDigest& add(const CiphertextBase<E>& ciphertext) {
        add(ciphertext.getLogSlots()).add(static_cast<u64>(ciphertext.getRescaleCounter()));
        add(static_cast<u64>(ciphertext.getEncodingType())).add(u64{ciphertext.getNumPoly()});
        for (u64 i = 0; i < ciphertext.getNumPoly(); ++i) add(ciphertext.getPoly(i));
        return *this;
    }

    template <EncryptionType E>
    WordDigest& add(const SecretKeyBase<E>& key) {
        const u64 rank = getRank(key.getContext()), degree = getDegree(key.getContext());
        block(key.getCoefficients(), rank * degree * sizeof(int));
        for (u64 i = 0; i < rank; ++i) add(key.getSx(i));
        return *this;
    }
    WordDigest& add(const EncryptionKey& key) { return add(key.getAx()).add(key.getBx()); }
    WordDigest& add(const EvaluationKey& key) {
        gather(std::array{key.getType()}.data(), 1).add(key.getRotationIndex());
        for (u64 j = 0; j < key.getGadgetRank(); ++j)
            add(key.getAxIter(Device{})[j]).add(key.getBxIter(Device{})[j]);
        return *this;
    }
    WordDigest& add(const SparseSecretEncapsulationKey& key) {
        return add(*key.getDTSPart()).add(*key.getSTDPart());
    }
    WordDigest& add(const RingSwitchKey& key) { return add(key.getKey()); }
    WordDigest& add(const ModPackKeyBundle& keys) {
        for (u64 i = 0; i < keys.getNumKeys(); ++i) add(*keys.getModPackKey(i));
        return *this;
    }

    WordDigest& add(const LevelledVector& vector) {
        add(vector.getLevel());
        for (u64 i = 0; i <= vector.getLevel(); ++i) block(vector.getRow(i), vector.getDimension() * 8);
        return *this;
    }
    WordDigest& add(const LevelledElement& element) {
        add(element.getLevel());
        for (u64 i = 0; i <= element.getLevel(); ++i) add(element[i]);
        return *this;
    }
    WordDigest& add(const LWE::Ciphertext& ciphertext) {
        add(static_cast<u64>(ciphertext.getRescaleCounter()));
        return add(ciphertext.getAx()).add(ciphertext.getBx());
    }
    WordDigest& add(const LWE::SecretKey& key) {
        return block(key.getCoefficients(), key.getSx().getDimension() * sizeof(int)).add(key.getSx());
    }

    template <class T>
    WordDigest& add(const std::vector<T>& objects) {
        add(u64{objects.size()});
        for (const T& object : objects) add(object);
        return *this;
    }

private:
    WordDigest& gather(const void* bytes, u64 count) {
        gathered_.append(static_cast<const char*>(bytes), count);
        return *this;
    }
    /// By its length and its own hash, so that nothing large is gathered.
    WordDigest& block(const void* bytes, u64 count) {
        std::array<std::uint8_t, 32> hash{};
        utils::doBLAKE3Hash(hash.data(), hash.size(), bytes, count);
        return add(count).gather(hash.data(), hash.size());
    }

    std::string gathered_;
};

} // namespace Torvo::test

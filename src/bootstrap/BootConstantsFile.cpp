#include "bootstrap/BootConstantsFile.hpp"

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "bootstrap/Messages.hpp"
#include "context/ContextContent.hpp"
#include "core/Blake3.hpp"
#include "persistence/MappedFile.hpp"
#include "persistence/Serialize.hpp"
#include "persistence/Verifier.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

using Byte = unsigned char;
using Digest = std::array<Byte, 32>;
using Rows = std::span<const u64>; ///< of one plaintext

Digest digestOf(const void* bytes, u64 byteCount) {
    Digest digest{};
    utils::doBLAKE3Hash(digest.data(), digest.size(), bytes, byteCount);
    return digest;
}

/// The digest of the digests of all plaintexts, so that threads can share the work.
Digest digestOf(const std::vector<Rows>& plaintexts) {
    std::vector<Digest> digests(plaintexts.size());
    forEachIndexInTurns(plaintexts.size(), [&](u64 i) {
        digests[i] = digestOf(plaintexts[i].data(), plaintexts[i].size_bytes());
    });
    return digestOf(digests.data(), digests.size() * sizeof(Digest));
}

/// The rows of all plaintexts in the order of the file.
std::vector<Rows> rowsOf(const std::vector<std::vector<Plaintext>>& slotToCoeff,
                         const std::vector<std::vector<Plaintext>>& coeffToSlot) {
    std::vector<Rows> rows;
    for (const auto* transform : {&slotToCoeff, &coeffToSlot})
        for (const auto& stage : *transform)
            for (const Plaintext& plaintext : stage)
                rows.emplace_back(plaintext.getMx().getData().getData(), plaintext.getMx().getData().size());
    return rows;
}

/// Makes the plaintexts in the order of the file; `fill(polynomial)` gives each its rows.
template <class Fill>
BootStages makeStages(const BootRecipe& recipe, Fill&& fill) {
    const auto makeAll = [&](const std::vector<BootStageShape>& shapes) {
        std::vector<std::vector<Plaintext>> stages(shapes.size());
        for (u64 s = 0; s < shapes.size(); ++s) {
            stages[s].reserve(shapes[s].count);
            while (stages[s].size() < shapes[s].count) {
                Polynomial poly(recipe.context, false, true, shapes[s].level);
                fill(poly);
                stages[s].emplace_back(recipe.context, std::move(poly)).setLogSlots(recipe.log_slots);
            }
        }
        return stages;
    };
    const BootShapes shapes(recipe.log_slots, recipe.context->parameter.chain_length);
    BootStages made;
    made.slotToCoeff = makeAll(shapes.slotToCoeff);
    made.coeffToSlot = makeAll(shapes.coeffToSlot);
    return made;
}

/// A digest of the numbers behind the constants that the other fields of the head do not name.
Digest recipeDigest(const BootRecipe& recipe) {
    const ContextContent& context = *recipe.context;
    std::vector<double> numbers{recipe.coeff_to_slot_constant, recipe.slot_to_coeff_constant};
    const auto scales = context.scale_factors.log_scale.begin();
    numbers.insert(numbers.end(), scales,
                   scales + static_cast<std::ptrdiff_t>(context.parameter.chain_length));
    return digestOf(numbers.data(), numbers.size() * sizeof(double));
}

/// The head of a file, byte for byte.
class Head {
public:
    using Bytes = std::array<Byte, BootConstantsFile::headBytes>;

    static Head of(const BootRecipe& recipe, const Digest& contents) {
        Head head;
        head.put(0, Byte{1}); // the frame
        head.put(hashAt, recipe.context->context_hash);
        head.put(tagAt, ObjectTag::BootConstants);
        head.put(slotsAt, recipe.log_slots);
        head.put(degreeAt, recipe.context->parameter.degree);
        head.put(chainAt, recipe.context->parameter.chain_length);
        head.put(recipeAt, recipeDigest(recipe));
        head.put(contentsAt, contents);
        head.put(digestAt, digestOf(head.bytes_.data(), digestAt));
        return head;
    }
    static Head from(const char* bytes) {
        Head head;
        std::memcpy(head.bytes_.data(), bytes, head.bytes_.size());
        return head;
    }

    /// Without the frame, which the archive writes.
    void save(OutputArchive& archive) const {
        archive.saveBinary<1>(bytes_.data() + 1, static_cast<std::streamsize>(bytes_.size() - 1));
    }
    /// The tag is read as a number: that of a file with the other frame does not fit then.
    void load(InputArchive& archive) {
        ObjectTag tag{};
        archive.loadBinary<1>(bytes_.data() + hashAt, tagAt - hashAt);
        archive(tag);
        archive.loadBinary<1>(bytes_.data() + slotsAt, static_cast<std::streamsize>(bytes_.size() - slotsAt));
        put(0, Byte{1});
        put(tagAt, tag);
    }

    Digest contents() const { return get<Digest>(contentsAt); }

    /// Why a file with this head is none of `recipe`; empty when it is one.
    std::string misfit(const BootRecipe& recipe) const {
        const Head expected = of(recipe, contents());
        if (!agrees(expected, 0, hashAt) || !agrees(expected, tagAt, slotsAt)) return message::noConstants;
        if (digestOf(bytes_.data(), digestAt) != get<Digest>(digestAt)) return message::damagedHead;
        if (!agrees(expected, hashAt, tagAt)) return message::constantsOfOtherRing;
        if (!agrees(expected, slotsAt, degreeAt))
            return message::constantsOfOtherSlots + std::to_string(get<u64>(slotsAt)) +
                   message::notTheseSlots + std::to_string(recipe.log_slots) + message::giveTheirs;
        return bytes_ == expected.bytes_ ? "" : message::constantsOfOtherParameters;
    }

private:
    static constexpr u64 hashAt = 1, tagAt = 9, slotsAt = 13, degreeAt = 21, chainAt = 29, recipeAt = 37,
                         contentsAt = 69, digestAt = BootConstantsFile::headBytes - sizeof(Digest);

    template <class T>
    void put(u64 at, const T& value) {
        std::memcpy(bytes_.data() + at, &value, sizeof value);
    }
    template <class T>
    T get(u64 at) const {
        T value{};
        std::memcpy(&value, bytes_.data() + at, sizeof value);
        return value;
    }
    bool agrees(const Head& other, u64 begin, u64 end) const {
        return std::equal(bytes_.begin() + begin, bytes_.begin() + end, other.bytes_.begin() + begin);
    }

    Bytes bytes_{};
};

[[noreturn]] void refuse(const std::string& source, const std::string& reason) {
    throw RuntimeException(message::cannotTakeConstants + source + ": " + reason);
}

void requireHead(const Head& head, const BootRecipe& recipe, const std::string& source) {
    const std::string misfit = head.misfit(recipe);
    if (!misfit.empty()) refuse(source, misfit);
}

void requireContents(const Head& head, const BootStages& stages, const std::string& source) {
    if (digestOf(rowsOf(stages.slotToCoeff, stages.coeffToSlot)) != head.contents())
        refuse(source, message::damagedConstants);
}

class Saved {
public:
    explicit Saved(const BootConstants& constants)
        : plaintexts_(rowsOf(constants.getV0(Device{}), constants.getInvV0(Device{}))),
          head_(Head::of(constants.getRecipe(), digestOf(plaintexts_))) {}

    void save(OutputArchive& archive) const {
        head_.save(archive);
        for (const Rows& rows : plaintexts_)
            archive.saveBinary<sizeof(u64)>(rows.data(), static_cast<std::streamsize>(rows.size_bytes()));
    }

private:
    std::vector<Rows> plaintexts_;
    Head head_;
};

struct Loaded {
    const BootRecipe& recipe;
    const std::string& source;
    bool check;
    BootStages stages{};

    void load(InputArchive& archive) {
        Head head;
        head.load(archive);
        requireHead(head, recipe, source);
        stages = makeStages(recipe, [&](Polynomial& poly) {
            auto& rows = poly.getData();
            archive.loadBinary<sizeof(u64)>(rows.getData(), static_cast<std::streamsize>(rows.sizeInBytes()));
        });
        if (check) requireContents(head, stages, source);
    }
};

} // namespace

u64 BootConstantsFile::byteCount(u64 log_slots, u64 degree, u64 chain_length) {
    return headBytes + BootShapes(log_slots, chain_length).rowCount() * degree * sizeof(u64);
}

// To write over a file that is in use would take it away from its readers, this one first.
void BootConstantsFile::save(const BootConstants& constants, const std::string& path) {
    if (constants.getFile() != nullptr && constants.getFile()->isAt(path)) return;
    Serialize::save(path, Saved(constants));
}

void BootConstantsFile::save(const BootConstants& constants, std::ostream& stream) {
    Serialize::save(stream, Saved(constants));
}

BootStages BootConstantsFile::map(const std::string& path, bool check) const {
    const Parameter& parameter = recipe_.context->parameter;
    const u64 expected = byteCount(recipe_.log_slots, parameter.degree, parameter.chain_length);
    const auto file = std::make_shared<const MappedFile>(path);
    const Head head = file->size() < headBytes ? Head() : Head::from(file->data());
    if (file->size() >= headBytes) requireHead(head, recipe_, path);
    if (file->size() != expected)
        refuse(path, message::constantsHold + std::to_string(file->size()) + message::bytesNot +
                         std::to_string(expected) + message::saveThemAgain);
    const char* at = file->data() + headBytes;
    BootStages stages = makeStages(recipe_, [&](Polynomial& poly) {
        const u64 words = poly.getData().size();
        poly.setData(DeviceSpecificArray<u64>::borrowed(file, reinterpret_cast<const u64*>(at), words));
        at += words * sizeof(u64);
    });
    if (check) requireContents(head, stages, path);
    stages.file = file;
    return stages;
}

BootStages BootConstantsFile::read(const std::string& path, bool check) const {
    Loaded loaded{recipe_, path, check};
    Serialize::loadWhole(path, loaded);
    return std::move(loaded.stages);
}

BootStages BootConstantsFile::read(std::istream& stream, bool check) const {
    const std::string source = message::aStream;
    Loaded loaded{recipe_, source, check};
    Serialize::load(stream, loaded);
    return std::move(loaded.stages);
}

} // namespace Torvo

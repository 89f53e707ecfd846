#pragma once

#include "arithmetic/elements/LevelledVector.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "crypto/SeedState.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/LWEContext.hpp>

#include <iosfwd>
#include <string>

namespace Torvo::LWE {

/// The record behind a secret key handle. The coefficients are the key; `sx` is derived from them. Everything
/// that reveals the key is wiped on destruction and before assignment.
class SecretKeyImpl {
public:
    /// A random key, drawn from the calling thread's generator as `KeySampling` says.
    explicit SecretKeyImpl(const Context& context);
    SecretKeyImpl(const Context& context, const int* coefficients);
    /// From either saved form.
    SecretKeyImpl(const Context& context, std::istream& stream);
    SecretKeyImpl(const Context& context, const std::string& path);

    SecretKeyImpl(const SecretKeyImpl&) = default;
    SecretKeyImpl& operator=(const SecretKeyImpl& other);
    ~SecretKeyImpl();

    void save(std::ostream& stream) const;
    void save(const std::string& path) const;
    void saveSeedOnly(std::ostream& stream) const;
    void saveSeedOnly(const std::string& path) const;

    // The two forms, for detail::CerealAdaptor.
    void saveFull(OutputArchive& archive) const;
    void saveSeed(OutputArchive& archive) const;
    void loadFull(InputArchive& archive);
    void loadSeed(InputArchive& archive);

    Context context;
    SeedState seed; ///< just before sampling; none for a given key
    DeviceSpecificArray<int> coefficients;
    LevelledVector sx;

private:
    /// Distinguishes the constructors that size all members by the context from the public ones.
    struct Unset {};
    /// Data unset, at its final size, so that writing to it leaves no copy in freed memory.
    SecretKeyImpl(const Context& context, Unset);

    void sample();
    void deriveSx();
};

} // namespace Torvo::LWE

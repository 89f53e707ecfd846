#pragma once

#include "arithmetic/PolynomialVector.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/EncryptionType.hpp>

#include <iosfwd>
#include <string>

namespace Torvo {

/// The record behind a secret key handle. The coefficients are the key; `sx` is derived from them. All
/// secret buffers are wiped on destruction.
template <EncryptionType E>
class SecretKeyImpl {
public:
    explicit SecretKeyImpl(const Context& context);
    SecretKeyImpl(const Context& context, const int* coefficients);
    /// Of either saved form.
    SecretKeyImpl(const Context& context, std::istream& stream);

    SecretKeyImpl(const SecretKeyImpl&) = default;
    SecretKeyImpl& operator=(const SecretKeyImpl&) = default;
    ~SecretKeyImpl();

    void save(std::ostream& stream) const;
    void saveSeedOnly(std::ostream& stream) const;

    // The persistence implementer adds what detail::CerealAdaptor needs.

    Context context;
    bool is_random = false;
    std::string rng_state; ///< generator state just before sampling; empty for a given key
    DeviceSpecificArray<int> coefficients;
    PolynomialVector sx;
    EncryptionType encryption_type = E;
};

} // namespace Torvo

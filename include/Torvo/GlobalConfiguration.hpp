#pragma once

#include <Torvo/Export.hpp>

#include <nlohmann/json.hpp>

namespace Torvo {

/// A JSON document of the configuration version and feature switches, offered to the application. The library
/// itself reads nothing from it.
/// Not synchronised: `setFeature` must not run beside reads.
class TORVO_API GlobalConfiguration {
public:
    explicit GlobalConfiguration(nlohmann::json config);

    /// The document of this process, made at the first call from the defaults; valid to the end of the
    /// process.
    static GlobalConfiguration& instance();

    /// A copy of `config["features"][name]`; null when there is no such key.
    /// @throws nlohmann::json::type_error when the document or "features" is neither an object nor null:
    ///         "cannot use operator[] with a string argument with " and the type
    nlohmann::json getFeature(const char* name) const;

    /// The switch `name` as a boolean; false when it is absent or there are no features.
    /// @throws nlohmann::json::type_error when the value is not a boolean: "type must be boolean, but is "
    ///         and the type
    bool isFeatureEnabled(const char* name) const;

    /// Sets `config["features"][name]`, and adds it, and "features" too, if it is missing.
    /// @throws nlohmann::json::type_error when the document or "features" is neither an object nor null
    void setFeature(const char* name, bool value);
    /// As above, with any JSON value. Pass a `nlohmann::json`: a bare number or string literal would be read
    /// as a `bool`.
    void setFeature(const char* name, nlohmann::json value);

private:
    nlohmann::json config_;
};

} // namespace Torvo

#pragma once

#include <Torvo/Export.hpp>

#include <nlohmann/json.hpp>

namespace Torvo {

/// A JSON document of the configuration version and feature switches, offered to the application. The
/// library itself reads nothing from it.
/// Not synchronised: `setFeature` must not run beside reads.
class TORVO_API GlobalConfiguration {
public:
    explicit GlobalConfiguration(nlohmann::json config);

    /// The document of this process, made at the first call from the defaults; valid to the end of the
    /// process.
    static GlobalConfiguration& instance();

    /// A copy of `config["features"][name]`; null when there is no such key.
    /// @throws nlohmann::json::type_error when "features" is not an object
    nlohmann::json getFeature(const char* name) const;

    /// The switch `name` as a boolean; false when it is absent or there are no features.
    /// @throws nlohmann::json::type_error when the value is not a boolean
    bool isFeatureEnabled(const char* name) const;

    /// Sets `config["features"][name]`, adding it when it is new.
    void setFeature(const char* name, bool value);
    /// As above, with any JSON value.
    void setFeature(const char* name, nlohmann::json value);

private:
    nlohmann::json config_;
};

} // namespace Torvo

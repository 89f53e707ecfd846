#include <Torvo/GlobalConfiguration.hpp>

#include <utility>

namespace Torvo {

namespace {

const nlohmann::json defaultConfiguration = {
    {"major_version", 0},
    {"minor_version", 3},
    {"patch_version", 0},
    {"features", {{"use_radix", {1, 2, 3}}, {"use_new_filesystem", true}}},
};

} // namespace

GlobalConfiguration::GlobalConfiguration(nlohmann::json config) : config_(std::move(config)) {}

GlobalConfiguration& GlobalConfiguration::instance() {
    // Never destroyed: destructors of the application's static objects may still use it.
    static auto& configuration = *new GlobalConfiguration(defaultConfiguration);
    return configuration;
}

nlohmann::json GlobalConfiguration::getFeature(const char* name) const {
    auto config = config_; // the subscript of a missing key inserts it, which here must stay without effect
    return config["features"][name];
}

bool GlobalConfiguration::isFeatureEnabled(const char* name) const {
    if (!config_.contains("features")) return false;
    const auto& features = config_["features"];
    return features.contains(name) && features[name].get<bool>();
}

void GlobalConfiguration::setFeature(const char* name, bool value) {
    setFeature(name, nlohmann::json(value));
}

void GlobalConfiguration::setFeature(const char* name, nlohmann::json value) {
    config_["features"][name] = std::move(value);
}

} // namespace Torvo

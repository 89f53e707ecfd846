#include <Torvo/GlobalConfiguration.hpp>

#include "support/Expect.hpp"

namespace Torvo {
namespace {

using Json = nlohmann::json;

/// No member returns the version. This explicit instantiation reads it, since it may name private members.
const Json& documentOf(const GlobalConfiguration& configuration);
template <auto document>
struct DocumentReader {
    friend const Json& documentOf(const GlobalConfiguration& configuration) {
        return configuration.*document;
    }
};
template struct DocumentReader<&GlobalConfiguration::config_>;

TEST(GlobalConfiguration, TheDocumentHasAVersionOfItsOwn) {
    const Json& document = documentOf(GlobalConfiguration::instance());
    EXPECT_EQ(document.at("major_version"), 0);
    EXPECT_EQ(document.at("minor_version"), 3);
    EXPECT_EQ(document.at("patch_version"), 0);
    EXPECT_EQ(document.size(), 4U) << "and its features";
}

TEST(GlobalConfiguration, InstanceIsOneAndHasTheDefaultFeatures) {
    auto& configuration = GlobalConfiguration::instance();
    EXPECT_EQ(&configuration, &GlobalConfiguration::instance());
    EXPECT_EQ(configuration.getFeature("use_radix"), Json::parse("[1, 2, 3]"));
    EXPECT_EQ(configuration.getFeature("use_new_filesystem"), Json(true));
}

TEST(GlobalConfiguration, SwitchesAnswerAsBooleans) {
    const auto& configuration = GlobalConfiguration::instance();
    EXPECT_FALSE(configuration.isFeatureEnabled("absent"));
    EXPECT_TRUE(configuration.isFeatureEnabled("use_new_filesystem"));
}

TEST(GlobalConfiguration, AskingAddsNothing) {
    GlobalConfiguration configuration(Json::parse(R"({"features": {}})"));
    EXPECT_TRUE(configuration.getFeature("absent").is_null());
    EXPECT_FALSE(configuration.isFeatureEnabled("absent"));
}

TEST(GlobalConfiguration, WithoutFeaturesEverySwitchIsOff) {
    for (const char* text : {"{}", "[]", "null", "3", R"({"features": 4})", R"({"features": [true]})"})
        EXPECT_FALSE(GlobalConfiguration(Json::parse(text)).isFeatureEnabled("x")) << text;
}

TEST(GlobalConfiguration, AValueThatIsNoBooleanIsNoSwitch) {
    EXPECT_THROW_TEXT(GlobalConfiguration::instance().isFeatureEnabled("use_radix"), Json::type_error,
                      "[json.exception.type_error.302] type must be boolean, but is array");
}

TEST(GlobalConfiguration, FeaturesThatAreNoObjectCannotBeRead) {
    const GlobalConfiguration configuration(Json::parse(R"({"features": [1]})"));
    EXPECT_THROW_TEXT(
        configuration.getFeature("x"), Json::type_error,
        "[json.exception.type_error.305] cannot use operator[] with a string argument with array");
}

TEST(GlobalConfiguration, SettingAddsAndReplaces) {
    GlobalConfiguration configuration(Json::object());
    configuration.setFeature("x", true);
    EXPECT_TRUE(configuration.isFeatureEnabled("x"));
    configuration.setFeature("x", false);
    EXPECT_FALSE(configuration.isFeatureEnabled("x"));
    configuration.setFeature("x", Json::parse(R"({"depth": 2})"));
    EXPECT_EQ(configuration.getFeature("x")["depth"], 2);
}

TEST(GlobalConfiguration, SettingMakesWhatIsNullAnObjectAndRefusesTheRest) {
    for (const char* text : {"null", "{}", R"({"features": null})"}) {
        GlobalConfiguration configuration(Json::parse(text));
        configuration.setFeature("x", true);
        EXPECT_TRUE(configuration.isFeatureEnabled("x")) << text;
    }
    for (const char* text : {"[]", R"({"features": []})"}) {
        GlobalConfiguration configuration(Json::parse(text));
        EXPECT_THROW_TEXT(
            configuration.setFeature("x", true), Json::type_error,
            "[json.exception.type_error.305] cannot use operator[] with a string argument with array");
    }
}

TEST(GlobalConfiguration, NumbersAndTextsAreSetAsJson) {
    GlobalConfiguration configuration(Json::object());
    configuration.setFeature("depth", Json(2));
    configuration.setFeature("name", Json("two"));
    EXPECT_EQ(configuration.getFeature("depth"), Json(2));
    EXPECT_EQ(configuration.getFeature("name"), Json("two"));
}

TEST(GlobalConfiguration, InstanceCanBeChanged) {
    auto& configuration = GlobalConfiguration::instance();
    configuration.setFeature("only_for_this_test", true);
    EXPECT_TRUE(GlobalConfiguration::instance().isFeatureEnabled("only_for_this_test"));
}

TEST(GlobalConfiguration, WhatIsReadIsACopy) {
    GlobalConfiguration configuration(Json::parse(R"({"features": {"list": [1]}})"));
    configuration.getFeature("list").push_back(2);
    EXPECT_EQ(configuration.getFeature("list"), Json::parse("[1]"));
}

} // namespace
} // namespace Torvo

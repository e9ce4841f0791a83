// The properties in which the state of a log survives.

#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace {

const char* const KEY = "persist.test";

std::string get(const char* key, const char* otherwise = "unset") {
    char value[PROPERTY_VALUE_MAX];
    const int length = property_get(key, value, otherwise);
    EXPECT_EQ(strlen(value), static_cast<size_t>(length));
    return value;
}

fs::path folder() {
    return getenv("OX_RUNTIME_DIR") + std::string("/state/properties");
}

}  // namespace

TEST(Properties, KeepUpTo91Characters) {
    EXPECT_EQ(get("persist.never.set"), "unset");
    EXPECT_EQ(get("persist.never.set", nullptr), "");
    EXPECT_EQ(get("persist.never.set", std::string(200, 'd').c_str()), std::string(91, 'd'));
    const std::string longest(91, 'v');
    EXPECT_EQ(property_set(KEY, longest.c_str()), 0);
    EXPECT_EQ(property_set(KEY, (longest + "v").c_str()), -1) << "and leaves the one before";
    EXPECT_EQ(get(KEY), longest);
    EXPECT_EQ(property_set(KEY, "a b\n"), 0);
    EXPECT_EQ(get(KEY), "a b\n");
    EXPECT_EQ(property_set(KEY, nullptr), 0);
    EXPECT_EQ(get(KEY), "unset");
}

TEST(Properties, RefuseWhatCannotBeStored) {
    fs::create_directories(folder() / "persist.folder");
    for (const char* key : {"persist.folder", "", ".", "..", ".new-1", "a/b", "../test"}) {
        EXPECT_EQ(property_set(key, "v"), -1) << key;
        EXPECT_EQ(get(key), "unset") << key;
    }
    EXPECT_EQ(property_set(nullptr, "v"), -1);
    EXPECT_EQ(get(nullptr), "unset");
}

TEST(Properties, HaveRoomFor256) {
    fs::remove_all(folder());
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(property_set(std::to_string(i).c_str(), "on"), 0) << i;
    }
    EXPECT_EQ(property_set("256", "on"), -1);
    EXPECT_EQ(property_set("255", "off"), 0);
    EXPECT_EQ(fs::status(folder()).permissions(), fs::perms::owner_all);
    fs::remove_all(folder());
}

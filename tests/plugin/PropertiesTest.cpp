// The properties in which the state of a log survives.

#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

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

void expectNoScratchFiles() {
    for (const auto& entry : fs::directory_iterator(folder())) {
        EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();
    }
}

/** A value that tells when it is a mixture: a letter, as often as the letter says. */
std::string uniform(char letter) {
    return std::string(1 + (letter - 'a') * 10, letter);
}

int writeMany() {
    int result = 0;
    for (int i = 0; i < 60; ++i) {
        result |= property_set(KEY, uniform(static_cast<char>('a' + i % 10)).c_str());
    }
    return result;
}

}  // namespace

TEST(Properties, KeepUpTo91Characters) {
    EXPECT_EQ(get("persist.never.set"), "unset");
    EXPECT_EQ(get("persist.never.set", nullptr), "");
    EXPECT_EQ(get("persist.never.set", std::string(200, 'd').c_str()), std::string(91, 'd'));
    const std::string longest(91, 'v');
    EXPECT_EQ(property_set(KEY, longest.c_str()), 0);
    EXPECT_NE(property_set(KEY, (longest + "v").c_str()), 0) << "and leaves the one before";
    EXPECT_EQ(get(KEY), longest);
    EXPECT_EQ(property_set(KEY, "a b\n"), 0);
    EXPECT_EQ(get(KEY), "a b\n");
    EXPECT_EQ(property_set(KEY, nullptr), 0);
    EXPECT_EQ(get(KEY), "unset");
}

TEST(Properties, RefuseWhatCannotBeStored) {
    fs::create_directories(folder() / "persist.folder");
    for (const char* key : {"persist.folder", "", ".", "..", ".new-1", "a/b", "../test"}) {
        EXPECT_NE(property_set(key, "v"), 0) << key;
        EXPECT_EQ(get(key), "unset") << key;
    }
    EXPECT_NE(property_set(nullptr, "v"), 0);
    EXPECT_EQ(get(nullptr), "unset");
    expectNoScratchFiles();
}

TEST(Properties, AreNeverAMixtureOfTwoWriters) {
    ASSERT_EQ(property_set(KEY, "a"), 0);
    const pid_t other = fork();  // another process writes, too
    if (other == 0) {
        _exit(writeMany());
    }
    std::atomic<bool> isDone{false};
    const auto readMany = [&] {
        while (!isDone) {
            const std::string value = get(KEY);
            ASSERT_EQ(value, uniform(value[0]));
        }
    };
    const auto write = [] { EXPECT_EQ(writeMany(), 0); };
    std::thread readers[] = {std::thread(readMany), std::thread(readMany)};
    std::thread writers[] = {std::thread(write), std::thread(write)};
    for (std::thread& writer : writers) {
        writer.join();
    }
    int status = -1;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0);
    isDone = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    expectNoScratchFiles();
}

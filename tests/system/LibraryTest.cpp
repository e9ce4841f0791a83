#include <gmock/gmock.h>

#include <cstdio>
#include <memory>
#include <set>
#include <sstream>

#include "tests/system/Desk.h"

namespace {

/** The last word of each line that a shell command prints. */
std::set<std::string> lastWords(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    for (int c = 0; (c = getc(pipe.get())) != EOF;) {
        output += static_cast<char>(c);
    }
    std::istringstream lines(output);
    std::set<std::string> words;
    for (std::string line; std::getline(lines, line);) {
        words.insert(line.substr(line.rfind(' ') + 1));
    }
    return words;
}

}  // namespace

TEST(Library, ExportsItsEntryAlone) {
    if (SANITIZED) {
        GTEST_SKIP() << "sanitizers add symbols";
    }
    EXPECT_THAT(lastWords("nm -D --defined-only " PLUGIN), testing::ElementsAre("onLoad"));
}

TEST(Library, NeedsTheDevicesLibrariesAndTheRuntimesAlone) {
    if (SANITIZED) {
        GTEST_SKIP() << "sanitizers add libraries";
    }
    const std::set<std::string> known = {
            "[lib-framework.so]", "[libcutils.so]",          "[libhidlbase.so]",
            "[libutils.so]",      "[libmodemapi_vendor.so]", "[vendor.lyr.modem@1.0.so]",
            "[libstdc++.so.6]",   "[libgcc_s.so.1]",         "[libc.so.6]",
            "[libm.so.6]",        "[ld-linux-x86-64.so.2]"};
    const auto needed = lastWords("readelf -d " PLUGIN " | grep NEEDED");
    EXPECT_GT(needed.size(), 5U);
    for (const std::string& library : needed) {
        EXPECT_EQ(1U, known.count(library)) << library;
    }
}

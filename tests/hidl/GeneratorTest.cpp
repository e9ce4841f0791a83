#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

struct Mistake {
    const char* types;      ///< after the package line
    const char* interface;  ///< after the package line, in IThing.hal
    const char* message;    ///< file, line and reason
};

constexpr const char* NO_TYPES = "";
constexpr const char* EMPTY = "interface IThing {};";

const Mistake MISTAKES[] = {
        {NO_TYPES, "interface IThing {\n    oneway a(int32_t x, float y);\n};",
         "IThing.hal:3: unknown type 'float'"},
        {NO_TYPES, "interface IThing {\n    oneway a()\n\n    oneway b();\n};",
         "IThing.hal:3: expected ; before 'oneway'"},
        {NO_TYPES, "interface IThing {\n    oneway a();\n    a(int8_t x);\n};",
         "IThing.hal:4: method 'a' stands twice"},
        {NO_TYPES,
         "interface IThing {\n    /**\n     * Does.\n     * @param y gone\n     */\n"
         "    oneway a(int8_t x);\n};",
         "IThing.hal:7: comment on 'y', which is no argument"},
        {"struct A { int8_t[0] x; };", EMPTY, "types.hal:2: array without elements"},
};

class GeneratorTest : public testing::Test {
protected:
    GeneratorTest() { std::filesystem::create_directories(mFolder); }
    ~GeneratorTest() override { std::filesystem::remove_all(mFolder); }

    std::string write(const char* name, const std::string& text) {
        std::ofstream(mFolder / name) << "package a.b@1.0;\n" << text << "\n";
        return " " + (mFolder / name).string();
    }

    const std::filesystem::path mFolder =
            std::filesystem::temp_directory_path() / ("hidl-gen-test-" + std::to_string(getpid()));
};

TEST_F(GeneratorTest, stopsWithFileLineAndReason) {
    for (const Mistake& mistake : MISTAKES) {
        const std::string files = write("types.hal", mistake.types) +  //
                                  write("IThing.hal", mistake.interface);
        const std::string command = HIDL_GEN " " + (mFolder / "out").string() + files + " 2>&1";
        FILE* run = popen(command.c_str(), "r");
        ASSERT_NE(run, nullptr);
        char output[4096];
        const std::string message(output, fread(output, 1, sizeof(output), run));
        EXPECT_EQ(WEXITSTATUS(pclose(run)), 1);
        EXPECT_EQ(message, mFolder.string() + "/" + mistake.message + "\n");
        EXPECT_FALSE(std::filesystem::exists(mFolder / "out")) << "half a package was written";
    }
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

struct Mistake {
    const char* name;
    const char* types;      ///< after the package line
    const char* interface;  ///< after the package line, in IThing.hal
    const char* message;    ///< file, line and reason
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.name;
}

constexpr const char* NO_TYPES = "";
constexpr const char* EMPTY = "interface IThing {};";

const Mistake MISTAKES[] = {
        {"UnknownType", NO_TYPES, "interface IThing {\n    oneway a(int32_t x, float y);\n};",
         "IThing.hal:3: unknown type 'float'"},
        {"MissingSemicolon", NO_TYPES, "interface IThing {\n    oneway a()\n\n    oneway b();\n};",
         "IThing.hal:3: expected ; before 'oneway'"},
        {"MethodTwice", NO_TYPES, "interface IThing {\n    oneway a();\n    a(int8_t x);\n};",
         "IThing.hal:4: method 'a' stands twice"},
        {"CommentOnNoArgument", NO_TYPES,
         "interface IThing {\n    /**\n     * Does.\n     * @param y gone\n     */\n"
         "    oneway a(int8_t x);\n};",
         "IThing.hal:7: comment on 'y', which is no argument"},
        {"EmptyArray", "struct A { int8_t[0] x; };", EMPTY, "types.hal:2: array without elements"},
};

class GeneratorTest : public testing::TestWithParam<Mistake> {
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

TEST_P(GeneratorTest, stopsWithFileLineAndReason) {
    const std::string files = write("types.hal", GetParam().types) +  //
                              write("IThing.hal", GetParam().interface);
    const std::string command = HIDL_GEN " " + (mFolder / "out").string() + files + " 2>&1";
    FILE* run = popen(command.c_str(), "r");
    ASSERT_NE(run, nullptr);
    char output[4096];
    const std::string message(output, fread(output, 1, sizeof output, run));
    EXPECT_EQ(WEXITSTATUS(pclose(run)), 1);
    EXPECT_EQ(message.substr(0, mFolder.string().size() + 1), mFolder.string() + "/");
    EXPECT_NE(message.find(GetParam().message), std::string::npos) << message;
    EXPECT_EQ(message.find('\n'), message.size() - 1) << message;
    EXPECT_FALSE(std::filesystem::exists(mFolder / "out")) << "half a package was written";
}

INSTANTIATE_TEST_SUITE_P(Mistakes, GeneratorTest, testing::ValuesIn(MISTAKES),
                         [](const auto& test) { return test.param.name; });

}  // namespace

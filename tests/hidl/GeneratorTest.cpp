#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <vendor/lyr/modem/1.0/table.h>

using hal::Type;

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
        {"Return", NO_TYPES, "interface IThing { a() generates (int32_t x); };",
         "IThing.hal:2: return values are not understood"},
        {"CommentWithoutEnd", NO_TYPES, "/** Does.\ninterface IThing {};",
         "IThing.hal:2: comment without end"},
        {"CommentOnNoArgument", NO_TYPES,
         "interface IThing {\n    /**\n     * Does.\n     * @param y gone\n     */\n"
         "    oneway a(int8_t x);\n};",
         "IThing.hal:7: comment on 'y', which is no argument"},
        {"InterfaceAsMember", "struct A { IThing x; };", EMPTY,
         "types.hal:2: interface 'IThing' can only be an argument"},
        {"OtherName", NO_TYPES, "interface IOther {};",
         "IThing.hal:2: interface 'IOther' in a file of another name"},
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

TEST(TableTest, tellsShapesAndComments) {
    using namespace vendor::lyr::modem::V1_0;
    const hal::Method& setCallback = IModem_table.methods[0];
    EXPECT_FALSE(setCallback.oneway);
    EXPECT_EQ(setCallback.args[1].type->kind, Type::Kind::INTERFACE);
    EXPECT_STREQ(setCallback.args[1].doc, "takes the events");
    const hal::Method& getMbnList = IModemResponse_table.methods[5];
    EXPECT_EQ(getMbnList.code, 6U);
    EXPECT_TRUE(getMbnList.oneway);
    EXPECT_STREQ(getMbnList.doc, "The modem configurations that the device carries.");
    EXPECT_STREQ(getMbnList.args[0].type->fields[1].name, "serial");
    EXPECT_EQ(getMbnList.args[1].type->kind, Type::Kind::VEC);
    EXPECT_EQ(getMbnList.args[1].type->element->kind, Type::Kind::STRING);
    const Type& radioInfo = *IModemIndication_table.methods[1].args[1].type;
    EXPECT_EQ(radioInfo.fields[4].type->kind, Type::Kind::ARRAY);
    EXPECT_EQ(radioInfo.fields[4].type->count, 4U);
    EXPECT_STREQ(radioInfo.fields[4].type->name, "uint32_t[4]");
}

}  // namespace

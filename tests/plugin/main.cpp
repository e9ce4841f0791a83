#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

/** Runs the tests with a runtime folder of their own, which a death test's process shares. */
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    constexpr const char* MARK = "OX_TEST_HAS_RUNTIME_DIR";
    if (getenv(MARK) != nullptr) {
        return RUN_ALL_TESTS();
    }
    std::string folder = std::filesystem::temp_directory_path() / "ox-test-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        perror(folder.c_str());
        return 1;
    }
    setenv("OX_RUNTIME_DIR", folder.c_str(), 1);
    setenv(MARK, "1", 1);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

/** Runs the tests with a runtime folder of their own. */
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::string folder = std::filesystem::temp_directory_path() / "ox-test-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        return 1;
    }
    setenv("OX_RUNTIME_DIR", folder.c_str(), 1);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}

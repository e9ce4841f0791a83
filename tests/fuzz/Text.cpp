// Commands of the fake modem's text port: any line gets an answer of whole lines.

#include "desk/libmodemapi_vendor/src/Commands.h"
#include "tests/fuzz/Fuzz.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static std::string folder = std::filesystem::temp_directory_path() / "ox-fuzz-XXXXXX";
    require(mkdtemp(folder.data()) != nullptr, "a runtime folder");
    setenv("OX_RUNTIME_DIR", folder.c_str(), 1);
    atexit([] { std::filesystem::remove_all(folder); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string rest(data, data + size);
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        const std::string answer = fake::runCommand(rest.substr(0, end));
        require(answer.empty() || answer.back() == '\n', "an answer is of whole lines");
        rest.erase(0, end + 1);
    }
    fake::runCommand("forget");
    fake::runCommand("clear");
    return 0;
}

// The plug-in under schedules that the fuzzer makes: its bytes take the place of a seed's numbers,
// so that what was not reached yet is looked for, and the same model is held against what happens.

#include "tests/fuzz/Fuzz.h"
#include "tests/schedules/Run.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static const std::string folder = makeFolder();
    atexit([] { std::filesystem::remove_all(folder); });
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    try {
        runSchedule([&input] { return input.byte(); }, false);
    } catch (const std::runtime_error& error) {
        require(false, error.what());
    }
    return 0;
}

// What an operator types at the modem: lines are cut at their limit, and any line can be read.

#include "desk/libmodemapi_vendor/src/AtPort.h"
#include "tests/fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fake::AtLine typed;
    std::string output;
    for (size_t i = 0; i < size; ++i) {
        if (const auto line = typed.feed(static_cast<char>(data[i]), output)) {
            require(line->size() <= fake::AtLine::LENGTH_MAX + 1, "a line has its limit");
            const fake::AtRequest request = fake::parseAtLine(*line);
            require(request.kind == fake::AtRequest::EXTENDED || request.tokens.empty(),
                    "only extended commands have arguments");
        }
    }
    fake::parseAtLine({reinterpret_cast<const char*>(data), size});
    return 0;
}

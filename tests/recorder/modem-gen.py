"""Makes a modem that answers by a hash of all that it is given, from the header and its rows."""

import importlib.util
import pathlib
import sys

HEAD = """#include "modem_api.h"
#include <cstring>
#include <functional>
#include <thread>
#include <vector>
namespace {
modem_api_event_callback events;
std::vector<std::function<void()>> late;
void mix(uint64_t& seed, const void* data, size_t size) {
    for (size_t i = 0; i < size; ++i) seed = (seed ^ ((const uint8_t*)data)[i]) * 0x100000001b3;
}
uint64_t next(uint64_t& seed) { return (seed = seed * 6364136223846793005 + 1442695040888963407) >> 33; }
void fill(uint64_t& seed, void* data, size_t size) {
    for (size_t i = 0; i < size; ++i) ((uint8_t*)data)[i] = (uint8_t)next(seed);
}
void answer(uint64_t seed, void* cookie, modem_api_async_callback callback) {
    auto send = [=]() mutable {
        modem_async_response response;
        fill(seed, &response, sizeof(response));
        callback(&response, sizeof(response), cookie, (uint32_t)next(seed));
    };
    if (next(seed) % 2) send(); else late.push_back(send);
}
}
extern "C" MODEM_API_EXPORT void test_flush() {
    for (auto& send : late) send();
    late.clear();
}
extern "C" MODEM_API_EXPORT void test_event(int event, void* data, size_t size) { events(event, data, size); }
extern "C" MODEM_API_EXPORT void test_storm(int (*call)(int32_t), int threads, int calls) {
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i) all.emplace_back([=] { for (int j = 0; j < calls; ++j) call(j); });
    for (auto& thread : all) thread.join();
}
"""


def load(path):
    spec = importlib.util.spec_from_file_location("api_gen", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def function(api, f):
    yield f'extern "C" int {f.name}({", ".join(f"{p.type} {p.name}" for p in f.parameters)}) {{'
    yield f'uint64_t seed = {sum(map(ord, f.name))};'
    outs = []
    for p in f.parameters:
        if p.type == "modem_api_event_callback":
            yield f"events = {p.name};"
        elif not p.is_pointer or p.type != "void*" and "callback" not in p.type:
            if "callback" not in p.type:
                yield f"mix(seed, &{p.name}, sizeof({p.name}));"
        size = f"sizeof(*{p.name})" + (f" * {p.length}" if p.length else "")
        if p.element == "char" and "in" in p.words:
            size = f"strlen({p.name})"
        if p.words & {"in", "inout"}:
            yield f"mix(seed, {p.name}, {size});"
        if "out" in p.words:
            outs.append(f"fill(seed, {p.name}, {size});")
    yield from sorted(outs)
    yield from (f"*{p.name} = next(seed) % (*{p.name} + 1);" for p in f.parameters
                if "inout" in p.words)
    yield "const int result = next(seed) % 4 ? 0 : (int)next(seed);"
    if f.is_async:
        yield "if (result == 0) answer(seed, cookie, callback);"
    yield "return result;\n}"


if __name__ == "__main__":
    gen, header, rows, out = map(pathlib.Path, sys.argv[1:])
    modem = load(gen).Api(header.read_text(), rows.read_text())
    lines = [line for f in modem.functions for line in function(modem, f)]
    out.write_text(HEAD + "\n".join(lines) + "\n")

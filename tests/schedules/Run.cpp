#include "tests/schedules/Run.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/schedules/Model.h"

// The plug-in's properties go to the modem's double, in place of the library's files.
int property_set(const char* key, const char* value) {
    const allocations::Pause pause;
    return ScriptedModem::instance().enter(
            {"property_set", std::string(key) + ", " + value, nullptr});
}

int property_get(const char*, char* value, const char*) {
    *value = '\0';
    return 0;
}

namespace {

class Run {
public:
    Run(World::Random random, bool tells)
        : mTells(tells), mWorld(std::move(random), mEffects), mModel(mWorld, mEffects) {}

    void all() {
        install();
        for (const int service : {WDS, DMS, NAS, AT, SAR, PDC, VS}) {
            act({Action::EVENT, 0, recordOf(service)});
        }
        for (uint64_t left = 20 + mWorld.below(100); left > 0; --left) {
            act(mWorld.draw());
        }
        mWorld.calm();
        finish();
        mModel.checkEnd();
    }

private:
    template <class T>
    static Record recordOf(const T& value) {
        return {false, {reinterpret_cast<const char*>(&value), sizeof(value)}};
    }

    void install() { act({Action::INSTALL, 0, {}, nullptr, 0, {}, {}, 0, 0}); }

    void act(const Action& action) {
        mEffects.clear();
        mWorld.perform(action);
        if (mTells) {
            tell(action);
        }
        mModel.follow(action);
        mWorld.checkCookies();
    }

    void tell(const Action& action) const {
        printf("action %d %s serial %d number %llu callbacks %d %d failing %zd\n", action.kind,
               action.request != nullptr ? action.request->name : "", action.serial,
               static_cast<unsigned long long>(action.number), action.response, action.indication,
               static_cast<ssize_t>(action.failing));
        for (const Effect& effect : mEffects) {
            printf("    effect %d code %u client %d result %d %s\n", effect.kind, effect.code,
                   effect.client, effect.result,
                   effect.kind == Effect::CALL
                           ? effect.text.c_str()
                           : toHex(effect.text.data(), effect.text.size()).c_str());
        }
    }

    /** Everything that is under way comes to its end, and nothing stays in the cache. */
    void finish() {
        act({Action::QUEUE_LIMIT, 1024});
        for (const uint64_t works : {1, 3}) {
            act({Action::TRANSPORT, works});
        }
        install();
        while (desk::pendingMessages() != 0) {
            act({Action::STEP, mWorld.below(9)});
        }
        while (mWorld.pendingAnswers() != 0) {
            act({Action::ANSWER, 0, recordOf(modem_async_response{})});
        }
        for (size_t kind = 0; kind < std::size(TOKEN_EVENTS); ++kind) {
            while (!mWorld.tokens[kind].empty()) {
                const modem_pdc_meta_info_event event{0, 0, mWorld.tokens[kind][0], {}, 0};
                act({Action::EVENT, static_cast<uint64_t>(TOKEN_EVENTS[kind]), recordOf(event)});
            }
        }
        install();
    }

    const bool mTells;
    std::vector<Effect> mEffects;
    World mWorld;
    Model mModel;
};

}  // namespace

/** The files that load requests name, in a folder of their own, which becomes the current one. */
std::string makeFolder() {
    std::string folder = std::filesystem::temp_directory_path() / "ox-schedules-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr || chdir(folder.c_str()) != 0) {
        throw std::runtime_error("no folder for the files to load: " + folder);
    }
    for (const auto& [name, size] :
         {std::pair("empty", 0), {"one", 1}, {"full", 1800}, {"long", 2000}}) {
        std::ofstream file(name);
        for (int i = 0; i < size; ++i) {
            file.put(static_cast<char>(i % 251));
        }
    }
    return folder;
}

void runSchedule(World::Random random, bool tells) {
    Run(std::move(random), tells).all();
}

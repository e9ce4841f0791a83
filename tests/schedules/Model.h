#pragma once

#include "tests/schedules/World.h"

/**
 * What the plug-in has to do, told a second time and as plainly as it goes: single-threaded,
 * without records, messages or proxies. It follows what the plug-in did, effect by effect, takes
 * from it what the modem and the clients chose, and throws std::runtime_error at the first
 * difference.
 */
class Model {
public:
    Model(World& world, const std::vector<Effect>& effects);
    ~Model();

    /** Follows one action; all that the plug-in did has to be its consequence. */
    void follow(const Action& action);

    /** At the end: every request has its one answer, or is one that is without by definition. */
    void checkEnd() const;

private:
    class Rules;
    const std::unique_ptr<Rules> mRules;
};
